// The two byte sources of an archive: a file read with pread, so that several streams can read
// one descriptor at once without sharing a file position, and a buffer in memory.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>

#include "zip_archive.h"

namespace opc {
namespace model {
namespace detail {
namespace {

std::string quoted(std::string const& path) {
  return "\"" + opc::toUDEString(opc::detail::toStringFromUTF8String(path)) + "\"";
}

[[noreturn]] void throwTruncated(std::uint64_t offset, std::size_t count, std::uint64_t size) {
  throw InvalidPackage("Invalid ZIP archive: it is truncated (" + std::to_string(count) +
                       " bytes at offset " + std::to_string(offset) + " lie beyond its " +
                       std::to_string(size) + " bytes)");
}

class FileSource : public ZipByteSource {
 public:
  FileSource(int fd, std::uint64_t size, std::string path)
      : fd_(fd), size_(size), path_(std::move(path)) {}
  ~FileSource() override { ::close(fd_); }

  std::uint64_t size() const override { return size_; }

  void readAt(std::uint64_t offset, unsigned char* buffer, std::size_t count) const override {
    if (offset > size_ || count > size_ - offset) throwTruncated(offset, count, size_);
    while (count > 0) {
      ssize_t const n = ::pread(fd_, buffer, count, static_cast<off_t>(offset));
      if (n < 0) {
        if (errno == EINTR) continue;
        int const error = errno;
        throw CouldNotOpenPackage(
            "Could not read package " + quoted(path_) + ": " + std::strerror(error),
            boost::system::error_code(error, boost::system::system_category()));
      }
      if (n == 0) {
        // The file shrank after it was opened.
        throw InvalidPackage("Invalid ZIP archive: it is truncated (the file " + quoted(path_) +
                             " ended at offset " + std::to_string(offset) + ")");
      }
      buffer += n;
      count -= static_cast<std::size_t>(n);
      offset += static_cast<std::uint64_t>(n);
    }
  }

 private:
  int fd_;
  std::uint64_t size_;
  std::string path_;
};

class BufferSource : public ZipByteSource {
 public:
  explicit BufferSource(std::shared_ptr<std::vector<unsigned char> const> bytes)
      : bytes_(std::move(bytes)) {}

  std::uint64_t size() const override { return bytes_->size(); }

  void readAt(std::uint64_t offset, unsigned char* buffer, std::size_t count) const override {
    std::uint64_t const size = bytes_->size();
    if (offset > size || count > size - offset) throwTruncated(offset, count, size);
    if (count > 0) std::memcpy(buffer, bytes_->data() + offset, count);
  }

 private:
  std::shared_ptr<std::vector<unsigned char> const> bytes_;
};

}  // namespace

std::shared_ptr<ZipByteSource> openFileSource(std::string const& path) {
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  int error = errno;
  if (fd >= 0) {
    struct stat info;
    if (::fstat(fd, &info) == 0) {
      if (S_ISREG(info.st_mode)) {
        return std::make_shared<FileSource>(fd, static_cast<std::uint64_t>(info.st_size), path);
      }
      error = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    } else {
      error = errno;
    }
    ::close(fd);
  }
  throw CouldNotOpenPackage("Could not open package " + quoted(path) + ": " + std::strerror(error),
                            boost::system::error_code(error, boost::system::system_category()));
}

std::shared_ptr<ZipByteSource> openBufferSource(
    std::shared_ptr<std::vector<unsigned char> const> bytes) {
  if (!bytes) bytes = std::make_shared<std::vector<unsigned char> const>();
  return std::make_shared<BufferSource>(std::move(bytes));
}

}  // namespace detail
}  // namespace model
}  // namespace opc
