// XmlStreamReader: reads a document element by element, validated against cached grammars,
// without building it in memory.
#ifndef OPC_MODEL_XML_XML_STREAM_READER_H_
#define OPC_MODEL_XML_XML_STREAM_READER_H_

#include <memory>
#include <string>

#include <opc/core/input_stream.h>
#include <opc/model/export.h>
#include <opc/model/xml/xml_stream_handler.h>

namespace opc {
namespace model {

// A reader for documents too large to hold as a tree: each element is handed to an
// XmlStreamHandler as soon as the parser has read and validated its start tag, and nothing
// of it is kept afterwards, so that memory does not grow with the document.
//
// It runs the same parser, with the same protections, as XercesHelper::createParser: a
// document type declaration is a fatal error (no DTD and no entity is ever read), no external
// resource is ever resolved, schema locations named in a document are ignored, only grammars
// loaded with loadGrammar are used, and documents nested deeper than 256 elements are
// refused.  Every document is validated against the cached grammar of its namespace.  Error
// messages are those of XercesHelper::readDocumentFromStream: "XML error at line L, column
// C: <the parser's text>".
//
// The reader keeps the XML library initialised for as long as it lives.  One reader serves
// one thread at a time; it may read any number of documents in turn.
class OPC_MODEL_EXPORT XmlStreamReader {
 public:
  // Raises opc::Exception if the XML library cannot be initialised.
  XmlStreamReader();
  XmlStreamReader(XmlStreamReader const&) = delete;
  XmlStreamReader& operator=(XmlStreamReader const&) = delete;
  ~XmlStreamReader();

  // Compiles an XML schema from its text and caches it, so that documents of its target
  // namespace are validated against it.  `systemId` names the schema in messages; anything
  // the schema includes or imports by location is refused.  Raises InvalidXMLDocument if the
  // text is not a valid schema.  The text is not needed after the call.
  void loadGrammar(std::string const& schemaText, std::u16string const& systemId);

  // Opens `stream`, reads the document to its end, passing each element to `handler`, and
  // closes the stream.
  //
  // The document is always read and checked whole before a refusal of the handler is
  // reported, so that a document that is not well-formed or not valid fails in the same way
  // however far the handler got:
  //  - an exception of the stream passes through unchanged, whatever else happened;
  //  - otherwise, a document that is not well-formed, not valid, has a document type
  //    declaration or is too deep raises InvalidXMLDocument with the parser's text;
  //  - otherwise, the first exception that the handler threw is raised unchanged.  Once the
  //    handler has thrown, it is called no more.
  // The handler may have been called for elements before the one that failed.  The stream is
  // closed in every case; a failure to close after a failed read is not reported.
  void read(opc::InputStream& stream, XmlStreamHandler& handler);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XML_STREAM_READER_H_
