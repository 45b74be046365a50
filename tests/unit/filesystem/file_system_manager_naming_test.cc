#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/file_system_entry_access.h"
#include "support/temp_dir.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::detail::FileSystemEntryAccess;
using opc::vkservices::detail::FileSystemManagerAccess;
using opcvk_test::ManagedPackage;
using opcvk_test::noTime;
using opcvk_test::textType;
using opcvk_test::unknownPerms;

void addPart(Package& package, std::u16string const& name) {
  package.createPart(
      PartName(name), textType(),
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateContent, 0));
}

struct NamingCase {
  std::u16string path;
  std::vector<std::u16string> existing;
  std::u16string expected;
};

std::vector<NamingCase> const kCases = {
    {u"/a/b.txt", {}, u"/fsroot/a/b.txt"},
    {u"/a/b.txt", {u"/fsroot/a/b.txt"}, u"/fsroot/a/b_1.txt"},
    {u"/a/b", {u"/fsroot/a/b"}, u"/fsroot/a/b_1"},
    {u"/a/b.txt", {u"/fsroot/a"}, u"/fsroot/a_1/b.txt"},
    {u"/_rels/x.rels", {}, u"/fsroot/_rels_1/x.rels"},
    // Suffixes stack up on the candidate; there is no search for the smallest free number.
    {u"/a.txt", {u"/fsroot/a.txt", u"/fsroot/a_1.txt"}, u"/fsroot/a_1_2.txt"},
    // The last "." of the whole candidate takes the suffix, even in a folder segment.
    {u"/x.y/a", {u"/fsroot/x.y/a"}, u"/fsroot/x_1.y/a"},
    // An existing part below the candidate is a derived name as well.
    {u"/a", {u"/fsroot/a/b"}, u"/fsroot/a_1"},
    // Part names compare without regard to ASCII case.
    {u"/A.txt", {u"/fsroot/a.txt"}, u"/fsroot/A_1.txt"},
    // A blank is percent-encoded; "+" and "@" stay; the folders stay.
    {u"/my dir/a+b@c.txt", {}, u"/fsroot/my%20dir/a+b@c.txt"},
    {u"/\u00e9t\u00e9", {}, u"/fsroot/%C3%A9t%C3%A9"},
};

// The same table, checked against a package in memory and against one saved to a file and
// opened again for Modify, whose parts come from the archive.
TEST(FileSystemManagerNamingTest, NamesFollowTheTableInMemory) {
  for (auto const& c : kCases) {
    SCOPED_TRACE(opc::toUDEString(c.path));
    ManagedPackage p;
    for (auto const& name : c.existing) addPart(*p.package, name);
    EXPECT_EQ(FileSystemManagerAccess::makeUniquePartName(*p.manager, c.path).toString(),
              c.expected);
    // createFile uses exactly that name.
    FileSystemEntry const entry =
        p.manager->createFile(c.path, textType(), unknownPerms(), noTime());
    EXPECT_EQ(FileSystemEntryAccess::contentName(entry), c.expected);
    EXPECT_TRUE(p.package->hasPart(PartName(c.expected)));
  }
}

TEST(FileSystemManagerNamingTest, NamesFollowTheTableInSavedPackages) {
  opcvk_test::TempDir dir;
  int index = 0;
  for (auto const& c : kCases) {
    SCOPED_TRACE(opc::toUDEString(c.path));
    std::u16string const file = opc::toString(dir / ("p" + std::to_string(index++) + ".zip"));
    {
      auto package = Package::open(file, PackageAccess::Create);
      for (auto const& name : c.existing) addPart(*package, name);
      package->save();
    }
    auto package = Package::open(file, PackageAccess::Modify);
    FileSystemManager manager(*package, opc::FileSystemOpsSelector());
    EXPECT_EQ(FileSystemManagerAccess::makeUniquePartName(manager, c.path).toString(), c.expected);
  }
}

TEST(FileSystemManagerNamingTest, CounterStartsAfreshForEachCall) {
  ManagedPackage p;
  addPart(*p.package, u"/fsroot/a");
  FileSystemEntry const b = p.manager->createFile(u"/a/b", textType(), unknownPerms(), noTime());
  FileSystemEntry const c = p.manager->createFile(u"/a/c", textType(), unknownPerms(), noTime());
  EXPECT_EQ(FileSystemEntryAccess::contentName(b), u"/fsroot/a_1/b");
  EXPECT_EQ(FileSystemEntryAccess::contentName(c), u"/fsroot/a_1/c");
}

TEST(FileSystemManagerNamingTest, DeletedNameIsGivenAgain) {
  ManagedPackage p;
  FileSystemEntry const first =
      p.manager->createFile(u"/a.txt", textType(), unknownPerms(), noTime());
  EXPECT_EQ(FileSystemEntryAccess::contentName(first), u"/fsroot/a.txt");
  p.manager->deleteFile(first);
  FileSystemEntry const again =
      p.manager->createFile(u"/a.txt", textType(), unknownPerms(), noTime());
  EXPECT_EQ(FileSystemEntryAccess::contentName(again), u"/fsroot/a.txt");
}

TEST(FileSystemManagerNamingTest, NamingAsksThePackageNotTheTree) {
  ManagedPackage p;
  // A folder in the tree does not block a part name; only parts do.
  p.manager->createFolder(u"/a");
  EXPECT_EQ(FileSystemManagerAccess::makeUniquePartName(*p.manager, u"/a/b").toString(),
            u"/fsroot/a/b");
  // Nothing is created by asking.
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/a/b")));
}

TEST(FileSystemManagerNamingTest, PathWithoutAValidPartNameFailsBeforeAnythingChanges) {
  // A trailing "/" leaves an empty segment, and a segment of dots is not allowed.
  for (auto const& path :
       {std::u16string(u"/d/"), std::u16string(u"/d/.."), std::u16string(u"/.")}) {
    SCOPED_TRACE(opc::toUDEString(path));
    ManagedPackage p;
    EXPECT_THROW(p.manager->createFile(path, textType(), unknownPerms(), noTime()),
                 opc::model::InvalidPartName);
    EXPECT_FALSE(p.manager->hasEntry(u"/d"));
    EXPECT_TRUE(p.manager->getAllLeafs().empty());
  }
}

}  // namespace
