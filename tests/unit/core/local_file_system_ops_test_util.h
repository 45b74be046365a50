// Small helpers shared by the tests of LocalFileSystemOps: real files made with plain POSIX
// calls (so that the code under test is not used to prepare its own test), and a way to run
// a check without root's rights.
#ifndef TESTS_UNIT_CORE_LOCAL_FILE_SYSTEM_OPS_TEST_UTIL_H_
#define TESTS_UNIT_CORE_LOCAL_FILE_SYSTEM_OPS_TEST_UTIL_H_

#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/system/error_code.hpp>
#include <gtest/gtest.h>

#include "support/run_unprivileged.h"

namespace opcvk_test {

// ASCII text (the temporary folders' paths) as UTF-16.
inline std::u16string u16(std::string const& text) {
  return std::u16string(text.begin(), text.end());
}

inline void writeFile(std::string const& path, std::string const& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  ASSERT_TRUE(out.good()) << path;
}

inline std::string readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::string out;
  char block[4096];
  while (in.read(block, sizeof block) || in.gcount() > 0) {
    out.append(block, static_cast<std::size_t>(in.gcount()));
  }
  return out;
}

inline bool pathExists(std::string const& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

// The names in the folder `path`, without "." and ".."; none if it cannot be read.
inline std::set<std::string> namesIn(std::string const& path) {
  std::set<std::string> names;
  DIR* folder = ::opendir(path.c_str());
  if (folder == nullptr) return names;
  while (dirent* item = ::readdir(folder)) {
    std::string const name = item->d_name;
    if (name != "." && name != "..") names.insert(name);
  }
  ::closedir(folder);
  return names;
}

inline mode_t modeOf(std::string const& path) {
  struct stat status;
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode;
}

inline std::string readLink(std::string const& path) {
  char buffer[4096];
  ssize_t count = ::readlink(path.c_str(), buffer, sizeof buffer);
  return count < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(count));
}

// True if the code is the errno value in the system category and compares equal to the
// generic condition: by operator== and by the error category's own `equivalent`, the test
// that extraction makes.
inline bool isCondition(boost::system::error_code const& code, boost::system::errc::errc_t want) {
  boost::system::error_condition condition = boost::system::errc::make_error_condition(want);
  return code.category() == boost::system::system_category() && code.value() == condition.value() &&
         code == condition && code.category().equivalent(code.value(), condition);
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_CORE_LOCAL_FILE_SYSTEM_OPS_TEST_UTIL_H_
