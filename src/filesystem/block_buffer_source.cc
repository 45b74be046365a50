#include "filesystem/block_buffer_source.h"

#include <algorithm>
#include <utility>

namespace opc {
namespace vkservices {
namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 20;

}  // namespace

BlockBufferSource::BlockBufferSource(opc::model::ContentType contentType)
    : contentType_(std::move(contentType)), writer_(blocks_), reader_(blocks_) {}

BlockBufferSource::~BlockBufferSource() = default;

opc::OutputStream& BlockBufferSource::writer() { return writer_; }

opc::model::ContentType BlockBufferSource::getContentType() { return contentType_; }

opc::InputStream& BlockBufferSource::getInputStream() { return reader_; }

void BlockBufferSource::Writer::write(unsigned char const* buffer, std::size_t count) {
  while (count > 0) {
    if (blocks_.empty() || blocks_.back().size() == kBlockSize) {
      blocks_.emplace_back();
      blocks_.back().reserve(kBlockSize);
    }
    std::vector<unsigned char>& block = blocks_.back();
    std::size_t const step = std::min(count, kBlockSize - block.size());
    block.insert(block.end(), buffer, buffer + step);
    buffer += step;
    count -= step;
  }
}

std::size_t BlockBufferSource::Reader::read(unsigned char* buffer, std::size_t count) {
  std::size_t copied = 0;
  while (copied < count && block_ < blocks_.size()) {
    std::vector<unsigned char>& block = blocks_[block_];
    std::size_t const step = std::min(count - copied, block.size() - position_);
    std::copy_n(block.data() + position_, step, buffer + copied);
    copied += step;
    position_ += step;
    if (position_ == block.size()) {
      std::vector<unsigned char>().swap(block);
      ++block_;
      position_ = 0;
    }
  }
  return copied;
}

bool BlockBufferSource::Reader::isDone() const {
  // Empty blocks are never made, so the end is past the last block.
  return block_ >= blocks_.size();
}

}  // namespace vkservices
}  // namespace opc
