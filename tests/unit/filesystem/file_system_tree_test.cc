#include "filesystem/file_system_tree.h"

#include <algorithm>
#include <clocale>
#include <exception>
#include <functional>
#include <pthread.h>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <climits>
#include <gtest/gtest.h>

#include <fl/i18n/vk_locale.h>
#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/uri.h>

#include "support/expect_exception.h"
#include "unit/filesystem/file_system_tree_test_util.h"

namespace {

using boost::posix_time::ptime;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;
using opc::vkservices::FileSystemTree;
using opcvk_test::tree::file;
using opcvk_test::tree::folder;
using opcvk_test::tree::kNoTime;
using opcvk_test::tree::kSomeTime;
using opcvk_test::tree::kUnknown;
using opcvk_test::tree::Paths;
using opcvk_test::tree::pathsOf;

// Everything a caller can observe of a tree through its queries, for before/after checks.
struct Snapshot {
  Paths leaves;
  std::vector<Paths> childrenOfLeaves;
  std::vector<std::u16string> contentNames;

  explicit Snapshot(FileSystemTree const& tree) {
    for (FileSystemNode const& leaf : tree.leafNodes()) {
      leaves.push_back(leaf.getPathName());
      contentNames.push_back(leaf.getContentName());
    }
    for (char16_t const* path : {u"/", u"/a", u"/a/b"}) {
      childrenOfLeaves.push_back(pathsOf(tree.childNodes(path)));
    }
  }
  bool operator==(Snapshot const& other) const {
    return leaves == other.leaves && childrenOfLeaves == other.childrenOfLeaves &&
           contentNames == other.contentNames;
  }
};

TEST(FileSystemTreeTest, NewTreeHoldsOnlyTheRoot) {
  FileSystemTree const tree;
  EXPECT_TRUE(tree.hasNode(u"/"));
  EXPECT_FALSE(tree.hasChildNodes(u"/"));
  EXPECT_FALSE(tree.hasParentNode(u"/"));
  // The root alone is no leaf, although it has no children.
  EXPECT_TRUE(tree.leafNodes().empty());
  EXPECT_TRUE(tree.childNodes(u"/").empty());
  FileSystemNode const root = tree.findNode(u"/");
  EXPECT_EQ(root.getType(), FileSystemNodeType::Folder);
  EXPECT_EQ(root.getPathName(), u"/");
  EXPECT_EQ(root.getBaseName(), u"/");
  EXPECT_EQ(root.getParentPath(), u"");
  EXPECT_FALSE(root.getPermissions());
  EXPECT_FALSE(root.getLastModifiedTime());
}

TEST(FileSystemTreeTest, NewTreeDescribesTheRunningProcess) {
  FileSystemTree const tree;
  EXPECT_EQ(tree.getVersion(), u"2.0");
  EXPECT_EQ(tree.getEncoding(), opc::toString(fl::i18n::VkLocale::global().getEncodingName()));
  EXPECT_FALSE(tree.getEncoding().empty());
  EXPECT_EQ(tree.getPlatform(), FileSystemTree::getBuildPlatform());
#if defined(__linux__) && defined(__x86_64__)
  EXPECT_EQ(tree.getPlatform(), u"linux-x86-64");
#elif defined(__linux__) && defined(__aarch64__)
  EXPECT_EQ(tree.getPlatform(), u"linux-aarch64");
#elif defined(_WIN64)
  EXPECT_EQ(tree.getPlatform(), u"win64");
#endif
}

TEST(FileSystemTreeTest, EncodingIsThatOfTheGlobalLocaleAtConstruction) {
  std::string const saved = std::setlocale(LC_CTYPE, nullptr);
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
  FileSystemTree const tree;
  std::setlocale(LC_CTYPE, saved.c_str());
  EXPECT_EQ(tree.getEncoding(), u"UTF-8");
}

TEST(FileSystemTreeTest, AddingDeepPathMakesMissingFoldersTopDown) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b/c"));
  for (char16_t const* path : {u"/a", u"/a/b"}) {
    ASSERT_TRUE(tree.hasNode(path));
    FileSystemNode const made = tree.findNode(path);
    EXPECT_EQ(made.getType(), FileSystemNodeType::Folder);
    EXPECT_EQ(made.getContentName(), path);
    EXPECT_FALSE(made.getPermissions());
    EXPECT_FALSE(made.getLastModifiedTime());
  }
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), Paths{u"/a"});
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a")), Paths{u"/a/b"});
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a/b")), Paths{u"/a/b/c"});
  EXPECT_EQ(tree.findParentNode(u"/a/b/c").getPathName(), u"/a/b");
  EXPECT_EQ(tree.findParentNode(u"/a/b").getPathName(), u"/a");
  EXPECT_EQ(tree.findParentNode(u"/a").getPathName(), u"/");
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{u"/a/b/c"});
  FileSystemNode const leaf = tree.findNode(u"/a/b/c");
  EXPECT_EQ(leaf.getType(), FileSystemNodeType::File);
  EXPECT_EQ(*leaf.getPermissions(), 0644u);
}

