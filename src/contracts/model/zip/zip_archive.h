// The ZIP container under the package model: reading an archive that may be hostile, and
// writing a new one.  Private to libopcmodel; the package layer is its only user.  The
// classes carry OPC_MODEL_EXPORT only so that the unit tests and the fuzz target, which are
// separate binaries, can reach them; the header is not installed and is no promise to anyone
// else.
#ifndef OPC_MODEL_ZIP_ZIP_ARCHIVE_H_
#define OPC_MODEL_ZIP_ZIP_ARCHIVE_H_

#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/export.h>
#include <opc/model/package_options.h>
#include <opc/model/standard_part_info.h>

namespace opc {
namespace model {
namespace detail {

// One item of an archive, as its central directory describes it.  Its local header is read
// and checked when the item is first read (ZipArchive::locate), not when the archive opens.
// A ZipEntry is a value made on request (see ZipArchive::entries): it holds its own copy of
// the name and stays valid after the archive is gone.
struct ZipEntry {
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  std::string name;          // UTF-8: names without the language-encoding flag are read as CP437
  std::uint16_t method = 0;  // 0 stored, 8 deflated; other methods are refused at open
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
  std::uint32_t crc32 = 0;
  std::uint64_t localHeaderOffset = 0;
  // First byte of the (compressed) data: 0 in entries(), set in what locate() gives.
  std::uint64_t dataOffset = 0;
  // The index in entries() of the item whose local header comes next in the file, or kNone
  // when the central directory does: the item's bytes must end before it.
  std::uint32_t following = kNone;
};

// Random-access bytes of an archive: a file or a buffer in memory.  The two sources below
// may be read from several threads at once.
class OPC_MODEL_EXPORT ZipByteSource {
 public:
  virtual ~ZipByteSource() = default;
  virtual std::uint64_t size() const = 0;
  // Reads exactly `count` bytes at `offset`; throws InvalidPackage if the source is shorter.
  virtual void readAt(std::uint64_t offset, unsigned char* buffer, std::size_t count) const = 0;
};

// Opens a file for reading (throws CouldNotOpenPackage with the system's words), or wraps a
// buffer.  Sources are shared: streams of entries keep their source alive.
// `path` is in the file system's bytes (UTF-8 here); messages show it through toUDEString.
OPC_MODEL_EXPORT std::shared_ptr<ZipByteSource> openFileSource(std::string const& path);
OPC_MODEL_EXPORT std::shared_ptr<ZipByteSource> openBufferSource(
    std::shared_ptr<std::vector<unsigned char> const> bytes);

// The uncompressed content of one entry, read front to back (see ZipArchive::openEntry).
// opc::InputStream keeps its destructor protected; this class makes it public so that the
// stream can be owned through a std::unique_ptr.  read() may be called without open().
class OPC_MODEL_EXPORT ZipEntryStream : public opc::InputStream {
 public:
  ~ZipEntryStream() override;

 protected:
  ZipEntryStream() = default;
};

// A hash of local header offsets under a seed of the table's: the offsets are the archive's
// to choose, and their plain value would let them be chosen to share one bucket.
struct ItemOffsetHash {
  std::uint64_t seed = 0;
  std::size_t operator()(std::uint64_t offset) const {
    std::uint64_t bits = (offset ^ seed) * 0xBF58476D1CE4E5B9ull;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBull;
    return static_cast<std::size_t>(bits ^ (bits >> 31));
  }
};

// A validated archive.  Opening parses the end of central directory (ZIP64 included) and the
// whole central directory and refuses with InvalidPackage, naming the item and the problem: a
// truncated or inconsistent archive; an encrypted item or an unsupported method; two items
// whose names are equal or equivalent without regard to ASCII case; items whose byte ranges
// (a local header of the item's name and its data, at the least) overlap each other or the
// central directory; an item name that is absolute, holds a ".." segment, a backslash or a
// NUL; more items, a larger item, or a higher compression ratio than `limits` allow.
//
// An item's local header is read when the item is first read or copied (locate): opening an
// archive of 100,000 items then reads its directory only, as a lister does.  Its checks are
// the same as they were at open, with the same messages, and raise InvalidPackage from the
// call that reads the item: a bad signature, encryption, a method or a name other than the
// central directory's, data that with the header's extra field runs into the next item or
// the central directory.
//
// Messages: "Invalid ZIP archive: <problem>" for the archive as a whole, and
// "Invalid ZIP item \"<name>\": <problem>" for one item; the name goes through
// toUDEString.  They do not name the archive's file, which the caller knows.
// Opening reads the directories only, never the items' data.  A ZipArchive is immutable
// after open: entries(), find(), locate() and openEntry() may be called from several threads
// at once.
class ZipArchive;

// The items of an archive in the order of its central directory, as ZipEntry values made on
// request from the archive's compact table: indexing or iterating copies one item's fields
// and name.  The view is valid while its archive is; the entries it gives are independent.
class OPC_MODEL_EXPORT ZipEntries {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = ZipEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = ZipEntry;

