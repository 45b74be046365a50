#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <boost/system/error_code.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_types.h>

#include "filesystem/platform_tag.h"
#include "support/expect_exception.h"
#include "support/faulty_file_system_ops.h"
#include "support/in_memory_file_system_ops.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::ContentType;

// A literal copy of the extension table, row by row, so that any change to a row fails here.
struct TableRow {
  char16_t const* key;
  char16_t const* type;
};

constexpr TableRow kFileRows[] = {
    {u"jpeg", u"image/jpeg"},
    {u"png", u"image/png"},
    {u"gif", u"image/gif"},
    {u"bmp", u"image/bmp"},
    {u"svg", u"image/svg+xml"},
    {u"tif", u"image/tiff"},
    {u"tiff", u"image/tiff"},
    {u"txt", u"text/plain"},
    {u"html", u"text/html"},
    {u"json", u"application/json"},
    {u"xml", u"application/xml"},
    {u"ovc", u"text/plain"},
    {u"ovl", u"application/vnd.veltrance.orvane.code"},
    {u"ovm", u"application/vnd.veltrance.orvane.workspaceData"},
    {u"ovapp", u"application/vnd.veltrance.orvane.app"},
    {u"ovappinstall", u"application/vnd.veltrance.orvane.appInstaller"},
    {u"ovtbx", u"application/vnd.veltrance.orvane.toolbox"},
    {u"ovdatx", u"application/vnd.veltrance.orvane.data-export"},
    {u"ovproj", u"application/vnd.veltrance.project.archive"},
    {u"dyx", u"application/vnd.veltrance.dynalith.model"},
    {u"dyxp", u"application/vnd.veltrance.dynalith.protectedmodel"},
    {u"dydd", u"application/vnd.veltrance.dynalith.dataDictionary"},
    {u"dytx", u"application/vnd.veltrance.dynalith.template"},
    {u"fmx", u"application/vnd.veltrance.orvane.flowmarchchart"},
};

struct ExecutableRow {
  char16_t const* platform;
  char16_t const* key;
};

constexpr ExecutableRow kExecutableRows[] = {
    {u"linux-x86-64", u".ovxa64"},    {u"linux-arm-32", u".ovxlinuxarm"},
    {u"macos-x86-64", u".ovxmacx64"}, {u"win32", u".ovxw32"},
    {u"win64", u".ovxw64"},
};

constexpr char16_t kExecutable[] = u"application/vnd.veltrance.orvane.orvaneExecutable";

// A default that no row holds, so that a hit and a miss cannot be confused.
ContentType sentinel() { return ContentType(u"x-test/sentinel;marker=1"); }

std::string narrow(std::u16string const& text) { return std::string(text.begin(), text.end()); }

// ASCII upper case of a key, for the test that lookups do not fold case.
std::u16string upper(std::u16string text) {
  for (char16_t& c : text) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  return text;
}

TEST(ContentTypesTest, EveryFileRowGivesItsType) {
  for (TableRow const& row : kFileRows) {
    SCOPED_TRACE(narrow(row.key));
    ContentType found = lookupContentType(row.key, sentinel());
    EXPECT_EQ(found.toString(), row.type);
    EXPECT_TRUE(found.getParameters().empty());
  }
}

TEST(ContentTypesTest, EveryExecutableRowGivesTheExecutableTypeWithItsPlatform) {
  for (ExecutableRow const& row : kExecutableRows) {
    SCOPED_TRACE(narrow(row.key));
    ContentType found = lookupContentType(row.key, sentinel());
    EXPECT_EQ(found.toString(), std::u16string(kExecutable) + u";platform=" + row.platform);
    ContentType expected = getORVANEExecutableContentType();
    expected.addParameter(u"platform", row.platform);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(found.getParameterValue(u"platform"), row.platform);
    EXPECT_EQ(found.getParameters().size(), 1u);
  }
}

TEST(ContentTypesTest, Win64ExecutableNeedsItsDot) {
  ContentType executable = getORVANEExecutableContentType();
  executable.addParameter(u"platform", u"win64");
  EXPECT_EQ(lookupContentType(u".ovxw64", sentinel()), executable);
  EXPECT_EQ(lookupContentType(u"ovxw64", sentinel()), sentinel());
}

