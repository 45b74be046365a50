// Listing, creating, copying, renaming and removing with LocalFileSystemOps on real folders.
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/local_file_system_ops.h>

#include "local_file_system_ops_test_util.h"
#include "support/temp_dir.h"

namespace {

using boost::system::error_code;
namespace errc = boost::system::errc;
using opcvk_test::isCondition;
using opcvk_test::pathExists;
using opcvk_test::readFile;
using opcvk_test::u16;
using opcvk_test::writeFile;

std::vector<std::string> folderNames(std::string const& path) {
  std::vector<std::string> names;
  DIR* folder = ::opendir(path.c_str());
  if (folder == nullptr) return names;
  while (dirent* entry = ::readdir(folder)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(folder);
  return names;
}

class LocalFileSystemOpsTreeTest : public ::testing::Test {
 protected:
  void makeFolder(std::string const& name) {
    ASSERT_EQ(::mkdir((dir_ / name).c_str(), 0755), 0) << name;
  }
  void makeLink(std::string const& target, std::string const& name) {
    ASSERT_EQ(::symlink(target.c_str(), (dir_ / name).c_str()), 0) << name;
  }
  std::u16string at(std::string const& name) const { return u16(dir_ / name); }

  // root/ b.txt a.txt link-to-sub -> sub, link-to-file -> a.txt, dangling -> nowhere, fifo,
  //       empty/, sub/ z, deep/ x, c/ (empty), and outside/ kept.txt beside root.
  void makeTree() {
    makeFolder("root");
    writeFile(dir_ / "root/b.txt", "b");
    writeFile(dir_ / "root/a.txt", "a");
    makeFolder("root/sub");
    writeFile(dir_ / "root/sub/z", "z");
    makeFolder("root/sub/deep");
    writeFile(dir_ / "root/sub/deep/x", "x");
    makeFolder("root/sub/c");
    makeFolder("root/empty");
    makeLink("sub", "root/link-to-sub");
    makeLink("a.txt", "root/link-to-file");
    makeLink("nowhere", "root/dangling");
    ASSERT_EQ(::mkfifo((dir_ / "root/fifo").c_str(), 0644), 0);
    makeFolder("outside");
    writeFile(dir_ / "outside/kept.txt", "kept");
    makeLink(dir_ / "outside", "root/sub/link-out");
  }

  opcvk_test::TempDir dir_;
  opc::LocalFileSystemOps fileSystem_;
};

TEST_F(LocalFileSystemOpsTreeTest, RecursiveListingGivesFilesAndLinksInOrder) {
  makeTree();
  std::vector<std::u16string> files;
  error_code code;
  fileSystem_.getFiles(at("root"), files, true, code);
  ASSERT_FALSE(code) << code.message();
  std::u16string root = at("root");
  std::vector<std::u16string> expected = {
      root + u"/a.txt",       root + u"/b.txt",        root + u"/dangling", root + u"/link-to-file",
      root + u"/link-to-sub", root + u"/sub/link-out", root + u"/sub/z",    root + u"/sub/deep/x",
  };
  EXPECT_EQ(files, expected);
}

TEST_F(LocalFileSystemOpsTreeTest, NonRecursiveListingStaysInTheFolder) {
  makeTree();
  std::vector<std::u16string> files;
  error_code code;
  fileSystem_.getFiles(at("root"), files, false, code);
  ASSERT_FALSE(code);
  std::u16string root = at("root");
  std::vector<std::u16string> expected = {root + u"/a.txt", root + u"/b.txt", root + u"/dangling",
                                          root + u"/link-to-file", root + u"/link-to-sub"};
  EXPECT_EQ(files, expected);
}

TEST_F(LocalFileSystemOpsTreeTest, ListingKeepsTheTextOfTheFolder) {
  makeTree();
  std::vector<std::u16string> files;
  error_code code;
  fileSystem_.getFiles(at("root/sub/"), files, false, code);
  ASSERT_FALSE(code);
  EXPECT_EQ(files, (std::vector<std::u16string>{at("root/sub/link-out"), at("root/sub/z")}));
  files.clear();
  fileSystem_.getFiles(u16(dir_.path()) + u"//root/./sub/deep", files, false, code);
  EXPECT_EQ(files, (std::vector<std::u16string>{u16(dir_.path()) + u"//root/./sub/deep/x"}));
  // The folder named by the caller may itself be reached through a link.
  files.clear();
  fileSystem_.getFiles(at("root/link-to-sub"), files, false, code);
  ASSERT_FALSE(code);
  EXPECT_EQ(files.size(), 2u);
  EXPECT_EQ(files.back(), at("root/link-to-sub/z"));
}

TEST_F(LocalFileSystemOpsTreeTest, ListingAppendsAndLeavesTheListOnFailure) {
  makeTree();
  std::vector<std::u16string> files = {u"earlier"};
  error_code code;
  fileSystem_.getFiles(at("root/empty"), files, true, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(files, std::vector<std::u16string>{u"earlier"});
  fileSystem_.getFiles(at("missing"), files, true, code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  fileSystem_.getFiles(at("root/a.txt"), files, true, code);
  EXPECT_TRUE(isCondition(code, errc::not_a_directory));
  EXPECT_EQ(files, std::vector<std::u16string>{u"earlier"});
}

TEST_F(LocalFileSystemOpsTreeTest, ListingFailsOnAFolderItCannotRead) {
  makeTree();
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod((dir_ / "root/sub/deep").c_str(), 0), 0);
  std::u16string root = at("root");
  int result = opcvk_test::runUnprivileged([&] {
    std::vector<std::u16string> files = {u"earlier"};
    error_code code;
    fileSystem_.getFiles(root, files, true, code);
    return isCondition(code, errc::permission_denied) && files.size() == 1 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(LocalFileSystemOpsTreeTest, CreateFolderMakesOneLevel) {
  error_code code;
  fileSystem_.createFolder(at("new"), code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(S_ISDIR(opcvk_test::modeOf(dir_ / "new")));
  fileSystem_.createFolder(at("a/b"), code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  EXPECT_FALSE(pathExists(dir_ / "a"));
}

TEST_F(LocalFileSystemOpsTreeTest, CreateFoldersMakesEveryMissingLevel) {
  error_code code;
  fileSystem_.createFolders(at("a/b//c/"), code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(S_ISDIR(opcvk_test::modeOf(dir_ / "a/b/c")));
  fileSystem_.createFolders(at("a/b/c"), code);
  EXPECT_FALSE(code) << "an existing folder is no failure";
  fileSystem_.createFolders(u"/", code);
  EXPECT_FALSE(code);
  makeLink("a", "link-to-a");
  fileSystem_.createFolders(at("link-to-a/b/d"), code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(S_ISDIR(opcvk_test::modeOf(dir_ / "a/b/d")));
}

TEST_F(LocalFileSystemOpsTreeTest, CreateFoldersReportsFilesInTheWay) {
  writeFile(dir_ / "file", "f");
  error_code code;
  fileSystem_.createFolders(at("file"), code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  fileSystem_.createFolders(at("file/below/more"), code);
  EXPECT_TRUE(isCondition(code, errc::not_a_directory));
  fileSystem_.createFolders(u"", code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
}

TEST_F(LocalFileSystemOpsTreeTest, CreateSymlinkStoresTheTargetText) {
  error_code code;
  fileSystem_.createSymlink(u"../some/where", at("link"), code);
  EXPECT_FALSE(code);
  EXPECT_EQ(opcvk_test::readLink(dir_ / "link"), "../some/where");
  fileSystem_.createSymlink(u"\xDCFF\u00e9", at("raw"), code);
  EXPECT_FALSE(code);
  EXPECT_EQ(opcvk_test::readLink(dir_ / "raw"), "\xff\xc3\xa9");
}

TEST_F(LocalFileSystemOpsTreeTest, CreateSymlinkOnExistingPathFailsAndKeepsIt) {
  makeLink("first", "link");
  writeFile(dir_ / "file", "f");
  error_code code;
  fileSystem_.createSymlink(u"second", at("link"), code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  EXPECT_EQ(opcvk_test::readLink(dir_ / "link"), "first");
  fileSystem_.createSymlink(u"second", at("file"), code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  EXPECT_EQ(readFile(dir_ / "file"), "f");
}

TEST_F(LocalFileSystemOpsTreeTest, CopyCopiesBytesAndPermissionBits) {
  std::string content(200 * 1024 + 7, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31 % 251);
  writeFile(dir_ / "from", content);
  ASSERT_EQ(::chmod((dir_ / "from").c_str(), 0541), 0);
  error_code code;
  fileSystem_.copy(at("from"), at("to"), opc::ExistsMode::FailIfExists, code);
  ASSERT_FALSE(code) << code.message();
  EXPECT_EQ(readFile(dir_ / "to"), content);
  EXPECT_EQ(opcvk_test::modeOf(dir_ / "to") & 07777, 0541u);
}

TEST_F(LocalFileSystemOpsTreeTest, CopyHonoursExistsMode) {
  writeFile(dir_ / "from", "new");
  writeFile(dir_ / "to", "old");
  error_code code;
  fileSystem_.copy(at("from"), at("to"), opc::ExistsMode::FailIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  EXPECT_EQ(readFile(dir_ / "to"), "old");
  fileSystem_.copy(at("from"), at("to"), opc::ExistsMode::SkipIfExists, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(readFile(dir_ / "to"), "old");
  fileSystem_.copy(at("from"), at("to"), opc::ExistsMode::OverwriteIfExists, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(readFile(dir_ / "to"), "new");
  fileSystem_.copy(at("from"), at("fresh"), opc::ExistsMode::SkipIfExists, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(readFile(dir_ / "fresh"), "new");
  EXPECT_EQ(folderNames(dir_.path()).size(), 3u) << "no temporary file may be left behind";
}

TEST_F(LocalFileSystemOpsTreeTest, OverwritingReplacesALinkInsteadOfWritingThroughIt) {
  writeFile(dir_ / "from", "new");
  writeFile(dir_ / "target", "precious");
  makeLink("target", "to");
  error_code code;
  fileSystem_.copy(at("from"), at("to"), opc::ExistsMode::OverwriteIfExists, code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(S_ISREG(opcvk_test::modeOf(dir_ / "to")));
  EXPECT_EQ(readFile(dir_ / "to"), "new");
  EXPECT_EQ(readFile(dir_ / "target"), "precious");
  makeLink("target", "link2");
  fileSystem_.copy(at("from"), at("link2"), opc::ExistsMode::FailIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  EXPECT_EQ(readFile(dir_ / "target"), "precious");
}

TEST_F(LocalFileSystemOpsTreeTest, CopyRefusesWhatIsNotARegularFile) {
  makeFolder("folder");
  writeFile(dir_ / "file", "f");
  makeLink("file", "link");
  error_code code;
  fileSystem_.copy(at("folder"), at("to"), opc::ExistsMode::FailIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::is_a_directory));
  fileSystem_.copy(at("link"), at("to"), opc::ExistsMode::FailIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::invalid_argument));
  fileSystem_.copy(at("missing"), at("to"), opc::ExistsMode::FailIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  fileSystem_.copy(at("file"), at("folder"), opc::ExistsMode::OverwriteIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::is_a_directory));
  fileSystem_.copy(at("file"), at("nofolder/to"), opc::ExistsMode::OverwriteIfExists, code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  EXPECT_FALSE(pathExists(dir_ / "to"));
  EXPECT_TRUE(folderNames(dir_ / "folder").empty());
}

TEST_F(LocalFileSystemOpsTreeTest, RenameMovesAndReportsMissingSources) {
  writeFile(dir_ / "a", "a");
  error_code code;
  fileSystem_.rename(at("a"), at("b"), code);
  EXPECT_FALSE(code);
  EXPECT_FALSE(pathExists(dir_ / "a"));
  EXPECT_EQ(readFile(dir_ / "b"), "a");
  fileSystem_.rename(at("a"), at("c"), code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
}

TEST_F(LocalFileSystemOpsTreeTest, RemoveTakesOneFileLinkOrEmptyFolder) {
  writeFile(dir_ / "file", "f");
  makeLink("file", "link");
  makeFolder("empty");
  makeFolder("full");
  writeFile(dir_ / "full/x", "x");
  error_code code;
  fileSystem_.remove(at("link"), code);
  EXPECT_FALSE(code);
  EXPECT_FALSE(pathExists(dir_ / "link"));
  EXPECT_TRUE(pathExists(dir_ / "file"));
  fileSystem_.remove(at("file"), code);
  EXPECT_FALSE(code);
  fileSystem_.remove(at("empty"), code);
  EXPECT_FALSE(code);
  EXPECT_FALSE(pathExists(dir_ / "empty"));
  fileSystem_.remove(at("full"), code);
  EXPECT_TRUE(isCondition(code, errc::directory_not_empty));
  EXPECT_TRUE(pathExists(dir_ / "full/x"));
  fileSystem_.remove(at("missing"), code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
}

TEST_F(LocalFileSystemOpsTreeTest, RemoveAllNeverFollowsLinks) {
  makeTree();
  error_code code;
  fileSystem_.removeAll(at("root"), code);
  EXPECT_FALSE(code) << code.message();
  EXPECT_FALSE(pathExists(dir_ / "root"));
  EXPECT_EQ(readFile(dir_ / "outside/kept.txt"), "kept");
  fileSystem_.removeAll(at("root"), code);
  EXPECT_FALSE(code) << "a missing path is no failure";
  makeLink("outside", "link");
  fileSystem_.removeAll(at("link"), code);
  EXPECT_FALSE(code);
  EXPECT_FALSE(pathExists(dir_ / "link"));
  EXPECT_EQ(readFile(dir_ / "outside/kept.txt"), "kept");
  fileSystem_.removeAll(at("outside/kept.txt"), code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(folderNames(dir_ / "outside").empty());
}

TEST_F(LocalFileSystemOpsTreeTest, RemoveAllReportsWhatItCannotRemove) {
  makeTree();
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0777), 0);
  ASSERT_EQ(::chmod((dir_ / "root").c_str(), 0777), 0);
  ASSERT_EQ(::chmod((dir_ / "root/sub").c_str(), 0555), 0);
  std::u16string root = at("root");
  int result = opcvk_test::runUnprivileged([&] {
    error_code code;
    fileSystem_.removeAll(root, code);  // sub/ is closed to writing
    return isCondition(code, errc::permission_denied) ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(pathExists(dir_ / "root/sub/z"));
}

}  // namespace
