// Real folders, files and symbolic links for the tests of adding from disk and extracting to
// it, made and read with plain POSIX calls, so that the file system code under test is not
// used to prepare or to judge its own test.
#ifndef TESTS_UNIT_FILESYSTEM_DISK_TREE_TEST_UTIL_H_
#define TESTS_UNIT_FILESYSTEM_DISK_TREE_TEST_UTIL_H_

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <opc/core/string_conversions.h>

namespace opcvk_test {
namespace disk {

// UTF-8 text (how LocalFileSystemOps spells names on disk) to UTF-16 and back.
inline std::u16string u16(std::string const& utf8) {
  return opc::detail::toStringFromUTF8String(utf8);
}
inline std::string utf8(std::u16string const& text) { return opc::detail::toUTF8String(text); }

[[noreturn]] inline void fail(char const* what, std::string const& path) {
  throw std::runtime_error(std::string(what) + " " + path + ": " + std::strerror(errno));
}

inline void makeFolder(std::string const& path) {
  if (::mkdir(path.c_str(), 0755) != 0) fail("mkdir", path);
}

inline void writeFile(std::string const& path, std::string const& bytes) {
  int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) fail("open", path);
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t const n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      ::close(fd);
      fail("write", path);
    }
    done += static_cast<std::size_t>(n);
  }
  if (::close(fd) != 0) fail("close", path);
}

// The bytes of a regular file; throws if it cannot be read.
inline std::string readFile(std::string const& path) {
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) fail("open", path);
  std::string bytes;
  char block[65536];
  for (;;) {
    ssize_t const n = ::read(fd, block, sizeof block);
    if (n < 0) {
      ::close(fd);
      fail("read", path);
    }
    if (n == 0) break;
    bytes.append(block, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return bytes;
}

inline void makeSymlink(std::string const& target, std::string const& path) {
  if (::symlink(target.c_str(), path.c_str()) != 0) fail("symlink", path);
}

inline std::string readLink(std::string const& path) {
  std::string buffer(4096, '\0');
  ssize_t const n = ::readlink(path.c_str(), &buffer[0], buffer.size());
  if (n < 0) fail("readlink", path);
  buffer.resize(static_cast<std::size_t>(n));
  return buffer;
}

inline void setMode(std::string const& path, unsigned mode) {
  if (::chmod(path.c_str(), static_cast<mode_t>(mode)) != 0) fail("chmod", path);
}

// The permission bits (the low nine) of what is at `path`, a link itself included.
inline unsigned modeOf(std::string const& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) fail("lstat", path);
  return static_cast<unsigned>(status.st_mode & 0777);
}

inline boost::posix_time::ptime epoch() {
  return boost::posix_time::ptime(boost::gregorian::date(1970, 1, 1));
}

// A UTC time `micros` microseconds after the epoch.
inline boost::posix_time::ptime timeFromMicros(std::int64_t micros) {
  return epoch() + boost::posix_time::microseconds(micros);
}

inline std::int64_t microsOf(boost::posix_time::ptime time) {
  return (time - epoch()).total_microseconds();
}

// Sets the last modified time of what is at `path` (of a link, the link's own).
inline void setTime(std::string const& path, boost::posix_time::ptime time) {
  std::int64_t const micros = microsOf(time);
  std::int64_t seconds = micros / 1000000;
  std::int64_t rest = micros % 1000000;
  if (rest < 0) {
    rest += 1000000;
    --seconds;
  }
  struct timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(seconds);
  times[1].tv_nsec = static_cast<long>(rest * 1000);
  if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) fail("utimensat", path);
}

// The last modified time of what is at `path`, to the microsecond (a link's own).
inline boost::posix_time::ptime timeOf(std::string const& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) fail("lstat", path);
  return timeFromMicros(static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000 +
                        status.st_mtim.tv_nsec / 1000);
}

enum class Kind { Missing, File, Folder, Link, Other };

inline Kind kindOf(std::string const& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) return Kind::Missing;
  if (S_ISREG(status.st_mode)) return Kind::File;
  if (S_ISDIR(status.st_mode)) return Kind::Folder;
  if (S_ISLNK(status.st_mode)) return Kind::Link;
  return Kind::Other;
}

}  // namespace disk
}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_DISK_TREE_TEST_UTIL_H_
