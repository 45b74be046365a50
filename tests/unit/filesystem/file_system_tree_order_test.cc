// The order of leaves, records kept for the children of removed nodes, and the storage of a
// FileSystemTree under many changes.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include "filesystem/file_system_tree.h"
#include "unit/filesystem/file_system_tree_test_util.h"

namespace {

using boost::posix_time::ptime;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;
using opc::vkservices::FileSystemTree;
using opcvk_test::tree::file;
using opcvk_test::tree::kNoTime;
using opcvk_test::tree::kSomeTime;
using opcvk_test::tree::kUnknown;
using opcvk_test::tree::Paths;
using opcvk_test::tree::pathsOf;

Paths visitedPaths(FileSystemTree const& tree) {
  Paths paths;
  tree.visitLeaves(
      [&](FileSystemTree::LeafView const& leaf) { paths.emplace_back(leaf.getPathName()); });
  return paths;
}

std::u16string numbered(int number) {
  std::string const digits = std::to_string(number);
  return std::u16string(digits.begin(), digits.end());
}

// What a caller sees of every leaf node, as forEachLeafNode hands them over.
std::vector<FileSystemNode> nodesOneAtATime(FileSystemTree const& tree) {
  std::vector<FileSystemNode> nodes;
  tree.forEachLeafNode([&](FileSystemNode&& node) { nodes.push_back(std::move(node)); });
  return nodes;
}

void expectSameNodes(std::vector<FileSystemNode> const& actual,
                     std::vector<FileSystemNode> const& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    ASSERT_EQ(actual[i].getPathName(), expected[i].getPathName()) << i;
    ASSERT_EQ(actual[i].getBaseName(), expected[i].getBaseName()) << i;
    ASSERT_EQ(actual[i].getContentName(), expected[i].getContentName()) << i;
    ASSERT_EQ(actual[i].getType(), expected[i].getType()) << i;
    ASSERT_TRUE(actual[i].getPermissions() == expected[i].getPermissions()) << i;
    ASSERT_TRUE(actual[i].getLastModifiedTime() == expected[i].getLastModifiedTime()) << i;
  }
}

std::u16string parentOf(std::u16string const& path) {
  std::size_t const slash = path.rfind(u'/');
  return slash == 0 ? std::u16string(u"/") : path.substr(0, slash);
}

TEST(FileSystemTreeOrderTest, DescendantsOfAFolderSortAmongSiblingsThatExtendItsName) {
  FileSystemTree tree;
  // "-" and "." sort before "/", "0" after it: the descendants of "/a" fall between them.
  for (char16_t const* path : {u"/a0", u"/a/z", u"/a.d", u"/a-c", u"/a/b/c", u"/a!"}) {
    tree.addNode(file(path));
  }
  Paths const expected{u"/a!", u"/a-c", u"/a.d", u"/a/b/c", u"/a/z", u"/a0"};
  EXPECT_EQ(pathsOf(tree.leafNodes()), expected);
  EXPECT_EQ(visitedPaths(tree), expected);
}

TEST(FileSystemTreeOrderTest, LeavesOfRandomTreesComeInKeyOrder) {
  // Names made of the characters on either side of "/" and of a few beyond ASCII, so that
  // names that extend each other are common.
  std::u16string const alphabet = u"-./0aB\u00e9\uFFFD";
  std::mt19937 random(20261124);
  for (int round = 0; round < 20; ++round) {
    FileSystemTree tree;
    std::set<std::u16string> present{u"/"};
    for (int i = 0; i < 300; ++i) {
      std::u16string path;
      int const depth = 1 + static_cast<int>(random() % 4);
      for (int level = 0; level < depth; ++level) {
        path += u'/';
        int const size = 1 + static_cast<int>(random() % 3);
        for (int c = 0; c < size; ++c) {
          char16_t const unit = alphabet[random() % alphabet.size()];
          path += unit == u'/' ? u'_' : unit;
        }
      }
      if (present.count(path) != 0) continue;
      tree.addNode(file(path));
      for (std::u16string at = path; at != u"/"; at = parentOf(at)) present.insert(at);
    }
    // Some leaves go, as the manager removes them: their parents may become leaves.
    for (int i = 0; i < 60; ++i) {
      Paths leaves = pathsOf(tree.leafNodes());
      std::u16string const gone = leaves[random() % leaves.size()];
      tree.removeNode(tree.findNode(gone));
      present.erase(gone);
    }
    std::set<std::u16string> parents;
    for (std::u16string const& path : present) {
      if (path != u"/") parents.insert(parentOf(path));
    }
    Paths expected;
    for (std::u16string const& path : present) {
      if (parents.count(path) == 0 && path != u"/") expected.push_back(path);
    }
    ASSERT_EQ(pathsOf(tree.leafNodes()), expected) << round;
    ASSERT_EQ(visitedPaths(tree), expected) << round;
    expectSameNodes(nodesOneAtATime(tree), tree.leafNodes());
    for (std::u16string const& path : present) {
      ASSERT_TRUE(tree.hasNode(path)) << round;
      ASSERT_EQ(tree.hasChildNodes(path), parents.count(path) != 0) << round;
    }
  }
}

