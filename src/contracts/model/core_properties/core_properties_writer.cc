// Writing core properties: one element per property that is set, in a fixed order, so that
// the same record always gives the same bytes.
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <opc/model/core_properties.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "../xml/xerces_errors.h"
#include "core_properties_schema.h"
#include "w3cdtf.h"

namespace opc {
namespace model {

namespace {

using detail::kProperties;
using detail::kPropertyCount;
using detail::PropertyInfo;
using detail::PropertyKind;

std::u16string qualifiedName(PropertyInfo const& info) {
  return std::u16string(info.prefix) + u":" + info.localName;
}

void setAttribute(xercesc::DOMElement* element, char16_t const* namespaceURI,
                  std::u16string const& name, std::u16string const& value) {
  detail::translateXercesErrors(
      [&] { element->setAttributeNS(namespaceURI, name.c_str(), value.c_str()); });
}

void appendKeywords(xercesc::DOMElement* element, CoreProperties::Keywords const& keywords) {
  // One keyword without language is plain text, the form most writers use and every reader
  // understands; anything else needs an entry per keyword to keep the pairs apart.
  if (keywords.size() == 1 && keywords.front().second.empty() && !keywords.front().first.empty()) {
    XercesHelper::setElementText(element, keywords.front().first);
    return;
  }
  for (auto const& keyword : keywords) {
    auto* value =
        XercesHelper::appendElementNS(element, detail::kCorePropertiesNamespace, u"cp:value");
    if (!keyword.second.empty()) {
      setAttribute(value, detail::kXmlNamespace, u"xml:lang", keyword.second);
    }
    XercesHelper::setElementText(value, keyword.first);
  }
}

void appendProperty(xercesc::DOMElement* root, PropertyInfo const& info,
                    CoreProperties const& properties) {
  switch (info.kind) {
    case PropertyKind::Text: {
      boost::optional<std::u16string> value = (properties.*info.getText)();
      if (!value) return;
      auto* element = XercesHelper::appendElementNS(root, info.namespaceURI, qualifiedName(info));
      XercesHelper::setElementText(element, *value);
      return;
    }
    case PropertyKind::Time: {
      boost::optional<boost::posix_time::ptime> value = (properties.*info.getTime)();
      if (!value) return;
      auto* element = XercesHelper::appendElementNS(root, info.namespaceURI, qualifiedName(info));
      if (info.typedAsW3cdtf) {
        setAttribute(element, detail::kSchemaInstanceNamespace, u"xsi:type", u"dcterms:W3CDTF");
      }
      XercesHelper::setElementText(element, detail::formatW3cdtf(*value));
      return;
    }
    case PropertyKind::Keywords: {
      boost::optional<CoreProperties::Keywords> value = properties.getKeywords();
      if (!value) return;
      auto* element = XercesHelper::appendElementNS(root, info.namespaceURI, qualifiedName(info));
      appendKeywords(element, *value);
      return;
    }
  }
}

}  // namespace

void CorePropertiesXml::write(CoreProperties const& properties, opc::OutputStream& stream) {
  XercesGuard guard;
  try {
    auto writer = XercesHelper::createPrettyPrintingWriter();
    auto document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    auto* root = XercesHelper::appendElementNS(document.get(), detail::kCorePropertiesNamespace,
                                               u"cp:coreProperties");
    // All prefixes are declared once on the document element, as readers of other
    // implementations expect, rather than on each element that uses them.
    setAttribute(root, detail::kXmlnsNamespace, u"xmlns:dc", detail::kDublinCoreNamespace);
    setAttribute(root, detail::kXmlnsNamespace, u"xmlns:dcterms",
                 detail::kDublinCoreTermsNamespace);
    setAttribute(root, detail::kXmlnsNamespace, u"xmlns:xsi", detail::kSchemaInstanceNamespace);
    for (std::size_t i = 0; i < kPropertyCount; ++i) {
      appendProperty(root, kProperties[i], properties);
    }
    XercesHelper::writeDocumentToStream(writer.get(), document.get(), stream);
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPartContent(std::string("Core properties cannot be written: ") + e.what());
  }
}

}  // namespace model
}  // namespace opc
