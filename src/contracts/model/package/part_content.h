// The content of a part: an item of the archive, bytes in memory, or a spool file.  Internal
// to libopcmodel: makeArchiveContent carries OPC_MODEL_EXPORT only so that the unit tests can
// reach it.
#ifndef OPC_MODEL_PACKAGE_PART_CONTENT_H_
#define OPC_MODEL_PACKAGE_PART_CONTENT_H_

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <opc/model/export.h>

#include "../zip/zip_archive.h"

namespace opc {
namespace model {
namespace detail {

// Reads one content front to back.
class ContentReader {
 public:
  virtual ~ContentReader() = default;
  // Up to `count` bytes; 0 only at the end.
  virtual std::size_t read(unsigned char* buffer, std::size_t count) = 0;
  virtual bool isDone() const = 0;
};

// A content never changes once made: writing a part makes a new one, so that a stream
// already open goes on reading what it began with.  Shared by the part and the readers.
class PartContent {
 public:
  virtual ~PartContent() = default;
  virtual std::uint64_t size() const = 0;
  // A new reader from the first byte; it keeps what it reads alive.
  virtual std::unique_ptr<ContentReader> openReader() const = 0;
  // The size() bytes of the content when it holds them in memory in one piece, valid as long
  // as the content; null otherwise (and for an empty content).  Lets the writer of an archive
  // take a small part's bytes where they are, without a reader and a copy.
  virtual unsigned char const* bytesInOnePiece() const { return nullptr; }
};

// The content of an archive item, inflated as it is read.
OPC_MODEL_EXPORT std::shared_ptr<PartContent const> makeArchiveContent(
    std::shared_ptr<ZipArchive const> archive, ZipEntry const& entry);
class SharedSpool;

// Bytes in memory, which the content holds itself: the content and its bytes are one block,
// and its readers share it.  With a spool, whose reserve() counted the bytes, they are given
// back when the last of the content and its readers goes.
std::shared_ptr<PartContent const> makeMemoryContent(std::vector<unsigned char> bytes,
                                                     std::shared_ptr<SharedSpool> spool = nullptr);
// Bytes in memory that someone else already holds; the content and its readers share them,
// so whatever the holder attached to their release runs when the last of them goes.
std::shared_ptr<PartContent const> makeMemoryContent(
    std::shared_ptr<std::vector<unsigned char> const> bytes);

// Bytes in memory, in blocks: large content grows block by block, without the copies and
// the spare capacity of a growing vector.  Empty blocks are allowed.
using ByteBlocks = std::vector<std::vector<unsigned char>>;
std::shared_ptr<PartContent const> makeMemoryContent(std::shared_ptr<ByteBlocks const> blocks);

// A file of the temporary folder that holds content too large for memory.  The file is
// removed from its folder as soon as it is open, so that nothing is left behind whatever
// happens to the process; the open streams keep its bytes until they are released.
class SpoolFile {
 public:
  // Creates the file in `folder` (the system's temporary folder if empty or if `folder`
  // cannot hold it).  Throws opc::Exception if no file can be made.
  explicit SpoolFile(std::u16string const& folder);
  SpoolFile(SpoolFile const&) = delete;
  SpoolFile& operator=(SpoolFile const&) = delete;

  // Throws opc::Exception if the file system refuses the bytes.
  void write(unsigned char const* bytes, std::size_t count);
  // Ends writing; the content is what was written.
  std::shared_ptr<PartContent const> finish();

 private:
  std::shared_ptr<std::ostream> out_;
  std::shared_ptr<std::istream> in_;
  std::uint64_t size_ = 0;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PART_CONTENT_H_
