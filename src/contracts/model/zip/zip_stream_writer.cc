#include "zip_stream_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>

#include "zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 20;
constexpr std::uint32_t kMax32 = 0xFFFFFFFFu;
constexpr std::uint16_t kMax16 = 0xFFFFu;
// Content that may reach 4 GiB once deflated gets ZIP64 sizes in its local header: deflate
// adds at most a few bytes per 16 KiB block to what does not shrink.
constexpr std::uint64_t kZip64SizeFrom = 0xF0000000u;
constexpr std::uint16_t kVersion = 20;       // deflate
constexpr std::uint16_t kVersionZip64 = 45;  // ZIP64
constexpr std::uint16_t kMadeByUnix = 3 << 8;
constexpr std::uint16_t kFlagUtf8 = 1 << 11;
constexpr std::uint32_t kRegularFileMode = 0100644;

// Names that are not kept are read back in windows of this size: an item's name and the
// names of the items that follow it, for a tree of small files, in one read.
constexpr std::size_t kNameWindowSize = std::size_t{64} << 10;

[[noreturn]] void failWrite(int error) {
  throw opc::Exception(std::string("could not write the archive: ") + std::strerror(error),
                       boost::system::error_code(error, boost::system::system_category()));
}

[[noreturn]] void failReadBack() {
  int const error = errno != 0 ? errno : EIO;
  throw opc::Exception(std::string("could not read the archive back: ") + std::strerror(error),
                       boost::system::error_code(error, boost::system::system_category()));
}

// A record being built. Its size is known up to the name, so it is reserved at once: a
// central directory of 100,000 items would otherwise regrow a vector eight times per row.
class Bytes {
 public:
  Bytes() = default;
  explicit Bytes(std::size_t expected) { out_.reserve(expected); }
  void clear() { out_.clear(); }
  void u16(std::uint16_t v) {
    out_.push_back(static_cast<unsigned char>(v));
    out_.push_back(static_cast<unsigned char>(v >> 8));
  }
  void u32(std::uint32_t v) {
    u16(static_cast<std::uint16_t>(v));
    u16(static_cast<std::uint16_t>(v >> 16));
  }
  void u64(std::uint64_t v) {
    u32(static_cast<std::uint32_t>(v));
    u32(static_cast<std::uint32_t>(v >> 32));
  }
  void text(std::string_view s) { out_.insert(out_.end(), s.begin(), s.end()); }
  std::vector<unsigned char>& data() { return out_; }

 private:
  std::vector<unsigned char> out_;
};

std::uint16_t flagsOf(std::string_view name) {
  bool const ascii = std::all_of(name.begin(), name.end(), [](char c) { return (c & 0x80) == 0; });
  return ascii ? 0 : kFlagUtf8;
}

std::uint32_t clamp32(std::uint64_t v) {
  return v >= kMax32 ? kMax32 : static_cast<std::uint32_t>(v);
}

}  // namespace

ZipStreamWriter::ZipStreamWriter(int fd, DosTime time) : fd_(fd), time_(time) {
  buffer_.reserve(kBufferSize);
}

ZipStreamItem& ZipStreamWriter::newItem(std::string_view name) {
  if (name.size() > kMax16) {
    throw opc::Exception("item \"" + std::string(name.substr(0, 64)) + "...\": its name of " +
                             std::to_string(name.size()) +
                             " bytes is longer than an archive item name may be (65535 bytes)",
                         boost::system::error_code());
  }
  char* nameData = nullptr;
  if (name.size() <= kKeptNameSize) {
    static_assert(kNameBlockSize >= kKeptNameSize, "every kept name fits in a block of its own");
    if (nameBlockUsed_ + name.size() > kNameBlockSize) {
      nameBlocks_.push_back(std::make_unique<char[]>(kNameBlockSize));
      nameBlockUsed_ = 0;
    }
    nameData = nameBlocks_.back().get() + nameBlockUsed_;
    if (!name.empty()) std::memcpy(nameData, name.data(), name.size());
    nameBlockUsed_ += name.size();
  }
  if (count_ % kItemsPerChunk == 0) {
    chunks_.push_back(std::make_unique<ZipStreamItem[]>(kItemsPerChunk));
  }
  ZipStreamItem& item = chunks_.back()[count_ % kItemsPerChunk];
  ++count_;
  item = ZipStreamItem();
  item.nameData = nameData;
  item.nameSize = static_cast<std::uint16_t>(name.size());
  item.headerOffset = end_;
  return item;
}

