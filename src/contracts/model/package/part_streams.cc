#include "part_streams.h"

#include <algorithm>
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

namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 20;

}  // namespace

// What an open stream needs; see the class comment.
struct PartOutputStream::Open {
  std::shared_ptr<PartRecord> record;
  std::uint64_t threshold;
  std::u16string spoolFolder;
  std::shared_ptr<SharedSpool> shared;
  // The bytes held in memory: in `buffer` up to kBlockSize, then in blocks (the buffer as
  // the first), so that a large content is never copied to grow.  With a shared spool, their
  // size is reserved there.
  std::vector<unsigned char> buffer;
  ByteBlocks blocks;
  std::uint64_t held = 0;
  std::unique_ptr<SpoolFile> spool;
  std::unique_ptr<SharedSpool::Writer> sharedWriter;
  std::shared_ptr<EagerArchive> eager;
};

PartOutputStream::PartOutputStream(std::shared_ptr<PartRecord> record, std::uint64_t threshold,
                                   std::u16string spoolFolder, std::shared_ptr<SharedSpool> shared,
                                   std::shared_ptr<EagerArchive> eager)
    : name_(record->name),
      open_(std::make_unique<Open>(Open{std::move(record),
                                        threshold,
                                        std::move(spoolFolder),
                                        std::move(shared),
                                        {},
                                        {},
                                        0,
                                        nullptr,
                                        nullptr,
                                        std::move(eager)})) {}

PartOutputStream::~PartOutputStream() {
  if (open_ && open_->shared) open_->shared->release(open_->held);
}

void PartOutputStream::write(unsigned char const* buffer, std::size_t count) {
  if (!open_) {
    throw InvalidPackageState("The stream of the part " + quoted(name_.toString()) +
                              " was closed; ask the part for a new stream");
  }
  if (count == 0) return;
  Open& open = *open_;
  if (open.sharedWriter) {
    open.sharedWriter->write(buffer, count);
    return;
  }
  if (!open.spool && open.held + count > open.threshold) {
    open.spool = std::make_unique<SpoolFile>(open.spoolFolder);
    writeHeldTo([&](unsigned char const* bytes, std::size_t n) { open.spool->write(bytes, n); });
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
    std::vector<unsigned char> const first = std::move(open.buffer);
    ByteBlocks const blocks = std::move(open.blocks);
    dropBuffer();
    if (!first.empty()) open.sharedWriter->write(first.data(), first.size());
    for (auto const& block : blocks) {
      if (!block.empty()) open.sharedWriter->write(block.data(), block.size());
    }
    open.sharedWriter->write(buffer, count);
    return;
  }
  try {
    hold(buffer, count);
  } catch (...) {
    if (open.shared) open.shared->release(count);
    throw;
  }
}

void PartOutputStream::hold(unsigned char const* buffer, std::size_t count) {
  Open& open = *open_;
  if (open.blocks.empty() && open.buffer.size() + count <= kBlockSize) {
    open.buffer.insert(open.buffer.end(), buffer, buffer + count);
    open.held += count;
    return;
  }
  if (open.blocks.empty()) {
    open.blocks.push_back(std::move(open.buffer));
    std::vector<unsigned char>().swap(open.buffer);
  }
  while (count > 0) {
    std::vector<unsigned char>* block = &open.blocks.back();
    if (block->size() == block->capacity()) {
      open.blocks.emplace_back();
      block = &open.blocks.back();
      block->reserve(kBlockSize);
    }
    std::size_t const n = std::min(count, block->capacity() - block->size());
    block->insert(block->end(), buffer, buffer + n);
    open.held += n;
    buffer += n;
    count -= n;
  }
}

void PartOutputStream::writeHeldTo(
    std::function<void(unsigned char const*, std::size_t)> const& write) const {
  Open const& open = *open_;
  if (!open.buffer.empty()) write(open.buffer.data(), open.buffer.size());
  for (auto const& block : open.blocks) {
    if (!block.empty()) write(block.data(), block.size());
  }
}

void PartOutputStream::dropBuffer() {
  if (open_->shared) open_->shared->release(open_->held);
  std::vector<unsigned char>().swap(open_->buffer);
  ByteBlocks().swap(open_->blocks);
  open_->held = 0;
}

void PartOutputStream::flush() {}

void PartOutputStream::close() {
  if (!open_) return;
  if (open_->record->deleted) {
    // Nothing to give: what the stream holds goes, and a write that failed before, which
    // would make the end of its content fail too, matters no more.
    dropBuffer();
    open_.reset();
    return;
  }
  Open& open = *open_;
  std::shared_ptr<PartContent const> content;
  if (open.spool) {
    content = open.spool->finish();
  } else if (open.sharedWriter) {
    content = open.sharedWriter->finish();
  } else if (!open.blocks.empty()) {
    ByteBlocks blocks = std::move(open.blocks);
    open.blocks.clear();
    open.held = 0;
    // The reservation goes with the bytes to the content, which gives it back.
    content = open.shared
                  ? open.shared->makeMemoryContent(std::move(blocks))
                  : makeMemoryContent(std::make_shared<ByteBlocks const>(std::move(blocks)));
  } else if (open.shared) {
    // The reservation goes with the bytes to the content, which gives it back.
    open.held = 0;
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
      std::string itemName = record.itemName() ? *record.itemName() : toZipItemName(record.name);
      content = open.eager->submit(std::move(itemName), record.compression, std::move(content));
    }
    record.content = std::move(content);
    record.dropEntry();
    record.entryPending = false;
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
