#include "coreproperties/core_properties_xml_handler.h"

#include <string>
#include <utility>

#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>

#include "contracts/model/xml_engine/plain_xml.h"
#include "coreproperties/core_properties_names.h"
#include "coreproperties/parsed_part.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::detail::XmlNode;

// An element of the part's namespace holding `text`.
XmlNode valueElement(std::u16string const& ns, char16_t const* name, std::u16string const& text) {
  XmlNode element;
  element.namespaceURI = ns;
  element.name = name;
  element.text = text;
  return element;
}

}  // namespace

CorePropertiesXmlHandler::CorePropertiesXmlHandler()
    : reader_(), namespace_(detail::coreNamespace()) {}

CorePropertiesXmlHandler::~CorePropertiesXmlHandler() = default;

void CorePropertiesXmlHandler::read(opc::InputStream& stream, CoreProperties& properties) {
  // Compiled when a document first needs the parser, not by the constructor: most documents
  // are read plainly, and a manager that only writes the part has no use for the schema.
  auto const reader = [this]() -> opc::model::detail::XmlTreeReader& {
    if (!reader_) reader_ = detail::makeCoreReader(detail::coreSchemaText());
    return *reader_;
  };
  XmlNode const root = detail::readPropertiesPart(
      reader, stream, true, "core properties", [this](XmlNode const& document) {
        return detail::isPlainlyValidCoreDocument(document, namespace_);
      });
  try {
    using opc::model::detail::getElement;
    using opc::model::detail::getElementText;
    std::u16string text;
    if (getElementText(&getElement(&root, detail::kContentTypeElement), text)) {
      properties.setContentType(text);
    }
    if (getElementText(&getElement(&root, detail::kFriendlyNameElement), text)) {
      properties.setContentTypeFriendlyName(text);
    }
    if (getElementText(&getElement(&root, detail::kReleaseElement), text)) {
      properties.setORVANERelease(text);
    }
  } catch (InvalidCorePropertyValue const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

void CorePropertiesXmlHandler::write(CoreProperties const& properties, opc::OutputStream& stream) {
  XmlNode root;
  root.namespaceURI = namespace_;
  root.name = detail::kRootElement;
  root.children.push_back(
      valueElement(namespace_, detail::kContentTypeElement, properties.getContentType()));
  root.children.push_back(valueElement(namespace_, detail::kFriendlyNameElement,
                                       properties.getContentTypeFriendlyName()));
  root.children.push_back(
      valueElement(namespace_, detail::kReleaseElement, properties.getORVANERelease()));
  try {
    opc::model::detail::writeXmlDocument(root, true, stream);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
