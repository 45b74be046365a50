// Writing core properties: one element per property that is set, in a fixed order, so that
// the same record always gives the same bytes.
#include <opc/model/core_properties.h>
#include <opc/model/xml/xml_exceptions.h>

#include "../xml_engine/plain_xml.h"
#include "../xml_engine/xml_engine.h"
#include "core_properties_schema.h"
#include "w3cdtf.h"

namespace opc {
namespace model {

namespace {

using detail::kProperties;
using detail::kPropertyCount;
using detail::PropertyInfo;
using detail::PropertyKind;
using detail::XmlNode;

std::u16string qualifiedName(PropertyInfo const& info) {
  return std::u16string(info.prefix) + u":" + info.localName;
}

XmlNode& appendElement(XmlNode& parent, char16_t const* namespaceURI, std::u16string name) {
  XmlNode& element = parent.children.emplace_back();
  element.namespaceURI = namespaceURI;
  element.name = std::move(name);
  return element;
}

// Namespaced attributes only: every attribute of the document has a prefix.
void setAttribute(XmlNode& element, char16_t const* namespaceURI, std::u16string name,
                  std::u16string value) {
  element.attributes.emplace_back(std::move(name), std::move(value));
  element.attributeNamespaces.emplace_back(namespaceURI);
}

void appendKeywords(XmlNode& element, CoreProperties::Keywords const& keywords) {
  // One keyword without language is plain text, the form most writers use and every reader
  // understands; anything else needs an entry per keyword to keep the pairs apart.
  if (keywords.size() == 1 && keywords.front().second.empty() && !keywords.front().first.empty()) {
    element.text = keywords.front().first;
    return;
  }
  for (auto const& keyword : keywords) {
    XmlNode& value = appendElement(element, detail::kCorePropertiesNamespace, u"cp:value");
    if (!keyword.second.empty()) {
      setAttribute(value, detail::kXmlNamespace, u"xml:lang", keyword.second);
    }
    value.text = keyword.first;
  }
}

void appendProperty(XmlNode& root, PropertyInfo const& info, CoreProperties const& properties) {
  switch (info.kind) {
    case PropertyKind::Text: {
      boost::optional<std::u16string> value = (properties.*info.getText)();
      if (!value) return;
      appendElement(root, info.namespaceURI, qualifiedName(info)).text = *value;
      return;
    }
    case PropertyKind::Time: {
      boost::optional<boost::posix_time::ptime> value = (properties.*info.getTime)();
      if (!value) return;
      XmlNode& element = appendElement(root, info.namespaceURI, qualifiedName(info));
      if (info.typedAsW3cdtf) {
        setAttribute(element, detail::kSchemaInstanceNamespace, u"xsi:type", u"dcterms:W3CDTF");
      }
      element.text = detail::formatW3cdtf(*value);
      return;
    }
    case PropertyKind::Keywords: {
      boost::optional<CoreProperties::Keywords> value = properties.getKeywords();
      if (!value) return;
      appendKeywords(appendElement(root, info.namespaceURI, qualifiedName(info)), *value);
      return;
    }
  }
}

}  // namespace

void CorePropertiesXml::write(CoreProperties const& properties, opc::OutputStream& stream) {
  XmlNode root;
  root.namespaceURI = detail::kCorePropertiesNamespace;
  root.name = u"cp:coreProperties";
  // All prefixes are declared once on the document element, as readers of other
  // implementations expect, rather than on each element that uses them.
  setAttribute(root, detail::kXmlnsNamespace, u"xmlns:dc", detail::kDublinCoreNamespace);
  setAttribute(root, detail::kXmlnsNamespace, u"xmlns:dcterms", detail::kDublinCoreTermsNamespace);
  setAttribute(root, detail::kXmlnsNamespace, u"xmlns:xsi", detail::kSchemaInstanceNamespace);
  for (std::size_t i = 0; i < kPropertyCount; ++i) {
    appendProperty(root, kProperties[i], properties);
  }
  try {
    detail::writeXmlDocument(root, true, stream);
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPartContent(std::string("Core properties cannot be written: ") + e.what());
  }
}

}  // namespace model
}  // namespace opc
