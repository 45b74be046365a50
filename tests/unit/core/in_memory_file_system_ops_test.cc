// The in-memory file system must behave as the local one where tests of other code rely on
// it: kinds, links, errors, permissions, times, listing order and streams.
#include "support/in_memory_file_system_ops.h"

#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>

#include "support/expect_exception.h"

namespace {

using boost::gregorian::date;
using boost::posix_time::ptime;
using boost::system::error_code;
namespace errc = boost::system::errc;

std::string readAll(std::istream& stream) {
  std::string out;
  char block[256];
  while (stream.read(block, sizeof block) || stream.gcount() > 0) {
    out.append(block, static_cast<std::size_t>(stream.gcount()));
  }
  return out;
}

class InMemoryFileSystemOpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs_.addFile(u"/root/b.txt", "b");
    fs_.addFile(u"/root/a.txt", "a", static_cast<opc::Perms::Perms_tag>(0640),
                ptime(date(2020, 5, 6)));
    fs_.addFile(u"/root/sub/z", "z");
    fs_.addFile(u"/root/sub/deep/x", "x");
    fs_.addFolder(u"/root/empty");
    fs_.addSymlink(u"/root/link-to-sub", u"sub");
    fs_.addSymlink(u"/root/link-to-file", u"a.txt");
    fs_.addSymlink(u"/root/dangling", u"nowhere");
    fs_.addSymlink(u"/root/loop", u"loop");
  }

  opcvk_test::InMemoryFileSystemOps fs_;
};

TEST_F(InMemoryFileSystemOpsTest, KindsAndLinksAsOnDisk) {
  error_code code;
  EXPECT_TRUE(fs_.isFile(u"/root/a.txt"));
  EXPECT_FALSE(fs_.isFile(u"/root/link-to-file"));
  EXPECT_TRUE(fs_.isSymlink(u"/root/dangling"));
  EXPECT_TRUE(fs_.isFolder(u"/root/sub"));
  EXPECT_FALSE(fs_.isFolder(u"/root/link-to-sub"));
  EXPECT_TRUE(fs_.isFile(u"/root/link-to-sub/z")) << "links on the way are followed";
  EXPECT_TRUE(fs_.exists(u"/root/dangling", code));
  EXPECT_FALSE(fs_.exists(u"/root/missing", code));
  EXPECT_FALSE(code);
  EXPECT_FALSE(fs_.exists(u"/root/a.txt/below", code));
  EXPECT_FALSE(code);
  EXPECT_FALSE(fs_.exists(u"/root/loop/x", code));
  EXPECT_EQ(code, errc::too_many_symbolic_link_levels);
  EXPECT_EQ(fs_.getLinkTarget(u"/root/link-to-sub"), u"sub");
  EXPECT_THROW_MESSAGE(fs_.getLinkTarget(u"/root/a.txt"), opc::Exception,
                       "Could not get the link target of: /root/a.txt: Invalid argument");
}

TEST_F(InMemoryFileSystemOpsTest, ListsInTheLocalOrder) {
  std::vector<std::u16string> files;
  error_code code;
  fs_.getFiles(u"/root", files, true, code);
  ASSERT_FALSE(code);
  EXPECT_EQ(files, (std::vector<std::u16string>{
                       u"/root/a.txt", u"/root/b.txt", u"/root/dangling", u"/root/link-to-file",
                       u"/root/link-to-sub", u"/root/loop", u"/root/sub/z", u"/root/sub/deep/x"}));
  files.clear();
  fs_.getFiles(u"/root/sub/", files, false, code);
  EXPECT_EQ(files, std::vector<std::u16string>{u"/root/sub/z"});
  fs_.getFiles(u"/nowhere", files, true, code);
  EXPECT_EQ(code, errc::no_such_file_or_directory);
}

TEST_F(InMemoryFileSystemOpsTest, PermissionsAndTimes) {
  error_code code;
  EXPECT_EQ(fs_.getPermissions(u"/root/a.txt", code), 0640);
  EXPECT_EQ(fs_.getLastModifiedTime(u"/root/a.txt", code), ptime(date(2020, 5, 6)));
  fs_.setPermissions(u"/root/a.txt", opc::Perms::unknown, code);
  EXPECT_EQ(code, errc::invalid_argument);
  fs_.setPermissions(u"/root/link-to-file", opc::Perms::all_all, code);
  EXPECT_EQ(code, errc::operation_not_supported);
  fs_.setLastModifiedTime(u"/root/a.txt", ptime(date(2001, 2, 3)), code);
  EXPECT_FALSE(code);
  EXPECT_EQ(fs_.getLastModifiedTime(u"/root/a.txt", code), ptime(date(2001, 2, 3)));
  fs_.setLastModifiedTime(u"/root/missing", ptime(date(2001, 2, 3)), code);
  EXPECT_EQ(code, errc::no_such_file_or_directory);
}

