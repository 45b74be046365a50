// XercesHelper: parsers, documents, serializers and element access over the XML library.
#ifndef OPC_MODEL_XML_XERCES_HELPER_H_
#define OPC_MODEL_XML_XERCES_HELPER_H_

#include <memory>
#include <string>
#include <vector>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMLSParser.hpp>
#include <xercesc/dom/DOMLSSerializer.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/export.h>
#include <opc/model/xml/xerces_deleter.h>
#include <opc/model/xml/xerces_string.h>

namespace opc {
namespace model {

// Every XML document of the library is read, built and written through these operations.
// All need the XML library initialised: keep a XercesGuard alive around their use and around
// every object they return.  Failures of the XML library come out as InvalidXMLDocument,
// whose text names the line and column where the parser gives them; failures of the opc
// streams come out unchanged.  The operations keep no state: a parser, a serializer or a
// document is used by one thread at a time, and different ones by any number of threads.
//
// Element names are matched by local name: getElement(parent, u"entry") finds both
// <entry> and <p:entry>.  getElementNS also matches the namespace; an empty namespace means
// "no namespace".
class OPC_MODEL_EXPORT XercesHelper {
 public:
  XercesHelper() = delete;

  // A DOM parser that is safe on hostile input and validates against grammars that the
  // library loads into it:
  //  - a document type declaration is a fatal error, so no DTD and no entity of one is ever
  //    read, and no external resource (DTD, entity, schema) is ever resolved;
  //  - schema locations named in a document are ignored: only the grammars in the parser's
  //    pool are used, and the pool is locked except inside the parser's own loadGrammar, so a
  //    document can never bring its own grammar;
  //  - parseURI and loadGrammar by system id are refused with InvalidXMLDocument: documents
  //    come from streams, grammars from texts given by the library;
  //  - documents nested deeper than 256 elements are refused.
  // loadGrammar (from a DOMLSInput, schema grammars only) raises InvalidXMLDocument on an
  // invalid schema, whatever error handler is set.  Grammars stay cached until the parser is
  // released; documents belong to the parser until its resetDocumentPool or release.
  static std::unique_ptr<xercesc_3_2::DOMLSParser, XercesDeleter> createParser();

  // Loads an XML schema from its text (UTF-8, or as its XML declaration says) into the
  // parser's grammar cache, where readDocumentFromStream finds it by the document's
  // namespace.  `systemId` names the schema in error messages; anything the schema includes
  // or imports by location is refused, so a schema must stand alone.  Raises
  // InvalidXMLDocument if the text is not a valid schema; callers that carry the schema turn
  // it into InvalidXMLSchema.  The text is not needed after the call.
  static void loadGrammar(xercesc_3_2::DOMLSParser* parser, std::string const& schemaText,
                          std::u16string const& systemId);

  // A new document without any node, owned by the caller.
  static std::unique_ptr<xercesc_3_2::DOMDocument, XercesDeleter> createDocument();

  // A serializer that writes UTF-8 with an XML declaration (standalone="yes" when the
  // document is marked standalone) and indents nested elements.
  static std::unique_ptr<xercesc_3_2::DOMLSSerializer, XercesDeleter> createPrettyPrintingWriter();

  // Opens `stream`, parses it to its end and closes it, and returns the document, which
  // belongs to the parser: it stays valid until the parser's resetDocumentPool or release.
  // The stream is read piece by piece as the parser asks for bytes.
  //
  // With `validate` true the document must be valid against the grammar cached for its
  // namespace; an element that no cached grammar declares, or a document whose namespace has
  // no grammar, fails.  With `validate` false only well-formedness is checked.
  //
  // `systemId`, if not empty, names the document in error messages ("XML error in <id> at
  // line ..."); it is never used to load anything.  `documentNamespace`, if not empty, is
  // the namespace that the document element must have.  Both may be empty.
  //
  // The parser's safety settings (see createParser) are applied to it before the parse, and
  // its error handler is replaced for the duration of the call.  Raises InvalidXMLDocument
  // if the document is not well-formed, is invalid, has a document type declaration, is too
  // deep, or its document element is in another namespace than `documentNamespace`; an
  // exception of the stream passes through unchanged, and the stream is closed either way.
  static xercesc_3_2::DOMDocument* readDocumentFromStream(xercesc_3_2::DOMLSParser* parser,
                                                          opc::InputStream& stream, bool validate,
                                                          std::u16string const& systemId,
                                                          std::u16string const& documentNamespace);