    Iterator(ZipArchive const* archive, std::size_t index) : archive_(archive), index_(index) {}
    ZipEntry operator*() const;
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    bool operator==(Iterator const& other) const { return index_ == other.index_; }
    bool operator!=(Iterator const& other) const { return index_ != other.index_; }

   private:
    ZipArchive const* archive_;
    std::size_t index_;
  };

  explicit ZipEntries(ZipArchive const& archive) : archive_(&archive) {}
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  // `index` must be below size().
  ZipEntry operator[](std::size_t index) const;
  // Throws std::out_of_range past the end, as a container's at() does.
  ZipEntry at(std::size_t index) const;
  ZipEntry front() const { return (*this)[0]; }
  Iterator begin() const { return Iterator(archive_, 0); }
  Iterator end() const { return Iterator(archive_, size()); }

 private:
  ZipArchive const* archive_;
};

class OPC_MODEL_EXPORT ZipArchive {
 public:
  static std::unique_ptr<ZipArchive> open(std::shared_ptr<ZipByteSource> source,
                                          PackageLimits const& limits);
  ~ZipArchive();

  ZipEntries entries() const { return ZipEntries(*this); }
  // The number of items, and the name of item `index` (below that number) without a copy:
  // the view stays valid as long as the archive.
  std::size_t size() const { return items_.size(); }
  std::string_view name(std::size_t index) const {
    Item const& item = items_[index];
    return std::string_view(names_.data() + item.nameBegin, item.nameLength);
  }
  // Item `index` (below size()) as a value, and its uncompressed size alone.
  ZipEntry entry(std::size_t index) const;
  std::uint64_t uncompressedSize(std::size_t index) const { return items_[index].uncompressedSize; }
  // The index of the entry with exactly this name, or -1.  Logarithmic in the item count;
  // the first call sorts an index of the names (readers that never look items up by name,
  // such as a lister, never pay for it).
  std::int64_t find(std::string const& name) const;

  // `entry` (one of entries()) with its dataOffset, from its local header, which is read and
  // checked against the central directory each time (see above).  Raises InvalidPackage.
  ZipEntry locate(ZipEntry const& entry) const;
  // locate() over bytes of the archive already read: `window` holds `windowSize` bytes of the
  // source from `windowOffset` on.  Reads the local header from the source only when it is not
  // inside the window, with the same checks and messages.
  ZipEntry locateIn(ZipEntry const& entry, unsigned char const* window, std::uint64_t windowOffset,
                    std::size_t windowSize) const;

  // A stream of the entry's uncompressed content, inflating as it is read, with bounded
  // memory whatever the size.  Locates the entry first (see locate); the data of a small item
  // (see kDataReadWithHeader) comes in the same read as its local header.  At the end it checks
  // the size and CRC-32 against the directory and throws InvalidPartContent naming the item
  // on a mismatch; it also stops with InvalidPartContent as soon as more bytes come out than
  // declared.  The stream keeps the source alive and is independent of the ZipArchive object.
  // Messages: "Invalid ZIP item \"<name>\": <problem>".  A stored entry streams with the
  // same checks.  `entry` must be one of entries().
  std::unique_ptr<ZipEntryStream> openEntry(ZipEntry const& entry) const;

