// Preparing new content and feeding items to libzip.  libzip is handed data that is already
// compressed, with its method, sizes and CRC-32 in the source's stat, and copies it as it is:
// compression is ours (libdeflate, in chunks on several threads for large content), and a raw
// copy never inflates.
#include "zip_writer_items.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include <libdeflate.h>

#include <opc/core/exception.h>

#include "chunked_deflate.h"
#include "incompressible.h"
#include "unnamed_file.h"
#include "zip_format.h"
#include "zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kStagingSize = 256 * 1024;
constexpr std::size_t kSampleSize = 1024 * 1024;
// In-memory content at least this large is cut into chunks when several threads may compress
// it (below, one call is cheaper than the hand-over), except in a reproducible archive, whose
// bytes must not depend on the number of threads: there it is deflated in one piece, which
// also costs a third less time than chunks and their joining (items still go to several
// threads at once).
constexpr std::size_t kParallelMinimum = 4 * kDeflateChunkSize;

[[noreturn]] void fail(std::string const& problem) {
  throw opc::Exception(problem, boost::system::error_code());
}

[[noreturn]] void failSystem(std::string const& problem, int error) {
  throw opc::Exception(problem + ": " + std::strerror(error),
                       boost::system::error_code(error, boost::system::system_category()));
}

int levelOf(interfaces::CompressionType compression, std::uint64_t size) {
  // Metadata: see kMetadataDeflateLevel; small content: see kSmallContentSize.  Content is
  // bulk, where speed matters.
  if (compression == interfaces::CompressionType::DeflateMetadata) return kMetadataDeflateLevel;
  return size <= kSmallContentSize ? kSmallContentDeflateLevel : 6;
}

// Fills `buffer` from the reader until `count` bytes or the reader's end.
std::size_t fill(ZipContentReader const& reader, unsigned char* buffer, std::size_t count) {
  std::size_t total = 0;
  while (total < count) {
    std::size_t const n = reader(buffer + total, count - total);
    if (n == 0) break;
    if (n > count - total) fail("its reader claims more bytes than it was asked for");
    total += n;
  }
  return total;
}

[[noreturn]] void failShort(std::uint64_t got, std::uint64_t size) {
  fail("its content ends after " + std::to_string(got) + " bytes, before the " +
       std::to_string(size) + " declared");
}

// After `size` bytes the reader must be at its end.
void expectEnd(ZipContentReader const& reader, std::uint64_t size) {
  unsigned char probe[1];
  if (reader(probe, sizeof probe) != 0) {
    fail("its content goes on past the " + std::to_string(size) + " bytes declared");
  }
}

bool shrinks(std::size_t compressed, std::size_t original) {
  // A sample must shrink by a few percent to be worth deflating the whole.
  return compressed > 0 && compressed < original - original / 32;
}

}  // namespace

WriterItem::WriterItem() { zip_error_init(&zipError); }

WriterItem::~WriterItem() {
  release();
  zip_error_fini(&zipError);
}

void WriterItem::release() {
  std::vector<unsigned char>().swap(data);
  std::vector<unsigned char>().swap(staging);
  if (spoolFd >= 0) ::close(spoolFd);
  spoolFd = -1;
}

