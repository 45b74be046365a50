#include <cerrno>
#include <exception>
#include <memory>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace {

constexpr std::size_t kBlockSize = 64 * 1024;
// Most copies are of small contents, taken whole by a first block on the stack: a heap block
// per copy costs more than a small copy itself, since an allocation this large makes the
// allocator sort all its free small blocks first.
constexpr std::size_t kStackBlockSize = 16 * 1024;

// A transform may turn a chunk of its input into nothing, so a read that gives no byte
// before the end is progress, not failure.  A stream that does nothing else for this many
// reads in a row is stuck, and looping on would never end.
constexpr std::size_t kMaxEmptyReadsInARow = 1 << 16;

// Closes the input when the copy ends by an exception; the copy's own failure is the one
// the caller must see, so a failing close is swallowed here.
class CloseGuard {
 public:
  explicit CloseGuard(InputStream& input) : input_(input) {}
  ~CloseGuard() {
    if (!armed_) return;
    try {
      input_.close();
    } catch (...) {
    }
  }
  CloseGuard(CloseGuard const&) = delete;
  CloseGuard& operator=(CloseGuard const&) = delete;

  // Closes now, letting a failure of the close raise.
  void close() {
    armed_ = false;
    input_.close();
  }

 private:
  InputStream& input_;
  bool armed_ = true;
};

}  // namespace

bool StreamHelper::copyStreamToStream(InputStream& input, OutputStream& output) {
  input.open();
  CloseGuard guard(input);
  // Not zeroed: only what a read gave is ever written on.
  unsigned char stackBlock[kStackBlockSize];
  std::unique_ptr<unsigned char[]> heapBlock;
  unsigned char* block = stackBlock;
  std::size_t blockSize = kStackBlockSize;
  std::size_t emptyReads = 0;
  while (!input.isDone()) {
    std::size_t count = input.read(block, blockSize);
    if (count == 0) {
      if (++emptyReads < kMaxEmptyReadsInARow) continue;
      throw Exception("Could not copy stream: the input stream gave no bytes before its end",
                      detail::systemError(EIO));
    }
    emptyReads = 0;
    output.write(block, count);
    // A read that filled the stack block tells of more to come: larger blocks from now on.
    if (!heapBlock && count == blockSize) {
      heapBlock.reset(new unsigned char[kBlockSize]);
      block = heapBlock.get();
      blockSize = kBlockSize;
    }
  }
  output.flush();
  guard.close();
  return true;
}

bool StreamHelper::copyStreamToStream(InputStream& input, std::ostream& output) {
  StdOStreamAdaptor adaptor(output);
  return copyStreamToStream(input, adaptor);
}

bool StreamHelper::copyStreamToStream(std::istream& input, OutputStream& output) {
  StdIStreamAdaptor adaptor(input);
  return copyStreamToStream(adaptor, output);
}

}  // namespace opc
