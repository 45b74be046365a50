// The chunk pipeline: the caller's thread reads chunks in order and writes their results in
// order; helper threads compress, and so does the caller whenever the oldest chunk is not done
// yet, so that every thread asked for keeps a core busy.
#include "chunked_deflate.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <libdeflate.h>

#include <opc/core/exception.h>

#include "deflate_join.h"

namespace opc {
namespace model {
namespace detail {
namespace {

[[noreturn]] void fail(std::string const& problem) {
  throw opc::Exception(problem, boost::system::error_code());
}

struct Chunk {
  std::vector<unsigned char> input;
  std::size_t size = 0;
  bool last = false;
  std::vector<unsigned char> output;
  enum class State { Queued, Running, Done } state = State::Queued;
  std::exception_ptr error;
};

// Compresses one chunk into a piece of the joined stream: the last chunk keeps its final
// block, the others end open on a byte boundary.
void compress(Chunk& chunk, int level) {
  libdeflate_compressor* compressor = compressorFor(level);
  std::size_t const bound = libdeflate_deflate_compress_bound(compressor, chunk.size);
  chunk.output.resize(bound);
  std::size_t const produced = libdeflate_deflate_compress(compressor, chunk.input.data(),
                                                           chunk.size, chunk.output.data(), bound);
  chunk.output.resize(produced);
  if (produced > 0 && (chunk.last || makeDeflatePiece(chunk.output))) return;
  // libdeflate always fits within its bound and its streams always parse; this keeps the
  // result valid should either ever fail: the chunk is stored as it is.
  chunk.output.clear();
  appendStoredPiece(chunk.input.data(), chunk.size, chunk.output);
  if (chunk.last) {
    unsigned char const finalBlock[5] = {0x01, 0x00, 0x00, 0xFF, 0xFF};
    chunk.output.insert(chunk.output.end(), finalBlock, finalBlock + 5);
  }
}

class Pipeline {
 public:
  Pipeline(int level, unsigned helpers) : level_(level) {
    for (unsigned i = 0; i < helpers; ++i) helpers_.emplace_back([this] { help(); });
  }
  ~Pipeline() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    queued_.notify_all();
    for (std::thread& helper : helpers_) helper.join();
  }
  Pipeline(Pipeline const&) = delete;
  Pipeline& operator=(Pipeline const&) = delete;

  void submit(Chunk& chunk) {
    if (helpers_.empty()) {
      run(chunk);
      return;
    }
    {
      std::lock_guard<std::mutex> lock(mutex_);
      chunk.state = Chunk::State::Queued;
      queue_.push_back(&chunk);
    }
    queued_.notify_one();
  }

  // Returns when `chunk` is compressed, compressing queued chunks meanwhile.
  void await(Chunk& chunk) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (chunk.state != Chunk::State::Done) {
      if (!queue_.empty()) {
        Chunk* next = queue_.front();
        queue_.pop_front();
        next->state = Chunk::State::Running;
        lock.unlock();
        run(*next);
        lock.lock();
        next->state = Chunk::State::Done;
        done_.notify_all();
        continue;
      }
      done_.wait(lock);
    }
    if (chunk.error) std::rethrow_exception(chunk.error);
  }

 private:
  void run(Chunk& chunk) {
    try {
      compress(chunk, level_);
    } catch (...) {
      chunk.error = std::current_exception();
    }
    if (helpers_.empty()) chunk.state = Chunk::State::Done;
  }

  void help() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      queued_.wait(lock, [this] { return stop_ || !queue_.empty(); });
      if (stop_) return;
      Chunk* chunk = queue_.front();
      queue_.pop_front();
      chunk->state = Chunk::State::Running;
      lock.unlock();
      run(*chunk);
      lock.lock();
      chunk->state = Chunk::State::Done;
      done_.notify_all();
    }
  }

  int level_;
  std::mutex mutex_;
  std::condition_variable queued_;
  std::condition_variable done_;
  std::deque<Chunk*> queue_;
  bool stop_ = false;
  std::vector<std::thread> helpers_;
};

std::size_t fill(ChunkSource const& source, unsigned char* buffer, std::size_t count) {
  std::size_t total = 0;
  while (total < count) {
    std::size_t const n = source(buffer + total, count - total);
    if (n == 0) break;
    if (n > count - total) fail("its reader claims more bytes than it was asked for");
    total += n;
  }
  return total;
}

}  // namespace

unsigned deflateThreadsFor(unsigned asked) {
  unsigned const count = asked == 0 ? std::thread::hardware_concurrency() : asked;
  return std::min(std::max(count, 1u), 16u);
}

libdeflate_compressor* compressorFor(int level) {
  struct Cache {
    libdeflate_compressor* byLevel[13] = {};
    ~Cache() {
      for (libdeflate_compressor* c : byLevel) {
        if (c != nullptr) libdeflate_free_compressor(c);
      }
    }
  };
  thread_local Cache cache;
  if (cache.byLevel[level] == nullptr) {
    cache.byLevel[level] = libdeflate_alloc_compressor(level);
    if (cache.byLevel[level] == nullptr) fail("the compressor could not be created");
  }
  return cache.byLevel[level];
}

ChunkedDeflateResult deflateInChunks(ChunkSource const& source, std::uint64_t size, int level,
                                     unsigned threads, ChunkSink const& sink,
                                     std::size_t chunkSize) {
  ChunkedDeflateResult result;
  if (size == 0) {
    // One empty final block: still a stream.
    unsigned char const empty[2] = {0x03, 0x00};
    sink(empty, sizeof empty);
    result.compressedSize = sizeof empty;
    return result;
  }
  threads = std::max(threads, 1u);
  std::size_t const inFlightLimit = threads == 1 ? 1 : threads + 2;
  // Chunks are declared before the pipeline so that its threads are joined before they go.
  std::deque<std::unique_ptr<Chunk>> inFlight;
  std::vector<std::unique_ptr<Chunk>> spare;
  Pipeline pipeline(level, threads - 1);
  std::uint64_t read = 0;
  std::uint32_t crc = 0;
  while (read < size || !inFlight.empty()) {
    while (read < size && inFlight.size() < inFlightLimit) {
      std::unique_ptr<Chunk> chunk;
      if (spare.empty()) {
        chunk = std::make_unique<Chunk>();
      } else {
        chunk = std::move(spare.back());
        spare.pop_back();
      }
      std::size_t const want =
          static_cast<std::size_t>(std::min<std::uint64_t>(chunkSize, size - read));
      chunk->input.resize(want);
      std::size_t const got = fill(source, chunk->input.data(), want);
      if (got < want) {
        fail("its content ends after " + std::to_string(read + got) + " bytes, before the " +
             std::to_string(size) + " declared");
      }
      crc = libdeflate_crc32(crc, chunk->input.data(), got);
      read += got;
      chunk->size = got;
      chunk->last = read == size;
      chunk->error = nullptr;
      inFlight.push_back(std::move(chunk));
      pipeline.submit(*inFlight.back());
    }
    Chunk& oldest = *inFlight.front();
    pipeline.await(oldest);
    sink(oldest.output.data(), oldest.output.size());
    result.compressedSize += oldest.output.size();
    spare.push_back(std::move(inFlight.front()));
    inFlight.pop_front();
  }
  result.crc = crc;
  return result;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