std::string_view ZipStreamWriter::NameReader::nameOf(std::size_t index) {
  ZipStreamItem const& item = writer_.item(index);
  if (item.nameKept()) return {item.nameData, item.nameSize};
  std::uint64_t const offset = item.nameOffset();
  if (offset >= writer_.flushed_) {
    // Still in the buffer: a local header goes into the buffer whole, never split with the file.
    return {reinterpret_cast<char const*>(writer_.buffer_.data()) + (offset - writer_.flushed_),
            item.nameSize};
  }
  if (offset < start_ || offset + item.nameSize > start_ + window_.size()) {
    std::uint64_t const size = std::min<std::uint64_t>(
        std::max<std::size_t>(kNameWindowSize, item.nameSize), writer_.flushed_ - offset);
    window_.resize(static_cast<std::size_t>(size));
    if (!readFully(writer_.fd_, offset, window_.data(), window_.size())) failReadBack();
    start_ = offset;
  }
  return {reinterpret_cast<char const*>(window_.data()) + (offset - start_), item.nameSize};
}

ZipStreamItem& ZipStreamWriter::newSizedItem(std::string_view name, bool deflated,
                                             std::uint32_t crc, std::uint64_t size,
                                             std::uint64_t compressedSize) {
  ZipStreamItem& item = newItem(name);
  item.size = size;
  item.compressedSize = compressedSize;
  item.crc = crc;
  item.deflated = deflated;
  item.zip64Sizes = size >= kMax32 || compressedSize >= kMax32;
  return item;
}

void ZipStreamWriter::put(unsigned char const* data, std::size_t count) {
  if (buffer_.size() + count > kBufferSize) flush();
  if (count >= kBufferSize) {
    if (!writeFully(fd_, flushed_, data, count)) failWrite(errno);
    flushed_ += count;
  } else {
    buffer_.insert(buffer_.end(), data, data + count);
  }
  end_ += count;
}

void ZipStreamWriter::flush() {
  if (buffer_.empty()) return;
  if (!writeFully(fd_, flushed_, buffer_.data(), buffer_.size())) failWrite(errno);
  flushed_ += buffer_.size();
  buffer_.clear();
}

void ZipStreamWriter::patch(std::uint64_t offset, unsigned char const* data, std::size_t count) {
  if (offset >= flushed_) {
    std::memcpy(buffer_.data() + (offset - flushed_), data, count);
  } else if (!writeFully(fd_, offset, data, count)) {
    failWrite(errno);
  }
}

void ZipStreamWriter::writeLocalHeader(ZipStreamItem const& item, std::string_view name) {
  Bytes b(30 + std::size_t{item.nameSize} + 20);
  b.u32(0x04034b50);
  b.u16(item.zip64Sizes ? kVersionZip64 : kVersion);
  b.u16(flagsOf(name));
  b.u16(item.deflated ? 8 : 0);
  b.u16(time_.time);
  b.u16(time_.date);
  b.u32(item.crc);
  b.u32(item.zip64Sizes ? kMax32 : static_cast<std::uint32_t>(item.compressedSize));
  b.u32(item.zip64Sizes ? kMax32 : static_cast<std::uint32_t>(item.size));
  b.u16(item.nameSize);
  b.u16(item.zip64Sizes ? 20 : 0);
  b.text(name);
  if (item.zip64Sizes) {
    b.u16(0x0001);
    b.u16(16);
    b.u64(item.size);
    b.u64(item.compressedSize);
  }
  put(b.data().data(), b.data().size());
}