void WriterItem::prepare() {
  if (!needsPreparation) return;
  int const level = levelOf(compression, size);
  if (size <= inMemoryLimit) {
    std::size_t const count = static_cast<std::size_t>(size);
    data.resize(count);
    std::size_t const got = fill(reader, data.data(), count);
    if (got < count) failShort(got, size);
    expectEnd(reader, size);
    crc = libdeflate_crc32(0, data.data(), count);
    crcKnown = true;
    plan = Plan::Memory;
    std::vector<unsigned char> out;
    std::size_t compressed = 0;
    if (looksIncompressible(data.data(), count)) {
      compressed = 0;  // stored, as deflate would not shrink it
    } else if (threads > 1 && !reproducible && count >= kParallelMinimum) {
      std::size_t offset = 0;
      ChunkSource const source = [&](unsigned char* buffer, std::size_t n) {
        n = std::min(n, count - offset);
        std::memcpy(buffer, data.data() + offset, n);
        offset += n;
        return n;
      };
      out.reserve(count);
      bool tooLarge = false;
      ChunkSink const sink = [&](unsigned char const* bytes, std::size_t n) {
        // Larger than the content: it is stored, and the rest need not be kept.
        if (tooLarge || out.size() + n >= count) {
          tooLarge = true;
          return;
        }
        out.insert(out.end(), bytes, bytes + n);
      };
      deflateInChunks(source, count, level, threads, sink);
      compressed = tooLarge ? 0 : out.size();
    } else {
      libdeflate_compressor* compressor = compressorFor(level);
      out.resize(libdeflate_deflate_compress_bound(compressor, count));
      compressed =
          libdeflate_deflate_compress(compressor, data.data(), count, out.data(), out.size());
    }
    if (compressed > 0 && compressed < count) {
      out.resize(compressed);
      data.swap(out);
      deflated = true;
      compressedSize = compressed;
    } else {
      deflated = false;  // stored: it does not shrink (an empty part never does)
      compressedSize = count;
    }
    return;
  }

  // Too large for memory: judge the first MiB, then stream.
  data.resize(kSampleSize);
  std::size_t const sampled = fill(reader, data.data(), kSampleSize);
  if (sampled < kSampleSize) failShort(sampled, size);
  {
    libdeflate_compressor* quick = compressorFor(1);
    std::vector<unsigned char> out(libdeflate_deflate_compress_bound(quick, sampled));
    std::size_t const compressed =
        libdeflate_deflate_compress(quick, data.data(), sampled, out.data(), out.size());
    if (!shrinks(compressed, sampled)) {
      plan = Plan::StreamReader;  // stored, the sample first, then the rest of the reader
      deflated = false;
      compressedSize = size;
      contentRead = sampled;
      return;
    }
  }
  ChunkSink direct;
  if (openDirect) {
    direct = openDirect();
  } else {
    spoolFd = createUnnamedFile(spoolFolder, ".opcvk-spool-");
    if (spoolFd < 0) failSystem("could not create a spool file in \"" + spoolFolder + "\"", errno);
  }
  // The sample first, then the rest of the reader; the sample's memory goes once it is used.
  std::size_t sampleUsed = 0;
  ChunkSource const source = [&](unsigned char* buffer, std::size_t n) -> std::size_t {
    if (sampleUsed < data.size()) {
      n = std::min(n, data.size() - sampleUsed);
      std::memcpy(buffer, data.data() + sampleUsed, n);
      sampleUsed += n;
      if (sampleUsed == data.size()) std::vector<unsigned char>().swap(data);
      return n;
    }
    return reader(buffer, n);
  };
  std::uint64_t written = 0;
  ChunkSink const sink = [&](unsigned char const* bytes, std::size_t n) {
    if (direct) {
      direct(bytes, n);
    } else if (!writeFully(spoolFd, written, bytes, n)) {
      failSystem("could not write a spool file", errno);
    }
    written += n;
  };
  ChunkedDeflateResult const result = deflateInChunks(source, size, level, threads, sink);
  std::vector<unsigned char>().swap(data);
  expectEnd(reader, size);
  crc = result.crc;
  crcKnown = true;
  deflated = true;
  compressedSize = written;
  plan = direct ? Plan::Direct : Plan::Spool;
}

