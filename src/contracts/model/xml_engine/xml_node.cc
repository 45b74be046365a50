// The element operations on plain nodes.  They give the meaning and the messages of the same
// operations of XercesHelper on DOM elements, so that a reader moved from one to the other
// fails in the same words.
#include <opc/model/xml/xml_exceptions.h>

#include "../xml/xml_text.h"
#include "xml_engine.h"

namespace opc {
namespace model {
namespace detail {

XmlNode const& getElement(XmlNode const* parent, std::u16string const& name) {
  XmlNode const* found = findElement(parent, name);
  if (found == nullptr) {
    std::string text = "XML error: element " + quotedName(name.c_str()) + " is missing";
    if (parent != nullptr) {
      text += " in element " + quotedName(parent->name.c_str());
    }
    throw InvalidXMLDocument(text);
  }
  return *found;
}

XmlNode const* findElement(XmlNode const* parent, std::u16string const& name) {
  if (parent == nullptr) return nullptr;
  for (XmlNode const& child : parent->children) {
    if (child.localName == name) return &child;
  }
  return nullptr;
}

std::vector<XmlNode const*> getElements(XmlNode const* parent, std::u16string const& name) {
  std::vector<XmlNode const*> found;
  if (parent == nullptr) return found;
  for (XmlNode const& child : parent->children) {
    if (child.localName == name) found.push_back(&child);
  }
  return found;
}

bool getElementText(XmlNode const* element, std::u16string& text) {
  if (element == nullptr || element->text.empty()) return false;
  text = element->text;
  return true;
}

bool getElementAttribute(XmlNode const* element, std::u16string const& name,
                         std::u16string& value) {
  if (element == nullptr) return false;
  for (auto const& attribute : element->attributes) {
    if (attribute.first == name) {
      value = attribute.second;
      return true;
    }
  }
  return false;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
