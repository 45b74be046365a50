#include <utility>

#include <opc/model/part_reader.h>

#include "part_content.h"

namespace opc {
namespace model {

PartReader::PartReader(ContentType contentType,
                       std::shared_ptr<detail::PartContent const> const& content)
    : contentType_(std::move(contentType)), size_(content->size()), content_(content) {}

PartReader::~PartReader() = default;

void PartReader::open() {
  if (!reader_ && content_) reader_ = content_->openReader();
}

std::size_t PartReader::read(unsigned char* buffer, std::size_t count) {
  open();
  return reader_ ? reader_->read(buffer, count) : 0;
}

bool PartReader::isDone() const {
  if (reader_) return reader_->isDone();
  return !content_;
}

void PartReader::close() {
  reader_.reset();
  content_.reset();
}

}  // namespace model
}  // namespace opc
