#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::Bytes;
using opcvk_test::makeZip;
using opcvk_test::minimalTypes;

std::string const kPrefix = "Invalid package (in memory): ";
std::string const kDoctype = "<?xml version=\"1.0\"?><!DOCTYPE x [<!ENTITY e \"boom\">]>";

struct HostileCase {
  char const* what;
  opcvk_test::Items items;
  std::string message;
};

TEST(PackageHostileTest, RefusesBrokenPackagesAtOpenNamingTheProblem) {
  std::vector<HostileCase> const cases = {
      {"no content types", {{"a.xml", "<a/>"}}, kPrefix + "it has no [Content_Types].xml"},
      {"part without type",
       {{"[Content_Types].xml", minimalTypes()}, {"a.bin", "x"}},
       kPrefix + "the part \"/a.bin\" has no content type"},
      {"part without extension",
       {{"[Content_Types].xml", minimalTypes()}, {"noext", "x"}},
       kPrefix + "the part \"/noext\" has no content type"},
      {"item that is no part name",
       {{"[Content_Types].xml", minimalTypes()}, {"a/./b.xml", "x"}},
       kPrefix + "Invalid part name \"/a/./b.xml\": segment \".\" is not allowed"},
      {"items naming one part",
       {{"[Content_Types].xml", minimalTypes()}, {"\xC3\xA9.xml", "x"}, {"%C3%A9.xml", "y"}},
       // Names are shown in the user's encoding.
       kPrefix + "the items \"" + opc::toUDEString(u"\xE9.xml") +
           "\" and \"%C3%A9.xml\" name the same part"},
      {"part and folder of it",
       {{"[Content_Types].xml", minimalTypes()}, {"a.xml", "x"}, {"a.xml/b.xml", "y"}},
       kPrefix + "the parts \"/a.xml\" and \"/a.xml/b.xml\" cannot both exist, since one name "
                 "is a folder of the other"},
      {"duplicate default",
       {{"[Content_Types].xml",
         "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
         "<Default Extension=\"xml\" ContentType=\"a/b\"/>"
         "<Default Extension=\"XML\" ContentType=\"a/c\"/></Types>"}},
       kPrefix + "[Content_Types].xml: the extension \"XML\" has more than one Default"},
      {"invalid content type",
       {{"[Content_Types].xml",
         "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
         "<Default Extension=\"xml\" ContentType=\"a/b;\"/></Types>"}},
       kPrefix + "[Content_Types].xml: Invalid content type \"a/b;\": a parameter must follow "
                 "\";\""},
      {"part inside the package's relationships part",
       {{"[Content_Types].xml", minimalTypes()}, {"_rels/.rels/x.xml", "x"}},
       kPrefix + "the part \"/_rels/.rels/x.xml\" lies inside the relationships part "
                 "\"/_rels/.rels\""},
      {"part inside a part's relationships part, another case",
       {{"[Content_Types].xml", minimalTypes()}, {"a/_RELS/b.xml.Rels/c/d.xml", "x"}},
       kPrefix + "the part \"/a/_RELS/b.xml.Rels/c/d.xml\" lies inside the relationships "
                 "part \"/a/_RELS/b.xml.Rels\""},
      {"part named as a folder of relationships parts",
       {{"[Content_Types].xml", minimalTypes()}, {"a/_rels", "x"}},
       kPrefix + "the part \"/a/_rels\" has the name of a folder of relationships parts "
                 "(\"_rels\")"},
      {"content types in another namespace",
       {{"[Content_Types].xml", "<Types xmlns=\"urn:other\"/>"}},
       ""},
      {"content types not XML", {{"[Content_Types].xml", "not xml at all"}}, ""},
      {"content types with DOCTYPE",
       {{"[Content_Types].xml", kDoctype +
                                    "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/"
                                    "content-types\"/>"}},
       ""},
  };
  for (HostileCase const& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes const bytes = makeZip(c.items);
    if (!c.message.empty()) {
      EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackage>(
          [&] { Package::openBuffer(bytes, PackageAccess::Read); }, c.message));
    } else {
      try {
        Package::openBuffer(bytes, PackageAccess::Read);
        ADD_FAILURE() << "opened";
      } catch (InvalidPackage const& e) {
        EXPECT_THAT(e.what(), ::testing::StartsWith(kPrefix + "[Content_Types].xml: XML error"));
      }
    }
  }
}

TEST(PackageHostileTest, TwoItemsEquivalentByCaseAreRefused) {
  Bytes const bytes =
      makeZip({{"[Content_Types].xml", minimalTypes()}, {"a.xml", "x"}, {"A.XML", "y"}});
  try {
    Package::openBuffer(bytes, PackageAccess::Read);
    ADD_FAILURE() << "opened";
  } catch (InvalidPackage const& e) {
    EXPECT_THAT(e.what(), ::testing::HasSubstr("A.XML"));
  }
}

