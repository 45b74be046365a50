#include "safe_parser.h"

#include <string>

#include <xercesc/dom/DOMLSInput.hpp>
#include <xercesc/dom/DOMLSResourceResolver.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/model/xml/xerces_error_handler.h>
#include <opc/model/xml/xml_exceptions.h>

#include "xerces_errors.h"
#include "xml_text.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// With DOCTYPE refused no entity can be declared at all; the limit only matters should that
// ever change, and is far above anything a document of the library needs.
constexpr XMLSize_t kEntityExpansionLimit = 1000;

// Answers every request for an external resource (DTD, entity, schema include or import)
// with "none"; with default entity resolution disabled the parser then loads nothing.
class RefusingResolver : public xercesc::DOMLSResourceResolver {
 public:
  xercesc::DOMLSInput* resolveResource(XMLCh const* const, XMLCh const* const, XMLCh const* const,
                                       XMLCh const* const, XMLCh const* const) override {
    return nullptr;
  }
};

// Both are stateless after construction and may be shared by every parser of the process.
RefusingResolver& refusingResolver() {
  static RefusingResolver resolver;
  return resolver;
}

xercesc::SecurityManager& securityManager() {
  static xercesc::SecurityManager* manager = [] {
    auto* created = new xercesc::SecurityManager();
    created->setEntityExpansionLimit(kEntityExpansionLimit);
    return created;
  }();
  return *manager;
}

// Documents and grammars come from streams and texts that the library hands over; nothing is
// ever fetched from a location, be it a file or a network address.
[[noreturn]] void refuseURI(std::string const& uri) {
  throw InvalidXMLDocument("XML error: loading from the URI \"" + uri + "\" is not allowed");
}

std::string narrowURI(char const* uri) { return uri == nullptr ? std::string() : std::string(uri); }

// Unlocks the pool for the scope of a grammar load by the library, and locks it again.
class PoolUnlock {
 public:
  explicit PoolUnlock(xercesc::XMLGrammarPool& pool) : pool_(pool) { pool_.unlockPool(); }
  PoolUnlock(PoolUnlock const&) = delete;
  PoolUnlock& operator=(PoolUnlock const&) = delete;
  ~PoolUnlock() { pool_.lockPool(); }

 private:
  xercesc::XMLGrammarPool& pool_;
};

}  // namespace

void applySafeSettings(xercesc::DOMConfiguration* config) {
  using xercesc::XMLUni;
  config->setParameter(XMLUni::fgDOMDisallowDoctype, true);
  config->setParameter(XMLUni::fgXercesLoadExternalDTD, false);
  config->setParameter(XMLUni::fgXercesDisableDefaultEntityResolution, true);
  config->setParameter(XMLUni::fgDOMResourceResolver,
                       static_cast<xercesc::DOMLSResourceResolver*>(&refusingResolver()));
  config->setParameter(XMLUni::fgXercesSecurityManager, &securityManager());
  config->setParameter(XMLUni::fgXercesDoXInclude, false);
  // Schema locations in a document are hints that would let it choose its own grammar.
  config->setParameter(XMLUni::fgXercesLoadSchema, false);
  config->setParameter(XMLUni::fgXercesUseCachedGrammarInParse, true);
  config->setParameter(XMLUni::fgXercesCacheGrammarFromParse, false);
  config->setParameter(XMLUni::fgDOMNamespaces, true);
  config->setParameter(XMLUni::fgXercesSchema, true);
  config->setParameter(XMLUni::fgXercesSchemaFullChecking, true);
  // Entity references become their text, so that readers find text nodes only.
  config->setParameter(XMLUni::fgDOMEntities, false);
}

GrammarPoolOwner::GrammarPoolOwner() : pool_(new xercesc::XMLGrammarPoolImpl()) {}

GrammarPoolOwner::~GrammarPoolOwner() = default;

SafeParser::SafeParser() : SafeParser(xercesc::XMLPlatformUtils::fgMemoryManager) {}

SafeParser::SafeParser(xercesc::MemoryManager* manager)
    : DOMLSParserImpl(nullptr, manager, pool_.get()), depth_(0), sink_(nullptr) {
  applySafeSettings(getDomConfig());
  pool_->lockPool();
}

SafeParser::~SafeParser() = default;

void SafeParser::setElementSink(ElementSink* sink) { sink_ = sink; }

xercesc::DOMDocument* SafeParser::parseURI(XMLCh const* const uri) {
  refuseURI(toMessageText(uri));
}

xercesc::DOMDocument* SafeParser::parseURI(char const* const uri) { refuseURI(narrowURI(uri)); }

xercesc::Grammar* SafeParser::loadGrammar(xercesc::DOMLSInput const* source,
                                          xercesc::Grammar::GrammarType const grammarType,
                                          bool const toCache) {
  if (grammarType != xercesc::Grammar::SchemaGrammarType) {
    throw InvalidXMLDocument("XML error: only XML schema grammars can be loaded");
  }
  XercesErrorHandler handler;
  ErrorHandlerScope scope(getDomConfig(), &handler);
  xercesc::Grammar* grammar = nullptr;
  {
    PoolUnlock unlock(*pool_);
    grammar = translateXercesErrors(
        [&] { return DOMLSParserImpl::loadGrammar(source, grammarType, toCache); });
  }
  handler.throwIfError();
  if (grammar == nullptr) {
    throw InvalidXMLDocument("XML error: the schema " +
                             quotedName(source == nullptr ? nullptr : source->getSystemId()) +
                             " could not be loaded");
  }
  return grammar;
}

