// An archive written front to back into a file as its items come: each item's local header
// and stored bytes go to the end of the file at once, the central directory at the end.
// Private to libopcmodel (exported only for its own tests).
#ifndef OPC_MODEL_ZIP_ZIP_STREAM_WRITER_H_
#define OPC_MODEL_ZIP_ZIP_STREAM_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <opc/model/export.h>

#include "zip_archive.h"
#include "zip_dos_time.h"

namespace opc {
namespace model {
namespace detail {

// Where one item lies in the file, and what its headers say.  An archive of many small items
// holds one of these per item until its end: a short name lies in the writer's own blocks of
// names, a long one only in the item's local header in the file (see ZipStreamWriter), and
// where the stored bytes begin follows from the header.
struct ZipStreamItem {
  std::uint64_t headerOffset = 0;
  std::uint64_t size = 0;            // uncompressed
  std::uint64_t compressedSize = 0;  // as stored
  char const* nameData = nullptr;    // in the writer's blocks of names; null if not kept
  std::uint32_t crc = 0;
  std::uint16_t nameSize = 0;
  bool deflated = false;
  // The local header carries ZIP64 sizes (reserved for content that might not fit 32 bits).
  bool zip64Sizes = false;

  // Whether the writer keeps the name in memory (an empty name is always kept).
  bool nameKept() const { return nameData != nullptr || nameSize == 0; }
  std::uint64_t nameOffset() const { return headerOffset + 30; }
  std::uint64_t dataOffset() const { return headerOffset + 30 + nameSize + (zip64Sizes ? 20 : 0); }
};

// Unlike the libzip writer, nothing is kept back for a final pass: a caller that knows an
// item's bytes (compressed or not, with their CRC-32) adds it at once, and one that streams a
// large item writes its local header first and has its sizes and CRC-32 put in afterwards, so
// that the file is written once, in order.  Names are flagged UTF-8 when they are not ASCII;
// ZIP64 records are written where sizes, offsets or the item count need them.  Writes are
// gathered in a buffer of a MiB, so that many small items cost few system calls.  Names of up
// to kKeptNameSize bytes are kept in memory for the central directory; longer ones are read
// back from their local headers when it is written, so that the memory of a writer follows
// the number of its items, not the bytes of their names (a tree 60 folders deep has names of
// a KiB).  Throws opc::Exception with the system's words when the file refuses bytes or cannot
// be read back, or when a name does not fit the 16 bits of its header field; the object is
// then of no further use.  Used by one thread at a time.
class OPC_MODEL_EXPORT ZipStreamWriter {
 public:
  // Names up to this many bytes stay in memory (nearly all names of a flat tree); a longer one
  // costs a read when the directory is written.
  static constexpr std::size_t kKeptNameSize = 128;

  // Writes into `fd` (not owned) from offset 0, every item with the header time `time`.
  ZipStreamWriter(int fd, DosTime time);
  ZipStreamWriter(ZipStreamWriter const&) = delete;
  ZipStreamWriter& operator=(ZipStreamWriter const&) = delete;

  // An item whose stored bytes are `data` (deflated or not) and whose content has `size`
  // bytes and CRC-32 `crc`.
  void add(std::string_view name, bool deflated, std::uint32_t crc, std::uint64_t size,
           unsigned char const* data, std::size_t count);

  // An item streamed in three steps: begin() writes the local header (with room for ZIP64
  // sizes when the content may need them), append() its stored bytes, end() puts its CRC-32
  // and sizes in.  No other item may be added in between.
  void begin(std::string_view name, bool deflated, std::uint64_t size);
  void append(unsigned char const* data, std::size_t count);
  void end(std::uint32_t crc, std::uint64_t size);

  // Copies an item of another archive file as it lies there (local header and stored bytes),
  // which is how an archive is compacted.
  void copy(int fromFd, ZipStreamItem const& item);

  // An item whose `compressedSize` stored bytes lie in `from` at `offset` (the data of an item
  // of another archive, known by its central directory): they are read straight into the
  // write buffer, never inflated, under a new local header of these sizes and CRC-32.  What
  // `from` throws passes through; the writer is then of no further use.
  void copyStored(std::string_view name, bool deflated, std::uint32_t crc, std::uint64_t size,
                  std::uint64_t compressedSize, ZipByteSource const& from, std::uint64_t offset);

  // Writes everything still buffered to the file.
  void flush();
  // Writes the central directory and the end records, and flushes.  No item may follow.
  void finish();

  // The items in file order; an item stays where it is while others are added.
  std::size_t itemCount() const { return count_; }
  ZipStreamItem const& item(std::size_t index) const {
    return chunks_[index / kItemsPerChunk][index % kItemsPerChunk];
  }
  // Reads the names of a writer's items, from memory or, for names not kept, from the
  // writer's buffer or file.  A window of the file is kept from one call to the next, so that
  // names asked for in file order cost one read per window.  The writer must outlive the
  // reader and add no item while it is used.  Not thread-safe.
  class NameReader {
   public:
    explicit NameReader(ZipStreamWriter const& writer) : writer_(writer) {}
    // The name of the item at `index`, valid until the next call.  Throws opc::Exception with
    // the system's words if it cannot be read back.
    std::string_view nameOf(std::size_t index);

   private:
    ZipStreamWriter const& writer_;
    std::vector<unsigned char> window_;
    std::uint64_t start_ = 0;
  };

  // Bytes of the archive so far, buffered ones included.
  std::uint64_t size() const { return end_; }
  // Bytes already in the file: items whose stored bytes end there may be read back.
  std::uint64_t flushed() const { return flushed_; }

 private:
  // Items and names are kept in fixed blocks rather than in vectors that double: nothing is
  // moved as the archive grows, and no block is freed until the writer goes.
  static constexpr std::size_t kItemsPerChunk = 4096;
  static constexpr std::size_t kNameBlockSize = std::size_t{64} << 10;

  // A new item at the end under `name`, its header at the current end of the archive.
  ZipStreamItem& newItem(std::string_view name);
  // newItem() with its sizes, CRC and method known before its header is written.
  ZipStreamItem& newSizedItem(std::string_view name, bool deflated, std::uint32_t crc,
                              std::uint64_t size, std::uint64_t compressedSize);
  void put(unsigned char const* data, std::size_t count);
  void writeLocalHeader(ZipStreamItem const& item, std::string_view name);
  // Writes `count` bytes at `offset` of the archive, in the buffer or in the file.
  void patch(std::uint64_t offset, unsigned char const* data, std::size_t count);

  int fd_;
  DosTime time_;
  std::vector<std::unique_ptr<ZipStreamItem[]>> chunks_;
  std::size_t count_ = 0;
  std::vector<std::unique_ptr<char[]>> nameBlocks_;
  std::size_t nameBlockUsed_ = kNameBlockSize;
  std::vector<unsigned char> buffer_;  // the bytes from flushed_ on
  std::uint64_t flushed_ = 0;
  std::uint64_t end_ = 0;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_STREAM_WRITER_H_
