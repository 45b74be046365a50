#include "local_confined_file.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace detail {

LocalConfinedFile::LocalConfinedFile(int fd, int createdMode) : LocalConfinedFile(fd, -1, {}, {}) {
  createdMode_ = createdMode;
}

LocalConfinedFile::LocalConfinedFile(int fd, int folder, std::string temporary, std::string target)
    : fd_(fd),
      folder_(folder),
      temporary_(std::move(temporary)),
      target_(std::move(target)),
      buffer_(fd, true),
      stream_(&buffer_) {}

LocalConfinedFile::~LocalConfinedFile() {
  bool const temporary = !temporary_.empty();
  if (fd_ >= 0) {
    // A file written in place keeps what was written, as a closed stream does; a temporary
    // one that was not committed is thrown away.
    if (!temporary) buffer_.flush();
    ::close(fd_);
  }
  if (temporary && !committed_) ::unlinkat(folder_, temporary_.c_str(), 0);
  if (folder_ >= 0) ::close(folder_);
}

std::ostream& LocalConfinedFile::stream() { return stream_; }

void LocalConfinedFile::finishContent(ConfinedResult& result) {
  result = ConfinedResult();
  // A write error stays in the stream's state, as it would after closing a stream.
  buffer_.flush();
}

void LocalConfinedFile::setLastModifiedTime(boost::posix_time::ptime time,
                                            boost::system::error_code& code) {
  code.clear();
  if (time.is_special()) {
    code = systemError(EINVAL);
    return;
  }
  // Bytes written later would change the time again.
  buffer_.flush();
  std::array<timespec, 2> times{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1] = toTimespec(time);
  if (::futimens(fd_, times.data()) != 0) {
    code = systemError(errno);
    return;
  }
  // Linux clamps a time that the file system cannot hold instead of failing; a caller who
  // restores times must hear about that.
  if (!mayNotHoldTime(times[1].tv_sec)) return;
  struct stat status;
  if (::fstat(fd_, &status) != 0) {
    code = systemError(errno);
  } else if (storedAnotherTime(times[1].tv_sec, status.st_mtim.tv_sec)) {
    code = systemError(EOVERFLOW);
  }
}

void LocalConfinedFile::setPermissions(Perms::Perms_tag permissions,
                                       boost::system::error_code& code) {
  code.clear();
  if (permissions > Perms::perms_mask) {
    code = systemError(EINVAL);
    return;
  }
  // Most files keep the bits they were created with: asking for them again would cost a
  // system call per file and change nothing.
  if (static_cast<int>(permissions) == createdMode_) return;
  createdMode_ = -1;
  if (::fchmod(fd_, static_cast<mode_t>(permissions)) != 0) code = systemError(errno);
}

void LocalConfinedFile::commit(boost::system::error_code& code) {
  code.clear();
  if (!buffer_.flush()) code = systemError(buffer_.error() != 0 ? buffer_.error() : EIO);
  // close(2) is where some file systems (NFS) report a failed write.
  if (::close(fd_) != 0 && !code) code = systemError(errno);
  fd_ = -1;
  if (temporary_.empty()) return;
  if (!code && ::renameat(folder_, temporary_.c_str(), folder_, target_.c_str()) != 0) {
    code = systemError(errno);
  }
  // A failed commit leaves the temporary file to the destructor, which removes it.
  committed_ = !code;
}

}  // namespace detail
}  // namespace opc
