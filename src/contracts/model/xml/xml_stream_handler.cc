#include <opc/model/xml/xml_stream_handler.h>

namespace opc {
namespace model {

std::u16string_view const* XmlStreamElement::findAttribute(std::u16string_view name) const {
  if (attributes == nullptr) return nullptr;
  for (XmlStreamAttribute const& attribute : *attributes) {
    if (attribute.name == name) return &attribute.value;
  }
  return nullptr;
}

XmlStreamHandler::~XmlStreamHandler() = default;

void XmlStreamHandler::endElement(std::size_t) {}

}  // namespace model
}  // namespace opc
