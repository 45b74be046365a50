#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include <opc/core/exception.h>
#include <opc/core/unnamed_temporary_file.h>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace {

std::string temporaryFolder() {
  char const* fromEnvironment = std::getenv("TMPDIR");
  return fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : "/tmp";
}

// A descriptor of a new file in `folder` that has no name, or -1 with errno set.
int openUnnamed(std::string const& folder) {
  // A file that never has a name cannot be left behind, even by a process killed between a
  // creation and an unlink.
  int fd = ::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
  if (fd >= 0) return fd;
  // File systems without O_TMPFILE answer EOPNOTSUPP (or EISDIR on old kernels); any other
  // error, such as a missing folder, is the answer.
  if (errno != EOPNOTSUPP && errno != EISDIR) return -1;
  for (int attempt = 0; attempt < 100; ++attempt) {
    char name[40];
    std::snprintf(name, sizeof name, "/.opcvk-scratch-%016llx",
                  static_cast<unsigned long long>(detail::randomNumber()));
    std::string const path = folder + name;
    fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      ::unlink(path.c_str());
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  errno = EEXIST;
  return -1;
}

}  // namespace

UnnamedTemporaryFile::UnnamedTemporaryFile() {
  std::string const folder = temporaryFolder();
  fd_ = openUnnamed(folder);
  if (fd_ < 0) {
    throw Exception("Could not create a temporary file in " + folder, detail::systemError(errno));
  }
}

UnnamedTemporaryFile::~UnnamedTemporaryFile() { ::close(fd_); }

void UnnamedTemporaryFile::append(unsigned char const* data, std::size_t size) {
  while (size > 0) {
    ssize_t const written = ::pwrite(fd_, data, size, static_cast<off_t>(size_));
    if (written < 0) {
      if (errno == EINTR) continue;
      throw Exception("Could not write to a temporary file", detail::systemError(errno));
    }
    data += written;
    size -= static_cast<std::size_t>(written);
    size_ += static_cast<std::uint64_t>(written);
  }
}

std::size_t UnnamedTemporaryFile::readAt(std::uint64_t offset, unsigned char* buffer,
                                         std::size_t size) const {
  std::size_t done = 0;
  while (done < size && offset + done < size_) {
    ssize_t const count =
        ::pread(fd_, buffer + done, size - done, static_cast<off_t>(offset + done));
    if (count < 0) {
      if (errno == EINTR) continue;
      throw Exception("Could not read from a temporary file", detail::systemError(errno));
    }
    // The file is ours alone: an end before the bytes we wrote means they are gone.
    if (count == 0) {
      throw Exception("Could not read from a temporary file", detail::systemError(EIO));
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

}  // namespace opc