TEST(PackageHostileTest, BrokenRelationshipsPartIsRefusedWhenReadNamingIt) {
  struct Case {
    char const* what;
    std::string xml;
    std::string suffix;  // after the prefix; empty: an XML error
  };
  std::string const prefix = kPrefix + "the relationships part \"/_rels/.rels\": ";
  std::vector<Case> const cases = {
      {"not XML", "<Relationships", ""},
      {"DOCTYPE",
       kDoctype + "<Relationships "
                  "xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\"/>",
       ""},
      {"no id", opcvk_test::relationshipsXml("<Relationship Type=\"http://t\" Target=\"a.xml\"/>"),
       "a Relationship element has no Id attribute"},
      {"duplicate id",
       opcvk_test::relationshipsXml("<Relationship Id=\"r\" Type=\"http://t\" Target=\"a.xml\"/>"
                                    "<Relationship Id=\"r\" Type=\"http://t\" Target=\"b.xml\"/>"),
       "the id \"r\" is given to more than one relationship"},
      {"bad mode",
       opcvk_test::relationshipsXml(
           "<Relationship Id=\"r\" Type=\"http://t\" Target=\"a.xml\" TargetMode=\"Far\"/>"),
       "the target mode \"Far\" is neither \"Internal\" nor \"External\""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    auto package = Package::openBuffer(
        makeZip({{"[Content_Types].xml", minimalTypes()}, {"_rels/.rels", c.xml}}),
        PackageAccess::Read);
    try {
      package->getRelationships();
      ADD_FAILURE() << "read";
    } catch (InvalidPackage const& e) {
      if (c.suffix.empty()) {
        EXPECT_THAT(e.what(), ::testing::StartsWith(prefix + "XML error"));
      } else {
        EXPECT_EQ(e.what(), prefix + c.suffix);
      }
    }
  }
}

TEST(PackageHostileTest, FolderEntriesAreNoParts) {
  auto package = Package::openBuffer(
      makeZip({{"[Content_Types].xml", minimalTypes()}, {"docs/", ""}, {"docs/a.xml", "<a/>"}}),
      PackageAccess::Read);
  EXPECT_EQ(package->getParts().size(), 1u);
}

TEST(PackageHostileTest, ContentTypesItemIsFoundWithoutRegardToCase) {
  auto package = Package::openBuffer(
      makeZip({{"[content_types].XML", minimalTypes()}, {"a.xml", "<a/>"}}), PackageAccess::Read);
  EXPECT_EQ(package->getParts().size(), 1u);
}

TEST(PackageHostileTest, StructurePartsAboveTheLimitAreRefused) {
  PackageOptions options;
  options.limits.maxStructurePartSize = 64;
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackage>(
      [&] {
        Package::openBuffer(makeZip({{"[Content_Types].xml", minimalTypes()}}), PackageAccess::Read,
                            options);
      },
      kPrefix + "[Content_Types].xml: it is larger than the limit of 64 bytes"));
}

// A part whose bytes disagree with what the archive declares opens, and reads fine up to the
// point where the lie shows: reading it to its end checks the declared size and CRC-32 and
// names the item.
TEST(PackageHostileTest, ReadingAPartToItsEndChecksItsSizeAndCrc) {
  struct Case {
    char const* what;
    void (*bend)(opcvk_test::ZipBuilderItem&);
    std::string message;
  };
  std::string const content(5000, 'x');
  char crc[11];
  std::snprintf(crc, sizeof crc, "0x%08X", static_cast<unsigned>(opcvk_test::crc32Of(content)));
  std::vector<Case> const cases = {
      {"wrong CRC", [](opcvk_test::ZipBuilderItem& i) { i.crc = 0x12345678; },
       "Invalid ZIP item \"a.txt\": CRC-32 mismatch (the directory gives 0x12345678, the data " +
           std::string(crc) + ")"},
      {"size too large", [](opcvk_test::ZipBuilderItem& i) { i.uncompressedSize = 5001; },
       "Invalid ZIP item \"a.txt\": its data gives 5000 bytes, fewer than the 5001 declared"},
      {"size too small", [](opcvk_test::ZipBuilderItem& i) { i.uncompressedSize = 4999; },
       "Invalid ZIP item \"a.txt\": its data gives more than the 4999 bytes declared"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    opcvk_test::ZipBuilder zip;
    zip.add("[Content_Types].xml", minimalTypes());
    c.bend(zip.add("a.txt", content));
    auto package = Package::openBuffer(zip.build(), PackageAccess::Read);
    InputStream& stream = package->getPart(PartName(u"/a.txt")).getInputStream();
    unsigned char buffer[100];
    EXPECT_EQ(stream.read(buffer, sizeof buffer), sizeof buffer);
    std::string message;
    try {
      while (stream.read(buffer, sizeof buffer) != 0) {
      }
    } catch (InvalidPartContent const& e) {
      message = e.what();
    }
    EXPECT_EQ(message, c.message);
  }
}

}  // namespace
}  // namespace model
}  // namespace opc