  // The stored (compressed) bytes of the entry, for copying it into a new archive as is.
  std::shared_ptr<ZipByteSource> const& source() const;

 private:
  // One item in 48 bytes, its name in names_: 100,000 items cost two large blocks rather
  // than a string each.
  struct Item {
    std::uint64_t compressedSize;
    std::uint64_t uncompressedSize;
    std::uint64_t localHeaderOffset;
    std::uint64_t nameBegin;
    std::uint32_t nameLength;
    std::uint32_t crc32;
    std::uint32_t following;
    std::uint16_t method;
  };
  explicit ZipArchive(std::shared_ptr<ZipByteSource> source);
  // Refuses items that lie outside the data of the archive, then items whose bytes overlap,
  // and links each item to the one that follows it.
  void checkPlaces();
  void checkOverlaps();
  std::size_t rawNameSize(Item const& item) const;
  // locate() over the entry's local header, already read into `header`.
  ZipEntry locateFrom(ZipEntry const& entry, unsigned char const* header) const;
  // The bytes of the entry's name in the central directory, which the local header must
  // repeat.
  std::string const& rawNameOf(ZipEntry const& entry) const;

  std::shared_ptr<ZipByteSource> source_;
  std::vector<Item> items_;
  // The decoded (UTF-8) names of all items, one after the other.
  std::string names_;
  // Positions in items_, by name: find() sorts it at its first call and then searches it.
  mutable std::vector<std::uint32_t> byName_;
  mutable std::once_flag byNameOnce_;
  // By local header offset, the raw names of the few entries whose name was decoded (CP437
  // or a Unicode path field) and so differs from its bytes.
  std::unordered_map<std::uint64_t, std::string, ItemOffsetHash> rawNames_;
  std::uint64_t directoryOffset_ = 0;
};

// Content for a new item: called repeatedly to fill `buffer`, returns how many bytes it
// wrote, 0 at the end.  May throw; the write then fails and no archive is left behind.
using ZipContentReader = std::function<std::size_t(unsigned char* buffer, std::size_t size)>;

class ReplacementFile;

// Writes a new archive to `path` (or into memory): items in the order they are added, each
// with its name flagged UTF-8 when it is not ASCII, ZIP64 records where sizes, offsets or the
// item count need them.  Nothing appears at `path` until commit(): the archive is written to
// a temporary file beside it, which commit() puts in place (see ReplacementFile, which also
// names the file).  Destroying a writer that was not committed removes the temporary file.
//
// Levels: DeflateMetadata deflates at level 9, because metadata parts are small XML that is
// read far more often than written, so a smaller result is worth the time; DeflateContent
// deflates at level 6, because content is bulk where speed matters (libdeflate at 6 gives
// zlib's level-6 ratio at about three times the speed).  Content of up to 64 MiB is
// compressed in memory with libdeflate, and stored instead when the result is not smaller;
// larger content is compressed into a temporary spool file beside the target, so that memory
// stays bounded whatever the size; whether it is worth compressing is decided on its first
// MiB, and content judged compressible is deflated even if the whole turns out not to shrink.
// With several compression threads, content of 4 MiB or more is cut into 1 MiB chunks that
// the threads compress at once and that are joined into one deflate stream (see
// chunked_deflate.h); at most threads + 2 chunks are held at a time.
//
// The archive itself is assembled by libzip during commit(): readers of new items are called
// during commit() on the caller's thread (one compression thread), or from add() onwards on
// the writer's worker threads (several); a reader must stay callable until commit() returns
// or the writer is destroyed.  The writer holds at most a few items' content in memory at
// once.  A writer is used by one thread at a time.
//
// The writers over libzip (toFile, toReplacement, toBuffer) live in the ZIP writer library,
// loaded by the first of those calls (see zip_writer_library.h); if it cannot be loaded, the
// call throws CouldNotSavePackage with the usual beginning and "the ZIP writer library
// libopcmodel_zip.so.1 could not be loaded: <the loader's reason>", having made nothing.  The
// sequential writer is this library's own.
class OPC_MODEL_EXPORT ZipWriter {
 public:
  // Writes to a file.  `compressionThreads`: 1 compresses on the caller's thread during
  // commit(); 0 uses one thread per processor; more starts that many workers (at most 16),
  // always joined before commit() returns or the writer is destroyed.  Throws
  // CouldNotSavePackage if the temporary file cannot be created.
  static std::unique_ptr<ZipWriter> toFile(std::string const& path, unsigned compressionThreads);
  // Writes into the temporary file of `file`, which must outlive the writer; commit() writes
  // the whole archive into it but leaves flushing and renaming to the caller's
  // ReplacementFile::commit(), so that the caller decides what happens around them.
  static std::unique_ptr<ZipWriter> toReplacement(ReplacementFile& file,
                                                  unsigned compressionThreads);
  // Writes into the temporary file of `file` as ZipStreamWriter does: each item goes into the
  // file when it is added, and nothing of it is kept but its row of the central directory,
  // which commit() writes.  A new item is compressed when it is added: up to 1 MiB in memory
  // on the caller's thread; larger content is judged on its first MiB and deflated into the
  // file as it is read, in 1 MiB chunks over `compressionThreads` (a reproducible archive
  // deflates content of up to 64 MiB in one piece in memory, as the other writers do).  Made for a
  // save that copies most items raw from the archive it replaces.  Flushing and renaming are left
  // to the caller, as with toReplacement(); a writer whose add(), addRaw() or commit() threw is of
  // no further use. Item names must be distinct: nothing here checks them.
  static std::unique_ptr<ZipWriter> sequentialToReplacement(ReplacementFile& file,
                                                            unsigned compressionThreads);
  // Writes into `out`, which commit() fills (replacing what it held) and nothing else touches;
  // `out` must outlive the writer.  Spool files go to the system's temporary folder.
  static std::unique_ptr<ZipWriter> toBuffer(std::vector<unsigned char>& out,
                                             unsigned compressionThreads);
  virtual ~ZipWriter() = default;

