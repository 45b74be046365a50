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

// What an open stream needs; see the class comment.
struct PartOutputStream::Open {
  std::shared_ptr<PartRecord> record;
  std::uint64_t threshold;
  std::u16string spoolFolder;
  std::shared_ptr<SharedSpool> shared;
  std::vector<unsigned char> buffer;  // with a shared spool, its size is reserved there
  std::unique_ptr<SpoolFile> spool;
  std::unique_ptr<SharedSpool::Writer> sharedWriter;
  std::shared_ptr<EagerArchive> eager;
};

PartOutputStream::PartOutputStream(std::shared_ptr<PartRecord> record, std::uint64_t threshold,
                                   std::u16string spoolFolder, std::shared_ptr<SharedSpool> shared,
                                   std::shared_ptr<EagerArchive> eager)
    : record_(record),
      open_(std::make_unique<Open>(Open{std::move(record),
                                        threshold,
                                        std::move(spoolFolder),
                                        std::move(shared),
                                        {},
                                        nullptr,
                                        nullptr,
                                        std::move(eager)})) {}

PartOutputStream::~PartOutputStream() {
  if (open_ && open_->shared) open_->shared->release(open_->buffer.size());
}

void PartOutputStream::write(unsigned char const* buffer, std::size_t count) {
  if (!open_) {
    throw InvalidPackageState("The stream of the part " + quoted(record_->name.toString()) +
                              " was closed; ask the part for a new stream");
  }
  if (count == 0) return;
  Open& open = *open_;
  if (open.sharedWriter) {
    open.sharedWriter->write(buffer, count);
    return;
  }
  if (!open.spool && open.buffer.size() + count > open.threshold) {
    open.spool = std::make_unique<SpoolFile>(open.spoolFolder);
    if (!open.buffer.empty()) open.spool->write(open.buffer.data(), open.buffer.size());
    dropBuffer();
  }
  if (open.spool) {
    open.spool->write(buffer, count);
    return;
  }
  if (open.shared && !open.shared->reserve(count)) {
    // The package holds as much in memory as it may: this part goes to the shared file, what
    // it had in memory first.  The writer is the stream's before anything can fail, so that a
    // failure leaves it failed and the stream cannot commit a part of the content.
    open.sharedWriter = std::make_unique<SharedSpool::Writer>(open.shared);
    std::vector<unsigned char> const held = std::move(open.buffer);
    std::vector<unsigned char>().swap(open.buffer);
    open.shared->release(held.size());
    if (!held.empty()) open.sharedWriter->write(held.data(), held.size());
    open.sharedWriter->write(buffer, count);
    return;
  }
  try {
    open.buffer.insert(open.buffer.end(), buffer, buffer + count);
  } catch (...) {
    if (open.shared) open.shared->release(count);
    throw;
  }
}

void PartOutputStream::dropBuffer() {
  if (open_->shared) open_->shared->release(open_->buffer.size());
  std::vector<unsigned char>().swap(open_->buffer);
}

void PartOutputStream::flush() {}

void PartOutputStream::close() {
  if (!open_) return;
  Open& open = *open_;
  std::shared_ptr<PartContent const> content;
  if (open.spool) {
    content = open.spool->finish();
  } else if (open.sharedWriter) {
    content = open.sharedWriter->finish();
  } else if (open.shared) {
    // The reservation goes with the bytes to the content, which gives it back.
    open.buffer.shrink_to_fit();
    content = open.shared->makeMemoryContent(std::move(open.buffer));
    open.buffer.clear();
  } else {
    content = makeMemoryContent(std::move(open.buffer));
  }
  // Closed from here on, whatever follows: what an open stream needs goes with the struct.
  std::unique_ptr<Open> const closing = std::move(open_);
  std::vector<unsigned char>().swap(open.buffer);
  PartRecord& record = *open.record;
  if (!record.deleted) {
    if (open.eager) {
      std::string const itemName =
          record.itemName.empty() ? toZipItemName(record.name) : record.itemName;
      content = open.eager->submit(itemName, record.compression, std::move(content));
    }
    record.content = std::move(content);
    record.entry.reset();
    record.entryPending = false;
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
