// Shared pieces of the tests of ConfinedDestination on real folders: a fixture with a
// destination and a sentinel folder beside it, and the two roads to compare.
#ifndef TESTS_UNIT_CORE_CONFINED_DESTINATION_TEST_UTIL_H_
#define TESTS_UNIT_CORE_CONFINED_DESTINATION_TEST_UTIL_H_

#include <functional>
#include <memory>
#include <sched.h>
#include <set>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <opc/core/confined_destination.h>
#include <opc/core/local_file_system_ops.h>

#include "local_file_system_ops_test_util.h"
#include "support/temp_dir.h"

namespace opcvk_test {

// The local disk through the by-path destination that FileSystemOps gives by default: a
// class derived from LocalFileSystemOps gets it, on the same disk.
class ByPathLocalFileSystemOps : public opc::LocalFileSystemOps {};

// Names the instances of a test that runs on both roads (true: descriptors).
inline std::string roadName(::testing::TestParamInfo<bool> const& road) {
  return road.param ? "Descriptors" : "ByPath";
}

// Runs `check` in a child process with mounts of its own in which /proc is unmounted, and
// gives what it returned; 77 when this machine does not allow that (not root, no mount
// namespaces), -1 if the child did not end normally.
inline int runInOwnMounts(std::function<int()> const& check) {
  pid_t const child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::umount2("/proc", MNT_DETACH) != 0) {
      ::_exit(77);
    }
    ::_exit(check());
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

inline int openDescriptorCount() { return static_cast<int>(namesIn("/proc/self/fd").size()); }

inline void write(opc::ConfinedFile& file, std::string const& content) {
  file.stream().write(content.data(), static_cast<std::streamsize>(content.size()));
}

// makeParents, openFile and the content, the file closed again.
inline opc::ConfinedResult put(opc::ConfinedDestination& destination, std::u16string const& path,
                               std::string const& content) {
  opc::ConfinedResult result;
  destination.makeParents(path, result);
  if (!result.done()) return result;
  std::unique_ptr<opc::ConfinedFile> file = destination.openFile(path, result);
  EXPECT_EQ(file == nullptr, !result.done());
  if (file) write(*file, content);
  return result;
}

// The local disk on one of the two roads (true: descriptors; false: by path).
inline std::unique_ptr<opc::LocalFileSystemOps> localFileSystem(bool descriptors) {
  if (descriptors) return std::make_unique<opc::LocalFileSystemOps>();
  return std::make_unique<ByPathLocalFileSystemOps>();
}

// A temporary folder with "dest" (made) and "outside" (a sentinel holding "secret").
class ConfinedDestinationFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(outside().c_str(), 0755), 0);
    writeFile(outside() + "/secret", "s3cret");
    secretMode_ = modeOf(outside() + "/secret");
  }

  std::string dest() const { return temp_ / "dest"; }
  std::string outside() const { return temp_ / "outside"; }
  std::string in(std::string const& rest) const { return dest() + "/" + rest; }

  // The sentinel holds only what SetUp put there, unchanged.
  void expectOutsideUntouched() const {
    EXPECT_EQ(namesIn(outside()), std::set<std::string>{"secret"});
    EXPECT_EQ(readFile(outside() + "/secret"), "s3cret");
    EXPECT_EQ(modeOf(outside() + "/secret"), secretMode_);
  }

  TempDir temp_;
  mode_t secretMode_ = 0;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_CORE_CONFINED_DESTINATION_TEST_UTIL_H_
