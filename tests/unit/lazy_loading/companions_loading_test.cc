// libopcvkservices loads ICU and the regular-expression library only when a text or a value
// needs them: a plain package with names in UTF-8 and ASCII is packed, saved, read, walked and
// extracted under a UTF-8 locale without either.  The cases run in the order written when the
// program runs them together: those that must not load them come first.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <locale.h>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>
#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/model/package.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/process_maps.h"
#include "support/temp_dir.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CoreProperties;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;
using opcvk_test::isMapped;
using opcvk_test::rerunWithLibraryCopies;

bool icuLoaded() { return isMapped("libvki18n_icu") || isMapped("libicu"); }
bool regexLoaded() { return isMapped("libopcvkservices_regex") || isMapped("libboost_regex"); }

// The child of LoadFailuresNameTheLibraryAndTheLoadersReason, started as this program with the
// variable set, runs before any test: it checks a value and recodes a text where neither
// companion can be found, writes both messages to the file that the variable names, one a
// line, and ends.
constexpr char kChildVariable[] = "OPCVK_TEST_COMPANION_LOAD_FAILURE_OUT";

int runAsChild() {
  char const* out = std::getenv(kChildVariable);
  if (out == nullptr) return 0;
  {
    std::ofstream text(out);
    try {
      bool const valid = CoreProperties::isValidUUID(u"x");
      text << "checked: " << valid << "\n";
    } catch (opc::Exception const& e) {
      text << e.what() << "\n";
    }
    try {
      fl::i18n::codecvt_string_to_ustring const converter("Shift_JIS", true);
      text << "opened\n";
    } catch (fl::i18n::I18nError const& e) {
      text << e.what() << "\n";
    }
  }
  std::_Exit(0);
}

int const kRunAsChild = runAsChild();