void ZipStreamWriter::add(std::string_view name, bool deflated, std::uint32_t crc,
                          std::uint64_t size, unsigned char const* data, std::size_t count) {
  writeLocalHeader(newSizedItem(name, deflated, crc, size, count), name);
  put(data, count);
}

void ZipStreamWriter::begin(std::string_view name, bool deflated, std::uint64_t size) {
  ZipStreamItem& item = newItem(name);
  item.size = size;
  item.deflated = deflated;
  item.zip64Sizes = size >= kZip64SizeFrom;
  writeLocalHeader(item, name);
}

void ZipStreamWriter::append(unsigned char const* data, std::size_t count) { put(data, count); }

void ZipStreamWriter::end(std::uint32_t crc, std::uint64_t size) {
  ZipStreamItem& item = chunks_.back()[(count_ - 1) % kItemsPerChunk];
  item.crc = crc;
  item.size = size;
  item.compressedSize = end_ - item.dataOffset();
  if (!item.zip64Sizes && (item.compressedSize >= kMax32 || size >= kMax32)) {
    // Past what the header made room for: deflate grew the content beyond all expectation.
    NameReader names(*this);
    throw opc::Exception(
        "item \"" + std::string(names.nameOf(count_ - 1)) + "\" outgrew the room of its header",
        boost::system::error_code());
  }
  Bytes b;
  b.u32(crc);
  b.u32(item.zip64Sizes ? kMax32 : static_cast<std::uint32_t>(item.compressedSize));
  b.u32(item.zip64Sizes ? kMax32 : static_cast<std::uint32_t>(size));
  patch(item.headerOffset + 14, b.data().data(), b.data().size());
  if (item.zip64Sizes) {
    Bytes sizes;
    sizes.u64(size);
    sizes.u64(item.compressedSize);
    patch(item.headerOffset + 30 + item.nameSize + 4, sizes.data().data(), sizes.data().size());
  }
}

void ZipStreamWriter::copy(int fromFd, ZipStreamItem const& from) {
  std::uint64_t remaining = from.dataOffset() + from.compressedSize - from.headerOffset;
  std::uint64_t position = from.headerOffset;
  std::vector<unsigned char> chunk(std::min<std::uint64_t>(remaining, kBufferSize));
  auto const readChunk = [&]() -> std::size_t {
    std::size_t const n =
        static_cast<std::size_t>(std::min<std::uint64_t>(remaining, chunk.size()));
    if (!readFully(fromFd, position, chunk.data(), n)) failReadBack();
    return n;
  };
  // The first read holds the whole local header, and with it the name, which the source
  // writer may not have kept.
  std::size_t n = readChunk();
  ZipStreamItem& item =
      newItem(std::string_view(reinterpret_cast<char const*>(chunk.data()) + 30, from.nameSize));
  item.size = from.size;
  item.compressedSize = from.compressedSize;
  item.crc = from.crc;
  item.deflated = from.deflated;
  item.zip64Sizes = from.zip64Sizes;
  for (;;) {
    put(chunk.data(), n);
    position += n;
    remaining -= n;
    if (remaining == 0) break;
    n = readChunk();
  }
}