  // Writes the document through the serializer to `stream`, which is flushed but neither
  // opened nor closed.  Raises InvalidXMLDocument if the document cannot be written (for
  // example text with a character that XML 1.0 does not allow); an exception of the stream
  // passes through unchanged.  Bytes written before a failure stay written.
  static void writeDocumentToStream(xercesc_3_2::DOMLSSerializer* const writer,
                                    xercesc_3_2::DOMDocument* const document,
                                    opc::OutputStream& stream);

  // Appends a new element of that namespace (empty: none) and name (which may carry a
  // prefix) as the document element, or as the last child of `parent`, and returns it; the
  // document owns it.  Raises InvalidXMLDocument if the document already has a document
  // element, or the name is not a valid XML name for that namespace.
  static xercesc_3_2::DOMElement* appendElementNS(xercesc_3_2::DOMDocument* document,
                                                  XercesString const& namespaceURI,
                                                  XercesString const& name);
  static xercesc_3_2::DOMElement* appendElementNS(xercesc_3_2::DOMElement* const parent,
                                                  XercesString const& namespaceURI,
                                                  XercesString const& name);

  // The first child element of that local name (in that namespace), in document order.
  // Raises InvalidXMLDocument naming the element if there is none, or if `parent` is null.
  static xercesc_3_2::DOMElement* getElement(xercesc_3_2::DOMElement const* const parent,
                                             XercesString const& name);
  static xercesc_3_2::DOMElement* getElementNS(xercesc_3_2::DOMElement const* const parent,
                                               XercesString const& namespaceURI,
                                               XercesString const& name);

  // The first child element of that local name, in document order, or null if there is
  // none or `parent` is null.  For elements that may be absent: a reader tells "not there"
  // from a failure without catching anything.  Never raises.
  static xercesc_3_2::DOMElement* findElement(xercesc_3_2::DOMElement const* const parent,
                                              XercesString const& name);

  // All child elements of that local name, in document order; empty if there is none or
  // `parent` is null.  Only children are searched, not deeper descendants.
  static std::vector<xercesc_3_2::DOMElement*> getElements(
      xercesc_3_2::DOMElement const* const parent, XercesString const& name);

  // The text directly inside the element (its text and CDATA children joined; text inside
  // child elements is not part of it).  Returns false, leaving `text` alone, if that text is
  // empty or `element` is null, so that getElementText(getElement(...), text) never fails
  // on its own.
  static bool getElementText(xercesc_3_2::DOMElement const* const element, std::u16string& text);

  // Replaces all children of the element by the text; an empty text leaves it empty.
  // Raises InvalidXMLDocument if `element` is null.
  static void setElementText(xercesc_3_2::DOMElement* const element, std::u16string const& text);

  // The value of the attribute of that name.  Returns false, leaving `value` alone, if the
  // element has no such attribute or is null; an attribute that is present but empty gives
  // true and "".
  static bool getElementAttribute(xercesc_3_2::DOMElement const* const element,
                                  XercesString const& name, std::u16string& value);

  // Sets the attribute (no namespace) to the value, replacing any previous value.  Raises
  // InvalidXMLDocument if `element` is null or the name is not a valid XML name.
  static void setElementAttribute(xercesc_3_2::DOMElement* const element, XercesString const& name,
                                  std::u16string const& value);
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_HELPER_H_
