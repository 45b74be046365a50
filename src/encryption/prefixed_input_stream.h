// PrefixedInputStream: bytes already read from a stream, then the rest of that stream.
#ifndef SRC_ENCRYPTION_PREFIXED_INPUT_STREAM_H_
#define SRC_ENCRYPTION_PREFIXED_INPUT_STREAM_H_

#include <cstddef>

#include <opc/core/input_stream.h>
#include <opc/vkservices/bytes.h>

namespace opc {
namespace vkservices {
namespace detail {

// Delivers `prefix` from `offset` on, then whatever `rest` still gives.  open() and close()
// pass to `rest`, which is not owned and must outlive this stream.
class PrefixedInputStream : public opc::InputStream {
 public:
  PrefixedInputStream(bytes prefix, std::size_t offset, opc::InputStream& rest);
  ~PrefixedInputStream() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  bytes prefix_;
  std::size_t offset_;
  opc::InputStream& rest_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_PREFIXED_INPUT_STREAM_H_
