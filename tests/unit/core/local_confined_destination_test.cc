// What only the descriptor road of the local disk does: folders opened once and written in
// whatever happens to their names, files with other hard links refused, pipes that do not
// hang, deep trees within a bounded number of descriptors, whether what is held open is
// still what its names lead to, and new files with the permissions asked for whether or not
// they are changed after creation.
#include <cstdint>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
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
using opcvk_test::namesIn;
using opcvk_test::openDescriptorCount;
using opcvk_test::pathExists;
using opcvk_test::readFile;
using opcvk_test::u16;
using opcvk_test::write;
using opcvk_test::writeFile;
using Status = ConfinedResult::Status;
namespace errc = boost::system::errc;

class LocalConfinedDestinationTest : public opcvk_test::ConfinedDestinationFixture {
 protected:
  void SetUp() override {
    ConfinedDestinationFixture::SetUp();
    destination_ = fileSystem_.openConfinedDestination(u16(dest()));
  }

  ConfinedResult put(std::u16string const& path, std::string const& content) {
    return opcvk_test::put(*destination_, path, content);
  }

  opc::LocalFileSystemOps fileSystem_;
  std::unique_ptr<opc::ConfinedDestination> destination_;
};

TEST_F(LocalConfinedDestinationTest, FolderSwappedForALinkAfterItWasOpenedIsNotFollowed) {
  ASSERT_TRUE(put(u"/a/first", "1").done());
  // Another process swaps the folder for a link to the outside between two entries.
  ASSERT_EQ(::rename(in("a").c_str(), in("moved").c_str()), 0);
  ASSERT_EQ(::symlink("../outside", in("a").c_str()), 0);
  EXPECT_FALSE(destination_->isUnchanged());
  ASSERT_TRUE(put(u"/a/secret", "overwritten?").done());
  ASSERT_TRUE(put(u"/a/second", "2").done());
  destination_ = nullptr;
  // What was opened is what is written in: the folder, wherever it went.
  EXPECT_EQ(readFile(in("moved/secret")), "overwritten?");
  EXPECT_EQ(readFile(in("moved/second")), "2");
  expectOutsideUntouched();
}

TEST_F(LocalConfinedDestinationTest, ANewDestinationRefusesTheSwappedFolder) {
  ASSERT_TRUE(put(u"/a/first", "1").done());
  ASSERT_EQ(::rename(in("a").c_str(), in("moved").c_str()), 0);
  ASSERT_EQ(::symlink("../outside", in("a").c_str()), 0);
  destination_ = fileSystem_.openConfinedDestination(u16(dest()));
  ConfinedResult const result = put(u"/a/secret", "overwritten?");
  EXPECT_EQ(result.status, Status::SymbolicLink);
  EXPECT_EQ(result.depth, 1u);
  expectOutsideUntouched();
}

TEST_F(LocalConfinedDestinationTest, FileWithOtherHardLinksIsNotOpened) {
  ASSERT_EQ(::link((outside() + "/secret").c_str(), in("h").c_str()), 0);
  ConfinedResult const result = put(u"/h", "overwritten?");
  EXPECT_EQ(result.status, Status::SharedFile);
  expectOutsideUntouched();
}

TEST_F(LocalConfinedDestinationTest, NamedPipeWithoutAReaderDoesNotHang) {
  ASSERT_EQ(::mkfifo(in("pipe").c_str(), 0666), 0);
  ConfinedResult const result = put(u"/pipe", "x");
  EXPECT_EQ(result.status, Status::Failed);
  EXPECT_TRUE(isCondition(result.code, errc::no_such_device_or_address));
}

