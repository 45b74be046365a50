#include "shared_spool.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>

#include "../zip/unnamed_file.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// Small writes are gathered so that the file sees few system calls and a content few ranges.
constexpr std::size_t kStagingSize = 64 * 1024;

[[noreturn]] void failSystem(char const* what, int error) {
  boost::system::error_code const code(error, boost::system::system_category());
  throw opc::Exception(std::string("Could not ") + what +
                           " the shared temporary file of the parts: " + code.message(),
                       code);
}

std::string temporaryFolder() {
  char const* folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

using Ranges = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

}  // namespace

// The ranges of one content in the file; the last one to go gives the file's user back.
class SharedSpoolContent : public PartContent,
                           public std::enable_shared_from_this<SharedSpoolContent> {
 public:
  SharedSpoolContent(std::shared_ptr<SharedSpool> spool, Ranges ranges, std::uint64_t size)
      : spool_(std::move(spool)), ranges_(std::move(ranges)), size_(size) {}
  ~SharedSpoolContent() override {
    if (!ranges_.empty()) spool_->removeUser();
  }
  std::uint64_t size() const override { return size_; }
  std::unique_ptr<ContentReader> openReader() const override;

  void readAt(std::size_t& range, std::uint64_t& within, unsigned char* buffer,
              std::size_t count) const {
    while (count > 0) {
      std::uint64_t const left = ranges_[range].second - within;
      std::size_t const n = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
      spool_->readAt(ranges_[range].first + within, buffer, n);
      buffer += n;
      count -= n;
      within += n;
      if (within == ranges_[range].second) {
        ++range;
        within = 0;
      }
    }
  }

 private:
  std::shared_ptr<SharedSpool> spool_;
  Ranges ranges_;
  std::uint64_t size_;
};

namespace {

class SharedSpoolReader : public ContentReader {
 public:
  explicit SharedSpoolReader(std::shared_ptr<SharedSpoolContent const> content)
      : content_(std::move(content)) {}
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const n =
        static_cast<std::size_t>(std::min<std::uint64_t>(count, content_->size() - position_));
    if (n == 0) return 0;
    content_->readAt(range_, within_, buffer, n);
    position_ += n;
    return n;
  }
  bool isDone() const override { return position_ == content_->size(); }

 private:
  std::shared_ptr<SharedSpoolContent const> content_;
  std::uint64_t position_ = 0;
  std::size_t range_ = 0;
  std::uint64_t within_ = 0;
};

}  // namespace

std::unique_ptr<ContentReader> SharedSpoolContent::openReader() const {
  return std::make_unique<SharedSpoolReader>(shared_from_this());
}

SharedSpool::SharedSpool(std::uint64_t budget, std::u16string folder)
    : budget_(budget), folder_(std::move(folder)) {}

SharedSpool::~SharedSpool() {
  if (fd_ >= 0) ::close(fd_.load());
}

bool SharedSpool::reserve(std::uint64_t count) {
  std::uint64_t held = reserved_.load();
  do {
    if (held > budget_ || count > budget_ - held) return false;
  } while (!reserved_.compare_exchange_weak(held, held + count));
  return true;
}

void SharedSpool::release(std::uint64_t count) { reserved_.fetch_sub(count); }

std::shared_ptr<PartContent const> SharedSpool::makeMemoryContent(
    std::vector<unsigned char> bytes) {
  // A reader may outlive its content: the content gives the count back when the last of them
  // goes.
  return detail::makeMemoryContent(std::move(bytes), shared_from_this());
}

std::shared_ptr<PartContent const> SharedSpool::makeMemoryContent(ByteBlocks blocks) {
  std::shared_ptr<SharedSpool> self = shared_from_this();
  std::uint64_t size = 0;
  for (auto const& block : blocks) size += block.size();
  std::shared_ptr<ByteBlocks const> held(new ByteBlocks(std::move(blocks)),
                                         [self, size](ByteBlocks const* gone) {
                                           delete gone;
                                           self->release(size);
                                         });
  return detail::makeMemoryContent(std::move(held));
}