TEST(FileSystemTreeOrderTest, LeafThatKeepsRemovedChildrenComesBeforeItsDescendants) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b/c"));
  tree.addNode(file(u"/a-x"));
  // "/a/b" goes but "/a/b/c" stays: "/a" has no child left to show and is a leaf again, yet
  // "/a/b/c" is still in the tree by path.
  tree.removeNode(tree.findNode(u"/a/b"));
  EXPECT_FALSE(tree.hasChildNodes(u"/a"));
  EXPECT_TRUE(tree.hasChildNodes(u"/a/b"));
  Paths const expected{u"/a", u"/a-x", u"/a/b/c"};
  EXPECT_EQ(pathsOf(tree.leafNodes()), expected);
  EXPECT_EQ(visitedPaths(tree), expected);
}

TEST(FileSystemTreeOrderTest, RemovingTheLastKeptDescendantForgetsTheKeptRecords) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b/c"));
  tree.removeNode(tree.findNode(u"/a/b"));
  tree.removeNode(tree.findNode(u"/a"));
  EXPECT_TRUE(tree.hasNode(u"/a/b/c"));
  tree.removeNode(tree.findNode(u"/a/b/c"));
  EXPECT_TRUE(tree.leafNodes().empty());
  EXPECT_FALSE(tree.hasChildNodes(u"/"));
  EXPECT_FALSE(tree.hasChildNodes(u"/a"));
  EXPECT_FALSE(tree.hasChildNodes(u"/a/b"));
  // Made again from nothing: the folders come back with unknown values.
  tree.addNode(file(u"/a/b/c"));
  EXPECT_FALSE(tree.findNode(u"/a/b").getPermissions());
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a")), Paths{u"/a/b"});
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{u"/a/b/c"});
}

TEST(FileSystemTreeOrderTest, ANodeAddedAgainGoesLastAndFindsTheChildrenItKept) {
  FileSystemTree tree;
  tree.addNode(file(u"/x/k"));
  tree.addNode(file(u"/y"));
  tree.removeNode(tree.findNode(u"/x"));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), Paths{u"/y"});
  tree.addNode(FileSystemNode::makeFolderNode(u"/x", opc::Perms::Perms_tag(0700), kNoTime));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), (Paths{u"/y", u"/x"}));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/x")), Paths{u"/x/k"});
  EXPECT_EQ(*tree.findNode(u"/x").getPermissions(), 0700u);
  EXPECT_EQ(tree.findParentNode(u"/x/k").getPathName(), u"/x");
}

TEST(FileSystemTreeOrderTest, DoubledLeadingSlashIsAnotherRecordThanTheSingleOne) {
  FileSystemTree tree;
  tree.addNode(file(u"//a/b"));
  EXPECT_TRUE(tree.hasNode(u"//a"));
  EXPECT_FALSE(tree.hasNode(u"/a"));
  tree.addNode(file(u"/a", u"/fsroot/single"));
  EXPECT_EQ(tree.findNode(u"/a").getContentName(), u"/fsroot/single");
  // The folder made for "//a" names itself as its node does.
  EXPECT_EQ(tree.findNode(u"//a").getPathName(), u"/a");
  EXPECT_EQ(tree.findNode(u"//a").getContentName(), u"/a");
  EXPECT_EQ(pathsOf(tree.leafNodes()), (Paths{u"//a/b", u"/a"}));
}

