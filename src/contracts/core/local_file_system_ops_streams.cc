// std::istream and std::ostream over a file descriptor that they own.
//
// std::fstream cannot report why an open failed, cannot open with O_CLOEXEC and cannot tell a
// read-only file from a missing one, so the streams are built here over open(2).
#include <cerrno>
#include <fcntl.h>
#include <streambuf>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <opc/core/exception.h>

#include "descriptor_out_buffer.h"
#include "local_file_system_ops_internal.h"

namespace opc {
namespace detail {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

// Reads through a buffer of its own.  A read error throws out of underflow(), which the
// std::istream catches and turns into badbit (and rethrows only if its exception mask says
// so): a read error must not look like the end of the file.
class DescriptorInBuffer : public std::streambuf {
 public:
  DescriptorInBuffer(int fd, std::string path)
      : fd_(fd), path_(std::move(path)), buffer_(kBufferSize) {
    setg(buffer_.data(), buffer_.data(), buffer_.data());
  }
  ~DescriptorInBuffer() override { ::close(fd_); }
  DescriptorInBuffer(DescriptorInBuffer const&) = delete;
  DescriptorInBuffer& operator=(DescriptorInBuffer const&) = delete;

 protected:
  int_type underflow() override {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    ssize_t count;
    do {
      count = ::read(fd_, buffer_.data(), buffer_.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
      boost::system::error_code code = systemError(errno);
      throw Exception("Could not read from file: " + path_ + ": " + code.message(), code);
    }
    setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
  }

  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    off_type target;
    if (direction == std::ios_base::end) {
      target = ::lseek(fd_, offset, SEEK_END);
    } else {
      off_type current = ::lseek(fd_, 0, SEEK_CUR);
      if (current < 0) return pos_type(off_type(-1));
      // The descriptor is ahead of the reader by what sits unread in the buffer.
      current -= egptr() - gptr();
      if (direction == std::ios_base::cur && offset == 0) return pos_type(current);
      target = direction == std::ios_base::cur ? current + offset : offset;
      if (target < 0) return pos_type(off_type(-1));
      target = ::lseek(fd_, target, SEEK_SET);
    }
    if (target < 0) return pos_type(off_type(-1));
    setg(buffer_.data(), buffer_.data(), buffer_.data());
    return pos_type(target);
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    return seekoff(off_type(position), std::ios_base::beg, which);
  }

 private:
  int fd_;
  std::string path_;
  std::vector<char> buffer_;
};

class DescriptorIStream : public std::istream {
 public:
  DescriptorIStream(int fd, std::string path)
      : std::istream(nullptr), buffer_(fd, std::move(path)) {
    rdbuf(&buffer_);
  }

 private:
  DescriptorInBuffer buffer_;
};

// Owns its descriptor.  Releasing the stream writes what is buffered, as std::ofstream does;
// a failure there has nobody left to tell, which is why callers flush first.
class DescriptorOStream : public std::ostream {
 public:
  explicit DescriptorOStream(int fd) : std::ostream(nullptr), buffer_(fd) { rdbuf(&buffer_); }
  ~DescriptorOStream() override {
    buffer_.flush();
    ::close(buffer_.descriptor());
  }
  DescriptorOStream(DescriptorOStream const&) = delete;
  DescriptorOStream& operator=(DescriptorOStream const&) = delete;

 private:
  DescriptorOutBuffer buffer_;
};

constexpr int kKnownModes = FileSystemOps::kModeIn | FileSystemOps::kModeOut |
                            FileSystemOps::kModeAte | FileSystemOps::kModeApp |
                            FileSystemOps::kModeTrunc | FileSystemOps::kModeBinary;

// open(2) that retries on EINTR and refuses folders, which open(2) allows for reading.
int openDescriptor(std::string const& path, int flags, boost::system::error_code& code) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    code = systemError(errno);
    return -1;
  }
  struct stat status;
  int error = ::fstat(fd, &status) != 0 ? errno : S_ISDIR(status.st_mode) ? EISDIR : 0;
  if (error != 0) {
    code = systemError(error);
    ::close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

std::shared_ptr<std::istream> openLocalInput(std::string const& path, int mode, std::string& text,
                                             boost::system::error_code& code) {
  if ((mode & ~kKnownModes) != 0 ||
      (mode & (FileSystemOps::kModeOut | FileSystemOps::kModeApp | FileSystemOps::kModeTrunc))) {
    text = "open mode " + std::to_string(mode) + " is not a mode for reading";
    code = systemError(EINVAL);
    return nullptr;
  }
  int fd = openDescriptor(path, O_RDONLY, code);
  if (fd < 0) return nullptr;
  auto stream = std::make_shared<DescriptorIStream>(fd, path);
  if (mode & FileSystemOps::kModeAte) stream->seekg(0, std::ios_base::end);
  return stream;
}

std::shared_ptr<std::ostream> openLocalOutput(std::string const& path, int mode, std::string& text,
                                              boost::system::error_code& code) {
  int full = mode | FileSystemOps::kModeOut;
  bool append = full & FileSystemOps::kModeApp;
  bool truncate = full & FileSystemOps::kModeTrunc;
  if ((full & ~kKnownModes) != 0 || (append && truncate)) {
    text = "open mode " + std::to_string(mode) + " is not a mode for writing";
    code = systemError(EINVAL);
    return nullptr;
  }
  int flags;
  if (full & FileSystemOps::kModeIn) {
    flags = append ? O_RDWR | O_CREAT | O_APPEND : truncate ? O_RDWR | O_CREAT | O_TRUNC : O_RDWR;
  } else {
    flags = append ? O_WRONLY | O_CREAT | O_APPEND : O_WRONLY | O_CREAT | O_TRUNC;
  }
  int fd = openDescriptor(path, flags, code);
  if (fd < 0) return nullptr;
  auto stream = std::make_shared<DescriptorOStream>(fd);
  if (mode & FileSystemOps::kModeAte) stream->seekp(0, std::ios_base::end);
  return stream;
}

}  // namespace detail
}  // namespace opc
