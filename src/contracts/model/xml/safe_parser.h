// The parser that XercesHelper::createParser makes, and the settings that keep any parser
// safe on hostile documents.  Internal to libopcmodel: nothing here is exported.
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

// A DOM parser whose grammar pool stays locked except while the library itself loads a
// grammar with loadGrammar, so that only grammars given by the library are ever cached, and
// which reports errors of loadGrammar as InvalidXMLDocument.  Loading anything from a URI
// (parseURI, loadGrammar by system id) is refused, and so are documents nested deeper than
// kMaxElementDepth.
class SafeParser : private GrammarPoolOwner, public xercesc::DOMLSParserImpl {
 public:
  SafeParser();
  ~SafeParser() override;

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

 private:
  std::size_t depth_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_SAFE_PARSER_H_