TEST_F(LocalConfinedDestinationTest, NamedPipeWithAReaderIsNotWrittenAsAFile) {
  ASSERT_EQ(::mkfifo(in("pipe").c_str(), 0666), 0);
  int const reader = ::open(in("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  ConfinedResult const result = put(u"/pipe", "x");
  ::close(reader);
  EXPECT_EQ(result.status, Status::Failed);
  EXPECT_TRUE(isCondition(result.code, errc::file_exists));
}

TEST_F(LocalConfinedDestinationTest, DeepTreesHoldABoundedNumberOfDescriptors) {
  destination_ = nullptr;
  int const before = openDescriptorCount();
  destination_ = fileSystem_.openConfinedDestination(u16(dest()));
  std::u16string deep;
  std::string real;
  for (int i = 0; i < 80; ++i) {
    deep += u"/d" + u16(std::to_string(i));
    real += "/d" + std::to_string(i);
  }
  ASSERT_TRUE(put(deep + u"/bottom", "b").done());
  EXPECT_LE(openDescriptorCount() - before, 70);
  // Back up to folders whose descriptors were let go, then down again.
  ASSERT_TRUE(put(u"/d0/top", "t").done());
  ASSERT_TRUE(put(deep + u"/again", "a").done());
  ASSERT_TRUE(put(u"/d0/d1/d2/d3/middle", "m").done());
  destination_ = nullptr;
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_EQ(readFile(dest() + real + "/bottom"), "b");
  EXPECT_EQ(readFile(dest() + real + "/again"), "a");
  EXPECT_EQ(readFile(in("d0/top")), "t");
  EXPECT_EQ(readFile(in("d0/d1/d2/d3/middle")), "m");
}

TEST_F(LocalConfinedDestinationTest, LinkPlantedAboveALetGoFolderIsRefusedOnTheWayBack) {
  std::u16string deep;
  for (int i = 0; i < 70; ++i) deep += u"/d" + u16(std::to_string(i));
  ASSERT_TRUE(put(deep + u"/bottom", "b").done());
  // d0/d1 was let go; it is swapped for a link before the walk comes back through it.
  ASSERT_EQ(::rename(in("d0/d1").c_str(), in("moved").c_str()), 0);
  ASSERT_EQ(::symlink("../../outside", in("d0/d1").c_str()), 0);
  ConfinedResult const result = put(u"/d0/d1/secret", "overwritten?");
  EXPECT_EQ(result.status, Status::SymbolicLink);
  EXPECT_EQ(result.depth, 2u);
  expectOutsideUntouched();
}

TEST_F(LocalConfinedDestinationTest, IsUnchangedWhileTheNamesLeadToWhatIsHeld) {
  EXPECT_TRUE(destination_->isUnchanged());
  ASSERT_TRUE(put(u"/a/b/f", "x").done());
  EXPECT_TRUE(destination_->isUnchanged());
  writeFile(in("a/other"), "something else changes");
  EXPECT_TRUE(destination_->isUnchanged());
  ASSERT_EQ(::rename(in("a/b").c_str(), in("a/c").c_str()), 0);
  EXPECT_FALSE(destination_->isUnchanged());
  ASSERT_EQ(::rename(in("a/c").c_str(), in("a/b").c_str()), 0);
  EXPECT_TRUE(destination_->isUnchanged());
  // The root itself replaced by another folder of the same name.
  ASSERT_EQ(::rename(dest().c_str(), (temp_ / "old").c_str()), 0);
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(in("a").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(in("a/b").c_str(), 0755), 0);
  EXPECT_FALSE(destination_->isUnchanged());
}

TEST_F(LocalConfinedDestinationTest, RootThatIsNotAFolderFailsEveryOperation) {
  writeFile(temp_ / "file", "x");
  destination_ = fileSystem_.openConfinedDestination(u16(temp_ / "file"));
  EXPECT_FALSE(destination_->isUnchanged());
  ConfinedResult result;
  destination_->makeParents(u"/a/b", result);
  EXPECT_TRUE(isCondition(result.code, errc::not_a_directory));
  destination_->makeParents(u"/a", result);
  EXPECT_TRUE(result.done());
  EXPECT_FALSE(destination_->openFile(u"/a", result));
  EXPECT_TRUE(isCondition(result.code, errc::not_a_directory));
  destination_ = fileSystem_.openConfinedDestination(u16(temp_ / "missing"));
  destination_->makeParents(u"/a/b", result);
  EXPECT_TRUE(isCondition(result.code, errc::no_such_file_or_directory));
  EXPECT_FALSE(pathExists(temp_ / "missing"));
}

TEST_F(LocalConfinedDestinationTest, TimesBeyondTheUsualRangeAreCheckedAndKept) {
  for (boost::posix_time::ptime const time :
       {boost::posix_time::ptime(boost::gregorian::date(1969, 7, 20),
                                 boost::posix_time::microseconds(1)),
        boost::posix_time::ptime(boost::gregorian::date(2100, 1, 2),
                                 boost::posix_time::microseconds(999999))}) {
    ConfinedResult result;
    std::unique_ptr<opc::ConfinedFile> file = destination_->openFile(u"/t", result);
    ASSERT_TRUE(file);
    error_code code;
    file->setLastModifiedTime(time, code);
    file = nullptr;
    if (code) {
      // A disk that cannot hold it says so.
      EXPECT_TRUE(isCondition(code, errc::value_too_large));
      continue;
    }
    error_code readCode;
    EXPECT_EQ(fileSystem_.getLastModifiedTime(u16(in("t")), readCode), time);
  }
}

TEST_F(LocalConfinedDestinationTest, PermissionsChangeWithoutProcToo) {
  writeFile(in("f"), "x");
  ASSERT_EQ(::symlink("../outside/secret", in("l").c_str()), 0);
  int const outcome = opcvk_test::runInOwnMounts([&] {
    if (::access("/proc/self", F_OK) == 0) return 77;  // still there: nothing to test
    auto destination = fileSystem_.openConfinedDestination(u16(dest()));
    error_code code;
    destination->setPermissions(u"/f", static_cast<opc::Perms::Perms_tag>(0600), code);
    if (code || (opcvk_test::modeOf(in("f")) & 0777) != 0600) return 1;
    destination->setPermissions(u"/l", static_cast<opc::Perms::Perms_tag>(0777), code);
    return isCondition(code, errc::operation_not_supported) ? 0 : 2;
  });
  if (outcome == 77) GTEST_SKIP() << "no mount namespace without /proc here";
  EXPECT_EQ(outcome, 0);
  expectOutsideUntouched();
}

// The umask of the test while it lives, the one before restored after.
class UmaskFor {
 public:
  explicit UmaskFor(mode_t mask) : before_(::umask(mask)) {}
  ~UmaskFor() { ::umask(before_); }
  UmaskFor(UmaskFor const&) = delete;
  UmaskFor& operator=(UmaskFor const&) = delete;

 private:
  mode_t before_;
};

// Writes a new file at `path` through `destination` and gives it `permissions`.
void putWithPermissions(opc::ConfinedDestination& destination, std::u16string const& path,
                        unsigned permissions) {
  ConfinedResult result;
  destination.makeParents(path, result);
  ASSERT_TRUE(result.done());
  std::unique_ptr<opc::ConfinedFile> file = destination.openFile(path, result);
  ASSERT_TRUE(file);
  file->stream() << "x";
  error_code code;
  file->setPermissions(static_cast<opc::Perms::Perms_tag>(permissions), code);
  EXPECT_FALSE(code) << code.message();
}

// A default ACL of user::rw-, group::---, other::---, in the kernel's form of the attribute.
bool setPrivateDefaultAcl(std::string const& folder) {
  struct Entry {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t id;
  };
  struct Acl {
    std::uint32_t version;
    Entry entries[3];
  } const acl{2, {{0x01, 6, 0xFFFFFFFFu}, {0x04, 0, 0xFFFFFFFFu}, {0x20, 0, 0xFFFFFFFFu}}};
  return ::setxattr(folder.c_str(), "system.posix_acl_default", &acl, sizeof acl, 0) == 0;
}

TEST_F(LocalConfinedDestinationTest, NewFilesGetThePermissionsAskedForWhateverTheUmask) {
  for (mode_t const mask : {mode_t{022}, mode_t{077}, mode_t{0}}) {
    UmaskFor umask(mask);
    // The umask is read when a destination is opened.
    std::unique_ptr<opc::ConfinedDestination> destination =
        fileSystem_.openConfinedDestination(u16(dest()));
    for (unsigned const permissions : {0644u, 0600u, 0666u, 0640u, 0755u, 0444u}) {
      std::string const name = "u" + std::to_string(mask) + "/f" + std::to_string(permissions);
      putWithPermissions(*destination, u16("/" + name), permissions);
      EXPECT_EQ(opcvk_test::modeOf(in(name)) & 07777, permissions) << name;
    }
  }
}

TEST_F(LocalConfinedDestinationTest, FilesThatWereThereOrInFoldersThatWereGetThePermissions) {
  UmaskFor umask(022);
  writeFile(in("f"), "old");
  ASSERT_EQ(::chmod(in("f").c_str(), 0600), 0);
  std::unique_ptr<opc::ConfinedDestination> destination =
      fileSystem_.openConfinedDestination(u16(dest()));
  putWithPermissions(*destination, u"/f", 0644);
  EXPECT_EQ(opcvk_test::modeOf(in("f")) & 07777, 0644u);
  // New files in a folder that was there.
  ASSERT_EQ(::mkdir(in("pre").c_str(), 0700), 0);
  putWithPermissions(*destination, u"/pre/g", 0644);
  putWithPermissions(*destination, u"/pre/h", 0600);
  EXPECT_EQ(opcvk_test::modeOf(in("pre/g")) & 07777, 0644u);
  EXPECT_EQ(opcvk_test::modeOf(in("pre/h")) & 07777, 0600u);
}

TEST_F(LocalConfinedDestinationTest, ADefaultAclDecidesInsteadOfTheUmaskAndIsOvercome) {
  UmaskFor umask(022);
  ASSERT_EQ(::mkdir(in("old").c_str(), 0755), 0);
  if (!setPrivateDefaultAcl(in("old"))) GTEST_SKIP() << "no ACLs on this disk";
  // In the root first, then in a folder that was there, with a default ACL of its own, and
  // in one made in it; then below a root with one.
  putWithPermissions(*destination_, u"/first", 0644);
  putWithPermissions(*destination_, u"/old/f", 0644);
  putWithPermissions(*destination_, u"/old/new/g", 0644);
  ASSERT_TRUE(setPrivateDefaultAcl(dest()));
  std::unique_ptr<opc::ConfinedDestination> destination =
      fileSystem_.openConfinedDestination(u16(dest()));
  putWithPermissions(*destination, u"/h", 0644);
  putWithPermissions(*destination, u"/made/i", 0644);
  for (char const* name : {"first", "old/f", "old/new/g", "h", "made/i"}) {
    EXPECT_EQ(opcvk_test::modeOf(in(name)) & 07777, 0644u) << name;
  }
}

TEST_F(LocalConfinedDestinationTest, DerivedClassesGetTheByPathRoad) {
  ByPathLocalFileSystemOps byPath;
  std::unique_ptr<opc::ConfinedDestination> destination =
      byPath.openConfinedDestination(u16(dest()));
  ConfinedResult result;
  destination->makeParents(u"/a/f", result);
  EXPECT_TRUE(result.done());
  // It holds nothing open, so it can never vouch for what it holds.
  EXPECT_FALSE(destination->isUnchanged());
  EXPECT_TRUE(destination_->isUnchanged());
}

TEST_F(LocalConfinedDestinationTest, DescriptorsAreClosedWithTheDestinationAndItsFiles) {
  int const before = openDescriptorCount();
  {
    std::unique_ptr<opc::ConfinedDestination> destination =
        fileSystem_.openConfinedDestination(u16(dest()));
    ConfinedResult result;
    destination->makeParents(u"/x/y/f", result);
    auto file = destination->openFile(u"/x/y/f", result);
    auto temporary = destination->openTemporaryFile(u"/x/y/g", result);
    EXPECT_GT(openDescriptorCount(), before);
  }
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_EQ(namesIn(in("x/y")), std::set<std::string>{"f"});
}

}  // namespace
