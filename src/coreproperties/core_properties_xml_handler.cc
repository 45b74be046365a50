#include "coreproperties/core_properties_xml_handler.h"

#include <string>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>

#include "coreproperties/core_properties_names.h"
#include "coreproperties/parsed_part.h"

namespace opc {
namespace vkservices {

using opc::model::XercesHelper;

CorePropertiesXmlHandler::CorePropertiesXmlHandler()
    : guard_(),
      parser_(),
      writer_(),
      namespace_(detail::coreNamespace()),
      rootElement_(detail::kRootElement),
      contentTypeElement_(detail::kContentTypeElement),
      friendlyNameElement_(detail::kFriendlyNameElement),
      releaseElement_(detail::kReleaseElement) {
  try {
    parser_ = XercesHelper::createParser();
    parser_->getDomConfig()->setParameter(xercesc::XMLUni::fgXercesUseCachedGrammarInParse, true);
    detail::loadCoreGrammar(parser_.get(), detail::coreSchemaText());
    writer_ = XercesHelper::createPrettyPrintingWriter();
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidXMLSchema(std::string("Schema could not be loaded: ") + e.what());
  }
}

CorePropertiesXmlHandler::~CorePropertiesXmlHandler() {
  writer_.reset();
  parser_.reset();
}

void CorePropertiesXmlHandler::read(opc::InputStream& stream, CoreProperties& properties) {
  detail::ParsedPart const part(*parser_, stream, true, "core properties");
  xercesc::DOMElement const* root = part.root();
  try {
    std::u16string text;
    if (XercesHelper::getElementText(XercesHelper::getElement(root, contentTypeElement_), text)) {
      properties.setContentType(text);
    }
    if (XercesHelper::getElementText(XercesHelper::getElement(root, friendlyNameElement_), text)) {
      properties.setContentTypeFriendlyName(text);
    }
    if (XercesHelper::getElementText(XercesHelper::getElement(root, releaseElement_), text)) {
      properties.setORVANERelease(text);
    }
  } catch (InvalidCorePropertyValue const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

void CorePropertiesXmlHandler::write(CoreProperties const& properties, opc::OutputStream& stream) {
  try {
    auto const document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    xercesc::DOMElement* root =
        XercesHelper::appendElementNS(document.get(), namespace_, rootElement_);
    XercesHelper::setElementText(
        XercesHelper::appendElementNS(root, namespace_, contentTypeElement_),
        properties.getContentType());
    XercesHelper::setElementText(
        XercesHelper::appendElementNS(root, namespace_, friendlyNameElement_),
        properties.getContentTypeFriendlyName());
    XercesHelper::setElementText(XercesHelper::appendElementNS(root, namespace_, releaseElement_),
                                 properties.getORVANERelease());
    XercesHelper::writeDocumentToStream(writer_.get(), document.get(), stream);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
