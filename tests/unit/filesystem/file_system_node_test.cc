#include "filesystem/file_system_node.h"

#include <string>
#include <type_traits>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

namespace {

using boost::posix_time::ptime;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;

ptime const kNoTime{boost::posix_time::not_a_date_time};
ptime const kSomeTime{boost::gregorian::date(2021, 3, 14), boost::posix_time::hours(15)};
constexpr auto kUnknown = static_cast<opc::Perms::Perms_tag>(65535);

TEST(FileSystemNodeTest, KindHasFixedThirtyTwoBitValues) {
  static_assert(sizeof(FileSystemNodeType) == 4, "the kind is a 32-bit enumeration");
  EXPECT_EQ(static_cast<std::uint32_t>(FileSystemNodeType::File), 0u);
  EXPECT_EQ(static_cast<std::uint32_t>(FileSystemNodeType::SymLink), 1u);
  EXPECT_EQ(static_cast<std::uint32_t>(FileSystemNodeType::Folder), 2u);
}

TEST(FileSystemNodeTest, DefaultNodeIsEmptyFileWithUnsetFields) {
  FileSystemNode const node;
  EXPECT_EQ(node.getType(), FileSystemNodeType::File);
  EXPECT_EQ(node.getParentPath(), u"");
  EXPECT_EQ(node.getBaseName(), u"");
  EXPECT_EQ(node.getContentName(), u"");
  EXPECT_EQ(node.getPathName(), u"");
  EXPECT_FALSE(node.getPermissions());
  EXPECT_FALSE(node.getLastModifiedTime());
}

TEST(FileSystemNodeTest, FileNodeSplitsPathAndKeepsPartName) {
  FileSystemNode const node = FileSystemNode::makeFileNode(u"/a/b.txt", u"/fsroot/b_1.txt",
                                                           opc::Perms::Perms_tag(0644), kSomeTime);
  EXPECT_EQ(node.getType(), FileSystemNodeType::File);
  EXPECT_EQ(node.getParentPath(), u"/a");
  EXPECT_EQ(node.getBaseName(), u"b.txt");
  EXPECT_EQ(node.getContentName(), u"/fsroot/b_1.txt");
  EXPECT_EQ(node.getPathName(), u"/a/b.txt");
  ASSERT_TRUE(node.getPermissions());
  EXPECT_EQ(*node.getPermissions(), 0644u);
  ASSERT_TRUE(node.getLastModifiedTime());
  EXPECT_EQ(*node.getLastModifiedTime(), kSomeTime);
}

TEST(FileSystemNodeTest, LinkNodeKeepsTargetAsGiven) {
  FileSystemNode const node =
      FileSystemNode::makeLinkNode(u"/l", u"../x/./y", opc::Perms::Perms_tag(0777), kSomeTime);
  EXPECT_EQ(node.getType(), FileSystemNodeType::SymLink);
  EXPECT_EQ(node.getContentName(), u"../x/./y");
  EXPECT_EQ(node.getParentPath(), u"/");
  EXPECT_EQ(node.getBaseName(), u"l");
}

TEST(FileSystemNodeTest, FolderNodeContentNameIsItsOwnPath) {
  FileSystemNode const node = FileSystemNode::makeFolderNode(u"/a/b", opc::Perms::none, kNoTime);
  EXPECT_EQ(node.getType(), FileSystemNodeType::Folder);
  EXPECT_EQ(node.getContentName(), u"/a/b");
  EXPECT_EQ(node.getPathName(), u"/a/b");
  // Zero is a real permission value and is kept.
  ASSERT_TRUE(node.getPermissions());
  EXPECT_EQ(*node.getPermissions(), opc::Perms::none);
}

// "//a" is the folder "a" under the root; its content name must say so too, or the folder
// would be written under one name and read back under another.
TEST(FileSystemNodeTest, FolderNodeContentNameIsThePathItKeeps) {
  FileSystemNode const node = FileSystemNode::makeFolderNode(u"//a", kUnknown, kNoTime);
  EXPECT_EQ(node.getPathName(), u"/a");
  EXPECT_EQ(node.getContentName(), u"/a");
}

TEST(FileSystemNodeTest, RootHasEmptyParentAndSlashBaseName) {
  FileSystemNode const root = FileSystemNode::makeFolderNode(u"/", kUnknown, kNoTime);
  EXPECT_EQ(root.getParentPath(), u"");
  EXPECT_EQ(root.getBaseName(), u"/");
  EXPECT_EQ(root.getPathName(), u"/");
  EXPECT_EQ(root.getContentName(), u"/");
}

TEST(FileSystemNodeTest, ChildOfRootHasNoDoubledSlash) {
  FileSystemNode const node = FileSystemNode::makeFileNode(u"/b.txt", u"/p", kUnknown, kNoTime);
  EXPECT_EQ(node.getParentPath(), u"/");
  EXPECT_EQ(node.getBaseName(), u"b.txt");
  EXPECT_EQ(node.getPathName(), u"/b.txt");
}

struct PathCase {
  std::u16string path;
  std::u16string parentPath;
  std::u16string baseName;
  std::u16string pathName;
};

class FileSystemNodePathTest : public ::testing::TestWithParam<PathCase> {};

TEST_P(FileSystemNodePathTest, PathNameIsRebuiltFromParentAndBaseName) {
  PathCase const& c = GetParam();
  FileSystemNode const node = FileSystemNode::makeFolderNode(c.path, kUnknown, kNoTime);
  EXPECT_EQ(node.getParentPath(), c.parentPath);
  EXPECT_EQ(node.getBaseName(), c.baseName);
  EXPECT_EQ(node.getPathName(), c.pathName);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FileSystemNodePathTest,
    ::testing::Values(PathCase{u"/a/b/c", u"/a/b", u"c", u"/a/b/c"},
                      PathCase{u"/x", u"/", u"x", u"/x"},
                      // A trailing slash leaves an empty last component; the text survives.
                      PathCase{u"/a/", u"/a", u"", u"/a/"},
                      // Not package paths: the tree refuses them, the node just records them.
                      PathCase{u"a/b", u"a", u"b", u"a/b"}, PathCase{u"rel", u"", u"rel", u"rel"},
                      PathCase{u"", u"", u"", u""},
                      PathCase{u"/\u00e9t\u00e9/\U0001F600", u"/\u00e9t\u00e9", u"\U0001F600",
                               u"/\u00e9t\u00e9/\U0001F600"}));

TEST(FileSystemNodeTest, UnknownPermissionsAndTimeAreNotStored) {
  FileSystemNode const node = FileSystemNode::makeFileNode(u"/f", u"/p", kUnknown, kNoTime);
  EXPECT_FALSE(node.getPermissions());
  EXPECT_FALSE(node.getLastModifiedTime());
}

TEST(FileSystemNodeTest, TimeBuiltFromNotADateTimePartsIsNotStored) {
  ptime const unknown(boost::gregorian::date(boost::date_time::not_a_date_time),
                      boost::posix_time::time_duration(boost::date_time::not_a_date_time));
  FileSystemNode const node = FileSystemNode::makeFileNode(u"/f", u"/p", kUnknown, unknown);
  EXPECT_FALSE(node.getLastModifiedTime());
}

TEST(FileSystemNodeTest, InfiniteTimesAreRealValuesAndKept) {
  ptime const later(boost::posix_time::pos_infin);
  FileSystemNode const node = FileSystemNode::makeFileNode(u"/f", u"/p", kUnknown, later);
  ASSERT_TRUE(node.getLastModifiedTime());
  EXPECT_TRUE(node.getLastModifiedTime()->is_pos_infinity());
}

TEST(FileSystemNodeTest, CopiesAndAssignmentsShareNothing) {
  FileSystemNode original =
      FileSystemNode::makeFileNode(u"/a/f", u"/p1", opc::Perms::Perms_tag(0600), kSomeTime);
  FileSystemNode copy(original);
  FileSystemNode assigned;
  assigned = original;
  original = FileSystemNode::makeFolderNode(u"/z", kUnknown, kNoTime);
  for (FileSystemNode const* node : {&copy, &assigned}) {
    EXPECT_EQ(node->getType(), FileSystemNodeType::File);
    EXPECT_EQ(node->getPathName(), u"/a/f");
    EXPECT_EQ(node->getContentName(), u"/p1");
    EXPECT_EQ(*node->getPermissions(), 0600u);
    EXPECT_EQ(*node->getLastModifiedTime(), kSomeTime);
  }
  EXPECT_EQ(original.getPathName(), u"/z");
}

}  // namespace
