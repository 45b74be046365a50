#include "filesystem/manifest_bytes.h"

#include <algorithm>

namespace opc {
namespace vkservices {
namespace detail {
namespace {

constexpr std::size_t kStep = 256 * 1024;

}  // namespace

ManifestBytes::ManifestBytes(opc::InputStream& source, std::size_t limit) : source_(source) {
  source_.open();
  try {
    // One read for the whole room first: a stream that inflates a small item whole does it
    // straight into a buffer that can take all of it.  Then reads of a step at most, since a
    // stream may take the size of a read as the size of a buffer of its own.
    std::size_t const room = limit + 1;
    held_.reset(new unsigned char[room]);
    std::size_t want = room;
    while (size_ < room && !source_.isDone()) {
      size_ += source_.read(held_.get() + size_, std::min(want, room - size_));
      want = kStep;
    }
    whole_ = source_.isDone();
  } catch (...) {
    try {
      source_.close();
    } catch (...) {
      // The failure of the read is the one to report.
    }
    throw;
  }
}

ManifestBytes::~ManifestBytes() = default;

void ManifestBytes::open() {
  // The source was opened once, by the constructor; a second open() may start it anew.
}

std::size_t ManifestBytes::read(unsigned char* buffer, std::size_t count) {
  if (given_ < size_) {
    std::size_t const n = std::min(count, size_ - given_);
    std::copy_n(held_.get() + given_, n, buffer);
    given_ += n;
    // Read twice now: the memory goes.
    if (given_ == size_) held_.reset();
    return n;
  }
  return source_.read(buffer, count);
}

bool ManifestBytes::isDone() const { return given_ >= size_ && source_.isDone(); }

void ManifestBytes::close() { source_.close(); }

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