TEST(FileSystemTreeTest, ExistingFoldersAreNotRemade) {
  FileSystemTree tree;
  tree.addNode(folder(u"/a"));
  tree.addNode(file(u"/a/b/c"));
  tree.addNode(file(u"/a/b/d"));
  EXPECT_EQ(*tree.findNode(u"/a").getPermissions(), 0755u);
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), Paths{u"/a"});
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a")), Paths{u"/a/b"});
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a/b")), (Paths{u"/a/b/c", u"/a/b/d"}));
}

TEST(FileSystemTreeTest, AddingSamePathTwiceRaisesAndChangesNothing) {
  FileSystemTree tree;
  tree.addNode(file(u"/a", u"/fsroot/first"));
  Snapshot const before(tree);
  EXPECT_THROW_MESSAGE(tree.addNode(file(u"/a", u"/fsroot/second")), opc::Exception,
                       "A node already exists with the name:/a");
  EXPECT_TRUE(Snapshot(tree) == before);
  EXPECT_EQ(tree.findNode(u"/a").getContentName(), u"/fsroot/first");
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), Paths{u"/a"});
}

TEST(FileSystemTreeTest, AddingAnImplicitFolderAgainRaises) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b"));
  EXPECT_THROW_MESSAGE(tree.addNode(folder(u"/a")), opc::Exception,
                       "A node already exists with the name:/a");
  EXPECT_THROW_MESSAGE(tree.addNode(folder(u"/")), opc::Exception,
                       "A node already exists with the name:/");
}

TEST(FileSystemTreeTest, MessagesNarrowPathsToAscii) {
  FileSystemTree tree;
  tree.addNode(file(u"/\u00e9t\u00e9"));
  EXPECT_THROW_MESSAGE(tree.addNode(file(u"/\u00e9t\u00e9")), opc::Exception,
                       "A node already exists with the name:/?t?");
}

TEST(FileSystemTreeTest, RelativePathRaisesAndChangesNothing) {
  FileSystemTree tree;
  tree.addNode(file(u"/a"));
  Snapshot const before(tree);
  EXPECT_THROW_MESSAGE(tree.addNode(file(u"a/b")), opc::Exception,
                       "A node name must begin with \"/\":a/b");
  EXPECT_THROW_MESSAGE(tree.addNode(file(u"x")), opc::Exception,
                       "A node name must begin with \"/\":x");
  EXPECT_TRUE(Snapshot(tree) == before);
  EXPECT_FALSE(tree.hasNode(u"a"));
  EXPECT_FALSE(tree.hasNode(u""));
  EXPECT_FALSE(tree.hasChildNodes(u""));
}

TEST(FileSystemTreeTest, EmptyPathRaises) {
  FileSystemTree tree;
  EXPECT_THROW_MESSAGE(tree.addNode(FileSystemNode()), opc::Exception,
                       "A node name must begin with \"/\":");
  EXPECT_FALSE(tree.hasNode(u""));
  EXPECT_TRUE(tree.leafNodes().empty());
}

TEST(FileSystemTreeTest, VeryLongRelativePathRaisesAtOnce) {
  std::u16string path = u"x";
  for (int i = 0; i < 100000; ++i) path += u"/x";
  FileSystemTree tree;
  try {
    tree.addNode(file(path));
    ADD_FAILURE() << "a relative path was accepted";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(std::string(e.what()).rfind("A node name must begin with \"/\":x/x/x/", 0), 0u);
  }
  EXPECT_TRUE(tree.leafNodes().empty());
}

