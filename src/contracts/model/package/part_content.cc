#include "part_content.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>

#include "shared_spool.h"

namespace opc {
namespace model {
namespace detail {
namespace {

class ArchiveReader : public ContentReader {
 public:
  explicit ArchiveReader(std::shared_ptr<opc::InputStream> stream) : stream_(std::move(stream)) {
    stream_->open();
  }
  ~ArchiveReader() override {
    try {
      stream_->close();
    } catch (...) {
      // A reader dropped before its end has nothing left to report.
    }
  }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    return stream_->read(buffer, count);
  }
  bool isDone() const override { return stream_->isDone(); }

 private:
  std::shared_ptr<opc::InputStream> stream_;
};

class ArchiveContent : public PartContent {
 public:
  ArchiveContent(std::shared_ptr<ZipArchive const> archive, ZipEntry entry)
      : archive_(std::move(archive)), entry_(std::move(entry)) {}
  std::uint64_t size() const override { return entry_.uncompressedSize; }
  std::unique_ptr<ContentReader> openReader() const override {
    // The entry stream keeps the archive's bytes alive by itself.
    std::shared_ptr<opc::InputStream> stream(archive_->openEntry(entry_));
    return std::make_unique<ArchiveReader>(std::move(stream));
  }

 private:
  std::shared_ptr<ZipArchive const> archive_;
  ZipEntry entry_;
};

class MemoryReader : public ContentReader {
 public:
  explicit MemoryReader(std::shared_ptr<std::vector<unsigned char> const> bytes)
      : bytes_(std::move(bytes)) {}
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const n = std::min(count, bytes_->size() - position_);
    if (n > 0) std::memcpy(buffer, bytes_->data() + position_, n);
    position_ += n;
    return n;
  }
  bool isDone() const override { return position_ == bytes_->size(); }

 private:
  std::shared_ptr<std::vector<unsigned char> const> bytes_;
  std::size_t position_ = 0;
};

class MemoryContent : public PartContent {
 public:
  explicit MemoryContent(std::shared_ptr<std::vector<unsigned char> const> bytes)
      : bytes_(std::move(bytes)) {}
  std::uint64_t size() const override { return bytes_->size(); }
  std::unique_ptr<ContentReader> openReader() const override {
    return std::make_unique<MemoryReader>(bytes_);
  }
  unsigned char const* bytesInOnePiece() const override {
    return bytes_->empty() ? nullptr : bytes_->data();
  }

 private:
  std::shared_ptr<std::vector<unsigned char> const> bytes_;
};

class OwnedMemoryContent : public PartContent,
                           public std::enable_shared_from_this<OwnedMemoryContent> {
 public:
  OwnedMemoryContent(std::vector<unsigned char> bytes, std::shared_ptr<SharedSpool> spool)
      : bytes_(std::move(bytes)), spool_(std::move(spool)) {}
  ~OwnedMemoryContent() override {
    if (spool_) spool_->release(bytes_.size());
  }
  std::uint64_t size() const override { return bytes_.size(); }
  std::unique_ptr<ContentReader> openReader() const override {
    // The reader keeps the content, and so its bytes, without a block of its own.
    return std::make_unique<MemoryReader>(
        std::shared_ptr<std::vector<unsigned char> const>(shared_from_this(), &bytes_));
  }
  unsigned char const* bytesInOnePiece() const override {
    return bytes_.empty() ? nullptr : bytes_.data();
  }

 private:
  std::vector<unsigned char> const bytes_;
  std::shared_ptr<SharedSpool> const spool_;
};

class BlocksReader : public ContentReader {
 public:
  explicit BlocksReader(std::shared_ptr<ByteBlocks const> blocks) : blocks_(std::move(blocks)) {
    skipEmpty();
  }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t copied = 0;
    while (copied < count && block_ < blocks_->size()) {
      std::vector<unsigned char> const& block = (*blocks_)[block_];
      std::size_t const n = std::min(count - copied, block.size() - position_);
      std::memcpy(buffer + copied, block.data() + position_, n);
      copied += n;
      position_ += n;
      skipEmpty();
    }
    return copied;
  }
  bool isDone() const override { return block_ == blocks_->size(); }

 private:
  // Moves past the blocks that have nothing left to read.
  void skipEmpty() {
    while (block_ < blocks_->size() && position_ == (*blocks_)[block_].size()) {
      ++block_;
      position_ = 0;
    }
  }