std::u16string widened(std::string const& ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

void writeFile(std::filesystem::path const& path, std::string const& bytes) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string readFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Every path below `path` in the package, depth first, in the order the tree gives them.
void walk(FileSystemManager const& files, FileSystemEntry const& folder,
          std::vector<std::u16string>& paths) {
  auto const children = files.getChildren(folder);
  for (FileSystemEntry const& child : children.getEntries()) {
    paths.push_back(child.getPathName());
    if (child.isFolder()) walk(files, child, paths);
  }
}

// The names in UTF-8, as a tree on disk has them, and their package paths.
struct Item {
  char const* diskName;
  char16_t const* packagePath;
  char const* content;
};

std::vector<Item> const kItems = {
    {"readme.txt", u"/readme.txt", "plain ASCII text\n"},
    {"caf\xC3\xA9/cr\xC3\xA8me.txt", u"/caf\u00E9/cr\u00E8me.txt",
     "cr\xC3\xA8me br\xC3\xBBl\xC3\xA9\n"},
    {"\xE6\x97\xA5\xE6\x9C\xAC/\xE8\xAA\x9E.bin", u"/\u65E5\u672C/\u8A9E.bin",
     "\x01\x02\xFF binary"},
};

TEST(CompanionsLoadingTest, PlainPackageIsPackedReadWalkedAndExtractedWithoutEither) {
  ASSERT_FALSE(icuLoaded());
  ASSERT_FALSE(regexLoaded());
  locale_t const utf8 = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(utf8, nullptr);
  locale_t const previous = uselocale(utf8);

  opcvk_test::TempDir scratch;
  std::filesystem::path const source = std::filesystem::path(scratch.path()) / "source";
  for (Item const& item : kItems) writeFile(source / item.diskName, item.content);
  opc::FileSystemOpsSelector const selector;
  std::vector<unsigned char> bytes;
  {
    auto const package = Package::openBuffer({}, PackageAccess::Create);
    FileSystemManager files(*package, selector);
    files.addAll(widened(source.string()), TransformMode::ApplyTransforms);
    package->save();
    bytes = package->getBuffer();
  }
  auto const package = Package::openBuffer(bytes, PackageAccess::Read);
  FileSystemManager const files(*package, selector);
  EXPECT_EQ(files.getCreatedByEncoding(), u"UTF-8");
  std::vector<std::u16string> paths;
  walk(files, files.getRoot(), paths);
  EXPECT_EQ(paths.size(), 5u);
  for (Item const& item : kItems) {
    EXPECT_TRUE(files.hasEntry(item.packagePath));
    EXPECT_TRUE(files.getEntry(item.packagePath).isFile());
  }
  std::filesystem::path const back = std::filesystem::path(scratch.path()) / "back";
  FileSystemManager extracting(*package, selector);
  extracting.extractAll(widened(back.string()), RestoreMode::RestoreTimeAndPermissions,
                        TransformMode::ApplyTransforms, ReplaceMode::ReplaceNever);
  for (Item const& item : kItems) EXPECT_EQ(readFile(back / item.diskName), item.content);

  uselocale(previous);
  freelocale(utf8);
  EXPECT_FALSE(icuLoaded());
  EXPECT_FALSE(regexLoaded());
}

TEST(CompanionsLoadingTest, TextInALegacyEncodingLoadsIcuAndIsRecodedAsBefore) {
  opcvk_test::TempDir scratch;
  std::filesystem::path const source = std::filesystem::path(scratch.path()) / "source";
  // Latin-1: not UTF-8, so the detector and a converter are asked.
  writeFile(source / "latin1.txt",
            "Fran\xE7"
            "ais: d\xE9j\xE0 vu, tr\xE8s \xE9t\xE9.\n");
  opc::FileSystemOpsSelector const selector;
  auto const package = Package::openBuffer({}, PackageAccess::Create);
  FileSystemManager files(*package, selector);
  files.addAll(widened(source.string()), TransformMode::ApplyTransforms);
  EXPECT_TRUE(isMapped("libvki18n_icu"));
  std::filesystem::path const back = std::filesystem::path(scratch.path()) / "back";
  files.extractAll(widened(back.string()), RestoreMode::RestoreNothing,
                   TransformMode::ApplyTransforms, ReplaceMode::ReplaceNever);
  EXPECT_EQ(readFile(back / "latin1.txt"),
            "Fran\xC3\xA7"
            "ais: d\xC3\xA9j\xC3\xA0 vu, tr\xC3\xA8s \xC3\xA9t\xC3\xA9.\n");
  EXPECT_FALSE(regexLoaded());
}

TEST(CompanionsLoadingTest, ValueChecksLoadTheRegexLibraryAndGiveTheSameVerdicts) {
  EXPECT_TRUE(CoreProperties::isValidUUID(u"00000000-0000-0000-0000-000000000000"));
  EXPECT_TRUE(CoreProperties::isValidUUID(u"0123abcd-EF45-6789-abcd-ef0123456789"));
  EXPECT_FALSE(CoreProperties::isValidUUID(u"0123abcd-EF45-6789-abcd-ef012345678"));
  EXPECT_FALSE(CoreProperties::isValidUUID(u"0123abcd-EF45-6789-abcd-ef0123456789 "));
  EXPECT_TRUE(CoreProperties::isValidORVANERelease(u"R2011a"));
  EXPECT_FALSE(CoreProperties::isValidORVANERelease(u"r2011a"));
  EXPECT_FALSE(CoreProperties::isValidORVANERelease(u"R2011c"));
  EXPECT_TRUE(CoreProperties::isValidContentType(u"application/vnd.veltrance.foo.bar"));
  EXPECT_FALSE(CoreProperties::isValidContentType(u"application/vnd.veltrance.foo"));
  EXPECT_FALSE(CoreProperties::isValidContentType(u"text/vnd.veltrance.foo.bar"));
  EXPECT_TRUE(isMapped("libopcvkservices_regex"));
}

TEST(CompanionsLoadingTest, LoadFailuresNameTheLibraryAndTheLoadersReason) {
  // libopcvkservices and libvki18n copied alone into a folder that the loader searches first:
  // their companions are neither beside them nor anywhere the loader looks.
  opcvk_test::TempDir folder;
  std::filesystem::path const where(folder.path());
  std::string const out = (where / "messages.txt").string();
  ASSERT_EQ("", rerunWithLibraryCopies(where.string(), {"libopcvkservices.so.", "libvki18n.so."},
                                       kChildVariable, out));
  std::ifstream text(out);
  std::string regex;
  std::string icu;
  std::getline(text, regex);
  std::getline(text, icu);
  EXPECT_EQ(
      "The regular expression library libopcvkservices_regex.so.1 could not be loaded: "
      "libopcvkservices_regex.so.1: cannot open shared object file: No such file or directory",
      regex);
  EXPECT_EQ(
      "The ICU library libvki18n_icu.so.1 could not be loaded: libvki18n_icu.so.1: cannot open "
      "shared object file: No such file or directory",
      icu);
}

}  // namespace