// Runs `action` on a thread with a stack of `bytes`, so that a recursion as deep as a long
// path would overflow it, and passes on whatever it raised.
void runOnSmallStack(std::size_t bytes, std::function<void()> const& action) {
  struct Job {
    std::function<void()> const* action;
    std::exception_ptr error;
  } job{&action, nullptr};
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::max<std::size_t>(bytes, PTHREAD_STACK_MIN)),
            0);
  pthread_t thread;
  auto const body = [](void* argument) -> void* {
    auto* running = static_cast<Job*>(argument);
    try {
      (*running->action)();
    } catch (...) {
      running->error = std::current_exception();
    }
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, &job), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
  if (job.error) std::rethrow_exception(job.error);
}

TEST(FileSystemTreeTest, DeepPathNeedsNoDeepStack) {
  // The checks below copy the path of every ancestor, so the depth stays moderate and the
  // stack is made small instead: 2,000 levels of recursion would need several times the
  // 128 KiB given here.
  constexpr int kDepth = 2000;
  std::u16string path;
  for (int i = 0; i < kDepth; ++i) path += u"/d";
  FileSystemTree tree;
  runOnSmallStack(128 * 1024, [&] { tree.addNode(file(path)); });

  std::u16string ancestor = path;
  int levels = 0;
  while (ancestor != u"/") {
    ASSERT_TRUE(tree.hasNode(ancestor)) << levels;
    ASSERT_TRUE(tree.hasParentNode(ancestor)) << levels;
    std::u16string const parent = tree.findParentNode(ancestor).getPathName();
    ASSERT_EQ(pathsOf(tree.childNodes(parent)), Paths{ancestor});
    ancestor = parent;
    ++levels;
  }
  EXPECT_EQ(levels, kDepth);
  Paths leaves;
  runOnSmallStack(128 * 1024, [&] { leaves = pathsOf(tree.leafNodes()); });
  EXPECT_EQ(leaves, Paths{path});
}

TEST(FileSystemTreeTest, InsertionIgnoresTheKindOfTheParent) {
  FileSystemTree tree;
  tree.addNode(file(u"/a"));
  tree.addNode(file(u"/a/b"));
  EXPECT_EQ(tree.findNode(u"/a").getType(), FileSystemNodeType::File);
  EXPECT_TRUE(tree.hasChildNodes(u"/a"));
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{u"/a/b"});
}

TEST(FileSystemTreeTest, LinkIsStoredWithItsTarget) {
  FileSystemTree tree;
  tree.addNode(FileSystemNode::makeLinkNode(u"/l", u"/a/b", kUnknown, kNoTime));
  FileSystemNode const link = tree.findNode(u"/l");
  EXPECT_EQ(link.getType(), FileSystemNodeType::SymLink);
  EXPECT_EQ(link.getContentName(), u"/a/b");
  EXPECT_FALSE(tree.hasNode(u"/a/b"));
}

TEST(FileSystemTreeTest, ContentNamesOfEveryFormComeBackFromEveryQuery) {
  // A folder's content name is its path, a file's part is mostly "/fsroot" and its path, and
  // anything else is kept as given: each comes back whole, whichever query copies the node.
  FileSystemTree tree;
  tree.addNode(file(u"/d/x", u"/fsroot/d/x"));
  tree.addNode(file(u"/d/y", u"/fsroot/d/x"));
  tree.addNode(file(u"/d/z", u"/fsroot"));
  tree.addNode(FileSystemNode::makeLinkNode(u"/d/l", u"x", kUnknown, kNoTime));
  tree.addNode(folder(u"/d/e"));
  std::vector<std::u16string> const expected{u"/fsroot/d/x", u"/fsroot/d/x", u"/fsroot", u"x",
                                             u"/d/e"};
  std::vector<std::u16string> children;
  for (FileSystemNode const& child : tree.childNodes(u"/d")) {
    children.push_back(child.getContentName());
  }
  EXPECT_EQ(children, expected);
  std::vector<std::u16string> found;
  for (char16_t const* path : {u"/d/x", u"/d/y", u"/d/z", u"/d/l", u"/d/e"}) {
    found.push_back(tree.findNode(path).getContentName());
  }
  EXPECT_EQ(found, expected);
  std::vector<std::u16string> leaves;
  for (FileSystemNode const& leaf : tree.leafNodes()) leaves.push_back(leaf.getContentName());
  // In key order: "/d/e", "/d/l", "/d/x", "/d/y", "/d/z".
  EXPECT_EQ(leaves, (std::vector<std::u16string>{u"/d/e", u"x", u"/fsroot/d/x", u"/fsroot/d/x",
                                                 u"/fsroot"}));
}

