#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <gtest/gtest.h>

#include <fl/i18n/vk_locale.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_tree.h"
#include "support/expect_exception.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemEntryAlreadyExists;
using opc::vkservices::FileSystemEntryHasNoParent;
using opc::vkservices::FileSystemEntryNotFound;
using opcvk_test::ManagedPackage;
using opcvk_test::noTime;
using opcvk_test::textType;
using opcvk_test::unknownPerms;
using Paths = std::vector<std::u16string>;

template <typename Entries>
Paths pathsOf(Entries const& entries) {
  Paths paths;
  for (auto const& entry : entries) paths.push_back(entry.getPathName());
  return paths;
}

TEST(FileSystemManagerQueriesTest, NewManagerHasTheDefaultDocumentStrings) {
  ManagedPackage p;
  EXPECT_EQ(p.manager->getVersion(), u"2.0");
  EXPECT_EQ(p.manager->getCreatedByPlatform(), opc::vkservices::FileSystemTree::getBuildPlatform());
  EXPECT_EQ(p.manager->getCreatedByEncoding(),
            opc::toString(fl::i18n::VkLocale::global().getEncodingName(), true));
}

TEST(FileSystemManagerQueriesTest, NewManagerHoldsTheRootAlone) {
  ManagedPackage p;
  FileSystemEntry const root = p.manager->getRoot();
  EXPECT_TRUE(root.isFolder());
  EXPECT_EQ(root.getPathName(), u"/");
  EXPECT_TRUE(p.manager->hasEntry(u"/"));
  EXPECT_TRUE(p.manager->getChildren(u"/").empty());
  EXPECT_FALSE(p.manager->hasChildren(u"/"));
  EXPECT_TRUE(p.manager->getAllLeafs().empty());
  EXPECT_FALSE(p.manager->isEncryptionEnabled());
  EXPECT_FALSE(p.manager->isDecryptionEnabled());
}

TEST(FileSystemManagerQueriesTest, EmptyPathIsNotAnEntry) {
  ManagedPackage p;
  EXPECT_FALSE(p.manager->hasEntry(u""));
  EXPECT_THROW_MESSAGE(p.manager->getEntry(u""), FileSystemEntryNotFound,
                       "File system entry does not exist: ");
}

// Creation puts the root in front and mends backslashes; lookup mends backslashes only.  "." and
// ".." stay.  Three backslashes lose one and give "//e", which already begins with the root and
// is split by the tree into the folder "/" and the name "e".
TEST(FileSystemManagerQueriesTest, CreationAndLookupNormaliseDifferently) {
  struct Case {
    std::u16string created;
    std::u16string stored;
  };
  std::vector<Case> const cases = {
      {u"\\a\\b", u"/a/b"},     {u"a\\c", u"/a/c"}, {u"\\\\a\\d", u"/a/d"},    {u"\\\\\\e", u"/e"},
      {u"/f/../g", u"/f/../g"}, {u"/h/", u"/h/"},   {u"i/j.txt", u"/i/j.txt"}, {u"/K", u"/K"},
  };
  ManagedPackage p;
  for (auto const& c : cases) {
    SCOPED_TRACE(opc::toUDEString(c.created));
    EXPECT_EQ(p.manager->createFolder(c.created).getPathName(), c.stored);
    EXPECT_TRUE(p.manager->hasEntry(c.stored));
  }
  EXPECT_FALSE(p.manager->hasEntry(u"i/j.txt"));
  EXPECT_TRUE(p.manager->hasEntry(u"\\i\\j.txt"));
  EXPECT_TRUE(p.manager->hasEntry(u"\\\\i\\j.txt"));
  EXPECT_FALSE(p.manager->hasEntry(u"/k"));
  EXPECT_FALSE(p.manager->hasEntry(u"/g"));
}

TEST(FileSystemManagerQueriesTest, LookupIsCaseSensitive) {
  ManagedPackage p;
  p.manager->createFolder(u"/a");
  EXPECT_FALSE(p.manager->hasEntry(u"/A"));
  EXPECT_THROW_MESSAGE(p.manager->getEntry(u"/A"), FileSystemEntryNotFound,
                       "File system entry does not exist: /A");
}

TEST(FileSystemManagerQueriesTest, PathFormsRaiseNotFoundWithTheNormalisedPath) {
  ManagedPackage p;
  char const* const message = "File system entry does not exist: /x/y";
  EXPECT_THROW_MESSAGE(p.manager->getEntry(u"\\x\\y"), FileSystemEntryNotFound, message);
  EXPECT_THROW_MESSAGE(p.manager->getChildren(u"\\x\\y"), FileSystemEntryNotFound, message);
  EXPECT_THROW_MESSAGE(p.manager->hasChildren(u"\\x\\y"), FileSystemEntryNotFound, message);
  EXPECT_THROW_MESSAGE(p.manager->getParent(u"\\x\\y"), FileSystemEntryNotFound, message);
  EXPECT_THROW_MESSAGE(p.manager->hasParent(u"\\x\\y"), FileSystemEntryNotFound, message);
}

TEST(FileSystemManagerQueriesTest, ChildrenComeInOrderOfInsertion) {
  ManagedPackage p;
  p.manager->createFolder(u"/z");
  p.manager->createFile(u"/a.txt", textType(), unknownPerms(), noTime());
  p.manager->createLink(u"/m", u"z");
  p.manager->createFolder(u"/z/deep");
  EXPECT_EQ(pathsOf(p.manager->getChildren(u"/")), (Paths{u"/z", u"/a.txt", u"/m"}));
  EXPECT_EQ(pathsOf(p.manager->getChildren(p.manager->getRoot())),
            (Paths{u"/z", u"/a.txt", u"/m"}));
  EXPECT_TRUE(p.manager->hasChildren(u"/z"));
  EXPECT_TRUE(p.manager->hasChildren(p.manager->getEntry(u"/z")));
}

