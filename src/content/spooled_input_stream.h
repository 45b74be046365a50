// The stream of a text that a TextSpool kept: its bytes in memory, then those in a file.
#ifndef SRC_CONTENT_SPOOLED_INPUT_STREAM_H_
#define SRC_CONTENT_SPOOLED_INPUT_STREAM_H_

#include <cstddef>
#include <cstdint>
#include <memory>

#include <opc/core/input_stream.h>
#include <opc/core/unnamed_temporary_file.h>
#include <opc/vkservices/bytes.h>

namespace opc {
namespace vkservices {
namespace detail {

// Reads `head`, then `rest` (which may be null), from the first byte, as a ByteArrayInAdaptor
// reads a vector: `open()` and `close()` do nothing, and the position stays where it is.  Owns
// both.  Raises what UnnamedTemporaryFile::readAt raises.
class SpooledInputStream : public opc::InputStream {
 public:
  SpooledInputStream(bytes head, std::unique_ptr<opc::UnnamedTemporaryFile> rest);
  ~SpooledInputStream() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  bytes head_;
  std::unique_ptr<opc::UnnamedTemporaryFile> rest_;
  std::uint64_t size_;
  std::uint64_t position_ = 0;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_CONTENT_SPOOLED_INPUT_STREAM_H_
