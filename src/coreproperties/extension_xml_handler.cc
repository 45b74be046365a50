#include "coreproperties/extension_xml_handler.h"

#include <string>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>

#include "coreproperties/core_properties_names.h"
#include "coreproperties/parsed_part.h"

namespace opc {
namespace vkservices {

using opc::model::XercesHelper;

ExtensionXmlHandler::ExtensionXmlHandler()
    : guard_(),
      parser_(XercesHelper::createParser()),
      writer_(XercesHelper::createPrettyPrintingWriter()),
      namespace_(detail::extensionNamespace()),
      rootElement_(detail::kRootElement),
      versionElement_(detail::kVersionElement),
      uuidElement_(detail::kUUIDElement) {}

ExtensionXmlHandler::~ExtensionXmlHandler() {
  writer_.reset();
  parser_.reset();
}

void ExtensionXmlHandler::read(opc::InputStream& stream, CoreProperties& properties) {
  detail::ParsedPart const part(*parser_, stream, false, "extended core properties");
  xercesc::DOMElement const* root = part.root();
  if (root == nullptr || rootElement_ != root->getTagName()) {
    throw opc::model::InvalidPartContent(
        "The expected extended core properties root element is not present");
  }
  // Packages written in deterministic mode have no identifier: a missing "uuid" is no fault.
  xercesc::DOMElement const* uuid = XercesHelper::findElement(root, uuidElement_);
  if (uuid == nullptr) return;
  std::u16string text;
  XercesHelper::getElementText(uuid, text);
  try {
    properties.setUUID(text);
  } catch (InvalidCorePropertyValue const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

void ExtensionXmlHandler::write(CoreProperties const& properties, opc::OutputStream& stream) {
  try {
    auto const document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    xercesc::DOMElement* root =
        XercesHelper::appendElementNS(document.get(), namespace_, rootElement_);
    boost::optional<std::u16string> const uuid = properties.getUUID();
    if (uuid) {
      XercesHelper::setElementText(XercesHelper::appendElementNS(root, namespace_, uuidElement_),
                                   *uuid);
    }
    XercesHelper::writeDocumentToStream(writer_.get(), document.get(), stream);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
