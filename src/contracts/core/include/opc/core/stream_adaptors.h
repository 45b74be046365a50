// Adaptors between opc streams and std streams or byte vectors.
#ifndef OPC_CORE_STREAM_ADAPTORS_H_
#define OPC_CORE_STREAM_ADAPTORS_H_

#include <cstddef>
#include <istream>
#include <ostream>
#include <vector>

#include <opc/core/export.h>
#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>

namespace opc {

// An InputStream that reads a std::istream from where it stands.
//
// The std::istream is not owned and must outlive the adaptor.  `open()` and `close()` do
// nothing to it.  The end of the stream is no failure; a stream that fails (badbit, or
// failbit without the end, also through an exception that its mask asks for) makes `read()`
// and `isDone()` raise opc::Exception with "Could not read from the input stream" and code
// io_error.  `isDone()` looks ahead one character (peek), so it is exact before any read.
class OPC_CORE_EXPORT StdIStreamAdaptor : public InputStream {
 public:
  explicit StdIStreamAdaptor(std::istream& stream);
  ~StdIStreamAdaptor() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  std::istream& stream_;
};

// An OutputStream that writes to a std::ostream.
//
// The std::ostream is not owned and must outlive the adaptor; `close()` flushes it and does
// not close it.  A stream that fails makes `write()`, `flush()` and `close()` raise
// opc::Exception with "Could not write to the output stream" and code io_error.
class OPC_CORE_EXPORT StdOStreamAdaptor : public OutputStream {
 public:
  explicit StdOStreamAdaptor(std::ostream& stream);
  ~StdOStreamAdaptor() override;

  void write(unsigned char const* buffer, std::size_t count) override;
  void flush() override;
  void close() override;

 private:
  std::ostream& stream_;
};

// An InputStream over a byte vector, from its first byte.
//
// The vector is not copied: it must outlive the adaptor and not shrink while it is read.
// `open()` and `close()` do nothing.  Never raises.
class OPC_CORE_EXPORT ByteArrayInAdaptor : public InputStream {
 public:
  explicit ByteArrayInAdaptor(std::vector<unsigned char> const& bytes);
  ~ByteArrayInAdaptor() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  std::vector<unsigned char> const& bytes_;
  std::size_t position_ = 0;
};

// An OutputStream that appends to a byte vector, which stays the caller's and must outlive
// the adaptor.  Bytes are in the vector as soon as `write()` returns; `flush()` and `close()`
// do nothing.  Raises nothing but std::bad_alloc.
class OPC_CORE_EXPORT ByteArrayOutAdaptor : public OutputStream {
 public:
  explicit ByteArrayOutAdaptor(std::vector<unsigned char>& bytes);
  ~ByteArrayOutAdaptor() override;

  void write(unsigned char const* buffer, std::size_t count) override;
  void flush() override;
  void close() override;

 private:
  std::vector<unsigned char>& bytes_;
};

}  // namespace opc

#endif  // OPC_CORE_STREAM_ADAPTORS_H_