TEST(FileSystemManagerQueriesTest, FileWithoutChildrenHasAnEmptyResult) {
  ManagedPackage p;
  FileSystemEntry const file = p.manager->createFile(u"/f", textType(), unknownPerms(), noTime());
  EXPECT_TRUE(p.manager->getChildren(u"/f").empty());
  EXPECT_TRUE(p.manager->getChildren(file).empty());
  EXPECT_FALSE(p.manager->hasChildren(u"/f"));
  EXPECT_FALSE(p.manager->hasChildren(file));
}

TEST(FileSystemManagerQueriesTest, DeletedEntryGivesEmptyResultsButItsPathRaises) {
  ManagedPackage p;
  p.manager->createFile(u"/d/f", textType(), unknownPerms(), noTime());
  FileSystemEntry const folder = p.manager->getEntry(u"/d");
  p.manager->deleteFolder(folder);
  EXPECT_TRUE(p.manager->getChildren(folder).empty());
  EXPECT_FALSE(p.manager->hasChildren(folder));
  EXPECT_FALSE(p.manager->hasParent(folder));
  EXPECT_THROW_MESSAGE(p.manager->getParent(folder), FileSystemEntryHasNoParent,
                       "File system entry has no parent");
  EXPECT_THROW_MESSAGE(p.manager->getChildren(u"/d"), FileSystemEntryNotFound,
                       "File system entry does not exist: /d");
}

TEST(FileSystemManagerQueriesTest, ParentOfAChildOfTheRootIsTheRoot) {
  ManagedPackage p;
  FileSystemEntry const a = p.manager->createFolder(u"/a");
  EXPECT_EQ(p.manager->getParent(u"/a").getPathName(), u"/");
  EXPECT_EQ(p.manager->getParent(a), p.manager->getRoot());
  EXPECT_TRUE(p.manager->hasParent(u"/a"));
  EXPECT_TRUE(p.manager->hasParent(a));
  p.manager->createFolder(u"/a/b/c");
  EXPECT_EQ(p.manager->getParent(u"/a/b/c").getPathName(), u"/a/b");
}

TEST(FileSystemManagerQueriesTest, RootHasNoParent) {
  ManagedPackage p;
  EXPECT_FALSE(p.manager->hasParent(u"/"));
  EXPECT_FALSE(p.manager->hasParent(p.manager->getRoot()));
  EXPECT_THROW_MESSAGE(p.manager->getParent(u"/"), FileSystemEntryHasNoParent,
                       "File system entry has no parent");
  EXPECT_THROW_MESSAGE(p.manager->getParent(p.manager->getRoot()), FileSystemEntryHasNoParent,
                       "File system entry has no parent");
}

TEST(FileSystemManagerQueriesTest, LeafsAreAllEntriesWithoutChildrenInCodeUnitOrder) {
  ManagedPackage p;
  p.manager->createFile(u"/a/x", textType(), unknownPerms(), noTime());
  p.manager->createFile(u"/a.txt", textType(), unknownPerms(), noTime());
  p.manager->createLink(u"/b", u"/a/x");
  p.manager->createFolder(u"/empty");
  p.manager->createFolder(u"/a/sub");
  // "." sorts before "/", so "/a.txt" precedes "/a/x".
  EXPECT_EQ(pathsOf(p.manager->getAllLeafs()),
            (Paths{u"/a.txt", u"/a/sub", u"/a/x", u"/b", u"/empty"}));
}

TEST(FileSystemManagerQueriesTest, EntryHoldsWhatWasCreated) {
  ManagedPackage p;
  boost::posix_time::ptime const time(boost::gregorian::date(2020, 2, 3),
                                      boost::posix_time::hours(4) + boost::posix_time::seconds(6));
  FileSystemEntry const file =
      p.manager->createFile(u"/a/b.txt", textType(), opcvk_test::perms(0640), time);
  EXPECT_TRUE(file.isFile());
  EXPECT_EQ(file.getBaseName(), u"b.txt");
  EXPECT_EQ(file.getPermissions(), opcvk_test::perms(0640));
  EXPECT_EQ(file.getLastModifiedTime(), time);
  EXPECT_EQ(p.manager->getEntry(u"/a/b.txt"), file);
  FileSystemEntry const folder = p.manager->getEntry(u"/a");
  EXPECT_TRUE(folder.isFolder());
  EXPECT_EQ(folder.getPermissions(), FileSystemEntry::getUnknownPermissions());
  EXPECT_EQ(folder.getLastModifiedTime(), FileSystemEntry::getUnknownTime());
}

TEST(FileSystemManagerQueriesTest, SetSaveV1ManifestNeitherLoadsNorMarksDirty) {
  ManagedPackage p;
  p.manager->setSaveV1Manifest(true);
  // Not dirty: the save writes no manifest part.
  p.save();
  auto reopened =
      opc::model::Package::openBuffer(p.package->getBuffer(), opc::model::PackageAccess::Read);
  EXPECT_FALSE(reopened->hasPart(opc::model::PartName(u"/metadata/filesystemManifest.xml")));
}

}  // namespace