TEST(FileSystemTreeTest, PartNamesOfEncodedPathsComeBackExactlyFromEveryQuery) {
  // A file whose part is named after a path that needed escapes gets its name back as the
  // naming of parts spells it; a name that only looks alike (lower-case escapes, a suffix of
  // a clash, a blank left as it is) comes back as it was given.
  std::u16string const accented = u"/d/caf\u00e9 \U0001F389+@~.txt";
  std::u16string const named = u"/fsroot" + opc::model::URI::encodeComponent(accented, "/+@");
  ASSERT_EQ(named, u"/fsroot/d/caf%C3%A9%20%F0%9F%8E%89+@~.txt");
  FileSystemTree tree;
  tree.addNode(file(accented, named));
  tree.addNode(file(u"/d/k\u00e9", u"/fsroot/d/k%c3%a9"));
  tree.addNode(file(u"/d/m\u00e9", u"/fsroot/d/m%C3%A9_1"));
  tree.addNode(file(u"/d/n o", u"/fsroot/d/n o%20"));
  tree.addNode(file(u"/d/\u0416", u"/fsroot/d/%D0%96"));
  std::vector<std::u16string> const expected{named, u"/fsroot/d/k%c3%a9", u"/fsroot/d/m%C3%A9_1",
                                             u"/fsroot/d/n o%20", u"/fsroot/d/%D0%96"};
  std::vector<std::u16string> children;
  for (FileSystemNode const& child : tree.childNodes(u"/d")) {
    children.push_back(child.getContentName());
  }
  EXPECT_EQ(children, expected);
  std::vector<std::u16string> found;
  for (std::u16string const& path :
       {accented, std::u16string(u"/d/k\u00e9"), std::u16string(u"/d/m\u00e9"),
        std::u16string(u"/d/n o"), std::u16string(u"/d/\u0416")}) {
    found.push_back(tree.findNode(path).getContentName());
  }
  EXPECT_EQ(found, expected);
  std::vector<std::u16string> visited;
  tree.visitLeaves([&](FileSystemTree::LeafView const& leaf) {
    visited.push_back(std::u16string(leaf.getContentName()));
  });
  // Leaves in the order of their paths, which here is the order they were added in.
  EXPECT_EQ(visited, expected);
}

TEST(FileSystemTreeTest, UnknownValuesComeBackUnset) {
  FileSystemTree tree;
  tree.addNode(FileSystemNode::makeFileNode(u"/f", u"/p", kUnknown, kNoTime));
  FileSystemNode const stored = tree.findNode(u"/f");
  EXPECT_FALSE(stored.getPermissions());
  EXPECT_FALSE(stored.getLastModifiedTime());
}

TEST(FileSystemTreeTest, RemovingTheOnlyChildMakesTheParentALeaf) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b"));
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{u"/a/b"});
  tree.removeNode(tree.findNode(u"/a/b"));
  EXPECT_FALSE(tree.hasNode(u"/a/b"));
  EXPECT_FALSE(tree.hasParentNode(u"/a/b"));
  EXPECT_FALSE(tree.hasChildNodes(u"/a"));
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{u"/a"});
}

TEST(FileSystemTreeTest, RemovingKeepsTheOrderOfTheOtherSiblings) {
  FileSystemTree tree;
  for (char16_t const* path : {u"/c", u"/a", u"/b", u"/d"}) tree.addNode(file(path));
  tree.removeNode(file(u"/a"));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), (Paths{u"/c", u"/b", u"/d"}));
}