namespace {

struct SourceState {
  WriterItem* item;
  ItemSourceOwner* owner;
};

void statItem(WriterItem& item, zip_stat_t& stat) {
  zip_stat_init(&stat);
  stat.valid = ZIP_STAT_SIZE | ZIP_STAT_COMP_METHOD;
  if (item.plan == WriterItem::Plan::Raw) {
    stat.size = item.rawEntry.uncompressedSize;
    stat.comp_size = item.rawEntry.compressedSize;
    stat.comp_method =
        item.rawEntry.method == zipformat::kMethodDeflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
    stat.crc = item.rawEntry.crc32;
    stat.valid |= ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC;
    return;
  }
  stat.size = item.size;
  stat.comp_size = item.compressedSize;
  stat.valid |= ZIP_STAT_COMP_SIZE;
  stat.comp_method = item.deflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
  if (item.crcKnown) {
    stat.crc = item.crc;
    stat.valid |= ZIP_STAT_CRC;
  }
}

// Gives libzip up to `length` bytes of the item's stored data.
std::size_t readItem(WriterItem& item, unsigned char* out, std::size_t length) {
  std::uint64_t const total =
      item.plan == WriterItem::Plan::Raw ? item.rawEntry.compressedSize : item.compressedSize;
  if (item.plan == WriterItem::Plan::Memory) {
    std::size_t const n =
        static_cast<std::size_t>(std::min<std::uint64_t>(length, total - item.readPosition));
    if (n > 0) std::memcpy(out, item.data.data() + item.readPosition, n);
    item.readPosition += n;
    return n;
  }
  if (item.stagingBegin == item.stagingEnd) {
    std::uint64_t const left = total - item.readPosition - (item.stagingEnd - item.stagingBegin);
    if (item.readPosition >= total) {
      // An empty stored item: its reader still has to be at its end.
      if (item.plan == WriterItem::Plan::StreamReader && total == 0) expectEnd(item.reader, 0);
      return 0;
    }
    if (item.staging.empty()) item.staging.resize(kStagingSize);
    std::size_t const want =
        static_cast<std::size_t>(std::min<std::uint64_t>(item.staging.size(), left));
    std::size_t got = want;
    if (item.plan == WriterItem::Plan::Raw) {
      item.rawSource->readAt(item.rawEntry.dataOffset + item.readPosition, item.staging.data(),
                             want);
    } else if (item.plan == WriterItem::Plan::Spool) {
      if (!readFully(item.spoolFd, item.readPosition, item.staging.data(), want)) {
        failSystem("could not read a spool file", errno);
      }
    } else {
      // StreamReader: the sample first, then the reader.
      std::size_t fromSample = 0;
      if (item.readPosition < item.data.size()) {
        fromSample = static_cast<std::size_t>(
            std::min<std::uint64_t>(want, item.data.size() - item.readPosition));
        std::memcpy(item.staging.data(), item.data.data() + item.readPosition, fromSample);
      }
      std::size_t const fromReader =
          fill(item.reader, item.staging.data() + fromSample, want - fromSample);
      item.contentRead += fromReader;
      got = fromSample + fromReader;
      if (got < want) failShort(item.readPosition + got, total);
      if (item.readPosition + got == total) expectEnd(item.reader, total);
    }
    item.stagingBegin = 0;
    item.stagingEnd = got;
  }
  std::size_t const n = std::min(length, item.stagingEnd - item.stagingBegin);
  if (n > 0) std::memcpy(out, item.staging.data() + item.stagingBegin, n);
  item.stagingBegin += n;
  item.readPosition += n;
  return n;
}

zip_int64_t itemCallback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
  SourceState& source = *static_cast<SourceState*>(state);
  WriterItem& item = *source.item;
  try {
    switch (command) {
      case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                              -1);
      case ZIP_SOURCE_STAT: {
        if (length < sizeof(zip_stat_t)) return -1;
        source.owner->ensurePrepared(item);
        bool const stored = item.plan != WriterItem::Plan::Raw
                                ? !item.deflated
                                : item.rawEntry.method == zipformat::kMethodStored;
        if (stored && item.compression != interfaces::CompressionType::Stored &&
            item.plan != WriterItem::Plan::Raw) {
          // Decided only now that the content does not shrink: libzip must then store the
          // bytes instead of deflating them itself.  It reads the method after this stat.
          zip_set_file_compression(item.archive, item.index, ZIP_CM_STORE, 0);
        }
        statItem(item, *static_cast<zip_stat_t*>(data));
        return sizeof(zip_stat_t);
      }
      case ZIP_SOURCE_OPEN:
        item.readPosition = 0;
        item.stagingBegin = item.stagingEnd = 0;
        return 0;
      case ZIP_SOURCE_READ:
        return static_cast<zip_int64_t>(
            readItem(item, static_cast<unsigned char*>(data), static_cast<std::size_t>(length)));
      case ZIP_SOURCE_CLOSE:
        source.owner->itemWritten(item);
        return 0;
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&item.zipError, data, length);
      case ZIP_SOURCE_FREE:
        delete &source;
        return 0;
      default:
        zip_error_set(&item.zipError, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  } catch (...) {
    // Nothing may be thrown through libzip's C frames: keep it for commit().
    source.owner->recordFailure(item, std::current_exception());
    zip_error_set(&item.zipError, ZIP_ER_INTERNAL, 0);
    return -1;
  }
}

}  // namespace

zip_source_t* makeItemSource(WriterItem& item, ItemSourceOwner& owner) {
  SourceState* state = new SourceState{&item, &owner};
  zip_source_t* source = zip_source_function_create(&itemCallback, state, nullptr);
  if (source == nullptr) delete state;
  return source;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
