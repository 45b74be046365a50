#include "part_streams.h"

#include <utility>

#include <opc/model/exceptions.h>
#include <opc/model/zip_item_names.h>

#include "../text_chars.h"
#include "eager_archive.h"
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
                                   std::u16string spoolFolder, std::shared_ptr<SharedSpool> shared,
                                   std::shared_ptr<EagerArchive> eager)
    : record_(std::move(record)),
      name_(record_->name),
      threshold_(threshold),
      spoolFolder_(std::move(spoolFolder)),
      shared_(std::move(shared)),
      eager_(std::move(eager)) {}

PartOutputStream::~PartOutputStream() {
  if (shared_) shared_->release(buffer_.size());
}

void PartOutputStream::write(unsigned char const* buffer, std::size_t count) {
  if (closed_) {
    throw InvalidPackageState("The stream of the part " + quoted(name_.toString()) +
                              " was closed; ask the part for a new stream");
  }
  if (count == 0) return;
  if (sharedWriter_) {
    sharedWriter_->write(buffer, count);
    return;
  }
  if (!spool_ && buffer_.size() + count > threshold_) {
    spool_ = std::make_unique<SpoolFile>(spoolFolder_);
    if (!buffer_.empty()) spool_->write(buffer_.data(), buffer_.size());
    dropBuffer();
  }
  if (spool_) {
    spool_->write(buffer, count);
    return;
  }
  if (shared_ && !shared_->reserve(count)) {
    // The package holds as much in memory as it may: this part goes to the shared file, what
    // it had in memory first.  The writer is the stream's before anything can fail, so that a
    // failure leaves it failed and the stream cannot commit a part of the content.
    sharedWriter_ = std::make_unique<SharedSpool::Writer>(shared_);
    std::vector<unsigned char> const held = std::move(buffer_);
    std::vector<unsigned char>().swap(buffer_);
    shared_->release(held.size());
    if (!held.empty()) sharedWriter_->write(held.data(), held.size());
    sharedWriter_->write(buffer, count);
    return;
  }
  try {
    buffer_.insert(buffer_.end(), buffer, buffer + count);
  } catch (...) {
    if (shared_) shared_->release(count);
    throw;
  }
}

void PartOutputStream::dropBuffer() {
  if (shared_) shared_->release(buffer_.size());
  std::vector<unsigned char>().swap(buffer_);
}

void PartOutputStream::flush() {}

void PartOutputStream::close() {
  if (closed_) return;
  std::shared_ptr<PartContent const> content;
  if (spool_) {
    content = spool_->finish();
  } else if (sharedWriter_) {
    content = sharedWriter_->finish();
  } else if (shared_) {
    // The reservation goes with the bytes to the content, which gives it back.
    buffer_.shrink_to_fit();
    content = shared_->makeMemoryContent(std::move(buffer_));
    buffer_.clear();
  } else {
    content = makeMemoryContent(std::move(buffer_));
  }
  closed_ = true;
  spool_.reset();
  sharedWriter_.reset();
  std::vector<unsigned char>().swap(buffer_);
  if (!record_->deleted) {
    if (eager_) {
      std::string const itemName =
          record_->itemName.empty() ? toZipItemName(record_->name) : record_->itemName;
      content = eager_->submit(itemName, record_->compression, std::move(content));
    }
    record_->content = std::move(content);
    record_->entry = boost::none;
  }
  record_.reset();
  eager_.reset();
  shared_.reset();
  // A closed stream stays as long as the package (its writer may still hold it), so it keeps
  // no more than its name.
  std::u16string().swap(spoolFolder_);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