TEST(FileSystemTreeTest, RemovingANodeLeavesItsChildrenInPlace) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b"));
  tree.addNode(file(u"/c"));
  tree.removeNode(tree.findNode(u"/a"));
  EXPECT_FALSE(tree.hasNode(u"/a"));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), Paths{u"/c"});
  // The child is still there by path, with its record of the parent, but no walk from the
  // root reaches it.
  EXPECT_TRUE(tree.hasNode(u"/a/b"));
  EXPECT_TRUE(tree.hasParentNode(u"/a/b"));
  EXPECT_TRUE(tree.hasChildNodes(u"/a"));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a")), Paths{u"/a/b"});
  EXPECT_EQ(pathsOf(tree.leafNodes()), (Paths{u"/a/b", u"/c"}));
  EXPECT_THROW_MESSAGE(tree.findParentNode(u"/a/b"), opc::Exception,
                       "A node does not exists with the name:/a");
}

TEST(FileSystemTreeTest, RemovingAnAbsentNodeChangesNothing) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b"));
  Snapshot const before(tree);
  tree.removeNode(file(u"/a/zz"));
  tree.removeNode(file(u"/q/r"));
  tree.removeNode(FileSystemNode());
  EXPECT_TRUE(Snapshot(tree) == before);
  EXPECT_FALSE(tree.hasChildNodes(u"/q"));
  EXPECT_FALSE(tree.hasChildNodes(u""));
}

TEST(FileSystemTreeTest, RemovingTheRootRaisesAndChangesNothing) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b"));
  Snapshot const before(tree);
  EXPECT_THROW_MESSAGE(tree.removeNode(tree.rootNode()), opc::Exception,
                       "The root node cannot be removed");
  EXPECT_TRUE(tree.hasNode(u"/"));
  EXPECT_TRUE(Snapshot(tree) == before);
  tree.addNode(file(u"/c"));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), (Paths{u"/a", u"/c"}));
}

TEST(FileSystemTreeTest, ChildrenComeInInsertionOrderLeavesInKeyOrder) {
  FileSystemTree tree;
  tree.addNode(file(u"/b"));
  tree.addNode(file(u"/a"));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), (Paths{u"/b", u"/a"}));
  EXPECT_EQ(pathsOf(tree.leafNodes()), (Paths{u"/a", u"/b"}));
}

TEST(FileSystemTreeTest, KeysOrderByUtf16CodeUnitAndCase) {
  FileSystemTree tree;
  // U+1F600 is the surrogate pair D83D DE00: by code unit it sorts before U+E000 and U+FFFF,
  // where an order by code point would put it last.
  Paths const inserted{u"/\uFFFF", u"/a",  u"/\U0001F600", u"/ab",     u"/B",
                       u"/\uE000", u"/a!", u"/A",          u"/\u00e9", u"/z"};
  for (std::u16string const& path : inserted) tree.addNode(file(path));
  EXPECT_EQ(pathsOf(tree.leafNodes()), (Paths{u"/A", u"/B", u"/a", u"/a!", u"/ab", u"/z",
                                              u"/\u00e9", u"/\U0001F600", u"/\uE000", u"/\uFFFF"}));
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), inserted);
  EXPECT_LT(std::u16string(u"/B"), std::u16string(u"/a"));
  EXPECT_LT(std::u16string(u"/z"), std::u16string(u"/\uFFFF"));
}

TEST(FileSystemTreeTest, CaseMakesDistinctNodes) {
  FileSystemTree tree;
  tree.addNode(file(u"/A", u"/upper"));
  tree.addNode(file(u"/a", u"/lower"));
  EXPECT_EQ(tree.findNode(u"/A").getContentName(), u"/upper");
  EXPECT_EQ(tree.findNode(u"/a").getContentName(), u"/lower");
}

TEST(FileSystemTreeTest, TrailingSlashPathIsKeptAsGiven) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/"));
  EXPECT_TRUE(tree.hasNode(u"/a/"));
  EXPECT_EQ(tree.findNode(u"/a").getType(), FileSystemNodeType::Folder);
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a")), Paths{u"/a/"});
}