TEST(ContentTypesTest, ExecutableKeysWithoutTheirDotAreUnknown) {
  for (ExecutableRow const& row : kExecutableRows) {
    std::u16string const bare = std::u16string(row.key).substr(1);
    SCOPED_TRACE(narrow(bare));
    EXPECT_EQ(lookupContentType(bare, sentinel()).toString(), sentinel().toString());
  }
}

TEST(ContentTypesTest, FileKeysWithADotAreUnknown) {
  for (TableRow const& row : kFileRows) {
    std::u16string const dotted = u"." + std::u16string(row.key);
    SCOPED_TRACE(narrow(dotted));
    EXPECT_EQ(lookupContentType(dotted, sentinel()).toString(), sentinel().toString());
  }
}

TEST(ContentTypesTest, KeysInOtherCapitalsAreUnknown) {
  EXPECT_EQ(lookupContentType(u"JPEG", sentinel()), sentinel());
  EXPECT_EQ(lookupContentType(u"Txt", sentinel()), sentinel());
  EXPECT_EQ(lookupContentType(u".OVXW64", sentinel()), sentinel());
  for (TableRow const& row : kFileRows) {
    SCOPED_TRACE(narrow(row.key));
    EXPECT_EQ(lookupContentType(upper(row.key), sentinel()), sentinel());
  }
}

TEST(ContentTypesTest, NearMissesAreUnknown) {
  std::u16string const misses[] = {
      u"",          u"jpg",
      u"htm",       u".",
      u"txt ",      u" txt",
      u"tx",        u"txtx",
      u"ovx",       u"ovxa",
      u"..ovxa64",  u"json.",
      u"ovappinst", std::u16string(u"txt\0", 4),
      u"t\u00e9xt", u"/txt",
  };
  for (std::u16string const& miss : misses) {
    SCOPED_TRACE(narrow(miss));
    ContentType found = lookupContentType(miss, sentinel());
    EXPECT_EQ(found.toString(), sentinel().toString());
  }
}

TEST(ContentTypesTest, TifAndTiffGiveOneType) {
  EXPECT_EQ(lookupContentType(u"tif", sentinel()), lookupContentType(u"tiff", sentinel()));
  EXPECT_EQ(lookupContentType(u"tif", sentinel()), getTIFFContentType());
}

TEST(ContentTypesTest, CodeFilesArePlainTextAndTheCodeTypeBelongsToOvl) {
  EXPECT_EQ(lookupContentType(u"ovc", sentinel()), getTextContentType());
  EXPECT_EQ(lookupContentType(u"ovl", sentinel()), getORVANECodeContentType());
}

TEST(ContentTypesTest, UnknownExtensionGivesTheDefaultWithItsParameters) {
  ContentType defaultType(u"application/octet-stream;a=1;b=\"two words\"");
  ContentType found = lookupContentType(u"unknown", defaultType);
  EXPECT_EQ(found.toString(), defaultType.toString());
}

TEST(ContentTypesTest, ResultIsACopyOfTheRow) {
  ContentType first = lookupContentType(u".ovxa64", sentinel());
  first.addParameter(u"platform", u"changed");
  first.addParameter(u"extra", u"1");
  ContentType second = lookupContentType(u".ovxa64", sentinel());
  EXPECT_EQ(second.getParameterValue(u"platform"), u"linux-x86-64");
  EXPECT_FALSE(second.hasParameter(u"extra"));

  ContentType text = lookupContentType(u"txt", sentinel());
  text.addParameter(u"charset", u"utf-8");
  EXPECT_FALSE(lookupContentType(u"txt", sentinel()).hasParameter(u"charset"));
}

TEST(ContentTypesTest, ResultIsACopyOfTheDefault) {
  ContentType defaultType = sentinel();
  ContentType found = lookupContentType(u"nothing", defaultType);
  found.addParameter(u"marker", u"2");
  EXPECT_EQ(defaultType.getParameterValue(u"marker"), u"1");
}

// Each function against the text it must give, and every text parses to no parameters.
struct NamedType {
  char const* name;
  ContentType (*function)();
  char16_t const* text;
};

