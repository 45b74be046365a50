#include <exception>
#include <vector>

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/framework/XMLAttr.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/model/xml/xerces_deleter.h>
#include <opc/model/xml/xerces_error_handler.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_reader.h>

#include "pooled_memory_manager.h"
#include "safe_parser.h"
#include "stream_adaptors.h"
#include "xerces_errors.h"

namespace opc {
namespace model {
namespace {

std::u16string_view view(XMLCh const* text) {
  return text == nullptr ? std::u16string_view() : std::u16string_view(text);
}

// Passes the parser's elements on to the caller's handler.  A handler that throws is not
// called again: its exception is kept for the end of the parse, which goes on so that the
// document is checked whole, as it is when it is built as a tree before it is read.
class HandlerSink : public detail::ElementSink {
 public:
  explicit HandlerSink(XmlStreamHandler& handler) : handler_(handler) {}

  void startElement(XMLCh const* namespaceURI, XMLCh const* localName,
                    xercesc::RefVectorOf<xercesc::XMLAttr> const& attributes,
                    XMLSize_t attributeCount, std::size_t depth) override {
    sawElement_ = true;
    if (error_) return;
    attributes_.clear();
    for (XMLSize_t i = 0; i < attributeCount; ++i) {
      xercesc::XMLAttr const* attribute = attributes.elementAt(i);
      attributes_.push_back(
          XmlStreamAttribute{view(attribute->getQName()), view(attribute->getValue())});
    }
    XmlStreamElement element;
    element.namespaceURI = view(namespaceURI);
    element.localName = view(localName);
    element.depth = depth;
    element.attributes = &attributes_;
    try {
      handler_.startElement(element);
    } catch (...) {
      error_ = std::current_exception();
    }
  }

  void endElement(std::size_t depth) override {
    if (error_) return;
    try {
      handler_.endElement(depth);
    } catch (...) {
      error_ = std::current_exception();
    }
  }

  bool sawElement() const { return sawElement_; }

  void rethrowIfAny() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  XmlStreamHandler& handler_;
  std::vector<XmlStreamAttribute> attributes_;
  std::exception_ptr error_;
  bool sawElement_ = false;
};

// Streams to `sink` for the scope, and releases what the parse made however it ends.
class StreamingScope {
 public:
  StreamingScope(detail::SafeParser& parser, detail::ElementSink& sink) : parser_(parser) {
    parser_.setElementSink(&sink);
  }
  StreamingScope(StreamingScope const&) = delete;
  StreamingScope& operator=(StreamingScope const&) = delete;
  ~StreamingScope() {
    parser_.setElementSink(nullptr);
    try {
      parser_.resetDocumentPool();
    } catch (...) {
      // Releasing memory does not fail in practice, and a destructor must not throw.
    }
  }

 private:
  detail::SafeParser& parser_;
};

}  // namespace

// Declared in the order of their lifetimes: the library outlives the memory, which outlives
// the parser that uses it.
struct XmlStreamReader::Impl {
  XercesGuard guard;
  detail::PooledMemoryManager memory;
  std::unique_ptr<detail::SafeParser, XercesDeleter> parser;
};

XmlStreamReader::XmlStreamReader() : impl_(new Impl) {
  impl_->parser = detail::translateXercesErrors([this] {
    return std::unique_ptr<detail::SafeParser, XercesDeleter>(
        new detail::SafeParser(&impl_->memory));
  });
  // Grammars are compiled once, by loadGrammar, and found by namespace at every read.
  impl_->parser->getDomConfig()->setParameter(xercesc::XMLUni::fgXercesUseCachedGrammarInParse,
                                              true);
}

XmlStreamReader::~XmlStreamReader() {
  // The parser goes before the guard that keeps the library alive for it.
  impl_->parser.reset();
}

void XmlStreamReader::loadGrammar(std::string const& schemaText, std::u16string const& systemId) {
  detail::translateXercesErrors([&] {
    // The buffer is the caller's text, neither copied nor adopted; the wrapper adopts the
    // source.  The parser raises the errors of a grammar itself.
    xercesc::Wrapper4InputSource input(
        new xercesc::MemBufInputSource(reinterpret_cast<XMLByte const*>(schemaText.data()),
                                       schemaText.size(), systemId.c_str(), false));
    impl_->parser->loadGrammar(&input, xercesc::Grammar::SchemaGrammarType, true);
  });
}

void XmlStreamReader::read(opc::InputStream& stream, XmlStreamHandler& handler) {
  detail::SafeParser& parser = *impl_->parser;
  stream.open();
  detail::CloseOnFailure closer(stream);
  detail::StreamFailure streamFailure;
  XercesErrorHandler errors;
  HandlerSink sink(handler);
  detail::translateXercesErrors([&] {
    xercesc::DOMConfiguration* config = parser.getDomConfig();
    detail::applySafeSettings(config);
    config->setParameter(xercesc::XMLUni::fgDOMValidateIfSchema, false);
    config->setParameter(xercesc::XMLUni::fgDOMValidate, true);
    detail::ErrorHandlerScope scope(config, &errors);
    StreamingScope streaming(parser, sink);
    detail::InputStreamSource source(stream, streamFailure, std::u16string());
    xercesc::Wrapper4InputSource input(&source, false);
    parser.parse(&input);
  });
  // A stream that failed made the parser see a truncated document: its own exception is the
  // one that tells what happened.
  streamFailure.rethrowIfAny();
  errors.throwIfError();
  if (!sink.sawElement()) {
    throw InvalidXMLDocument("XML error: the document could not be parsed");
  }
  closer.closeNow();
  sink.rethrowIfAny();
}

}  // namespace model
}  // namespace opc
