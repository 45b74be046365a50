// The ZIP container under the package model: reading an archive that may be hostile, and
// writing a new one.  Private to libopcmodel; the package layer is its only user.
#ifndef OPC_MODEL_ZIP_ZIP_ARCHIVE_H_
#define OPC_MODEL_ZIP_ZIP_ARCHIVE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/package_options.h>
#include <opc/model/standard_part_info.h>

namespace opc {
namespace model {
namespace detail {

// One item of an archive, as its central directory describes it and as checked against the
// item's local header when the archive was opened.
struct ZipEntry {
  std::string name;          // UTF-8: names without the language-encoding flag are read as CP437
  std::uint16_t method = 0;  // 0 stored, 8 deflated; other methods are refused at open
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
  std::uint32_t crc32 = 0;
  std::uint64_t localHeaderOffset = 0;
  std::uint64_t dataOffset = 0;  // first byte of the (compressed) data
};

// Random-access bytes of an archive: a file or a buffer in memory.
class ZipByteSource {
 public:
  virtual ~ZipByteSource() = default;
  virtual std::uint64_t size() const = 0;
  // Reads exactly `count` bytes at `offset`; throws InvalidPackage if the source is shorter.
  virtual void readAt(std::uint64_t offset, unsigned char* buffer, std::size_t count) const = 0;
};

// Opens a file for reading (throws CouldNotOpenPackage with the system's words), or wraps a
// buffer.  Sources are shared: streams of entries keep their source alive.
std::shared_ptr<ZipByteSource> openFileSource(std::string const& path);
std::shared_ptr<ZipByteSource> openBufferSource(
    std::shared_ptr<std::vector<unsigned char> const> bytes);

// A validated archive.  Opening parses the end of central directory (ZIP64 included) and the
// whole central directory, reads every local header, and refuses with InvalidPackage, naming
// the item and the problem: a truncated or inconsistent archive; an encrypted item or an
// unsupported method; two items whose names are equal or equivalent without regard to
// ASCII case; items whose byte ranges overlap each other or the central directory; an item
// name that is absolute, holds a ".." segment, a backslash or a NUL; more items, a larger
// item, or a higher compression ratio than `limits` allow.
class ZipArchive {
 public:
  static std::unique_ptr<ZipArchive> open(std::shared_ptr<ZipByteSource> source,
                                          PackageLimits const& limits);

  std::vector<ZipEntry> const& entries() const;
  // The index of the entry with exactly this name, or -1.
  std::int64_t find(std::string const& name) const;

  // A stream of the entry's uncompressed content, inflating as it is read, with bounded
  // memory whatever the size.  At the end it checks the size and CRC-32 against the
  // directory and throws InvalidPartContent naming the item on a mismatch; it also stops
  // with InvalidPartContent as soon as more bytes come out than declared.  The stream keeps
  // the source alive and is independent of the ZipArchive object.
  std::unique_ptr<opc::InputStream> openEntry(ZipEntry const& entry) const;

  // The stored (compressed) bytes of the entry, for copying it into a new archive as is.
  std::shared_ptr<ZipByteSource> const& source() const;

 private:
  ZipArchive(std::shared_ptr<ZipByteSource> source, std::vector<ZipEntry> entries);
  std::shared_ptr<ZipByteSource> source_;
  std::vector<ZipEntry> entries_;
};

// Content for a new item: called repeatedly to fill `buffer`, returns how many bytes it
// wrote, 0 at the end.  May throw; the write then fails and no archive is left behind.
using ZipContentReader = std::function<std::size_t(unsigned char* buffer, std::size_t size)>;

// Writes a new archive to `path`: items in the order they are added, each with its name
// flagged UTF-8 when it is not ASCII, ZIP64 records where sizes, offsets or the item count
// need them.  Nothing appears at `path` until commit(): the archive is written to a temporary
// file beside it, flushed to disk (fsync), renamed over `path`, and the folder is flushed.
// Destroying a writer that was not committed removes the temporary file.
class ZipWriter {
 public:
  // Writes to a file.
  static std::unique_ptr<ZipWriter> toFile(std::string const& path, unsigned compressionThreads);
  // Writes into `out`, which commit() fills.
  static std::unique_ptr<ZipWriter> toBuffer(std::vector<unsigned char>& out,
                                             unsigned compressionThreads);
  virtual ~ZipWriter() = default;

  // Copies an item of an existing archive without decompressing it.
  virtual void addRaw(std::string const& name, ZipArchive const& from, ZipEntry const& entry) = 0;

  // Adds an item whose content `reader` gives, of `size` bytes (known in advance).
  // Stored compresses nothing; DeflateMetadata and DeflateContent deflate (levels chosen by
  // the writer and documented there), and content that does not shrink is stored instead.
  // Compression may run on worker threads when the writer has more than one; `reader` is
  // then called on such a thread, but never on two threads at once.
  virtual void add(std::string const& name, interfaces::CompressionType compression,
                   std::uint64_t size, ZipContentReader reader) = 0;

  // Writes the central directory and puts the archive in place.  Throws CouldNotSavePackage
  // with the cause; the target is then untouched.
  virtual void commit() = 0;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_ARCHIVE_H_
