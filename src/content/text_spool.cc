#include "content/text_spool.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace opc {
namespace vkservices {
namespace detail {

TextSpool::TextSpool(std::size_t memoryBound) : memoryBound_(memoryBound) {}

TextSpool::~TextSpool() = default;

void TextSpool::write(unsigned char const* buffer, std::size_t count) {
  check_.update(reinterpret_cast<char const*>(buffer), count);
  if (!check_.maySettle()) {
    if (rest_) moveRestToMemory();
    head_.insert(head_.end(), buffer, buffer + count);
    return;
  }
  std::size_t const inMemory =
      rest_ ? 0 : std::min(count, memoryBound_ - std::min(memoryBound_, head_.size()));
  head_.insert(head_.end(), buffer, buffer + inMemory);
  if (inMemory == count) return;
  // Made only when the text outgrows memory: most texts never need a file.
  if (!rest_) rest_ = std::make_unique<opc::UnnamedTemporaryFile>();
  rest_->append(buffer + inMemory, count - inMemory);
}

void TextSpool::flush() {}

void TextSpool::close() {}

bytes TextSpool::takeWhole() {
  if (rest_) moveRestToMemory();
  return std::move(head_);
}

void TextSpool::moveRestToMemory() {
  std::size_t const headSize = head_.size();
  // Beyond what memory can address the text could not be detected as a whole either.
  if (rest_->size() > std::numeric_limits<std::size_t>::max() - headSize) throw std::bad_alloc();
  head_.resize(headSize + static_cast<std::size_t>(rest_->size()));
  rest_->readAt(0, head_.data() + headSize, static_cast<std::size_t>(rest_->size()));
  rest_.reset();
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
