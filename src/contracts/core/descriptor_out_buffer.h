// A std::streambuf that writes to a file descriptor, private to libopccore.
#ifndef OPC_CORE_DESCRIPTOR_OUT_BUFFER_H_
#define OPC_CORE_DESCRIPTOR_OUT_BUFFER_H_

#include <memory>
#include <streambuf>

namespace opc {
namespace detail {

// Writes through a buffer of its own; a write error (ENOSPC, EIO, ...) makes overflow(),
// xsputn() or sync() fail, which a std::ostream turns into badbit, and its errno is kept.
// After a failure the buffered bytes are dropped: the stream is bad from then on.
//
// The buffer is taken on first need.  A block that arrives while nothing is buffered goes
// straight to the descriptor if it is large or, with `firstBlockDirect`, if it is the first:
// then a small file written in one piece (the usual case in an extraction) costs one write(2)
// and no allocation.
//
// The descriptor stays its owner's: nothing is written or closed on destruction, so the owner
// calls `flush` before it closes.
class DescriptorOutBuffer : public std::streambuf {
 public:
  explicit DescriptorOutBuffer(int fd, bool firstBlockDirect = false);
  ~DescriptorOutBuffer() override;
  DescriptorOutBuffer(DescriptorOutBuffer const&) = delete;
  DescriptorOutBuffer& operator=(DescriptorOutBuffer const&) = delete;

  // Writes what is buffered; false if this or any earlier write failed.
  bool flush();
  // The errno of the first failed write, 0 if none failed.
  int error() const { return error_; }
  int descriptor() const { return fd_; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(char const* data, std::streamsize count) override;
  int sync() override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  bool writeAll(char const* data, std::size_t count);
  // Takes the buffer if it is not taken yet.
  void takeBuffer();

  int fd_;
  int error_ = 0;
  bool firstBlockDirect_;
  bool wrote_ = false;
  // Taken on first need and not initialised: a stream per file must not pay for clearing it.
  std::unique_ptr<char[]> buffer_;
};

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_DESCRIPTOR_OUT_BUFFER_H_
