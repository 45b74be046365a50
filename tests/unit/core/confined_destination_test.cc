// What every ConfinedDestination of the local disk does, on both roads: by descriptors
// (LocalFileSystemOps) and by path (the default of FileSystemOps, which a class derived from
// LocalFileSystemOps gets).  Both must make the same things and give the same codes.
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/confined_destination.h>
#include <opc/core/local_file_system_ops.h>

#include "confined_destination_test_util.h"
#include "local_file_system_ops_test_util.h"

namespace {

using boost::system::error_code;
using opc::ConfinedResult;
using opcvk_test::ByPathLocalFileSystemOps;
using opcvk_test::isCondition;
using opcvk_test::modeOf;
using opcvk_test::namesIn;
using opcvk_test::pathExists;
using opcvk_test::readFile;
using opcvk_test::readLink;
using opcvk_test::u16;
using opcvk_test::write;
using opcvk_test::writeFile;
using Status = ConfinedResult::Status;
namespace errc = boost::system::errc;

boost::posix_time::ptime someTime() {
  return boost::posix_time::ptime(boost::gregorian::date(2019, 3, 4),
                                  boost::posix_time::microseconds(123456));
}

// The last modified time of `path`, in microseconds since the epoch.
long long mtimeMicros(std::string const& path) {
  struct stat status;
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return static_cast<long long>(status.st_mtim.tv_sec) * 1000000 + status.st_mtim.tv_nsec / 1000;
}

long long micros(boost::posix_time::ptime time) {
  return (time - boost::posix_time::ptime(boost::gregorian::date(1970, 1, 1))).total_microseconds();
}

// true: descriptors; false: by path.
class ConfinedDestinationTest : public opcvk_test::ConfinedDestinationFixture,
                                public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    ConfinedDestinationFixture::SetUp();
    fileSystem_ = opcvk_test::localFileSystem(GetParam());
    destination_ = fileSystem_->openConfinedDestination(u16(dest()));
  }

  ConfinedResult put(std::u16string const& path, std::string const& content) {
    return opcvk_test::put(*destination_, path, content);
  }

  std::unique_ptr<opc::LocalFileSystemOps> fileSystem_;
  std::unique_ptr<opc::ConfinedDestination> destination_;
};

TEST_P(ConfinedDestinationTest, MakesFoldersFilesAndLinksBelowTheRoot) {
  EXPECT_TRUE(put(u"/a/b/c.txt", "deep").done());
  EXPECT_TRUE(put(u"/a/b/d.txt", "beside").done());
  EXPECT_TRUE(put(u"/top", "").done());
  error_code code;
  destination_->createFolder(u"/a/empty", code);
  EXPECT_FALSE(code);
  destination_->createSymlink(u"../elsewhere", u"/a/link", code);
  EXPECT_FALSE(code);
  destination_ = nullptr;  // writes what is buffered
  EXPECT_EQ(readFile(in("a/b/c.txt")), "deep");
  EXPECT_EQ(readFile(in("a/b/d.txt")), "beside");
  EXPECT_EQ(readFile(in("top")), "");
  EXPECT_TRUE(S_ISDIR(modeOf(in("a/empty"))));
  EXPECT_EQ(readLink(in("a/link")), "../elsewhere");
}

TEST_P(ConfinedDestinationTest, TimeAndPermissionsGoToTheFile) {
  ConfinedResult result;
  destination_->makeParents(u"/f", result);
  std::unique_ptr<opc::ConfinedFile> file = destination_->openFile(u"/f", result);
  ASSERT_TRUE(file);
  write(*file, "content");
  file->finishContent(result);
  EXPECT_TRUE(result.done());
  error_code code;
  file->setLastModifiedTime(someTime(), code);
  EXPECT_FALSE(code);
  file->setPermissions(static_cast<opc::Perms::Perms_tag>(0604), code);
  EXPECT_FALSE(code);
  file->setPermissions(opc::Perms::unknown, code);
  EXPECT_TRUE(isCondition(code, errc::invalid_argument));
  file->setLastModifiedTime(boost::posix_time::ptime(), code);
  EXPECT_TRUE(isCondition(code, errc::invalid_argument));
  file = nullptr;
  EXPECT_EQ(readFile(in("f")), "content");
  EXPECT_EQ(modeOf(in("f")) & 0777, 0604u);
  EXPECT_EQ(mtimeMicros(in("f")), micros(someTime()));
}

