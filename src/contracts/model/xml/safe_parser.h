// The parser that XercesHelper::createParser makes, and the settings that keep any parser
// safe on hostile documents.  Internal to libopcmodel_xml: nothing here is exported.
#ifndef OPC_MODEL_XML_SAFE_PARSER_H_
#define OPC_MODEL_XML_SAFE_PARSER_H_

#include <cstddef>
#include <memory>

#include <xercesc/dom/DOMConfiguration.hpp>
#include <xercesc/framework/XMLGrammarPoolImpl.hpp>
#include <xercesc/parsers/DOMLSParserImpl.hpp>

namespace opc {
namespace model {
namespace detail {

// Deeper documents are refused: no document of the library comes near it, and code that
// walks a tree by recursion (the serializer does) stays far from the end of its stack.
constexpr std::size_t kMaxElementDepth = 256;

// Applies the settings that no document can get round: a document type declaration is a
// fatal error (so no DTD, internal or external, and no entity of one is ever used), no
// external resource is resolved, schema locations named in a document are ignored and only
// grammars already in the parser's pool are used, XInclude is off, and entity expansion is
// bounded as a second line of defence.  Applied at creation and again before every parse.
void applySafeSettings(xercesc::DOMConfiguration* config);

// Owns the grammar pool; a base class of SafeParser so that the pool exists before the
// parser that uses it and is destroyed after it.
class GrammarPoolOwner {
 protected:
  GrammarPoolOwner();
  ~GrammarPoolOwner();
  std::unique_ptr<xercesc::XMLGrammarPoolImpl> pool_;
};

// Receives the elements of a document while a SafeParser streams it (see setElementSink).
// The texts and the attribute list belong to the parser and are valid during the call only.
class ElementSink {
 public:
  virtual ~ElementSink() = default;
  // `namespaceURI` is "" for no namespace; `depth` is 0 for the document element.
  virtual void startElement(XMLCh const* namespaceURI, XMLCh const* localName,
                            xercesc::RefVectorOf<xercesc::XMLAttr> const& attributes,
                            XMLSize_t attributeCount, std::size_t depth) = 0;
  virtual void endElement(std::size_t depth) = 0;
};

// A DOM parser whose grammar pool stays locked except while the library itself loads a
// grammar with loadGrammar, so that only grammars given by the library are ever cached, and
// which reports errors of loadGrammar as InvalidXMLDocument.  Loading anything from a URI
// (parseURI, loadGrammar by system id) is refused, and so are documents nested deeper than
// kMaxElementDepth.
//
// With an element sink set, the parser streams instead: every element goes to the sink and
// no node of the document is built (the parse still returns an empty document, which belongs
// to the parser).  Scanning, validation, error reporting and every protection stay exactly
// those of the DOM road, because they are the scanner's and not the tree builder's.
class SafeParser : private GrammarPoolOwner, public xercesc::DOMLSParserImpl {
 public:
  // `manager` serves the parser's own memory (not the grammars'); it must outlive the parser.
  SafeParser();
  explicit SafeParser(xercesc::MemoryManager* manager);
  ~SafeParser() override;

  // Null (the default) builds documents; anything else streams to `sink` until reset.
  void setElementSink(ElementSink* sink);

  xercesc::DOMDocument* parseURI(XMLCh const* const uri) override;
  xercesc::DOMDocument* parseURI(char const* const uri) override;

  xercesc::Grammar* loadGrammar(xercesc::DOMLSInput const* source,
                                xercesc::Grammar::GrammarType const grammarType,
                                bool const toCache) override;
  xercesc::Grammar* loadGrammar(XMLCh const* const systemId,
                                xercesc::Grammar::GrammarType const grammarType,
                                bool const toCache) override;
  xercesc::Grammar* loadGrammar(char const* const systemId,
                                xercesc::Grammar::GrammarType const grammarType,
                                bool const toCache) override;
  void resetCachedGrammarPool() override;

  void startDocument() override;
  void startElement(xercesc::XMLElementDecl const& elemDecl, unsigned int const urlId,
                    XMLCh const* const elemPrefix,
                    xercesc::RefVectorOf<xercesc::XMLAttr> const& attrList,
                    XMLSize_t const attrCount, bool const isEmpty, bool const isRoot) override;
  void endElement(xercesc::XMLElementDecl const& elemDecl, unsigned int const urlId,
                  bool const isRoot, XMLCh const* const elemPrefix) override;

  // While streaming, everything that would add a node to the document is dropped: text,
  // comments, processing instructions, entity references and schema information.
  void docCharacters(XMLCh const* const chars, XMLSize_t const length,
                     bool const cdataSection) override;
  void ignorableWhitespace(XMLCh const* const chars, XMLSize_t const length,
                           bool const cdataSection) override;
  void docComment(XMLCh const* const comment) override;
  void docPI(XMLCh const* const target, XMLCh const* const data) override;
  void startEntityReference(xercesc::XMLEntityDecl const& entDecl) override;
  void endEntityReference(xercesc::XMLEntityDecl const& entDecl) override;
  void handleElementPSVI(XMLCh const* const localName, XMLCh const* const uri,
                         xercesc::PSVIElement* elementInfo) override;
  void handlePartialElementPSVI(XMLCh const* const localName, XMLCh const* const uri,
                                xercesc::PSVIElement* elementInfo) override;
  void handleAttributesPSVI(XMLCh const* const localName, XMLCh const* const uri,
                            xercesc::PSVIAttributeList* psviAttributes) override;

 private:
  [[noreturn]] void refuseDepth();

  std::size_t depth_;
  ElementSink* sink_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_SAFE_PARSER_H_
