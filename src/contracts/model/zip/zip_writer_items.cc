// Preparing new content and reading out the bytes of items to write.  The writers are handed
// data that is already compressed, with its method, sizes and CRC-32, and copy it as it is:
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

WriterItem::WriterItem() = default;

WriterItem::~WriterItem() { release(); }

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

void WriterItem::rewind() {
  readPosition = 0;
  stagingBegin = stagingEnd = 0;
}

std::size_t WriterItem::readStored(unsigned char* out, std::size_t length) {
  std::uint64_t const total = plan == Plan::Raw ? rawEntry.compressedSize : compressedSize;
  if (plan == Plan::Memory) {
    std::size_t const n =
        static_cast<std::size_t>(std::min<std::uint64_t>(length, total - readPosition));
    if (n > 0) std::memcpy(out, data.data() + readPosition, n);
    readPosition += n;
    return n;
  }
  if (stagingBegin == stagingEnd) {
    std::uint64_t const left = total - readPosition - (stagingEnd - stagingBegin);
    if (readPosition >= total) {
      // An empty stored item: its reader still has to be at its end.
      if (plan == Plan::StreamReader && total == 0) expectEnd(reader, 0);
      return 0;
    }
    if (staging.empty()) staging.resize(kStagingSize);
    std::size_t const want =
        static_cast<std::size_t>(std::min<std::uint64_t>(staging.size(), left));
    std::size_t got = want;
    if (plan == Plan::Raw) {
      rawSource->readAt(rawEntry.dataOffset + readPosition, staging.data(), want);
    } else if (plan == Plan::Spool) {
      if (!readFully(spoolFd, readPosition, staging.data(), want)) {
        failSystem("could not read a spool file", errno);
      }
    } else {
      // StreamReader: the sample first, then the reader.
      std::size_t fromSample = 0;
      if (readPosition < data.size()) {
        fromSample =
            static_cast<std::size_t>(std::min<std::uint64_t>(want, data.size() - readPosition));
        std::memcpy(staging.data(), data.data() + readPosition, fromSample);
      }
      std::size_t const fromReader = fill(reader, staging.data() + fromSample, want - fromSample);
      contentRead += fromReader;
      got = fromSample + fromReader;
      if (got < want) failShort(readPosition + got, total);
      if (readPosition + got == total) expectEnd(reader, total);
    }
    stagingBegin = 0;
    stagingEnd = got;
  }
  std::size_t const n = std::min(length, stagingEnd - stagingBegin);
  if (n > 0) std::memcpy(out, staging.data() + stagingBegin, n);
  stagingBegin += n;
  readPosition += n;
  return n;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
