// Parsers, serializers and documents.  The element operations of XercesHelper are in
// xerces_elements.cc.
#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationLS.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>
#include <xercesc/dom/DOMLSOutput.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/model/xml/xerces_error_handler.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "safe_parser.h"
#include "stream_adaptors.h"
#include "xerces_errors.h"
#include "xml_text.h"

namespace opc {
namespace model {
namespace {

xercesc::DOMImplementation* domImplementation() {
  static XMLCh const kFeatures[] = u"LS";
  xercesc::DOMImplementation* implementation =
      xercesc::DOMImplementationRegistry::getDOMImplementation(kFeatures);
  if (implementation == nullptr) {
    throw InvalidXMLDocument("XML error: the XML library offers no DOM implementation");
  }
  return implementation;
}

void requireNotNull(void const* pointer, char const* what) {
  if (pointer == nullptr) {
    throw InvalidXMLDocument(std::string("XML error: no ") + what + " was given");
  }
}

std::string documentLabel(std::u16string const& systemId) {
  return systemId.empty() ? std::string("XML error")
                          : "XML error in " + detail::toMessageText(systemId);
}

void checkNamespace(xercesc::DOMDocument const* document, std::u16string const& systemId,
                    std::u16string const& expected) {
  xercesc::DOMElement const* root = document->getDocumentElement();
  XMLCh const* actual = root == nullptr ? nullptr : root->getNamespaceURI();
  std::u16string const actualText = actual == nullptr ? std::u16string() : actual;
  if (actualText != expected) {
    throw InvalidXMLDocument(documentLabel(systemId) + ": the document element " +
                             detail::quotedName(root == nullptr ? nullptr : root->getNodeName()) +
                             " is in the namespace \"" + detail::toMessageText(actualText) +
                             "\", not \"" + detail::toMessageText(expected) + "\"");
  }
}

}  // namespace

std::unique_ptr<xercesc::DOMLSParser, XercesDeleter> XercesHelper::createParser() {
  return detail::translateXercesErrors([] {
    return std::unique_ptr<xercesc::DOMLSParser, XercesDeleter>(new detail::SafeParser());
  });
}

void XercesHelper::loadGrammar(xercesc::DOMLSParser* parser, std::string const& schemaText,
                               std::u16string const& systemId) {
  requireNotNull(parser, "parser");
  detail::translateXercesErrors([&] {
    // The buffer is the caller's text, neither copied nor adopted; the wrapper adopts the
    // source.
    xercesc::Wrapper4InputSource input(
        new xercesc::MemBufInputSource(reinterpret_cast<XMLByte const*>(schemaText.data()),
                                       schemaText.size(), systemId.c_str(), false));
    // Parsers not made by createParser do not raise errors themselves.
    XercesErrorHandler handler;
    detail::ErrorHandlerScope scope(parser->getDomConfig(), &handler);
    xercesc::Grammar* grammar =
        parser->loadGrammar(&input, xercesc::Grammar::SchemaGrammarType, true);
    handler.throwIfError();
    if (grammar == nullptr) {
      throw InvalidXMLDocument("XML error: the schema " + detail::quotedName(systemId.c_str()) +
                               " could not be loaded");
    }
  });
}

std::unique_ptr<xercesc::DOMDocument, XercesDeleter> XercesHelper::createDocument() {
  return detail::translateXercesErrors([] {
    return std::unique_ptr<xercesc::DOMDocument, XercesDeleter>(
        domImplementation()->createDocument());
  });
}

std::unique_ptr<xercesc::DOMLSSerializer, XercesDeleter>
XercesHelper::createPrettyPrintingWriter() {
  return detail::translateXercesErrors([] {
    std::unique_ptr<xercesc::DOMLSSerializer, XercesDeleter> writer(
        domImplementation()->createLSSerializer());
    xercesc::DOMConfiguration* config = writer->getDomConfig();
    config->setParameter(xercesc::XMLUni::fgDOMWRTFormatPrettyPrint, true);
    config->setParameter(xercesc::XMLUni::fgDOMXMLDeclaration, true);
    config->setParameter(xercesc::XMLUni::fgDOMWRTXercesPrettyPrint, false);
    return writer;
  });
}

xercesc::DOMDocument* XercesHelper::readDocumentFromStream(
    xercesc::DOMLSParser* parser, opc::InputStream& stream, bool validate,
    std::u16string const& systemId, std::u16string const& documentNamespace) {
  requireNotNull(parser, "parser");
  stream.open();
  detail::CloseOnFailure closer(stream);
  detail::StreamFailure streamFailure;
  XercesErrorHandler handler;
  xercesc::DOMDocument* document = detail::translateXercesErrors([&] {
    xercesc::DOMConfiguration* config = parser->getDomConfig();
    detail::applySafeSettings(config);
    config->setParameter(xercesc::XMLUni::fgDOMValidateIfSchema, false);
    config->setParameter(xercesc::XMLUni::fgDOMValidate, validate);
    detail::ErrorHandlerScope scope(config, &handler);
    detail::InputStreamSource source(stream, streamFailure, systemId);
    xercesc::Wrapper4InputSource input(&source, false);
    return parser->parse(&input);
  });
  // A stream that failed made the parser see a truncated document: its own exception is the
  // one that tells what happened.
  streamFailure.rethrowIfAny();
  handler.throwIfError();
  if (document == nullptr || document->getDocumentElement() == nullptr) {
    throw InvalidXMLDocument(documentLabel(systemId) + ": the document could not be parsed");
  }
  if (!documentNamespace.empty()) {
    checkNamespace(document, systemId, documentNamespace);
  }
  closer.closeNow();
  return document;
}

void XercesHelper::writeDocumentToStream(xercesc::DOMLSSerializer* const writer,
                                         xercesc::DOMDocument* const document,
                                         opc::OutputStream& stream) {
  requireNotNull(writer, "serializer");
  requireNotNull(document, "document");
  detail::StreamFailure streamFailure;
  XercesErrorHandler handler;
  bool const written = detail::translateXercesErrors([&] {
    std::unique_ptr<xercesc::DOMLSOutput, XercesDeleter> output(
        domImplementation()->createLSOutput());
    detail::OutputStreamTarget target(stream, streamFailure);
    output->setByteStream(&target);
    output->setEncoding(u"UTF-8");
    detail::ErrorHandlerScope scope(writer->getDomConfig(), &handler);
    return writer->write(document, output.get());
  });
  streamFailure.rethrowIfAny();
  handler.throwIfError();
  if (!written) {
    throw InvalidXMLDocument("XML error: the document could not be written");
  }
}

}  // namespace model
}  // namespace opc
