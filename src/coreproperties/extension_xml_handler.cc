#include "coreproperties/extension_xml_handler.h"

#include <string>
#include <utility>

#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>

#include "contracts/model/xml_engine/plain_xml.h"
#include "coreproperties/core_properties_names.h"
#include "coreproperties/parsed_part.h"

namespace opc {
namespace vkservices {

using opc::model::detail::XmlNode;

ExtensionXmlHandler::ExtensionXmlHandler() : reader_(), namespace_(detail::extensionNamespace()) {}

ExtensionXmlHandler::~ExtensionXmlHandler() = default;

void ExtensionXmlHandler::read(opc::InputStream& stream, CoreProperties& properties) {
  // Made when a document first needs the parser: most are read plainly.
  auto const reader = [this]() -> opc::model::detail::XmlTreeReader& {
    if (!reader_) reader_ = opc::model::detail::xmlEngine().makeTreeReader({});
    return *reader_;
  };
  // Read without validation: the plain reader's tree is the parser's, whatever it holds.
  XmlNode const root = detail::readPropertiesPart(reader, stream, false, "extended core properties",
                                                  [](XmlNode const&) { return true; });
  // The name as written, prefix included: "x:vkcoreProperties" is another element.
  if (root.name != detail::kRootElement) {
    throw opc::model::InvalidPartContent(
        "The expected extended core properties root element is not present");
  }
  // Packages written in deterministic mode have no identifier: a missing "uuid" is no fault.
  XmlNode const* uuid = opc::model::detail::findElement(&root, detail::kUUIDElement);
  if (uuid == nullptr) return;
  std::u16string text;
  opc::model::detail::getElementText(uuid, text);
  try {
    properties.setUUID(text);
  } catch (InvalidCorePropertyValue const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

void ExtensionXmlHandler::write(CoreProperties const& properties, opc::OutputStream& stream) {
  XmlNode root;
  root.namespaceURI = namespace_;
  root.name = detail::kRootElement;
  boost::optional<std::u16string> const uuid = properties.getUUID();
  if (uuid) {
    XmlNode element;
    element.namespaceURI = namespace_;
    element.name = detail::kUUIDElement;
    element.text = *uuid;
    root.children.push_back(std::move(element));
  }
  try {
    opc::model::detail::writeXmlDocument(root, true, stream);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