constexpr NamedType kFunctions[] = {
    {"BMP", getBMPContentType, u"image/bmp"},
    {"GIF", getGIFContentType, u"image/gif"},
    {"HTML", getHTMLContentType, u"text/html"},
    {"JPEG", getJPEGContentType, u"image/jpeg"},
    {"JSON", getJSONContentType, u"application/json"},
    {"PNG", getPNGContentType, u"image/png"},
    {"SVG", getSVGContentType, u"image/svg+xml"},
    {"TIFF", getTIFFContentType, u"image/tiff"},
    {"Text", getTextContentType, u"text/plain"},
    {"XML", getXMLContentType, u"application/xml"},
    {"ORVANEApp", getORVANEAppContentType, u"application/vnd.veltrance.orvane.app"},
    {"ORVANEAppInstaller", getORVANEAppInstallerContentType,
     u"application/vnd.veltrance.orvane.appInstaller"},
    {"ORVANECode", getORVANECodeContentType, u"application/vnd.veltrance.orvane.code"},
    {"ORVANEDataExport", getORVANEDataExportContentType,
     u"application/vnd.veltrance.orvane.data-export"},
    {"ORVANEDefault", getORVANEDefaultContentType,
     u"application/vnd.veltrance.orvane.filesystemDefault"},
    {"ORVANEExecutable", getORVANEExecutableContentType,
     u"application/vnd.veltrance.orvane.orvaneExecutable"},
    {"ORVANEProject", getORVANEProjectContentType, u"application/vnd.veltrance.project.archive"},
    {"ORVANEToolbox", getORVANEToolboxContentType, u"application/vnd.veltrance.orvane.toolbox"},
    {"ORVANEVariableData", getORVANEVariableDataContentType,
     u"application/vnd.veltrance.orvane.workspaceData"},
    {"DynalithDataDictionary", getDynalithDataDictionaryContentType,
     u"application/vnd.veltrance.dynalith.dataDictionary"},
    {"DynalithModel", getDynalithModelContentType, u"application/vnd.veltrance.dynalith.model"},
    {"DynalithProtectedModel", getDynalithProtectedModelContentType,
     u"application/vnd.veltrance.dynalith.protectedmodel"},
    {"DynalithTemplate", getDynalithTemplateContentType,
     u"application/vnd.veltrance.dynalith.template"},
    {"FlowmarchChart", getFlowmarchChartContentType,
     u"application/vnd.veltrance.orvane.flowmarchchart"},
};

TEST(ContentTypesTest, EveryFunctionGivesItsType) {
  for (NamedType const& named : kFunctions) {
    SCOPED_TRACE(named.name);
    ContentType type = named.function();
    EXPECT_EQ(type.toString(), named.text);
    EXPECT_TRUE(type.getParameters().empty());
  }
}

TEST(ContentTypesTest, EveryFunctionGivesANewValue) {
  ContentType first = getTextContentType();
  first.addParameter(u"charset", u"utf-8");
  EXPECT_FALSE(getTextContentType().hasParameter(u"charset"));
}

// The rows of the first group are the types of the functions, so that a file added by its
// extension and one added with a declared type meet the same value.
TEST(ContentTypesTest, FileRowsAgreeWithTheFunctions) {
  struct Pair {
    char16_t const* key;
    ContentType (*function)();
  };
  Pair const pairs[] = {
      {u"jpeg", getJPEGContentType},
      {u"png", getPNGContentType},
      {u"gif", getGIFContentType},
      {u"bmp", getBMPContentType},
      {u"svg", getSVGContentType},
      {u"tiff", getTIFFContentType},
      {u"txt", getTextContentType},
      {u"html", getHTMLContentType},
      {u"json", getJSONContentType},
      {u"xml", getXMLContentType},
      {u"ovl", getORVANECodeContentType},
      {u"ovm", getORVANEVariableDataContentType},
      {u"ovapp", getORVANEAppContentType},
      {u"ovappinstall", getORVANEAppInstallerContentType},
      {u"ovtbx", getORVANEToolboxContentType},
      {u"ovdatx", getORVANEDataExportContentType},
      {u"ovproj", getORVANEProjectContentType},
      {u"dyx", getDynalithModelContentType},
      {u"dyxp", getDynalithProtectedModelContentType},
      {u"dydd", getDynalithDataDictionaryContentType},
      {u"dytx", getDynalithTemplateContentType},
      {u"fmx", getFlowmarchChartContentType},
  };
  for (Pair const& pair : pairs) {
    SCOPED_TRACE(narrow(pair.key));
    EXPECT_EQ(lookupContentType(pair.key, sentinel()), pair.function());
  }
}

