#include <atomic>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/vkservices/file_system_entry.h>

#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "support/file_system_entry_access.h"

namespace {

using boost::posix_time::ptime;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemTree;
using Access = opc::vkservices::detail::FileSystemEntryAccess;

ptime const kNoTime{boost::posix_time::not_a_date_time};
ptime const kSomeTime{boost::gregorian::date(2019, 7, 1), boost::posix_time::seconds(42)};
constexpr auto kUnknown = static_cast<opc::Perms::Perms_tag>(65535);
constexpr auto kMode = static_cast<opc::Perms::Perms_tag>(0640);

FileSystemEntry fileEntry(std::u16string const& path, std::u16string const& part,
                          opc::Perms::Perms_tag permissions = kMode, ptime time = kSomeTime) {
  return Access::make(FileSystemNode::makeFileNode(path, part, permissions, time));
}

FileSystemEntry folderEntry(std::u16string const& path, opc::Perms::Perms_tag permissions = kMode,
                            ptime time = kSomeTime) {
  return Access::make(FileSystemNode::makeFolderNode(path, permissions, time));
}

FileSystemEntry linkEntry(std::u16string const& path, std::u16string const& target,
                          opc::Perms::Perms_tag permissions = kMode, ptime time = kSomeTime) {
  return Access::make(FileSystemNode::makeLinkNode(path, target, permissions, time));
}

TEST(FileSystemEntryTest, OnlyTheManagerCanMakeOne) {
  static_assert(!std::is_default_constructible<FileSystemEntry>::value, "no empty entries");
  static_assert(!std::is_constructible<FileSystemEntry, FileSystemNode const&>::value,
                "wrapping a node is private");
  static_assert(std::is_copy_constructible<FileSystemEntry>::value, "a value");
  static_assert(std::is_copy_assignable<FileSystemEntry>::value, "a value");
  static_assert(!std::is_polymorphic<FileSystemEntry>::value, "no virtual operations");
  static_assert(sizeof(FileSystemEntry) == sizeof(std::shared_ptr<int>), "one pointer only");
  SUCCEED();
}

TEST(FileSystemEntryTest, StaticsGiveTheRootAndTheUnknownValues) {
  EXPECT_EQ(FileSystemEntry::getRootName(), u"/");
  EXPECT_EQ(FileSystemEntry::getUnknownPermissions(), 65535u);
  EXPECT_TRUE(FileSystemEntry::getUnknownTime().is_not_a_date_time());
}

TEST(FileSystemEntryTest, RootEntryIsAnUnknownFolder) {
  FileSystemTree const tree;
  FileSystemEntry const root = Access::make(tree.findNode(u"/"));
  EXPECT_TRUE(root.isFolder());
  EXPECT_FALSE(root.isFile());
  EXPECT_FALSE(root.isLink());
  EXPECT_EQ(root.getBaseName(), u"/");
  EXPECT_EQ(root.getPathName(), u"/");
  EXPECT_EQ(root.getPathName(), FileSystemEntry::getRootName());
  EXPECT_EQ(root.getPermissions(), FileSystemEntry::getUnknownPermissions());
  EXPECT_TRUE(root.getLastModifiedTime().is_not_a_date_time());
}

TEST(FileSystemEntryTest, NamesOfNestedAndTopLevelFiles) {
  FileSystemEntry const nested = fileEntry(u"/a/b.txt", u"/fsroot/1");
  EXPECT_TRUE(nested.isFile());
  EXPECT_FALSE(nested.isFolder());
  EXPECT_FALSE(nested.isLink());
  EXPECT_EQ(nested.getBaseName(), u"b.txt");
  EXPECT_EQ(nested.getPathName(), u"/a/b.txt");
  FileSystemEntry const top = fileEntry(u"/b.txt", u"/fsroot/2");
  EXPECT_EQ(top.getBaseName(), u"b.txt");
  EXPECT_EQ(top.getPathName(), u"/b.txt");
}

TEST(FileSystemEntryTest, KnownValuesAreReadBack) {
  FileSystemEntry const entry = fileEntry(u"/f", u"/p", kMode, kSomeTime);
  EXPECT_EQ(entry.getPermissions(), kMode);
  EXPECT_EQ(entry.getLastModifiedTime(), kSomeTime);
}

TEST(FileSystemEntryTest, FolderWithoutValuesReadsAsUnknown) {
  FileSystemEntry const entry = folderEntry(u"/d", kUnknown, kNoTime);
  EXPECT_TRUE(entry.isFolder());
  EXPECT_EQ(entry.getPermissions(), FileSystemEntry::getUnknownPermissions());
  EXPECT_TRUE(entry.getLastModifiedTime().is_not_a_date_time());
}

TEST(FileSystemEntryTest, LinkKeepsItsTargetForTheManagerOnly) {
  FileSystemEntry const link = linkEntry(u"/l", u"../t");
  EXPECT_TRUE(link.isLink());
  EXPECT_FALSE(link.isFile());
  EXPECT_FALSE(link.isFolder());
  EXPECT_EQ(Access::contentName(link), u"../t");
  EXPECT_EQ(Access::contentName(fileEntry(u"/f", u"/fsroot/f_1")), u"/fsroot/f_1");
  EXPECT_EQ(Access::contentName(folderEntry(u"/a/d")), u"/a/d");
}

TEST(FileSystemEntryTest, ContentNamesThatFollowFromThePathComeBackExactly) {
  // A part named after the path, and texts that come close to it without being it.
  EXPECT_EQ(Access::contentName(fileEntry(u"/a/b.txt", u"/fsroot/a/b.txt")), u"/fsroot/a/b.txt");
  EXPECT_EQ(Access::contentName(fileEntry(u"/a/b.txt", u"/fsroot/a/B.txt")), u"/fsroot/a/B.txt");
  EXPECT_EQ(Access::contentName(fileEntry(u"/a/b.txt", u"/fsroot/a/b.tx")), u"/fsroot/a/b.tx");
  EXPECT_EQ(Access::contentName(fileEntry(u"/a/b.txt", u"/fsrooX/a/b.txt")), u"/fsrooX/a/b.txt");
  EXPECT_EQ(Access::contentName(fileEntry(u"/a/b.txt", u"/a/b.txt")), u"/a/b.txt");
  EXPECT_EQ(Access::contentName(fileEntry(u"/a/b.txt", u"/fsroot")), u"/fsroot");
  EXPECT_EQ(Access::contentName(fileEntry(u"/\u00E9t\u00E9", u"/fsroot/%C3%A9t%C3%A9")),
            u"/fsroot/%C3%A9t%C3%A9");
  EXPECT_EQ(Access::contentName(fileEntry(u"/\u00E9t\u00E9", u"/fsroot/\u00E9t\u00E9")),
            u"/fsroot/\u00E9t\u00E9");
  // A link whose target is its own path, or the part its path would name.
  EXPECT_EQ(Access::contentName(linkEntry(u"/l", u"/l")), u"/l");
  EXPECT_EQ(Access::contentName(linkEntry(u"/l", u"/fsroot/l")), u"/fsroot/l");
  // The names split as before whatever the content.
  FileSystemEntry const file = fileEntry(u"/a/b.txt", u"/fsroot/a/b.txt");
  EXPECT_EQ(file.getPathName(), u"/a/b.txt");
  EXPECT_EQ(file.getBaseName(), u"b.txt");
  EXPECT_EQ(folderEntry(u"/a/d").getBaseName(), u"d");
}

TEST(FileSystemEntryTest, EntryIsASnapshotOfTheNodeAndTree) {
  auto tree = std::make_unique<FileSystemTree>();
  tree->addNode(FileSystemNode::makeFileNode(u"/a/f", u"/old", kMode, kSomeTime));
  FileSystemEntry const before = Access::make(tree->findNode(u"/a/f"));
  tree->replaceNode(FileSystemNode::makeFileNode(u"/a/f", u"/new", kUnknown, kNoTime));
  FileSystemEntry const after = Access::make(tree->findNode(u"/a/f"));
  tree->removeNode(tree->findNode(u"/a/f"));
  tree.reset();
  EXPECT_EQ(before.getPathName(), u"/a/f");
  EXPECT_EQ(Access::contentName(before), u"/old");
  EXPECT_EQ(before.getPermissions(), kMode);
  EXPECT_EQ(before.getLastModifiedTime(), kSomeTime);
  // A deleted and recreated file compares by what a caller sees: permissions and time.
  EXPECT_NE(before, after);
  EXPECT_EQ(after, fileEntry(u"/a/f", u"/elsewhere", kUnknown, kNoTime));
}

TEST(FileSystemEntryTest, PartNamesAndTargetsAreNotCompared) {
  EXPECT_EQ(fileEntry(u"/a/f", u"/fsroot/1"), fileEntry(u"/a/f", u"/fsroot/2"));
  EXPECT_FALSE(fileEntry(u"/a/f", u"/fsroot/1") != fileEntry(u"/a/f", u"/fsroot/2"));
  EXPECT_EQ(linkEntry(u"/l", u"/x"), linkEntry(u"/l", u"/y"));
}

TEST(FileSystemEntryTest, EqualityLooksAtEveryVisibleField) {
  FileSystemEntry const base = fileEntry(u"/a/f", u"/p");
  EXPECT_EQ(base, base);
  EXPECT_EQ(base, FileSystemEntry(base));
  EXPECT_EQ(base, fileEntry(u"/a/f", u"/p"));
  EXPECT_NE(base, fileEntry(u"/a/g", u"/p"));
  EXPECT_NE(base, fileEntry(u"/b/f", u"/p"));
  EXPECT_NE(base, fileEntry(u"/a/f", u"/p", opc::Perms::Perms_tag(0600)));
  EXPECT_NE(base, fileEntry(u"/a/f", u"/p", kUnknown));
  EXPECT_NE(base, fileEntry(u"/a/f", u"/p", kMode, kSomeTime + boost::posix_time::seconds(1)));
  EXPECT_NE(base, fileEntry(u"/a/f", u"/p", kMode, kNoTime));
  EXPECT_NE(base, linkEntry(u"/a/f", u"/p"));
  EXPECT_NE(base, folderEntry(u"/a/f"));
  EXPECT_TRUE(base != folderEntry(u"/a/f"));
}

TEST(FileSystemEntryTest, TwoUnknownTimesAndPermissionsAreEqual) {
  FileSystemEntry const a = fileEntry(u"/f", u"/p1", kUnknown, kNoTime);
  FileSystemEntry const b = fileEntry(u"/f", u"/p2", kUnknown, kNoTime);
  EXPECT_EQ(a, b);
  EXPECT_FALSE(a != b);
}

TEST(FileSystemEntryTest, FileAndFolderOfOnePathDiffer) {
  EXPECT_NE(fileEntry(u"/x", u"/x", kUnknown, kNoTime), folderEntry(u"/x", kUnknown, kNoTime));
  EXPECT_NE(folderEntry(u"/x", kUnknown, kNoTime), linkEntry(u"/x", u"/x", kUnknown, kNoTime));
}

TEST(FileSystemEntryTest, CopyOutlivesItsSource) {
  auto source = std::make_unique<FileSystemEntry>(fileEntry(u"/a/b.txt", u"/p"));
  FileSystemEntry const copy(*source);
  FileSystemEntry assigned = folderEntry(u"/other");
  assigned = *source;
  source.reset();
  FileSystemEntry const* const survivors[] = {&copy, &assigned};
  for (FileSystemEntry const* entry : survivors) {
    EXPECT_TRUE(entry->isFile());
    EXPECT_EQ(entry->getPathName(), u"/a/b.txt");
    EXPECT_EQ(entry->getBaseName(), u"b.txt");
    EXPECT_EQ(entry->getPermissions(), kMode);
    EXPECT_EQ(entry->getLastModifiedTime(), kSomeTime);
    EXPECT_EQ(Access::contentName(*entry), u"/p");
  }
}

TEST(FileSystemEntryTest, SelfAssignmentKeepsTheEntry) {
  FileSystemEntry entry = fileEntry(u"/s", u"/p");
  FileSystemEntry& alias = entry;
  entry = alias;
  EXPECT_TRUE(entry.isFile());
  EXPECT_EQ(entry.getPathName(), u"/s");
  EXPECT_EQ(Access::contentName(entry), u"/p");
}

TEST(FileSystemEntryTest, AssignmentReplacesTheSharedRecord) {
  FileSystemEntry a = fileEntry(u"/a", u"/pa");
  FileSystemEntry const b = folderEntry(u"/b");
  FileSystemEntry const keep(a);
  a = b;
  EXPECT_TRUE(a.isFolder());
  EXPECT_EQ(a.getPathName(), u"/b");
  EXPECT_TRUE(keep.isFile());
  EXPECT_EQ(keep.getPathName(), u"/a");
}

TEST(FileSystemEntryTest, CopiesMayBeMadeAndDroppedOnManyThreads) {
  constexpr int kThreads = 8;
  constexpr int kCopies = 100000;
  auto original = std::make_unique<FileSystemEntry>(fileEntry(u"/shared/f", u"/p"));
  std::atomic<bool> go{false};
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      while (!go.load()) std::this_thread::yield();
      std::vector<FileSystemEntry> kept;
      kept.reserve(16);
      for (int i = 0; i < kCopies; ++i) {
        FileSystemEntry copy(*original);
        if (kept.size() < 16) {
          kept.push_back(copy);
        } else {
          kept[static_cast<std::size_t>(i) % kept.size()] = copy;
        }
        if (i % 1024 == 0 && !(copy == *original && copy.isFile())) ++mismatches;
      }
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches.load(), 0);
  // Every copy is gone again; a count gone wrong would have freed the record already.
  FileSystemEntry const survivor(*original);
  original.reset();
  EXPECT_TRUE(survivor.isFile());
  EXPECT_EQ(survivor.getPathName(), u"/shared/f");
  EXPECT_EQ(survivor.getPermissions(), kMode);
  EXPECT_EQ(Access::contentName(survivor), u"/p");
}

}  // namespace
