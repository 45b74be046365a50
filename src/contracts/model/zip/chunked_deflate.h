// Deflating large content on several threads: the content is cut into chunks, each chunk is
// compressed on its own (by libdeflate, which is fast but keeps no state between calls), and
// the compressed chunks are joined into one raw deflate stream.  Each chunk starts without
// the previous chunk's 32 KiB window, which costs well under a percent of the output at
// 1 MiB chunks.
#ifndef OPC_MODEL_ZIP_CHUNKED_DEFLATE_H_
#define OPC_MODEL_ZIP_CHUNKED_DEFLATE_H_

#include <cstddef>
#include <cstdint>
#include <functional>

#include <opc/model/export.h>

struct libdeflate_compressor;

namespace opc {
namespace model {
namespace detail {

constexpr std::size_t kDeflateChunkSize = std::size_t{1} << 20;

// The level of metadata parts (compression type 1) where content deflates at libdeflate's level
// 6; the archive written while a new package's parts are made deflates content at 4 and
// metadata at 5 (see eager_archive.cc).  Metadata is XML read far more often than written, so
// it gets a level above that of content; but libdeflate's levels
// 8 and 9 search for the optimal parse, which on a manifest of 100,000 files (16 MB of XML)
// takes seven times as long as its level 7 for a result no smaller (2,471,348 against
// 2,467,666 bytes), and that time is all spent at the end of a save.
constexpr int kMetadataDeflateLevel = 7;

// Content of at most this many bytes deflates at libdeflate's level 1: on a few KiB most of
// the time of a higher level goes into making ready its match finder, and level 1 has the
// smallest.  On 100,000 files of about 1 KiB it takes 30% less time than level 4 for 0.25%
// more bytes.
constexpr std::uint64_t kSmallContentSize = 4096;
constexpr int kSmallContentDeflateLevel = 1;

// How many threads an archive writer deflates on when asked for `asked` (0: one per core):
// at least one, and at most 16, beyond which the file's single writer is the limit.
// Exported for the ZIP writer library.
OPC_MODEL_EXPORT unsigned deflateThreadsFor(unsigned asked);

// The calling thread's libdeflate compressor for `level` (1..12), made on first use and
// kept for the thread's life: making one costs more than compressing a small item.  Throws
// opc::Exception if it cannot be made.
libdeflate_compressor* compressorFor(int level);

struct ChunkedDeflateResult {
  std::uint32_t crc = 0;             // CRC-32 of the content
  std::uint64_t compressedSize = 0;  // bytes given to the sink
};

// Fills the buffer with the next bytes of the content; returns how many, 0 only at its end.
using ChunkSource = std::function<std::size_t(unsigned char* buffer, std::size_t count)>;
// Takes the next bytes of the deflate stream.
using ChunkSink = std::function<void(unsigned char const* data, std::size_t count)>;

// Deflates exactly `size` bytes of `source` at `level` and hands `sink` one raw deflate
// stream, in order.  `threads` compress at once (the caller's thread among them; 1 starts no
// thread); at most threads + 2 chunks are held at any time.  `source` and `sink` are called
// on the caller's thread only.  A source that ends early throws opc::Exception ("its content
// ends after N bytes, before the M declared"); whatever the source or the sink throws comes
// through once every started thread has been joined.  Reading past `size` is the caller's
// affair.
OPC_MODEL_EXPORT ChunkedDeflateResult deflateInChunks(ChunkSource const& source, std::uint64_t size,
                                                      int level, unsigned threads,
                                                      ChunkSink const& sink,
                                                      std::size_t chunkSize = kDeflateChunkSize);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_CHUNKED_DEFLATE_H_
