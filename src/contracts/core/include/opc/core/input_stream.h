// opc::InputStream: the abstract byte source of the opc libraries.
#ifndef OPC_CORE_INPUT_STREAM_H_
#define OPC_CORE_INPUT_STREAM_H_

#include <cstddef>

#include <opc/core/export.h>

namespace opc {

// A sequence of bytes read front to back.
//
// Protocol: `open()`, then `read()` until `isDone()` is true, then `close()`.  A stream is
// used by one thread at a time.  Owners keep the concrete type: the destructor is protected,
// so that nobody deletes a stream through this interface that it does not own.
//
// Failures are reported by throwing a subclass of opc::Exception.
class OPC_CORE_EXPORT InputStream {
 public:
  InputStream(InputStream const&) = delete;
  InputStream& operator=(InputStream const&) = delete;

  // Prepares reading.  Streams that wrap another stream pass it on to their source.
  virtual void open() = 0;

  // Copies up to `count` bytes into `buffer` and returns how many it copied.  A stream that
  // transforms its input may return 0 before its end, when a piece of input gave no output;
  // readers loop until `isDone()` is true.
  virtual std::size_t read(unsigned char* buffer, std::size_t count) = 0;

  // True when no byte is left to read.
  virtual bool isDone() const = 0;

  // Ends reading and releases what `open()` acquired.  Calling it twice is harmless.
  virtual void close() = 0;

 protected:
  InputStream() = default;
  virtual ~InputStream();
};

}  // namespace opc

#endif  // OPC_CORE_INPUT_STREAM_H_