TEST_F(InMemoryFileSystemOpsTest, StreamsReadAndWriteTheContent) {
  error_code code;
  auto input = fs_.createInputStream(u"/root/link-to-file", 33, code);
  ASSERT_TRUE(input);
  EXPECT_EQ(readAll(*input), "a");
  fs_.setClock(ptime(date(2030, 1, 1)));
  auto output = fs_.createOutputStream(u"/root/new.txt", 34, code);
  ASSERT_TRUE(output);
  *output << "written";
  EXPECT_EQ(fs_.readContent(u"/root/new.txt"), "written");
  EXPECT_EQ(fs_.getLastModifiedTime(u"/root/new.txt", code), ptime(date(2030, 1, 1)));
  output = fs_.createOutputStream(u"/root/new.txt", 34, code);
  EXPECT_EQ(fs_.readContent(u"/root/new.txt"), "") << "truncated";
  output = fs_.createOutputStream(u"/root/a.txt", 2 | 8, code);
  *output << "+";
  EXPECT_EQ(fs_.readContent(u"/root/a.txt"), "a+");
}

TEST_F(InMemoryFileSystemOpsTest, ReadOnlyFileRefusesWritingAndStaysAsItWas) {
  fs_.addFile(u"/out/ro", "keep", static_cast<opc::Perms::Perms_tag>(0444));
  error_code code;
  EXPECT_EQ(fs_.createOutputStream(u"/out/ro", 34, code), nullptr);
  EXPECT_EQ(code, errc::permission_denied);
  EXPECT_EQ(fs_.readContent(u"/out/ro"), "keep");
  fs_.setPermissions(u"/out/ro", opc::Perms::all_all, code);
  auto output = fs_.createOutputStream(u"/out/ro", 34, code);
  ASSERT_TRUE(output);
  EXPECT_EQ(fs_.readContent(u"/out/ro"), "");
  EXPECT_EQ(fs_.createOutputStream(u"/missing/x", 34, code), nullptr);
  EXPECT_EQ(code, errc::no_such_file_or_directory);
  EXPECT_EQ(fs_.createInputStream(u"/root/sub", 33, code), nullptr);
  EXPECT_EQ(code, errc::is_a_directory);
}

TEST_F(InMemoryFileSystemOpsTest, CreatesFoldersAndLinks) {
  error_code code;
  fs_.createFolders(u"/x/y/z", code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(fs_.isFolder(u"/x/y/z"));
  fs_.createFolders(u"/x/y/z", code);
  EXPECT_FALSE(code);
  fs_.createFolders(u"/root/a.txt/q", code);
  EXPECT_EQ(code, errc::not_a_directory);
  fs_.createFolder(u"/x", code);
  EXPECT_EQ(code, errc::file_exists);
  fs_.createFolder(u"/p/q", code);
  EXPECT_EQ(code, errc::no_such_file_or_directory);
  fs_.createSymlink(u"target", u"/x/link", code);
  EXPECT_FALSE(code);
  fs_.createSymlink(u"other", u"/x/link", code);
  EXPECT_EQ(code, errc::file_exists);
  EXPECT_EQ(fs_.getLinkTarget(u"/x/link"), u"target");
}

TEST_F(InMemoryFileSystemOpsTest, CopyRenameAndRemove) {
  error_code code;
  fs_.copy(u"/root/a.txt", u"/root/b.txt", opc::ExistsMode::FailIfExists, code);
  EXPECT_EQ(code, errc::file_exists);
  fs_.copy(u"/root/a.txt", u"/root/b.txt", opc::ExistsMode::OverwriteIfExists, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(fs_.readContent(u"/root/b.txt"), "a");
  EXPECT_EQ(fs_.getPermissions(u"/root/b.txt", code), 0640);
  fs_.rename(u"/root/sub", u"/moved", code);
  EXPECT_FALSE(code);
  EXPECT_EQ(fs_.readContent(u"/moved/deep/x"), "x");
  EXPECT_FALSE(fs_.exists(u"/root/sub/z", code));
  fs_.remove(u"/moved", code);
  EXPECT_EQ(code, errc::directory_not_empty);
  fs_.removeAll(u"/moved", code);
  EXPECT_FALSE(code);
  EXPECT_FALSE(fs_.exists(u"/moved/deep/x", code));
  fs_.removeAll(u"/moved", code);
  EXPECT_FALSE(code);
  fs_.remove(u"/moved", code);
  EXPECT_EQ(code, errc::no_such_file_or_directory);
}

TEST_F(InMemoryFileSystemOpsTest, NamesAndAppendPathMatchTheLocalFileSystem) {
  EXPECT_EQ(fs_.getParentPath(u"/a/b/"), u"/a");
  EXPECT_EQ(fs_.getExtension(u"a.tar.gz"), u"gz");
  EXPECT_EQ(fs_.appendPath(u"/dest/", u"/a/../b"), u"/dest/b");
  EXPECT_THROW_MESSAGE(
      fs_.appendPath(u"/dest", u"/../x"), opc::Exception,
      "Could not append path: /../x to /dest: the path leads out of the base folder");
  std::u16string temp = fs_.getTempName(u"/root");
  EXPECT_EQ(fs_.getParentPath(temp), u"/root");
  error_code code;
  EXPECT_FALSE(fs_.exists(temp, code));
  EXPECT_NE(fs_.getTempName(u""), fs_.getTempName(u""));
}

}  // namespace