TEST_P(ConfinedDestinationTest, ExistingWritableFileIsEmptiedAndWritten) {
  writeFile(in("f"), "old content, longer than the new");
  ASSERT_EQ(::chmod(in("f").c_str(), 0640), 0);
  EXPECT_TRUE(put(u"/f", "new").done());
  destination_ = nullptr;
  EXPECT_EQ(readFile(in("f")), "new");
  EXPECT_EQ(modeOf(in("f")) & 0777, 0640u);
}

TEST_P(ConfinedDestinationTest, LinkOnTheWayIsRefusedWithItsDepth) {
  ASSERT_EQ(::mkdir(in("a").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("../../outside", in("a/l").c_str()), 0);
  ConfinedResult const result = put(u"/a/l/b/secret", "overwritten?");
  EXPECT_EQ(result.status, Status::SymbolicLink);
  EXPECT_EQ(result.depth, 2u);
  EXPECT_FALSE(pathExists(outside() + "/b"));
  expectOutsideUntouched();
}

TEST_P(ConfinedDestinationTest, FileThatIsALinkIsRefusedDanglingOrNot) {
  ASSERT_EQ(::symlink("../outside/secret", in("f").c_str()), 0);
  ASSERT_EQ(::symlink("../outside/not-yet", in("dangling").c_str()), 0);
  for (std::u16string const path : {u"/f", u"/dangling"}) {
    ConfinedResult const result = put(path, "overwritten?");
    EXPECT_EQ(result.status, Status::SymbolicLink);
    EXPECT_EQ(result.depth, 1u);
    error_code code;
    // Neither a folder nor a temporary file nor permissions reach through it.
    destination_->setPermissions(path, static_cast<opc::Perms::Perms_tag>(0777), code);
    EXPECT_TRUE(code);
    EXPECT_TRUE(destination_->exists(path, code));
  }
  EXPECT_FALSE(pathExists(outside() + "/not-yet"));
  expectOutsideUntouched();
}

TEST_P(ConfinedDestinationTest, FileOnTheWayIsNotADirectory) {
  writeFile(in("file"), "in the way");
  ConfinedResult result;
  destination_->makeParents(u"/file/deeper/f", result);
  EXPECT_EQ(result.status, Status::Failed);
  EXPECT_TRUE(isCondition(result.code, errc::not_a_directory));
  // Right above the path it is no failure of the parents: each operation meets it.
  destination_->makeParents(u"/file/f", result);
  EXPECT_TRUE(result.done());
  EXPECT_FALSE(destination_->openFile(u"/file/f", result));
  EXPECT_TRUE(isCondition(result.code, errc::not_a_directory));
  error_code code;
  EXPECT_FALSE(destination_->exists(u"/file/f", code));
  EXPECT_FALSE(code);
  destination_->createFolder(u"/file/f", code);
  EXPECT_TRUE(isCondition(code, errc::not_a_directory));
  destination_->createSymlink(u"t", u"/file/f", code);
  EXPECT_TRUE(isCondition(code, errc::not_a_directory));
  EXPECT_EQ(readFile(in("file")), "in the way");
}

TEST_P(ConfinedDestinationTest, FolderWhereAFileGoesIsADirectory) {
  ASSERT_EQ(::mkdir(in("d").c_str(), 0755), 0);
  ConfinedResult const result = put(u"/d", "x");
  EXPECT_EQ(result.status, Status::Failed);
  EXPECT_TRUE(isCondition(result.code, errc::is_a_directory));
}

TEST_P(ConfinedDestinationTest, AnythingWhereAFolderGoesCountsAsTheFolder) {
  writeFile(in("file"), "x");
  ASSERT_EQ(::symlink("../outside", in("link").c_str()), 0);
  for (std::u16string const path : {u"/file", u"/link"}) {
    error_code code;
    destination_->createFolder(path, code);
    EXPECT_FALSE(code);
  }
  EXPECT_TRUE(S_ISREG(modeOf(in("file"))));
  EXPECT_EQ(readLink(in("link")), "../outside");
  expectOutsideUntouched();
}

TEST_P(ConfinedDestinationTest, ExistingLinkPathIsFileExists) {
  ASSERT_EQ(::symlink("other", in("l").c_str()), 0);
  error_code code;
  destination_->createSymlink(u"target", u"/l", code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  EXPECT_EQ(readLink(in("l")), "other");
}

TEST_P(ConfinedDestinationTest, ExistsSeesEveryKindWithoutFollowing) {
  writeFile(in("f"), "x");
  ASSERT_EQ(::symlink("missing", in("dangling").c_str()), 0);
  error_code code;
  EXPECT_TRUE(destination_->exists(u"/f", code));
  EXPECT_TRUE(destination_->exists(u"/dangling", code));
  EXPECT_TRUE(destination_->exists(u"/", code));
  EXPECT_FALSE(destination_->exists(u"/missing", code));
  EXPECT_FALSE(code);
}

TEST_P(ConfinedDestinationTest, PathsOfAnotherFormAreInvalid) {
  for (std::u16string const path : {u"", u"a/b", u"/a//b", u"/a/./b", u"/a/../b", u"/..", u"/a/"}) {
    ConfinedResult result;
    destination_->makeParents(path, result);
    EXPECT_EQ(result.status, Status::Failed);
    EXPECT_TRUE(isCondition(result.code, errc::invalid_argument));
    EXPECT_FALSE(destination_->openFile(path, result));
    EXPECT_TRUE(isCondition(result.code, errc::invalid_argument));
    error_code code;
    destination_->createFolder(path, code);
    EXPECT_TRUE(isCondition(code, errc::invalid_argument));
  }
  EXPECT_TRUE(namesIn(dest()).empty());
}

TEST_P(ConfinedDestinationTest, ReadOnlyFileIsRefusedUntilItsPermissionsAreChanged) {
  ASSERT_EQ(::chmod(temp_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(dest().c_str(), 0777), 0);
  int const outcome = opcvk_test::runUnprivileged([&] {
    // The child's own destination: descriptors are not shared with the parent's.
    auto destination = fileSystem_->openConfinedDestination(u16(dest()));
    writeFile(in("ro"), "old");
    if (::chmod(in("ro").c_str(), 0444) != 0) return 10;
    ConfinedResult result;
    if (destination->openFile(u"/ro", result)) return 11;
    if (!isCondition(result.code, errc::permission_denied)) return 12;
    error_code code;
    destination->setPermissions(u"/ro", static_cast<opc::Perms::Perms_tag>(0777), code);
    if (code) return 13;
    std::unique_ptr<opc::ConfinedFile> file = destination->openFile(u"/ro", result);
    if (!file) return 14;
    write(*file, "new");
    file = nullptr;
    return readFile(in("ro")) == "new" && (modeOf(in("ro")) & 0777) == 0777 ? 0 : 15;
  });
  EXPECT_EQ(outcome, 0);
}

TEST_P(ConfinedDestinationTest, RootMayBeALinkTheCallerChose) {
  ASSERT_EQ(::symlink(dest().c_str(), (temp_ / "chosen").c_str()), 0);
  destination_ = fileSystem_->openConfinedDestination(u16(temp_ / "chosen"));
  EXPECT_TRUE(put(u"/d/f", "through the chosen link").done());
  destination_ = nullptr;
  EXPECT_EQ(readFile(in("d/f")), "through the chosen link");
}

TEST_P(ConfinedDestinationTest, RealPathLongerThanTheSystemTakesIsTooLong) {
  std::u16string deep;
  while (dest().size() + deep.size() < 4200) deep += u"/" + std::u16string(100, u'n');
  ConfinedResult const result = put(deep + u"/f", "x");
  EXPECT_EQ(result.status, Status::Failed);
  EXPECT_TRUE(isCondition(result.code, errc::filename_too_long));
  // By path the folders that fit are made before the one that does not; descriptors refuse
  // the whole path first.
  if (GetParam()) {
    EXPECT_TRUE(namesIn(dest()).empty());
  }
}

INSTANTIATE_TEST_SUITE_P(DescriptorsAndPaths, ConfinedDestinationTest, ::testing::Bool(),
                         opcvk_test::roadName);

}  // namespace
