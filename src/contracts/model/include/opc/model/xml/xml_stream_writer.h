// XmlStreamWriter: writes a document element by element, without building it in memory.
#ifndef OPC_MODEL_XML_XML_STREAM_WRITER_H_
#define OPC_MODEL_XML_XML_STREAM_WRITER_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <opc/core/output_stream.h>
#include <opc/model/export.h>

namespace opc {
namespace model {

// Writes a standalone UTF-8 document of elements and attributes (no text) straight to a
// stream, in the layout of XercesHelper::createPrettyPrintingWriter, byte for byte: the
// declaration <?xml version="1.0" encoding="UTF-8" standalone="yes" ?>, one element a line,
// indented by two blanks a level, an element without children as <name .../>, a line break
// at the end; the default namespace declared (xmlns="...") on every element whose namespace
// differs from its parent's, before its attributes; attributes in the order of their names
// (UTF-16 code units); in values &, <, " and the line breaks and tab escaped as &amp; &lt;
// &quot; &#xA; &#xD; &#x9;.
//
// A text that XML 1.0 cannot hold (a control character other than tab and line breaks, a
// NUL, an unpaired surrogate, U+FFFE or U+FFFF) raises InvalidXMLDocument "XML error:
// invalid or illegal XML character"; so does a name that is not a valid XML name.  Calls out
// of order (an attribute after a child, an end without a start, a second document element,
// the end of a document with elements still open) raise InvalidXMLDocument naming the
// mistake.  Exceptions of the stream pass through unchanged.  After any failure the writer
// is of no further use; what it had passed to the stream stays written.
//
// Output is buffered and handed to the stream in pieces of about 64 KiB; endDocument()
// writes the rest and flushes the stream, which is never closed.  A writer serves one
// document on one thread; the stream must outlive it.  Destroying a writer before
// endDocument() writes nothing more.
class OPC_MODEL_EXPORT XmlStreamWriter {
 public:
  explicit XmlStreamWriter(opc::OutputStream& target);
  XmlStreamWriter(XmlStreamWriter const&) = delete;
  XmlStreamWriter& operator=(XmlStreamWriter const&) = delete;
  ~XmlStreamWriter();

  // Writes the XML declaration.  Call once, first.
  void startDocument();

  // Starts an element of that local name in `namespaceURI` (empty: no namespace), as the
  // document element or as the last child of the element open now.
  void startElement(std::u16string_view namespaceURI, std::u16string_view name);

  // Sets an attribute (no namespace) of the element just started, before any child of it.
  // Setting a name twice keeps the last value.
  void attribute(std::u16string_view name, std::u16string_view value);

  // Ends the element open now.
  void endElement();

  // Checks that the document element has ended, writes what is buffered, flushes the stream.
  void endDocument();

 private:
  struct Attribute {
    std::size_t nameBegin;
    std::size_t nameEnd;
    std::size_t valueBegin;
    std::size_t valueEnd;
  };
  struct Open {
    std::u16string name;
    std::u16string namespaceURI;
  };

  void closeStartTag(bool hasChildren);
  void lineBreak(std::size_t depth);
  void flushIfFull();

  opc::OutputStream& target_;
  std::string out_;
  // The elements open now are the first depth_ of open_.
  std::vector<Open> open_;
  std::size_t depth_;
  // The element started last still takes attributes: its start tag is not written yet.
  bool startTagPending_;
  bool documentStarted_;
  bool documentElementEnded_;
  // Attributes of the pending start tag: their names, and their values already escaped and
  // encoded, each in one buffer reused from element to element.
  std::vector<Attribute> attributes_;
  std::u16string attributeNames_;
  std::string attributeValues_;
  // The order in which the attributes are written, by name, and the names and places it was
  // sorted for (see closeStartTag).
  std::vector<std::size_t> order_;
  std::u16string orderedNames_;
  std::vector<std::pair<std::size_t, std::size_t>> orderedPlaces_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XML_STREAM_WRITER_H_
