// The two byte sources of an archive: a file read with pread, so that several streams can read
// one descriptor at once without sharing a file position, and a buffer in memory.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
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

// Small reads that follow one another on a thread, as those of the items of an archive read in
// order do, are served from a window of the file read ahead on that thread: one pread(2) then
// stands for dozens.  A read that does not follow the thread's last one goes straight to the
// file, so that reads here and there cost no more than they did.
constexpr std::size_t kWindowSize = 128 * 1024;
// Reads larger than this never go through the window.
constexpr std::size_t kWindowedRead = 16 * 1024;
// A read follows the last one if it begins at most this far before its end (items are read
// with a little more than their header, so the next one begins just before)...
constexpr std::uint64_t kFollowsBack = 4 * 1024;
// ...or at most this far after it (the items that other threads took lie between).
constexpr std::uint64_t kFollowsAhead = kWindowSize;

// What a thread last read of which source; each source has its own serial number, so bytes of
// a source that is gone are never taken for another one's.  The window's memory stays with
// its thread until the thread ends.
struct ThreadWindow {
  std::uint64_t source = 0;
  std::uint64_t lastEnd = 0;
  std::uint64_t start = 0;
  std::size_t size = 0;
  std::unique_ptr<unsigned char[]> bytes;
};

thread_local ThreadWindow threadWindow;
std::atomic<std::uint64_t> sourceSerials{0};

class FileSource : public ZipByteSource {
 public:
  FileSource(int fd, std::uint64_t size, std::string path)
      : fd_(fd), serial_(++sourceSerials), size_(size), path_(std::move(path)) {}
  // Windows are not let go here: a source may go after its thread's window did (one held
  // by a static object, at exit), and a window's bytes are never taken for another source's.
  ~FileSource() override { ::close(fd_); }

  std::uint64_t size() const override { return size_; }

  void readAt(std::uint64_t offset, unsigned char* buffer, std::size_t count) const override {
    if (offset > size_ || count > size_ - offset) throwTruncated(offset, count, size_);
    if (count == 0) return;
    ThreadWindow& window = threadWindow;
    bool const mine = window.source == serial_;
    if (mine && offset >= window.start && offset - window.start + count <= window.size) {
      std::memcpy(buffer, window.bytes.get() + (offset - window.start), count);
      window.lastEnd = offset + count;
      return;
    }
    bool const follows =
        mine && offset + kFollowsBack >= window.lastEnd && offset <= window.lastEnd + kFollowsAhead;
    if (count > kWindowedRead || !follows) {
      readSome(offset, buffer, count, count);
      window.source = serial_;
      window.lastEnd = offset + count;
      if (!mine) window.size = 0;
      return;
    }
    if (!window.bytes) window.bytes.reset(new unsigned char[kWindowSize]);
    window.size = 0;
    std::size_t const wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(kWindowSize, size_ - offset));
    window.size = readSome(offset, window.bytes.get(), wanted, count);
    window.start = offset;
    window.lastEnd = offset + count;
    std::memcpy(buffer, window.bytes.get(), count);
  }

 private:
  // Reads at least `minimum` and at most `count` bytes at `offset`, fewer than `count` only
  // where the file ends; the number read.
  std::size_t readSome(std::uint64_t offset, unsigned char* buffer, std::size_t count,
                       std::size_t minimum) const {
    std::size_t done = 0;
    while (done < minimum) {
      ssize_t const n = ::pread(fd_, buffer + done, count - done, static_cast<off_t>(offset));
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
      done += static_cast<std::size_t>(n);
      offset += static_cast<std::uint64_t>(n);
    }
    return done;
  }

  int fd_;
  std::uint64_t serial_;
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
