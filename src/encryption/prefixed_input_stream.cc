#include "encryption/prefixed_input_stream.h"

#include <algorithm>
#include <utility>

namespace opc {
namespace vkservices {
namespace detail {

PrefixedInputStream::PrefixedInputStream(bytes prefix, std::size_t offset, opc::InputStream& rest)
    : prefix_(std::move(prefix)), offset_(std::min(offset, prefix_.size())), rest_(rest) {}

PrefixedInputStream::~PrefixedInputStream() = default;

void PrefixedInputStream::open() { rest_.open(); }

std::size_t PrefixedInputStream::read(unsigned char* buffer, std::size_t count) {
  if (offset_ < prefix_.size()) {
    std::size_t const given = std::min(count, prefix_.size() - offset_);
    std::copy_n(prefix_.data() + offset_, given, buffer);
    offset_ += given;
    // The prefix is no longer needed once it has been read: its memory goes now.
    if (offset_ == prefix_.size()) {
      bytes().swap(prefix_);
      offset_ = 0;
    }
    return given;
  }
  return rest_.read(buffer, count);
}

bool PrefixedInputStream::isDone() const { return offset_ >= prefix_.size() && rest_.isDone(); }

void PrefixedInputStream::close() { rest_.close(); }

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