  // Makes the archive depend on nothing but its items: every item, raw copies included,
  // carries the DOS time and date of the UTC time `secondsSinceEpoch` (held to the range of
  // DOS dates, see PackageOptions::reproducibleTime), and content compressed in memory
  // (up to 64 MiB) is deflated in one piece however many threads there are, so that the bytes
  // are the same for any number of compression threads; larger content is always chunked.  Call
  // before the first item is added.
  virtual void makeReproducible(std::int64_t secondsSinceEpoch) = 0;

  // Copies an item of an existing archive without decompressing it: the stored bytes, method,
  // sizes and CRC-32 come over as they are (the CRC is not checked again).  `from` (its
  // source, at least) must stay alive until commit() returns or the writer is destroyed.
  virtual void addRaw(std::string const& name, ZipArchive const& from, ZipEntry const& entry) = 0;

  // Adds an item whose content `reader` gives, of `size` bytes (known in advance).
  // Stored compresses nothing; DeflateMetadata and DeflateContent deflate (levels chosen by
  // the writer and documented there), and content that does not shrink is stored instead.
  // Compression may run on worker threads when the writer has more than one; `reader` is
  // then called on such a thread, but never on two threads at once.  A reader that gives more
  // or fewer bytes than `size` fails the commit with CouldNotSavePackage naming the item.
  virtual void add(std::string const& name, interfaces::CompressionType compression,
                   std::uint64_t size, ZipContentReader reader) = 0;

  // Writes the archive and puts it in place.  Throws CouldNotSavePackage with the cause; the
  // target is then untouched and the temporary file removed.  An exception that a reader
  // threw comes out as CouldNotSavePackage with the reader's message after the item's name.
  // Messages: "Could not save package \"<path>\": <cause>" (a buffer writer says
  // "Could not save package to memory: <cause>").  A writer is committed at most once.
  virtual void commit() = 0;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_ARCHIVE_H_
