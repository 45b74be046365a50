// opc::OutputStream: the abstract byte sink of the opc libraries.
#ifndef OPC_CORE_OUTPUT_STREAM_H_
#define OPC_CORE_OUTPUT_STREAM_H_

#include <cstddef>

#include <opc/core/export.h>

namespace opc {

// A sequence of bytes written front to back.
//
// `write()` takes every byte it is given or throws a subclass of opc::Exception; `flush()`
// pushes buffered bytes to the destination; `close()` ends writing and reports any failure
// that only shows at the end.  A stream is used by one thread at a time.  As with
// InputStream, owners keep the concrete type and the destructor is protected.
class OPC_CORE_EXPORT OutputStream {
 public:
  OutputStream(OutputStream const&) = delete;
  OutputStream& operator=(OutputStream const&) = delete;

  virtual void write(unsigned char const* buffer, std::size_t count) = 0;
  virtual void flush() = 0;
  virtual void close() = 0;

 protected:
  OutputStream() = default;
  virtual ~OutputStream();
};

}  // namespace opc

#endif  // OPC_CORE_OUTPUT_STREAM_H_
