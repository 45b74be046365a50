// The file operations of writing an archive.
#include "zip_writer_output.h"

#include <cerrno>
#include <unistd.h>

namespace opc {
namespace model {
namespace detail {

std::string folderOf(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

bool writeFully(int fd, std::uint64_t offset, unsigned char const* data, std::size_t count) {
  while (count > 0) {
    ssize_t const n = ::pwrite(fd, data, count, static_cast<off_t>(offset));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    count -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
  return true;
}

bool readFully(int fd, std::uint64_t offset, unsigned char* data, std::size_t count) {
  while (count > 0) {
    ssize_t const n = ::pread(fd, data, count, static_cast<off_t>(offset));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    data += n;
    count -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
  return true;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
