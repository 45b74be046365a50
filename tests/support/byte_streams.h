// Byte streams over memory for tests: what is written can be read back, and failures of a
// stream can be injected.
#ifndef TESTS_SUPPORT_BYTE_STREAMS_H_
#define TESTS_SUPPORT_BYTE_STREAMS_H_

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>

#include <opc/core/exception.h>
#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>

namespace opcvk_test {

// Reads a copy of the given bytes, at most `chunk` bytes per read() call, and counts the
// calls of the protocol.  With `failAfter` set, a read() that would go past that many bytes
// throws opc::Exception "injected read failure" instead.
class MemoryInputStream : public opc::InputStream {
 public:
  explicit MemoryInputStream(std::string bytes,
                             std::size_t chunk = std::numeric_limits<std::size_t>::max())
      : bytes_(std::move(bytes)), chunk_(chunk) {}
  ~MemoryInputStream() override = default;

  void failAfter(std::size_t count) { failAfter_ = count; }

  void open() override { ++opens; }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const n = std::min({count, chunk_, bytes_.size() - position_});
    if (position_ + n > failAfter_) {
      throw opc::Exception("injected read failure", boost::system::error_code());
    }
    std::copy_n(bytes_.data() + position_, n, buffer);
    position_ += n;
    ++reads;
    return n;
  }
  bool isDone() const override { return position_ == bytes_.size(); }
  void close() override { ++closes; }

  std::size_t position() const { return position_; }

  int opens = 0;
  int closes = 0;
  int reads = 0;

 private:
  std::string bytes_;
  std::size_t chunk_;
  std::size_t position_ = 0;
  std::size_t failAfter_ = std::numeric_limits<std::size_t>::max();
};

// Appends everything written to `bytes`.  With `failAfter` set, a write() that would go past
// that many bytes throws opc::Exception "injected write failure" and keeps nothing of it.
class MemoryOutputStream : public opc::OutputStream {
 public:
  MemoryOutputStream() = default;
  ~MemoryOutputStream() override = default;

  void failAfter(std::size_t count) { failAfter_ = count; }

  void write(unsigned char const* buffer, std::size_t count) override {
    if (bytes.size() + count > failAfter_) {
      throw opc::Exception("injected write failure", boost::system::error_code());
    }
    bytes.append(reinterpret_cast<char const*>(buffer), count);
  }
  void flush() override { ++flushes; }
  void close() override { ++closes; }

  std::string bytes;
  int flushes = 0;
  int closes = 0;

 private:
  std::size_t failAfter_ = std::numeric_limits<std::size_t>::max();
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_BYTE_STREAMS_H_