TEST(FileSystemTreeTest, ReplaceOverwritesTheRecordOnly) {
  FileSystemTree tree;
  tree.addNode(file(u"/a/b"));
  tree.replaceNode(
      FileSystemNode::makeLinkNode(u"/a", u"/t", opc::Perms::Perms_tag(0700), kSomeTime));
  FileSystemNode const replaced = tree.findNode(u"/a");
  EXPECT_EQ(replaced.getType(), FileSystemNodeType::SymLink);
  EXPECT_EQ(replaced.getContentName(), u"/t");
  EXPECT_EQ(*replaced.getPermissions(), 0700u);
  EXPECT_EQ(pathsOf(tree.childNodes(u"/a")), Paths{u"/a/b"});
  EXPECT_EQ(pathsOf(tree.childNodes(u"/")), Paths{u"/a"});
  EXPECT_EQ(tree.findParentNode(u"/a/b").getContentName(), u"/t");
}

TEST(FileSystemTreeTest, ReplacingAnAbsentNodeRaisesAndChangesNothing) {
  FileSystemTree tree;
  tree.addNode(file(u"/a"));
  Snapshot const before(tree);
  EXPECT_THROW_MESSAGE(tree.replaceNode(file(u"/nope")), opc::Exception,
                       "A node does not exists with the name:/nope");
  EXPECT_FALSE(tree.hasNode(u"/nope"));
  EXPECT_TRUE(Snapshot(tree) == before);
}

TEST(FileSystemTreeTest, LookupsOfAbsentPathsRaiseInsteadOfInventing) {
  FileSystemTree tree;
  EXPECT_THROW_MESSAGE(tree.findNode(u"/x"), opc::Exception,
                       "A node does not exists with the name:/x");
  EXPECT_FALSE(tree.hasNode(u"/x"));
  EXPECT_THROW_MESSAGE(tree.findParentNode(u"/"), opc::Exception, "A node has no parent:/");
  EXPECT_THROW_MESSAGE(tree.findParentNode(u"/x"), opc::Exception, "A node has no parent:/x");
  EXPECT_FALSE(tree.hasParentNode(u"/x"));
  EXPECT_TRUE(tree.childNodes(u"/x").empty());
  EXPECT_FALSE(tree.hasChildNodes(u"/x"));
}

TEST(FileSystemTreeTest, QueriesReturnCopiesThatOutliveChanges) {
  FileSystemTree tree;
  tree.addNode(file(u"/a", u"/before"));
  FileSystemNode const found = tree.findNode(u"/a");
  std::vector<FileSystemNode> const children = tree.childNodes(u"/");
  tree.replaceNode(file(u"/a", u"/after"));
  tree.removeNode(file(u"/a"));
  EXPECT_EQ(found.getContentName(), u"/before");
  EXPECT_EQ(children.at(0).getContentName(), u"/before");
}

TEST(FileSystemTreeTest, RootNodeIsFreshNotTheStoredRecord) {
  FileSystemTree tree;
  tree.replaceNode(folder(u"/"));
  EXPECT_EQ(*tree.findNode(u"/").getPermissions(), 0755u);
  FileSystemNode const fresh = tree.rootNode();
  EXPECT_EQ(fresh.getType(), FileSystemNodeType::Folder);
  EXPECT_EQ(fresh.getPathName(), u"/");
  EXPECT_FALSE(fresh.getPermissions());
  EXPECT_FALSE(fresh.getLastModifiedTime());
}

TEST(FileSystemTreeTest, DocumentStringsAreWrittenAndVersionReset) {
  FileSystemTree tree;
  tree.setPlatform(u"win64");
  tree.setEncoding(u"windows-1252");
  tree.setVersion(u"1.0");
  EXPECT_EQ(tree.getPlatform(), u"win64");
  EXPECT_EQ(tree.getEncoding(), u"windows-1252");
  EXPECT_EQ(tree.getVersion(), u"1.0");
  tree.setPlatform(tree.getPlatform());
  tree.setEncoding(tree.getEncoding());
  tree.setVersion(tree.getVersion());
  EXPECT_EQ(tree.getPlatform(), u"win64");
  EXPECT_EQ(tree.getEncoding(), u"windows-1252");
  EXPECT_EQ(tree.getVersion(), u"1.0");
  tree.resetVersion();
  EXPECT_EQ(tree.getVersion(), u"2.0");
  EXPECT_EQ(FileSystemTree::getCurrentVersion(), u"2.0");
}

}  // namespace