std::uint64_t SharedSpool::append(unsigned char const* bytes, std::size_t count) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (fd_ < 0) {
    // Beside the package first: the system's temporary folder may live in memory.
    int error = 0;
    if (!folder_.empty()) {
      fd_ = createUnnamedFile(opc::detail::toUTF8String(folder_), ".opcvk-parts-");
      error = errno;
    }
    if (fd_ < 0) {
      fd_ = createUnnamedFile(temporaryFolder(), ".opcvk-parts-");
      if (fd_ < 0) failSystem("create", folder_.empty() ? errno : error);
    }
  }
  std::uint64_t const offset = end_;
  std::uint64_t position = offset;
  while (count > 0) {
    ssize_t const n = ::pwrite(fd_, bytes, count, static_cast<off_t>(position));
    if (n < 0) {
      if (errno == EINTR) continue;
      failSystem("write", errno);
    }
    bytes += n;
    count -= static_cast<std::size_t>(n);
    position += static_cast<std::uint64_t>(n);
  }
  end_ = position;
  return offset;
}

void SharedSpool::readAt(std::uint64_t offset, unsigned char* bytes, std::size_t count) const {
  // The descriptor is set before any content has a range, and stays until the spool goes.
  int const fd = fd_.load();
  while (count > 0) {
    ssize_t const n = ::pread(fd, bytes, count, static_cast<off_t>(offset));
    if (n < 0) {
      if (errno == EINTR) continue;
      failSystem("read", errno);
    }
    if (n == 0) failSystem("read", EIO);
    bytes += n;
    count -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
}

void SharedSpool::addUser() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++users_;
}

void SharedSpool::removeUser() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (--users_ > 0 || fd_ < 0) return;
  // Nothing refers to the file's bytes any more: give its space back.  A failure only keeps
  // the space until the package goes.
  if (::ftruncate(fd_, 0) == 0) end_ = 0;
}

std::uint64_t SharedSpool::fileSize() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return end_;
}

SharedSpool::Writer::Writer(std::shared_ptr<SharedSpool> spool) : spool_(std::move(spool)) {}

SharedSpool::Writer::~Writer() {
  if (!finished_ && !ranges_.empty()) spool_->removeUser();
}

void SharedSpool::Writer::flushStaging() {
  if (staging_.empty()) return;
  if (ranges_.empty()) spool_->addUser();
  std::uint64_t offset = 0;
  try {
    offset = spool_->append(staging_.data(), staging_.size());
  } catch (...) {
    if (ranges_.empty()) spool_->removeUser();
    failed_ = true;
    ranges_.clear();
    std::vector<unsigned char>().swap(staging_);
    throw;
  }
  if (!ranges_.empty() && ranges_.back().first + ranges_.back().second == offset) {
    ranges_.back().second += staging_.size();
  } else {
    ranges_.emplace_back(offset, staging_.size());
  }
  staging_.clear();
}

void SharedSpool::Writer::write(unsigned char const* bytes, std::size_t count) {
  if (failed_) failSystem("write", EIO);
  while (count > 0) {
    if (staging_.capacity() < kStagingSize) staging_.reserve(kStagingSize);
    std::size_t const n = std::min(count, kStagingSize - staging_.size());
    staging_.insert(staging_.end(), bytes, bytes + n);
    size_ += n;
    bytes += n;
    count -= n;
    if (staging_.size() == kStagingSize) flushStaging();
  }
}

std::shared_ptr<PartContent const> SharedSpool::Writer::finish() {
  if (failed_) failSystem("write", EIO);
  flushStaging();
  std::vector<unsigned char>().swap(staging_);
  finished_ = true;
  // The content takes over the writer's use of the file.
  return std::make_shared<SharedSpoolContent>(spool_, std::move(ranges_), size_);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