TEST(FileSystemTreeOrderTest, AddEntryStoresWhatTheMatchingNodeWould) {
  FileSystemTree byNode;
  FileSystemTree byEntry;
  auto const permissions = opc::Perms::Perms_tag(0640);
  byNode.addNode(FileSystemNode::makeFileNode(u"/d/f", u"/fsroot/d/f", permissions, kSomeTime));
  byEntry.addEntry(FileSystemNodeType::File, u"/d/f", u"/fsroot/d/f", permissions, kSomeTime);
  byNode.addNode(FileSystemNode::makeLinkNode(u"/d/l", u"../t", kUnknown, kNoTime));
  byEntry.addEntry(FileSystemNodeType::SymLink, u"/d/l", u"../t", kUnknown, kNoTime);
  byNode.addNode(FileSystemNode::makeFolderNode(u"//e", permissions, kNoTime));
  byEntry.addEntry(FileSystemNodeType::Folder, u"//e", u"/ignored", permissions, kNoTime);
  for (std::u16string const path : {u"/d", u"/d/f", u"/d/l", u"/e"}) {
    FileSystemNode const expected = byNode.findNode(path);
    FileSystemNode const stored = byEntry.findNode(path);
    EXPECT_EQ(stored.getType(), expected.getType());
    EXPECT_EQ(stored.getPathName(), expected.getPathName());
    EXPECT_EQ(stored.getContentName(), expected.getContentName());
    EXPECT_TRUE(stored.getPermissions() == expected.getPermissions());
    EXPECT_TRUE(stored.getLastModifiedTime() == expected.getLastModifiedTime());
  }
  EXPECT_FALSE(byEntry.hasNode(u"//e"));
  EXPECT_EQ(pathsOf(byEntry.leafNodes()), pathsOf(byNode.leafNodes()));
}

TEST(FileSystemTreeOrderTest, ManyRemovalsAndReplacementsKeepEveryOtherRecordIntact) {
  // Enough removals to move records around in the index, and enough replaced contents to
  // make the tree give back the text nobody uses.
  FileSystemTree tree;
  std::map<std::u16string, std::u16string> expected;
  for (int i = 0; i < 4000; ++i) {
    std::string const number = std::to_string(i);
    std::u16string const path = u"/f/" + std::u16string(1, static_cast<char16_t>(u'a' + i % 7)) +
                                u"/n" + std::u16string(number.begin(), number.end());
    tree.addNode(file(path, u"/p" + path));
    expected[path] = u"/p" + path;
  }
  Paths removed;
  int turn = 0;
  for (auto at = expected.begin(); at != expected.end();) {
    if (++turn % 2 == 0) {
      tree.removeNode(tree.findNode(at->first));
      removed.push_back(at->first);
      at = expected.erase(at);
    } else {
      ++at;
    }
  }
  for (int round = 0; round < 3; ++round) {
    for (auto& [path, part] : expected) {
      part = std::u16string(300, static_cast<char16_t>(u'A' + round)) + path;
      tree.replaceNode(file(path, part));
    }
  }
  for (auto const& [path, part] : expected) {
    ASSERT_TRUE(tree.hasNode(path));
    ASSERT_EQ(tree.findNode(path).getContentName(), part);
  }
  for (std::u16string const& path : removed) ASSERT_FALSE(tree.hasNode(path));
  Paths leaves;
  for (auto const& entry : expected) leaves.push_back(entry.first);
  EXPECT_EQ(pathsOf(tree.leafNodes()), leaves);
}

TEST(FileSystemTreeOrderTest, TenThousandLeavesComeOneAtATimeAsTheyComeAllAtOnce) {
  FileSystemTree tree;
  Paths expected;
  for (int folder = 0; folder < 100; ++folder) {
    std::u16string const parent = u"/d" + numbered(folder);
    for (int i = 0; i < 100; ++i) {
      std::u16string const path = parent + u"/\u00e9" + numbered(i);
      // Parts named after the path, numbered ones, folders and links: every form of content.
      switch (i % 4) {
        case 0:
          tree.addNode(file(path, u"/fsroot" + path));
          break;
        case 1:
          tree.addNode(file(path, u"/fsroot" + path + u"_1"));
          break;
        case 2:
          tree.addNode(opcvk_test::tree::folder(path));
          break;
        default:
          tree.addNode(FileSystemNode::makeLinkNode(path, u"../t", kUnknown, kNoTime));
      }
    }
  }
  // A removed leaf is in neither.
  tree.removeNode(tree.findNode(u"/d0/\u00e90"));
  std::vector<FileSystemNode> const all = tree.leafNodes();
  ASSERT_EQ(all.size(), 9'999u);
  expectSameNodes(nodesOneAtATime(tree), all);
}

}  // namespace