TEST(ContentTypesTest, BuildPlatformHasAnExecutableRow) {
  std::u16string const tag = detail::kPlatformTag;
  auto row = std::find_if(std::begin(kExecutableRows), std::end(kExecutableRows),
                          [&](ExecutableRow const& r) { return tag == r.platform; });
  if (row == std::end(kExecutableRows)) {
    GTEST_SKIP() << "no executable row for the platform " << narrow(tag);
  }
  EXPECT_EQ(lookupContentType(row->key, sentinel()).getParameterValue(u"platform"), tag);
#if defined(__linux__) && defined(__x86_64__)
  EXPECT_EQ(tag, u"linux-x86-64");
  EXPECT_STREQ(narrow(row->key).c_str(), ".ovxa64");
#endif
}

// The path form takes the extension as the file system gives it: without the dot.
struct PathCase {
  char16_t const* path;
  char16_t const* type;  // nullptr: the default
};

constexpr PathCase kPathCases[] = {
    {u"/data/report.json", u"application/json"},
    {u"report.json", u"application/json"},
    {u"/data/archive.tar.xml", u"application/xml"},
    {u"/data/picture.tif", u"image/tiff"},
    {u"/data/tool.ovappinstall", u"application/vnd.veltrance.orvane.appInstaller"},
    {u"/data/script.ovc", u"text/plain"},
    {u"/data/photo.jpg", nullptr},
    {u"/data/page.htm", nullptr},
    {u"/data/REPORT.JSON", nullptr},
    {u"/data/notes", nullptr},
    {u"/data/.txt", nullptr},
    {u"/data/trailing.", nullptr},
    {u"/data.txt/file", nullptr},
    {u"/bin/tool.ovxw64", nullptr},
    {u"/bin/tool.ovxa64", nullptr},
    {u"", nullptr},
};

TEST(ContentTypesTest, PathFormFindsFilesByTheirExtension) {
  opc::FileSystemOps& local = *opc::LocalFileSystemOps::getShared();
  opcvk_test::InMemoryFileSystemOps memory;
  for (PathCase const& c : kPathCases) {
    SCOPED_TRACE(narrow(c.path));
    std::u16string const want = c.type != nullptr ? c.type : sentinel().toString();
    EXPECT_EQ(lookupContentType(local, c.path, sentinel()).toString(), want);
    EXPECT_EQ(lookupContentType(memory, c.path, sentinel()).toString(), want);
  }
}

TEST(ContentTypesTest, PathFormAsksTheGivenFileSystemOnce) {
  opcvk_test::FaultyFileSystemOps faulty(std::make_shared<opcvk_test::InMemoryFileSystemOps>());
  EXPECT_EQ(lookupContentType(faulty, u"/a/b.png", sentinel()), getPNGContentType());
  EXPECT_EQ(faulty.callCount("doGetExtension"), 1);
}

TEST(ContentTypesTest, PathFormPassesAFailureOfTheFileSystemOn) {
  opcvk_test::FaultyFileSystemOps faulty(std::make_shared<opcvk_test::InMemoryFileSystemOps>());
  boost::system::error_code const code(EIO, boost::system::system_category());
  faulty.failOn("doGetExtension", code);
  try {
    lookupContentType(faulty, u"/a/b.png", sentinel());
    ADD_FAILURE() << "no exception";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(e.code(), code);
    EXPECT_NE(std::string(e.what()).find("/a/b.png"), std::string::npos) << e.what();
  }
}

TEST(ContentTypesTest, LookupsFromManyThreadsAgree) {
  std::vector<std::thread> threads;
  std::vector<int> mismatches(8, 0);
  for (std::size_t t = 0; t < mismatches.size(); ++t) {
    threads.emplace_back([t, &mismatches] {
      for (int round = 0; round < 200; ++round) {
        for (TableRow const& row : kFileRows) {
          if (lookupContentType(row.key, sentinel()).toString() != row.type) ++mismatches[t];
        }
        if (lookupContentType(u".ovxw32", sentinel()).getParameterValue(u"platform") != u"win32") {
          ++mismatches[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int count : mismatches) EXPECT_EQ(count, 0);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