xercesc::Grammar* SafeParser::loadGrammar(XMLCh const* const systemId,
                                          xercesc::Grammar::GrammarType const, bool const) {
  refuseURI(toMessageText(systemId));
}

xercesc::Grammar* SafeParser::loadGrammar(char const* const systemId,
                                          xercesc::Grammar::GrammarType const, bool const) {
  refuseURI(narrowURI(systemId));
}

void SafeParser::resetCachedGrammarPool() {
  PoolUnlock unlock(*pool_);
  DOMLSParserImpl::resetCachedGrammarPool();
}

void SafeParser::startDocument() {
  depth_ = 0;
  DOMLSParserImpl::startDocument();
}

void SafeParser::startElement(xercesc::XMLElementDecl const& elemDecl, unsigned int const urlId,
                              XMLCh const* const elemPrefix,
                              xercesc::RefVectorOf<xercesc::XMLAttr> const& attrList,
                              XMLSize_t const attrCount, bool const isEmpty, bool const isRoot) {
  if (++depth_ > kMaxElementDepth) refuseDepth();
  if (sink_ != nullptr) {
    std::size_t const depth = depth_ - 1;
    sink_->startElement(getScanner()->getURIText(urlId), elemDecl.getBaseName(), attrList,
                        attrCount, depth);
    // The scanner reports no end for an empty element.
    if (isEmpty) {
      --depth_;
      sink_->endElement(depth);
    }
    return;
  }
  // An empty element is ended from inside this call, through endElement.
  DOMLSParserImpl::startElement(elemDecl, urlId, elemPrefix, attrList, attrCount, isEmpty, isRoot);
}

void SafeParser::endElement(xercesc::XMLElementDecl const& elemDecl, unsigned int const urlId,
                            bool const isRoot, XMLCh const* const elemPrefix) {
  --depth_;
  if (sink_ != nullptr) {
    sink_->endElement(depth_);
    return;
  }
  DOMLSParserImpl::endElement(elemDecl, urlId, isRoot, elemPrefix);
}

void SafeParser::docCharacters(XMLCh const* const chars, XMLSize_t const length,
                               bool const cdataSection) {
  if (sink_ == nullptr) DOMLSParserImpl::docCharacters(chars, length, cdataSection);
}

void SafeParser::ignorableWhitespace(XMLCh const* const chars, XMLSize_t const length,
                                     bool const cdataSection) {
  if (sink_ == nullptr) DOMLSParserImpl::ignorableWhitespace(chars, length, cdataSection);
}

void SafeParser::docComment(XMLCh const* const comment) {
  if (sink_ == nullptr) DOMLSParserImpl::docComment(comment);
}

void SafeParser::docPI(XMLCh const* const target, XMLCh const* const data) {
  if (sink_ == nullptr) DOMLSParserImpl::docPI(target, data);
}

void SafeParser::startEntityReference(xercesc::XMLEntityDecl const& entDecl) {
  if (sink_ == nullptr) DOMLSParserImpl::startEntityReference(entDecl);
}

void SafeParser::endEntityReference(xercesc::XMLEntityDecl const& entDecl) {
  if (sink_ == nullptr) DOMLSParserImpl::endEntityReference(entDecl);
}

void SafeParser::handleElementPSVI(XMLCh const* const localName, XMLCh const* const uri,
                                   xercesc::PSVIElement* elementInfo) {
  if (sink_ == nullptr) DOMLSParserImpl::handleElementPSVI(localName, uri, elementInfo);
}

void SafeParser::handlePartialElementPSVI(XMLCh const* const localName, XMLCh const* const uri,
                                          xercesc::PSVIElement* elementInfo) {
  if (sink_ == nullptr) DOMLSParserImpl::handlePartialElementPSVI(localName, uri, elementInfo);
}

void SafeParser::handleAttributesPSVI(XMLCh const* const localName, XMLCh const* const uri,
                                      xercesc::PSVIAttributeList* psviAttributes) {
  if (sink_ == nullptr) DOMLSParserImpl::handleAttributesPSVI(localName, uri, psviAttributes);
}

void SafeParser::refuseDepth() {
  std::string where;
  xercesc::Locator const* locator = getScanner()->getLocator();
  if (locator != nullptr && locator->getLineNumber() > 0) {
    where = " at line " + std::to_string(locator->getLineNumber()) + ", column " +
            std::to_string(locator->getColumnNumber());
  }
  throw InvalidXMLDocument("XML error" + where + ": elements are nested deeper than " +
                           std::to_string(kMaxElementDepth) + " levels");
}

}  // namespace detail
}  // namespace model
}  // namespace opc
