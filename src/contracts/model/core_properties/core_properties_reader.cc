// Reading core properties.  The document is checked by hand rather than against a schema:
// the rules that matter (no duplicates, no foreign or markup-compatibility elements, typed
// dates) are few, and a hand check names the offending element in its message.
#include <cstddef>
#include <string>
#include <vector>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include <opc/model/core_properties.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "../xml/xml_text.h"
#include "core_properties_schema.h"
#include "w3cdtf.h"

namespace opc {
namespace model {

namespace {

using detail::displayName;
using detail::kProperties;
using detail::kPropertyCount;
using detail::PropertyInfo;
using detail::PropertyKind;
using xercesc::DOMElement;
using xercesc::DOMNode;

[[noreturn]] void fail(std::string const& message) { throw InvalidPartContent(message); }

std::string nameOf(DOMNode const* node) {
  return detail::toMessageText(displayName(node->getNamespaceURI(), node->getLocalName()));
}

bool equals(XMLCh const* text, char16_t const* expected) {
  return std::u16string(text == nullptr ? u"" : text) == expected;
}

bool isXmlSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; }

bool isBlank(std::u16string const& text) {
  for (char16_t c : text) {
    if (!isXmlSpace(c)) return false;
  }
  return true;
}

std::u16string trimmed(std::u16string const& text) {
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && isXmlSpace(text[first])) ++first;
  while (last > first && isXmlSpace(text[last - 1])) --last;
  return text.substr(first, last - first);
}

bool isText(DOMNode const* node) {
  return node->getNodeType() == DOMNode::TEXT_NODE ||
         node->getNodeType() == DOMNode::CDATA_SECTION_NODE;
}

// Counts the bytes a reader takes, so that a hostile part cannot make the parser build an
// arbitrarily large tree.
class BoundedInputStream : public opc::InputStream {
 public:
  BoundedInputStream(opc::InputStream& inner, std::size_t limit) : inner_(inner), limit_(limit) {}
  ~BoundedInputStream() override = default;

  void open() override { inner_.open(); }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t n = inner_.read(buffer, count);
    total_ += n;
    if (total_ > limit_) {
      fail("The core properties part is larger than " + std::to_string(limit_ >> 20) + " MiB");
    }
    return n;
  }
  bool isDone() const override { return inner_.isDone(); }
  void close() override { inner_.close(); }

 private:
  opc::InputStream& inner_;
  std::size_t limit_;
  std::size_t total_ = 0;
};

// The attributes of any element: markup compatibility is refused everywhere, and xsi:type
// is allowed only where the property says so, with the one value the format defines.
void checkAttributes(DOMElement const* element, PropertyInfo const* info) {
  xercesc::DOMNamedNodeMap const* attributes = element->getAttributes();
  for (XMLSize_t i = 0; attributes != nullptr && i < attributes->getLength(); ++i) {
    DOMNode const* attribute = attributes->item(i);
    XMLCh const* ns = attribute->getNamespaceURI();
    if (equals(ns, detail::kMarkupCompatibilityNamespace)) {
      fail("Markup compatibility attribute " + nameOf(attribute) +
           " is not allowed in core properties");
    }
    if (!equals(ns, detail::kSchemaInstanceNamespace) ||
        !equals(attribute->getLocalName(), u"type")) {
      continue;
    }
    if (info == nullptr || !info->typedAsW3cdtf) {
      fail("Attribute xsi:type is not allowed on " + nameOf(element));
    }
    // The value is a QName: its prefix must stand for the terms namespace, whatever it is.
    std::u16string const value = trimmed(attribute->getNodeValue());
    std::size_t const colon = value.find(u':');
    std::u16string const prefix = colon == std::u16string::npos ? u"" : value.substr(0, colon);
    std::u16string const local = colon == std::u16string::npos ? value : value.substr(colon + 1);
    XMLCh const* bound = element->lookupNamespaceURI(prefix.empty() ? nullptr : prefix.c_str());
    if (local != u"W3CDTF" || !equals(bound, detail::kDublinCoreTermsNamespace)) {
      fail("Core property " + nameOf(element) + " must have xsi:type dcterms:W3CDTF, not " +
           detail::quotedName(value.c_str()));
    }
  }
}

// The text inside a property that may hold nothing else.
std::u16string textOf(DOMElement const* element) {
  std::u16string text;
  for (DOMNode const* child = element->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (isText(child)) {
      text += child->getNodeValue();
    } else if (child->getNodeType() == DOMNode::ELEMENT_NODE) {
      fail("Core property " + nameOf(element) + " must hold text only, not element " +
           nameOf(child));
    }
  }
  return text;
}

