// Small documents written and read without the XML parser.
//
// The library's small documents (core properties and the like) are a handful of elements with
// short texts.  Loading the parser costs a command more than everything else it does, so the
// common forms of these documents are written and read here, by code that vouches for exactly
// what the parser's road would give, and gives up on anything else: the parser's road then
// does the work, with its own outcome, errors and messages.
//
// Internal to the project's libraries; not installed.
#ifndef OPC_MODEL_XML_ENGINE_PLAIN_XML_H_
#define OPC_MODEL_XML_ENGINE_PLAIN_XML_H_

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/export.h>

#include "xml_engine.h"

namespace opc {
namespace model {
namespace detail {

// The bytes that XmlEngine::write would give for `root` (standalone as asked), appended to
// `out`: true if this writer can vouch for them, false (with `out` in an unspecified state)
// for anything it cannot.  What it takes: standalone documents; element names of ASCII
// letters, digits, "_", "-" and "." with at most one prefix, each element either empty,
// with text only or with child elements only; attributes without namespace, xml:lang, and
// prefixed attributes whose prefix is declared where they stand (xmlns:p declarations
// included, for prefixes not yet declared); texts and values of characters that XML
// carries, without tab, line feed, carriage return, the C1 controls or U+2028, and texts
// not made of spaces only.  Never throws but std::bad_alloc.
OPC_MODEL_EXPORT bool writePlainXml(XmlNode const& root, bool standalone, std::string& out);

// Writes `root` as XmlEngine::write does, with the same bytes, flushes and failures: through
// writePlainXml when it takes the document (one write, then a flush), through the engine,
// which loads the XML library, otherwise.
OPC_MODEL_EXPORT void writeXmlDocument(XmlNode const& root, bool standalone,
                                       opc::OutputStream& stream);

// Reads the document in `data` (`size` bytes) strictly into `root`: true if the reader can
// vouch that XmlTreeReader::read without validation gives this very tree (the same elements,
// names, namespaces, attributes in the same order, declarations, texts and tails); false
// when it cannot tell, for the caller to leave the document to the parser.  What it takes:
// UTF-8 without a byte order mark; an optional XML declaration (version 1.0, encoding UTF-8,
// standalone yes or no); elements and attributes with ASCII names, prefixes declared; text
// with the predefined entities and character references.  Comments, processing
// instructions, a document type, CDATA, a carriage return, a raw tab or line feed in an
// attribute value, and documents deeper than 32 levels make it give up.  Never throws but
// std::bad_alloc.
OPC_MODEL_EXPORT bool readPlainXml(unsigned char const* data, std::size_t size, XmlNode& root);

// A stream read ahead in full, so that the plain reader can try its bytes and, if it gives
// up, the parser reads exactly what it would have read from the stream itself.
//
// The constructor opens the stream and reads it to its end or past `limit` bytes, keeping
// any failure of the stream for later.  `complete()` tells whether it holds the whole
// content within the limit.  `close()` closes the stream after a plain read, and what the
// close raises passes through.  `replay()` is a stream for the parser: its open does what
// the stream's open did (its failure included), its reads give the bytes read ahead and then
// go on with the stream, raising the kept failure where the stream raised it, and its close
// closes the stream.  Use one or the other.  Not copyable; used by one thread.
class OPC_MODEL_EXPORT ReadAhead {
 public:
  ReadAhead(opc::InputStream& stream, std::size_t limit);
  ReadAhead(ReadAhead const&) = delete;
  ReadAhead& operator=(ReadAhead const&) = delete;
  ~ReadAhead();

  bool complete() const { return failure_ == nullptr && !over_; }
  std::vector<unsigned char> const& bytes() const { return bytes_; }
  void close();
  opc::InputStream& replay();

 private:
  class Replay;

  opc::InputStream& stream_;
  std::vector<unsigned char> bytes_;
  std::exception_ptr failure_;
  bool opened_ = false;
  bool over_ = false;
  std::unique_ptr<Replay> replay_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_ENGINE_PLAIN_XML_H_
