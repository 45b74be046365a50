// Queries, names, permissions, times and links of LocalFileSystemOps on real folders.
#include <atomic>
#include <fcntl.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>

#include "local_file_system_ops_test_util.h"
#include "support/expect_exception.h"
#include "support/temp_dir.h"

namespace {

using boost::gregorian::date;
using boost::posix_time::microseconds;
using boost::posix_time::ptime;
using boost::posix_time::time_duration;
using boost::system::error_code;
namespace errc = boost::system::errc;
using opcvk_test::isCondition;
using opcvk_test::u16;

class LocalFileSystemOpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    opcvk_test::writeFile(dir_ / "file.txt", "content");
    ASSERT_EQ(::mkdir((dir_ / "folder").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("file.txt", (dir_ / "link-to-file").c_str()), 0);
    ASSERT_EQ(::symlink("folder", (dir_ / "link-to-folder").c_str()), 0);
    ASSERT_EQ(::symlink("missing", (dir_ / "dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0644), 0);
  }

  std::u16string at(std::string const& name) const { return u16(dir_ / name); }

  opcvk_test::TempDir dir_;
  opc::LocalFileSystemOps fileSystem_;
};

TEST_F(LocalFileSystemOpsTest, ExistsSeesEveryKindIncludingDanglingLinks) {
  for (char const* name :
       {"file.txt", "folder", "link-to-file", "link-to-folder", "dangling", "fifo"}) {
    error_code code = errc::make_error_code(errc::io_error);
    EXPECT_TRUE(fileSystem_.exists(at(name), code)) << name;
    EXPECT_FALSE(code) << name;
  }
}

TEST_F(LocalFileSystemOpsTest, ExistsOfMissingPathIsFalseWithoutError) {
  for (char const* name : {"missing", "missing/below", "file.txt/below"}) {
    error_code code = errc::make_error_code(errc::io_error);
    EXPECT_FALSE(fileSystem_.exists(at(name), code)) << name;
    EXPECT_FALSE(code) << name;
  }
}

TEST_F(LocalFileSystemOpsTest, ExistsBehindClosedFolderReportsPermissionDenied) {
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  opcvk_test::writeFile(dir_ / "folder/inside", "x");
  ASSERT_EQ(::chmod((dir_ / "folder").c_str(), 0), 0);
  std::u16string path = at("folder/inside");
  int result = opcvk_test::runUnprivileged([&] {
    error_code code;
    bool found = fileSystem_.exists(path, code);
    return !found && isCondition(code, errc::permission_denied) ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(LocalFileSystemOpsTest, IsFileOnlyForRegularFilesWithoutFollowingLinks) {
  EXPECT_TRUE(fileSystem_.isFile(at("file.txt")));
  for (char const* name :
       {"folder", "link-to-file", "link-to-folder", "dangling", "fifo", "missing"}) {
    EXPECT_FALSE(fileSystem_.isFile(at(name))) << name;
  }
}

TEST_F(LocalFileSystemOpsTest, IsFolderOnlyForFoldersWithoutFollowingLinks) {
  EXPECT_TRUE(fileSystem_.isFolder(at("folder")));
  EXPECT_TRUE(fileSystem_.isFolder(u"/"));
  for (char const* name : {"file.txt", "link-to-file", "link-to-folder", "dangling", "missing"}) {
    EXPECT_FALSE(fileSystem_.isFolder(at(name))) << name;
  }
}

TEST_F(LocalFileSystemOpsTest, IsSymlinkForEveryLinkWithoutFollowing) {
  for (char const* name : {"link-to-file", "link-to-folder", "dangling"}) {
    EXPECT_TRUE(fileSystem_.isSymlink(at(name))) << name;
  }
  for (char const* name : {"file.txt", "folder", "fifo", "missing"}) {
    EXPECT_FALSE(fileSystem_.isSymlink(at(name))) << name;
  }
}

TEST_F(LocalFileSystemOpsTest, QueriesRaiseForPathsWithoutByteForm) {
  std::u16string withNul = u"/tmp/a";
  withNul.push_back(u'\0');
  EXPECT_THROW_MESSAGE(fileSystem_.isFile(withNul), opc::Exception,
                       "Could not test for a file: /tmp/a?: the path holds a NUL character or a "
                       "lone surrogate and has no form on this system");
  std::u16string loneHigh = u"/tmp/";
  loneHigh.push_back(static_cast<char16_t>(0xD800));
  EXPECT_THROW_MESSAGE(fileSystem_.isSymlink(loneHigh), opc::Exception,
                       "Could not test for a symbolic link: /tmp/?: the path holds a NUL character "
                       "or a lone surrogate and has no form on this system");
  error_code code;
  EXPECT_FALSE(fileSystem_.exists(withNul, code));
  EXPECT_TRUE(isCondition(code, errc::invalid_argument));
}

TEST_F(LocalFileSystemOpsTest, QueryRaisesWithCodeWhenThePathCannotBeExamined) {
  std::u16string looped = at("loop/x");
  ASSERT_EQ(::symlink("loop", (dir_ / "loop").c_str()), 0);
  try {
    fileSystem_.isFolder(looped);
    FAIL() << "no exception";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not test for a folder: " + dir_.path() + "/loop/x: " + e.code().message());
    EXPECT_TRUE(isCondition(e.code(), errc::too_many_symbolic_link_levels));
  }
}

TEST_F(LocalFileSystemOpsTest, NonUtf8NamesSurviveTheRoundTrip) {
  std::string raw = dir_ / "caf\xe9-\xff.txt";  // Latin-1 bytes, not UTF-8
  opcvk_test::writeFile(raw, "latin");
  std::vector<std::u16string> files;
  error_code code;
  fileSystem_.getFiles(u16(dir_.path()), files, false, code);
  ASSERT_FALSE(code);
  std::u16string expected = at("caf") + u"\xDCE9-\xDCFF.txt";
  ASSERT_EQ(files.front(), expected);
  EXPECT_TRUE(fileSystem_.isFile(expected));
  // Valid UTF-8 comes back as the characters it encodes.
  opcvk_test::writeFile(dir_ / "\xc3\xa9t\xc3\xa9", "utf8");
  EXPECT_TRUE(fileSystem_.isFile(at("") + u"\u00e9t\u00e9"));
}

TEST_F(LocalFileSystemOpsTest, PermissionsAreTheLowNineBits) {
  std::string path = dir_ / "file.txt";
  for (mode_t mode : {0640, 0777, 0, 0400, 0751, 04755, 02711, 01700}) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    error_code code;
    EXPECT_EQ(fileSystem_.getPermissions(u16(path), code), mode & 0777) << std::oct << mode;
    EXPECT_FALSE(code);
  }
  error_code code;
  EXPECT_EQ(fileSystem_.getPermissions(at("folder"), code), 0755);
  // A link's own bits, never its target's.
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(fileSystem_.getPermissions(at("link-to-file"), code), 0777);
}

TEST_F(LocalFileSystemOpsTest, GetPermissionsOfMissingPathGivesUnknownAndTheError) {
  error_code code;
  EXPECT_EQ(fileSystem_.getPermissions(at("missing"), code), opc::Perms::unknown);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
}

TEST_F(LocalFileSystemOpsTest, SetPermissionsSetsEveryBit) {
  std::string path = dir_ / "file.txt";
  for (unsigned mode = 0; mode <= 0777; mode += 0111) {
    error_code code;
    fileSystem_.setPermissions(u16(path), static_cast<opc::Perms::Perms_tag>(mode), code);
    EXPECT_FALSE(code) << std::oct << mode;
    EXPECT_EQ(opcvk_test::modeOf(path) & 07777, mode);
  }
  error_code code;
  fileSystem_.setPermissions(at("folder"), static_cast<opc::Perms::Perms_tag>(0711), code);
  EXPECT_FALSE(code);
  EXPECT_EQ(opcvk_test::modeOf(dir_ / "folder") & 07777, 0711u);
}

TEST_F(LocalFileSystemOpsTest, SetPermissionsRefusesUnknownAndValuesAbove0777) {
  std::string path = dir_ / "file.txt";
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  for (unsigned value : {0xFFFFu, 01000u, 04755u, 0x10000u}) {
    error_code code;
    fileSystem_.setPermissions(u16(path), static_cast<opc::Perms::Perms_tag>(value), code);
    EXPECT_TRUE(isCondition(code, errc::invalid_argument)) << value;
    EXPECT_EQ(opcvk_test::modeOf(path) & 07777, 0640u);
  }
}

TEST_F(LocalFileSystemOpsTest, SetPermissionsOnLinkLeavesTheTargetAlone) {
  std::string target = dir_ / "file.txt";
  ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
  error_code code;
  fileSystem_.setPermissions(at("link-to-file"), opc::Perms::all_all, code);
  EXPECT_TRUE(isCondition(code, errc::operation_not_supported));
  EXPECT_EQ(opcvk_test::modeOf(target) & 07777, 0600u);
}

TEST_F(LocalFileSystemOpsTest, SetPermissionsOfMissingPathReportsIt) {
  error_code code;
  fileSystem_.setPermissions(at("missing"), opc::Perms::owner_all, code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
}

ptime fromEpoch(long long seconds, long nanoseconds) {
  return ptime(date(1970, 1, 1)) + boost::gregorian::days(seconds / 86400) +
         boost::posix_time::seconds(static_cast<long>(seconds % 86400)) +
         microseconds(nanoseconds / 1000);
}

void setTimes(std::string const& path, timespec access, timespec modified, int flags = 0) {
  timespec times[2] = {access, modified};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, flags), 0) << path;
}

TEST_F(LocalFileSystemOpsTest, GetLastModifiedTimeTruncatesToMicroseconds) {
  setTimes(dir_ / "file.txt", {0, UTIME_OMIT}, {1700000000, 123456789});
  error_code code;
  ptime time = fileSystem_.getLastModifiedTime(at("file.txt"), code);
  EXPECT_FALSE(code);
  EXPECT_EQ(time, ptime(date(2023, 11, 14), time_duration(22, 13, 20) + microseconds(123456)));
}

TEST_F(LocalFileSystemOpsTest, SetLastModifiedTimeKeepsMicrosecondsAndLeavesAccessTime) {
  std::string path = dir_ / "file.txt";
  setTimes(path, {1000000000, 5}, {1000000000, 5});
  ptime wanted(date(2021, 3, 4), time_duration(5, 6, 7) + microseconds(891011));
  error_code code;
  fileSystem_.setLastModifiedTime(u16(path), wanted, code);
  ASSERT_FALSE(code);
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mtim.tv_nsec, 891011000);
  EXPECT_EQ(status.st_atim.tv_sec, 1000000000);
  EXPECT_EQ(status.st_atim.tv_nsec, 5);
  EXPECT_EQ(fileSystem_.getLastModifiedTime(u16(path), code), wanted);
}

TEST_F(LocalFileSystemOpsTest, LinkTimesAreTheLinksOwn) {
  setTimes(dir_ / "file.txt", {0, UTIME_OMIT}, {1500000000, 0});
  setTimes(dir_ / "link-to-file", {0, UTIME_OMIT}, {1400000000, 0}, AT_SYMLINK_NOFOLLOW);
  error_code code;
  EXPECT_EQ(fileSystem_.getLastModifiedTime(at("link-to-file"), code), fromEpoch(1400000000, 0));
  ptime wanted(date(2010, 1, 2), time_duration(3, 4, 5) + microseconds(6));
  fileSystem_.setLastModifiedTime(at("link-to-file"), wanted, code);
  ASSERT_FALSE(code);
  EXPECT_EQ(fileSystem_.getLastModifiedTime(at("link-to-file"), code), wanted);
  EXPECT_EQ(fileSystem_.getLastModifiedTime(at("file.txt"), code), fromEpoch(1500000000, 0));
  // A dangling link has a time of its own too.
  fileSystem_.setLastModifiedTime(at("dangling"), wanted, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(fileSystem_.getLastModifiedTime(at("dangling"), code), wanted);
}

TEST_F(LocalFileSystemOpsTest, TimesRoundTripAcrossTheEpochAndYear2038) {
  ptime const times[] = {
      ptime(date(1970, 1, 1)),
      ptime(date(1969, 12, 31), time_duration(23, 59, 59) + microseconds(500000)),
      ptime(date(1969, 12, 31), time_duration(23, 59, 59) + microseconds(999999)),
      ptime(date(1950, 6, 15), time_duration(1, 2, 3) + microseconds(1)),
      ptime(date(2038, 1, 19), time_duration(3, 14, 8)),
      ptime(date(2106, 2, 7), time_duration(6, 28, 16) + microseconds(999999)),
      ptime(date(1901, 12, 14)),
  };
  for (ptime const& wanted : times) {
    error_code code;
    fileSystem_.setLastModifiedTime(at("file.txt"), wanted, code);
    ASSERT_FALSE(code) << wanted;
    EXPECT_EQ(fileSystem_.getLastModifiedTime(at("file.txt"), code), wanted);
    EXPECT_FALSE(code);
  }
}

TEST_F(LocalFileSystemOpsTest, TimeBeyondTheFileSystemIsNeverChangedSilently) {
  // ext4 holds 1901..2446, tmpfs and others more: whatever the file system, the time either
  // comes back exactly or the set reports value_too_large.
  ptime const times[] = {
      ptime(date(1400, 1, 1)),
      ptime(date(9999, 12, 31), time_duration(23, 59, 59) + microseconds(999999)),
      ptime(date(1800, 7, 1)),
      ptime(date(3000, 1, 1)),
  };
  for (ptime const& wanted : times) {
    error_code code;
    fileSystem_.setLastModifiedTime(at("file.txt"), wanted, code);
    if (code) {
      EXPECT_TRUE(isCondition(code, errc::value_too_large)) << wanted << code.message();
    } else {
      EXPECT_EQ(fileSystem_.getLastModifiedTime(at("file.txt"), code), wanted);
    }
  }
}

TEST_F(LocalFileSystemOpsTest, SetLastModifiedTimeRefusesSpecialValues) {
  for (ptime time :
       {ptime(), ptime(boost::posix_time::pos_infin), ptime(boost::posix_time::neg_infin)}) {
    error_code code;
    fileSystem_.setLastModifiedTime(at("file.txt"), time, code);
    EXPECT_TRUE(isCondition(code, errc::invalid_argument));
  }
}

TEST_F(LocalFileSystemOpsTest, GetLastModifiedTimeOfMissingPathGivesNotADateTime) {
  error_code code;
  EXPECT_TRUE(fileSystem_.getLastModifiedTime(at("missing"), code).is_not_a_date_time());
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  fileSystem_.setLastModifiedTime(at("missing"), ptime(date(2000, 1, 1)), code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
}

TEST_F(LocalFileSystemOpsTest, GetLinkTargetGivesTheStoredText) {
  EXPECT_EQ(fileSystem_.getLinkTarget(at("link-to-file")), u"file.txt");
  EXPECT_EQ(fileSystem_.getLinkTarget(at("dangling")), u"missing");
  std::string longTarget = "/" + std::string(1000, 'x') + "/../a//b/";
  ASSERT_EQ(::symlink(longTarget.c_str(), (dir_ / "long").c_str()), 0);
  EXPECT_EQ(fileSystem_.getLinkTarget(at("long")), u16(longTarget));
  ASSERT_EQ(::symlink("\xff\xfe", (dir_ / "raw").c_str()), 0);
  EXPECT_EQ(fileSystem_.getLinkTarget(at("raw")), u"\xDCFF\xDCFE");
}

TEST_F(LocalFileSystemOpsTest, GetLinkTargetOfNonLinkRaises) {
  EXPECT_THROW_MESSAGE(
      fileSystem_.getLinkTarget(at("file.txt")), opc::Exception,
      "Could not get the link target of: " + dir_.path() + "/file.txt: Invalid argument");
  EXPECT_THROW_MESSAGE(
      fileSystem_.getLinkTarget(at("missing")), opc::Exception,
      "Could not get the link target of: " + dir_.path() + "/missing: No such file or directory");
}

TEST_F(LocalFileSystemOpsTest, GetTempNameGivesAFreeNameInTheFolder) {
  std::u16string first = fileSystem_.getTempName(u16(dir_.path()));
  std::u16string second = fileSystem_.getTempName(u16(dir_.path()) + u"/");
  EXPECT_NE(first, second);
  for (std::u16string const& name : {first, second}) {
    EXPECT_EQ(fileSystem_.getParentPath(name), u16(dir_.path()));
    EXPECT_FALSE(opcvk_test::pathExists(std::string(name.begin(), name.end())));
  }
}

TEST_F(LocalFileSystemOpsTest, GetTempNameOfEmptyPathUsesTheSystemTemporaryFolder) {
  char const* saved = std::getenv("TMPDIR");
  std::string savedValue = saved != nullptr ? saved : "";
  ::setenv("TMPDIR", (dir_ / "folder").c_str(), 1);
  std::u16string name = fileSystem_.getTempName(u"");
  EXPECT_EQ(fileSystem_.getParentPath(name), at("folder"));
  ::unsetenv("TMPDIR");
  EXPECT_EQ(fileSystem_.getParentPath(fileSystem_.getTempName(u"")), u"/tmp");
  if (saved != nullptr) ::setenv("TMPDIR", savedValue.c_str(), 1);
}

TEST_F(LocalFileSystemOpsTest, GetTempNameRaisesWithoutAFolder) {
  EXPECT_THROW_MESSAGE(
      fileSystem_.getTempName(at("missing")), opc::Exception,
      "Could not make a temporary name in: " + dir_.path() + "/missing: No such file or directory");
  EXPECT_THROW_MESSAGE(
      fileSystem_.getTempName(at("file.txt")), opc::Exception,
      "Could not make a temporary name in: " + dir_.path() + "/file.txt: Not a directory");
}

TEST_F(LocalFileSystemOpsTest, ErrorCodesCompareEqualToGenericConditions) {
  error_code code;
  fileSystem_.createFolder(at("folder"), code);
  EXPECT_TRUE(isCondition(code, errc::file_exists));
  EXPECT_EQ(code.value(), EEXIST);
  fileSystem_.createFolder(at("missing/below"), code);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  fileSystem_.createFolder(at("file.txt/below"), code);
  EXPECT_TRUE(isCondition(code, errc::not_a_directory));
  // The public operation clears an error left in the code by an earlier call.
  EXPECT_TRUE(fileSystem_.exists(at("folder"), code));
  EXPECT_FALSE(code);
}

TEST_F(LocalFileSystemOpsTest, SharedInstanceIsOneAndUsableFromManyThreads) {
  EXPECT_EQ(opc::LocalFileSystemOps::getShared().get(), opc::LocalFileSystemOps::getShared().get());
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      opc::FileSystemOps& shared = *opc::LocalFileSystemOps::getShared();
      for (int i = 0; i < 200; ++i) {
        error_code code;
        std::vector<std::u16string> files;
        shared.getFiles(u16(dir_.path()), files, true, code);
        bool ok = shared.isFile(at("file.txt")) && shared.isSymlink(at("dangling")) &&
                  shared.exists(at("folder"), code) && !code && files.size() == 4;
        if (!ok) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
