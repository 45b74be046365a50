// The bounds of a path in the tree: every folder above a node is a node of its own, so a path
// may not ask for more of them, or longer ones, than the limits allow.
#include <string>

#include <gtest/gtest.h>

#include <opc/core/exception.h>

#include "filesystem/file_system_tree.h"
#include "support/expect_exception.h"
#include "unit/filesystem/file_system_tree_test_util.h"

namespace {

using opc::vkservices::FileSystemTree;
using opcvk_test::tree::file;
using opcvk_test::tree::folder;
using opcvk_test::tree::Paths;
using opcvk_test::tree::pathsOf;

// "/d/d/.../d", `levels` deep.
std::u16string chain(int levels) {
  std::u16string path;
  for (int i = 0; i < levels; ++i) path += u"/d";
  return path;
}

TEST(FileSystemTreeLimitsTest, TakesAPathOfTheLimitingDepth) {
  FileSystemTree tree;
  tree.addNode(file(chain(2048)));
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{chain(2048)});
  EXPECT_TRUE(tree.hasNode(chain(2047)));
}

TEST(FileSystemTreeLimitsTest, RefusesAPathDeeperThanTheLimitBeforeMakingAnyFolder) {
  FileSystemTree tree;
  // The message shows the first 64 units of the path.
  std::string shown;
  for (int i = 0; i < 32; ++i) shown += "/d";
  EXPECT_THROW_MESSAGE(
      tree.addNode(file(chain(2049))), opc::Exception,
      "A node name of 2049 levels is deeper than the limit of 2048:" + shown + "...");
  EXPECT_FALSE(tree.hasNode(u"/d"));
  EXPECT_TRUE(tree.leafNodes().empty());
}

TEST(FileSystemTreeLimitsTest, RefusesAHundredThousandLevelsAtOnce) {
  FileSystemTree tree;
  tree.addNode(folder(u"/d"));
  EXPECT_THROW(tree.addNode(folder(chain(100000))), opc::Exception);
  EXPECT_EQ(pathsOf(tree.leafNodes()), Paths{u"/d"});
}

TEST(FileSystemTreeLimitsTest, TakesAPathOfTheLimitingLength) {
  std::u16string const path = u"/" + std::u16string(32766, u'n');
  FileSystemTree tree;
  tree.addNode(file(path));
  EXPECT_TRUE(tree.hasNode(path));
}

TEST(FileSystemTreeLimitsTest, RefusesAPathLongerThanTheLimit) {
  FileSystemTree tree;
  EXPECT_THROW_MESSAGE(tree.addNode(file(u"/" + std::u16string(32767, u'n'))), opc::Exception,
                       "A node name of 32768 characters is longer than the limit of 32767:/" +
                           std::string(63, 'n') + "...");
  EXPECT_TRUE(tree.leafNodes().empty());
}

}  // namespace
