#include "part_streams.h"

#include <utility>

#include <opc/model/exceptions.h>

#include "../text_chars.h"
#include "package_state.h"

namespace opc {
namespace model {
namespace detail {

PartInputStream::PartInputStream(std::shared_ptr<PartContent const> content, PartName name)
    : content_(std::move(content)), name_(std::move(name)) {}

PartInputStream::~PartInputStream() = default;

void PartInputStream::open() {
  if (reader_) return;
  if (closed_) {
    throw InvalidPackageState("The stream of the part " + quoted(name_.toString()) +
                              " was closed; ask the part for a new stream");
  }
  reader_ = content_->openReader();
}

std::size_t PartInputStream::read(unsigned char* buffer, std::size_t count) {
  open();
  return reader_->read(buffer, count);
}

bool PartInputStream::isDone() const {
  if (reader_) return reader_->isDone();
  return closed_ || content_->size() == 0;
}

void PartInputStream::close() {
  closed_ = true;
  reader_.reset();
  content_.reset();
}

PartOutputStream::PartOutputStream(std::shared_ptr<PartRecord> record, std::uint64_t threshold,
                                   std::u16string spoolFolder)
    : record_(std::move(record)),
      name_(record_->name),
      threshold_(threshold),
      spoolFolder_(std::move(spoolFolder)) {}

PartOutputStream::~PartOutputStream() = default;

void PartOutputStream::write(unsigned char const* buffer, std::size_t count) {
  if (closed_) {
    throw InvalidPackageState("The stream of the part " + quoted(name_.toString()) +
                              " was closed; ask the part for a new stream");
  }
  if (count == 0) return;
  if (!spool_ && buffer_.size() + count > threshold_) {
    spool_ = std::make_unique<SpoolFile>(spoolFolder_);
    if (!buffer_.empty()) spool_->write(buffer_.data(), buffer_.size());
    std::vector<unsigned char>().swap(buffer_);
  }
  if (spool_) {
    spool_->write(buffer, count);
  } else {
    buffer_.insert(buffer_.end(), buffer, buffer + count);
  }
}

void PartOutputStream::flush() {}

void PartOutputStream::close() {
  if (closed_) return;
  std::shared_ptr<PartContent const> content =
      spool_ ? spool_->finish() : makeMemoryContent(std::move(buffer_));
  closed_ = true;
  spool_.reset();
  std::vector<unsigned char>().swap(buffer_);
  if (!record_->deleted) {
    record_->content = std::move(content);
    record_->entry = boost::none;
  }
  record_.reset();
}

}  // namespace detail
}  // namespace model
}  // namespace opc