void ZipStreamWriter::copyStored(std::string_view name, bool deflated, std::uint32_t crc,
                                 std::uint64_t size, std::uint64_t compressedSize,
                                 ZipByteSource const& from, std::uint64_t offset) {
  writeLocalHeader(newSizedItem(name, deflated, crc, size, compressedSize), name);
  // Read where the bytes are written: an archive of many small items costs one read each and
  // no copy between buffers.
  std::uint64_t remaining = compressedSize;
  while (remaining > 0) {
    if (buffer_.size() == kBufferSize) flush();
    std::size_t const n =
        static_cast<std::size_t>(std::min<std::uint64_t>(remaining, kBufferSize - buffer_.size()));
    std::size_t const at = buffer_.size();
    buffer_.resize(at + n);
    try {
      from.readAt(offset, buffer_.data() + at, n);
    } catch (...) {
      buffer_.resize(at);
      throw;
    }
    offset += n;
    end_ += n;
    remaining -= n;
  }
}

void ZipStreamWriter::finish() {
  // Every header in the file, where the names not kept are read back from: the directory
  // that follows goes through the buffer.
  flush();
  std::uint64_t const directoryOffset = end_;
  NameReader names(*this);
  Bytes b(46 + std::size_t{kMax16} + 28);
  for (std::size_t index = 0; index < count_; ++index) {
    ZipStreamItem const& item = this->item(index);
    std::string_view const name = names.nameOf(index);
    bool const bigSizes = item.zip64Sizes || item.size >= kMax32 || item.compressedSize >= kMax32;
    bool const bigOffset = item.headerOffset >= kMax32;
    Bytes extra;
    if (bigSizes) {
      extra.u64(item.size);
      extra.u64(item.compressedSize);
    }
    if (bigOffset) extra.u64(item.headerOffset);
    bool const zip64 = bigSizes || bigOffset;
    b.clear();
    b.u32(0x02014b50);
    b.u16(kMadeByUnix | (zip64 ? kVersionZip64 : kVersion));
    b.u16(zip64 ? kVersionZip64 : kVersion);
    b.u16(flagsOf(name));
    b.u16(item.deflated ? 8 : 0);
    b.u16(time_.time);
    b.u16(time_.date);
    b.u32(item.crc);
    b.u32(bigSizes ? kMax32 : static_cast<std::uint32_t>(item.compressedSize));
    b.u32(bigSizes ? kMax32 : static_cast<std::uint32_t>(item.size));
    b.u16(item.nameSize);
    b.u16(static_cast<std::uint16_t>(zip64 ? extra.data().size() + 4 : 0));
    b.u16(0);  // comment
    b.u16(0);  // disk
    b.u16(0);  // internal attributes
    b.u32(kRegularFileMode << 16);
    b.u32(bigOffset ? kMax32 : static_cast<std::uint32_t>(item.headerOffset));
    b.text(name);
    if (zip64) {
      b.u16(0x0001);
      b.u16(static_cast<std::uint16_t>(extra.data().size()));
      b.data().insert(b.data().end(), extra.data().begin(), extra.data().end());
    }
    put(b.data().data(), b.data().size());
  }
  std::uint64_t const directorySize = end_ - directoryOffset;
  std::uint64_t const count = count_;
  b.clear();
  if (count >= kMax16 || directorySize >= kMax32 || directoryOffset >= kMax32) {
    std::uint64_t const recordOffset = end_;
    b.u32(0x06064b50);
    b.u64(44);
    b.u16(kMadeByUnix | kVersionZip64);
    b.u16(kVersionZip64);
    b.u32(0);
    b.u32(0);
    b.u64(count);
    b.u64(count);
    b.u64(directorySize);
    b.u64(directoryOffset);
    b.u32(0x07064b50);
    b.u32(0);
    b.u64(recordOffset);
    b.u32(1);
  }
  b.u32(0x06054b50);
  b.u16(0);
  b.u16(0);
  b.u16(count >= kMax16 ? kMax16 : static_cast<std::uint16_t>(count));
  b.u16(count >= kMax16 ? kMax16 : static_cast<std::uint16_t>(count));
  b.u32(clamp32(directorySize));
  b.u32(clamp32(directoryOffset));
  b.u16(0);
  put(b.data().data(), b.data().size());
  flush();
}

}  // namespace detail
}  // namespace model
}  // namespace opc
