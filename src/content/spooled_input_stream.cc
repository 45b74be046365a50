#include "content/spooled_input_stream.h"

#include <algorithm>
#include <utility>

namespace opc {
namespace vkservices {
namespace detail {

SpooledInputStream::SpooledInputStream(bytes head, std::unique_ptr<opc::UnnamedTemporaryFile> rest)
    : head_(std::move(head)),
      rest_(std::move(rest)),
      size_(head_.size() + (rest_ ? rest_->size() : 0)) {}

SpooledInputStream::~SpooledInputStream() = default;

void SpooledInputStream::open() {}

std::size_t SpooledInputStream::read(unsigned char* buffer, std::size_t count) {
  std::size_t done = 0;
  if (position_ < head_.size()) {
    done = std::min(count, head_.size() - static_cast<std::size_t>(position_));
    std::copy_n(head_.data() + position_, done, buffer);
  }
  if (rest_ && done < count && position_ + done >= head_.size()) {
    done += rest_->readAt(position_ + done - head_.size(), buffer + done, count - done);
  }
  position_ += done;
  return done;
}

bool SpooledInputStream::isDone() const { return position_ == size_; }

void SpooledInputStream::close() {}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
