// The items of a ZipWriter: how new content is prepared (compressed in memory, spooled, or
// streamed as is) and how the stored bytes of each item, new or copied, are read out to be
// written.  Nothing here needs libzip: the sequential writer uses the same items, and the
// writer over libzip (a library of its own, see zip_writer_library.h) feeds them to libzip.
#ifndef OPC_MODEL_ZIP_ZIP_WRITER_ITEMS_H_
#define OPC_MODEL_ZIP_ZIP_WRITER_ITEMS_H_

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opc/model/export.h>

#include "zip_archive.h"

namespace opc {
namespace model {
namespace detail {

// Content of up to this size is compressed in one piece in memory.
constexpr std::uint64_t kInMemoryLimit = std::uint64_t{64} << 20;

struct OPC_MODEL_EXPORT WriterItem {
  enum class Plan {
    Raw,           // the stored bytes of an item of another archive
    StreamReader,  // stored, read from the reader while libzip writes it
    Memory,        // `data` holds the bytes to write, deflated or not
    Spool,         // `spoolFd` holds the deflated bytes
    Direct,        // the deflated bytes went to the sink of `openDirect`
  };

  std::string name;
  Plan plan = Plan::StreamReader;
  bool needsPreparation = false;

  // Raw copies.
  std::shared_ptr<ZipByteSource> rawSource;
  ZipEntry rawEntry;

  // New content.
  interfaces::CompressionType compression = interfaces::CompressionType::Stored;
  std::uint64_t size = 0;
  ZipContentReader reader;
  std::string spoolFolder;
  unsigned threads = 1;       // how many threads may compress this item at once
  bool reproducible = false;  // compressed the same way whatever `threads` is
  // Content up to this size is compressed in one piece in memory; larger content is judged on
  // its first MiB and then deflated in chunks as it is read.
  std::uint64_t inMemoryLimit = kInMemoryLimit;
  // Where larger content that is worth deflating goes: called once, when that is decided,
  // it gives the sink of the deflated bytes (plan Direct).  Without it they go to a spool
  // file (plan Spool).
  std::function<std::function<void(unsigned char const*, std::size_t)>()> openDirect;

  // Results of preparation.
  bool deflated = false;
  std::uint32_t crc = 0;
  bool crcKnown = false;
  std::uint64_t compressedSize = 0;
  std::vector<unsigned char> data;  // Memory: the bytes; StreamReader: what was sampled
  int spoolFd = -1;

  // Scheduling (guarded by the writer's mutex when it has workers).
  enum class State { Pending, Running, Done };
  State state = State::Pending;
  std::size_t workIndex = 0;
  std::exception_ptr error;

  // Reading out (readStored).
  std::uint64_t readPosition = 0;  // bytes of the stored data given out
  std::uint64_t contentRead = 0;   // StreamReader: bytes taken from the reader
  std::vector<unsigned char> staging;
  std::size_t stagingBegin = 0;
  std::size_t stagingEnd = 0;

  WriterItem();
  ~WriterItem();
  WriterItem(WriterItem const&) = delete;
  WriterItem& operator=(WriterItem const&) = delete;

  // Compresses or samples new content as its plan needs; throws opc::Exception on a reader
  // that gives the wrong number of bytes, or whatever the reader throws.
  void prepare();
  // Frees what preparation and reading held.
  void release();
  // Starts reading the stored bytes out from their beginning.
  void rewind();
  // Gives up to `length` bytes of the stored data (as written into the archive: deflated or
  // not, a raw copy's as it was) at `out`, 0 at the end.  Throws opc::Exception as prepare()
  // does, and on a spool file that cannot be read.
  std::size_t readStored(unsigned char* out, std::size_t length);
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_WRITER_ITEMS_H_
