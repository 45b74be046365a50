// Adaptors between the byte streams of the opc libraries and those of the XML library.
// Internal to libopcmodel_xml: nothing here is exported.
#ifndef OPC_MODEL_XML_STREAM_ADAPTORS_H_
#define OPC_MODEL_XML_STREAM_ADAPTORS_H_

#include <exception>
#include <string>

#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/util/BinInputStream.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>

namespace opc {
namespace model {
namespace detail {

// Holds the first exception that one of our streams raised inside the XML library.  The
// library is not written to let foreign exceptions pass through it, so the adaptors catch
// them, make the library see an end of input (or drop further output), and the operation
// raises the kept exception, unchanged, once the library has returned.
class StreamFailure {
 public:
  void capture() noexcept;
  void rethrowIfAny() const;
  bool failed() const noexcept;

 private:
  std::exception_ptr error_;
};

// Closes an opened stream when a read fails, dropping a failure to close then, since the
// failure of the read is the one to report; on success the stream is closed in the open with
// closeNow().
class CloseOnFailure {
 public:
  explicit CloseOnFailure(opc::InputStream& stream) : stream_(&stream) {}
  CloseOnFailure(CloseOnFailure const&) = delete;
  CloseOnFailure& operator=(CloseOnFailure const&) = delete;
  ~CloseOnFailure();
  void closeNow();

 private:
  opc::InputStream* stream_;
};

// Gives the bytes of an opc::InputStream to the parser as they are asked for, so that a
// document is never copied into memory as a whole.  The stream must already be open; it
// stays open and belongs to the caller.  The parser asks for the stream once per parse.
class InputStreamSource : public xercesc::InputSource {
 public:
  InputStreamSource(opc::InputStream& stream, StreamFailure& failure,
                    std::u16string const& systemId);
  ~InputStreamSource() override;
  xercesc::BinInputStream* makeStream() const override;

 private:
  opc::InputStream& stream_;
  StreamFailure& failure_;
};

// Passes what a serializer writes on to an opc::OutputStream, which belongs to the caller.
class OutputStreamTarget : public xercesc::XMLFormatTarget {
 public:
  OutputStreamTarget(opc::OutputStream& stream, StreamFailure& failure);
  ~OutputStreamTarget() override;
  void writeChars(XMLByte const* const bytes, XMLSize_t const count,
                  xercesc::XMLFormatter* const formatter) override;
  void flush() override;

 private:
  opc::OutputStream& stream_;
  StreamFailure& failure_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_STREAM_ADAPTORS_H_