  std::shared_ptr<ByteBlocks const> blocks_;
  std::size_t block_ = 0;
  std::size_t position_ = 0;
};

class BlocksContent : public PartContent {
 public:
  explicit BlocksContent(std::shared_ptr<ByteBlocks const> blocks) : blocks_(std::move(blocks)) {
    for (auto const& block : *blocks_) size_ += block.size();
  }
  std::uint64_t size() const override { return size_; }
  std::unique_ptr<ContentReader> openReader() const override {
    return std::make_unique<BlocksReader>(blocks_);
  }

 private:
  std::shared_ptr<ByteBlocks const> blocks_;
  std::uint64_t size_ = 0;
};

opc::Exception spoolFailure(char const* what) {
  return opc::Exception(std::string("Could not ") + what + " the temporary file of a part",
                        boost::system::errc::make_error_code(boost::system::errc::io_error));
}

// Readers of one spool file share its stream, one thread at a time, each at its own place.
class SpoolReader : public ContentReader {
 public:
  SpoolReader(std::shared_ptr<std::istream> in, std::uint64_t size)
      : in_(std::move(in)), size_(size) {}
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::uint64_t const left = size_ - position_;
    std::size_t const n = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
    if (n == 0) return 0;
    in_->clear();
    in_->seekg(static_cast<std::streamoff>(position_));
    in_->read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(n));
    if (static_cast<std::size_t>(in_->gcount()) != n) throw spoolFailure("read");
    position_ += n;
    return n;
  }
  bool isDone() const override { return position_ == size_; }

 private:
  std::shared_ptr<std::istream> in_;
  std::uint64_t size_;
  std::uint64_t position_ = 0;
};

class SpoolContent : public PartContent {
 public:
  SpoolContent(std::shared_ptr<std::istream> in, std::uint64_t size)
      : in_(std::move(in)), size_(size) {}
  std::uint64_t size() const override { return size_; }
  std::unique_ptr<ContentReader> openReader() const override {
    return std::make_unique<SpoolReader>(in_, size_);
  }

 private:
  std::shared_ptr<std::istream> in_;
  std::uint64_t size_;
};

}  // namespace

std::shared_ptr<PartContent const> makeArchiveContent(std::shared_ptr<ZipArchive const> archive,
                                                      ZipEntry const& entry) {
  return std::make_shared<ArchiveContent>(std::move(archive), entry);
}

std::shared_ptr<PartContent const> makeMemoryContent(std::vector<unsigned char> bytes,
                                                     std::shared_ptr<SharedSpool> spool) {
  return std::make_shared<OwnedMemoryContent>(std::move(bytes), std::move(spool));
}

std::shared_ptr<PartContent const> makeMemoryContent(
    std::shared_ptr<std::vector<unsigned char> const> bytes) {
  return std::make_shared<MemoryContent>(std::move(bytes));
}

std::shared_ptr<PartContent const> makeMemoryContent(std::shared_ptr<ByteBlocks const> blocks) {
  return std::make_shared<BlocksContent>(std::move(blocks));
}

SpoolFile::SpoolFile(std::u16string const& folder) {
  opc::FileSystemOps const& ops = *opc::LocalFileSystemOps::getShared();
  boost::system::error_code code;
  std::u16string path;
  // Beside the package first: the system's temporary folder may live in memory.
  for (std::u16string const& candidate : {folder, std::u16string()}) {
    try {
      path = ops.getTempName(candidate);
    } catch (opc::Exception const&) {
      continue;
    }
    code.clear();
    out_ = ops.createOutputStream(path,
                                  opc::FileSystemOps::kModeOut | opc::FileSystemOps::kModeBinary |
                                      opc::FileSystemOps::kModeTrunc,
                                  code);
    if (out_) break;
    if (candidate.empty()) break;
  }
  if (!out_) {
    throw opc::Exception("Could not create the temporary file of a part: " + code.message(), code);
  }
  in_ = ops.createInputStream(path, opc::FileSystemOps::kModeIn | opc::FileSystemOps::kModeBinary,
                              code);
  boost::system::error_code ignored;
  ops.remove(path, ignored);
  if (!in_) {
    throw opc::Exception("Could not open the temporary file of a part: " + code.message(), code);
  }
}

void SpoolFile::write(unsigned char const* bytes, std::size_t count) {
  out_->write(reinterpret_cast<char const*>(bytes), static_cast<std::streamsize>(count));
  if (!*out_) throw spoolFailure("write");
  size_ += count;
}

std::shared_ptr<PartContent const> SpoolFile::finish() {
  out_->flush();
  if (!*out_) throw spoolFailure("write");
  out_.reset();
  return std::make_shared<SpoolContent>(in_, size_);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
