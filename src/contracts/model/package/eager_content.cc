#include "eager_content.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>

#include "../zip/zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kInputChunk = 64 * 1024;

[[noreturn]] void fail(std::string const& problem, int error = 0) {
  boost::system::error_code code;
  if (error != 0) code = boost::system::error_code(error, boost::system::system_category());
  throw opc::Exception("The written content of a part could not be read back: " + problem, code);
}

// The stored bytes of a content in the archive being written, inflated if they are deflated.
class WrittenReader : public ContentReader {
 public:
  WrittenReader(SharedDescriptorPtr file, std::uint64_t offset, std::uint64_t compressedSize,
                std::uint64_t size, bool deflated)
      : file_(std::move(file)),
        position_(offset),
        remaining_(compressedSize),
        size_(size),
        deflated_(deflated) {
    if (deflated_) {
      std::memset(&stream_, 0, sizeof stream_);
      if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) fail("the decompressor could not start");
      input_.resize(kInputChunk);
    }
  }
  ~WrittenReader() override {
    if (deflated_) inflateEnd(&stream_);
  }

  std::size_t read(unsigned char* buffer, std::size_t count) override {
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - produced_));
    if (count == 0) return 0;
    std::size_t const n = deflated_ ? inflateInto(buffer, count) : readInto(buffer, count);
    produced_ += n;
    return n;
  }
  bool isDone() const override { return produced_ == size_; }

 private:
  std::size_t readInto(unsigned char* buffer, std::size_t count) {
    if (!readFully(file_->fd(), position_, buffer, count)) fail(std::strerror(errno), errno);
    position_ += count;
    return count;
  }

  std::size_t inflateInto(unsigned char* buffer, std::size_t count) {
    stream_.next_out = buffer;
    stream_.avail_out = static_cast<uInt>(std::min<std::size_t>(count, std::size_t{1} << 30));
    while (stream_.next_out == buffer) {
      if (stream_.avail_in == 0) {
        if (remaining_ == 0) fail("its deflated bytes end early");
        std::size_t const n =
            static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, input_.size()));
        if (!readFully(file_->fd(), position_, input_.data(), n)) {
          fail(std::strerror(errno), errno);
        }
        position_ += n;
        remaining_ -= n;
        stream_.next_in = input_.data();
        stream_.avail_in = static_cast<uInt>(n);
      }
      int const result = inflate(&stream_, Z_NO_FLUSH);
      if (result == Z_STREAM_END && stream_.next_out == buffer) {
        fail("its deflated bytes end early");
      }
      if (result != Z_OK && result != Z_STREAM_END) fail("its deflated bytes are damaged");
    }
    return static_cast<std::size_t>(stream_.next_out - buffer);
  }

  SharedDescriptorPtr file_;
  std::uint64_t position_;
  std::uint64_t remaining_;
  std::uint64_t const size_;
  std::uint64_t produced_ = 0;
  bool const deflated_;
  z_stream stream_;
  std::vector<unsigned char> input_;
};

}  // namespace

// See the layout of EagerContent: a byte more costs 16 per part.
static_assert(sizeof(void*) != 8 || sizeof(EagerContent) <= 56,
              "EagerContent outgrows malloc's 80-byte bins");

SharedDescriptor::SharedDescriptor(int fd) : fd_(::dup(fd)) {
  if (fd_ < 0) fail(std::strerror(errno), errno);
}

SharedDescriptor::~SharedDescriptor() { ::close(fd_); }

void intrusive_ptr_add_ref(SharedDescriptor const* descriptor) {
  descriptor->owners_.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(SharedDescriptor const* descriptor) {
  if (descriptor->owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete descriptor;
}

EagerContent::EagerContent(std::shared_ptr<PartContent const> original)
    : original_(std::move(original)), size_(original_->size()) {}

EagerContent::~EagerContent() {
  if (SharedDescriptor const* file = file_.load(std::memory_order_acquire)) {
    intrusive_ptr_release(file);
  }
}

std::unique_ptr<ContentReader> EagerContent::openReader() const {
  // An original found here is read whatever moveTo does meanwhile: the reader holds it.  One
  // found gone was dropped after file_ was stored (see moveTo), so file_ is seen then.
  SharedDescriptor const* file = file_.load(std::memory_order_acquire);
  if (file == nullptr) {
    if (std::shared_ptr<PartContent const> original = std::atomic_load(&original_)) {
      return original->openReader();
    }
    file = file_.load(std::memory_order_acquire);
  }
  return std::make_unique<WrittenReader>(SharedDescriptorPtr(file), dataOffset(), compressedSize_,
                                         size_, (place_ & kDeflatedBit) != 0);
}

void EagerContent::moveTo(SharedDescriptorPtr const& file, std::uint64_t dataOffset,
                          std::uint64_t compressedSize, bool deflated) {
  place_ = dataOffset | (deflated ? kDeflatedBit : 0);
  compressedSize_ = compressedSize;
  intrusive_ptr_add_ref(file.get());
  file_.store(file.get(), std::memory_order_release);
  std::atomic_store(&original_, std::shared_ptr<PartContent const>());
}

}  // namespace detail
}  // namespace model
}  // namespace opc