// xml:lang is inherited: the nearest element that says it decides.
std::u16string languageOf(DOMElement const* element) {
  for (DOMNode const* node = element;
       node != nullptr && node->getNodeType() == DOMNode::ELEMENT_NODE;
       node = node->getParentNode()) {
    auto const* candidate = static_cast<DOMElement const*>(node);
    if (candidate->hasAttributeNS(detail::kXmlNamespace, u"lang")) {
      return candidate->getAttributeNS(detail::kXmlNamespace, u"lang");
    }
  }
  return u"";
}

CoreProperties::Keywords keywordsOf(DOMElement const* element) {
  CoreProperties::Keywords keywords;
  std::u16string const language = languageOf(element);
  bool hasValues = false;
  for (DOMNode const* child = element->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (child->getNodeType() != DOMNode::ELEMENT_NODE) continue;
    if (!equals(child->getNamespaceURI(), detail::kCorePropertiesNamespace) ||
        !equals(child->getLocalName(), u"value")) {
      fail("Core property cp:keywords may hold only cp:value elements, not " + nameOf(child));
    }
    hasValues = true;
  }
  if (!hasValues) {
    // Plain text is one keyword list as its writer spelt it; see the header.
    std::u16string text = textOf(element);
    if (!text.empty()) keywords.emplace_back(text, language);
    return keywords;
  }
  // Mixed content: runs of text between the entries are keywords of the element's own
  // language, with the indentation that writers put between entries dropped.
  std::u16string run;
  auto flushRun = [&] {
    if (!isBlank(run)) keywords.emplace_back(trimmed(run), language);
    run.clear();
  };
  for (DOMNode const* child = element->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (isText(child)) {
      run += child->getNodeValue();
    } else if (child->getNodeType() == DOMNode::ELEMENT_NODE) {
      flushRun();
      auto const* value = static_cast<DOMElement const*>(child);
      checkAttributes(value, nullptr);
      keywords.emplace_back(textOf(value), languageOf(value));
    }
  }
  flushRun();
  return keywords;
}

PropertyInfo const* findProperty(DOMElement const* element) {
  for (std::size_t i = 0; i < kPropertyCount; ++i) {
    if (equals(element->getNamespaceURI(), kProperties[i].namespaceURI) &&
        equals(element->getLocalName(), kProperties[i].localName)) {
      return &kProperties[i];
    }
  }
  return nullptr;
}

void readProperty(DOMElement const* element, PropertyInfo const& info, CoreProperties& properties) {
  checkAttributes(element, &info);
  switch (info.kind) {
    case PropertyKind::Text:
      (properties.*info.setText)(textOf(element));
      return;
    case PropertyKind::Time: {
      std::u16string const text = textOf(element);
      boost::optional<boost::posix_time::ptime> time = detail::parseW3cdtf(text);
      if (!time) {
        fail("Core property " + nameOf(element) +
             " is not a W3CDTF date: " + detail::quotedName(text.c_str()));
      }
      (properties.*info.setTime)(*time);
      return;
    }
    case PropertyKind::Keywords:
      properties.setKeywords(keywordsOf(element));
      return;
  }
}

CoreProperties readDocument(xercesc::DOMDocument const* document) {
  DOMElement const* root = document == nullptr ? nullptr : document->getDocumentElement();
  if (root == nullptr || !equals(root->getNamespaceURI(), detail::kCorePropertiesNamespace) ||
      !equals(root->getLocalName(), u"coreProperties")) {
    fail("The document element of core properties must be cp:coreProperties, not " +
         (root == nullptr ? std::string("missing") : nameOf(root)));
  }
  checkAttributes(root, nullptr);
  CoreProperties properties;
  std::vector<bool> seen(kPropertyCount, false);
  for (DOMNode const* child = root->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (isText(child)) {
      if (!isBlank(child->getNodeValue())) fail("Core properties hold text outside any property");
      continue;
    }
    if (child->getNodeType() != DOMNode::ELEMENT_NODE) continue;
    auto const* element = static_cast<DOMElement const*>(child);
    if (equals(element->getNamespaceURI(), detail::kMarkupCompatibilityNamespace)) {
      fail("Markup compatibility element " + nameOf(element) +
           " is not allowed in core properties");
    }
    PropertyInfo const* info = findProperty(element);
    if (info == nullptr) fail("Unexpected element " + nameOf(element) + " in core properties");
    std::size_t const index = static_cast<std::size_t>(info - kProperties);
    if (seen[index]) fail("Core property " + nameOf(element) + " is given more than once");
    seen[index] = true;
    readProperty(element, *info, properties);
  }
  return properties;
}

}  // namespace

CoreProperties CorePropertiesXml::read(opc::InputStream& stream) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  BoundedInputStream bounded(stream, kMaxPartSize);
  xercesc::DOMDocument* document = nullptr;
  try {
    document = XercesHelper::readDocumentFromStream(parser.get(), bounded, false, u"", u"");
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPartContent(e.what());
  }
  // The document belongs to the parser, which releases it.
  return readDocument(document);
}

}  // namespace model
}  // namespace opc
