// The element operations of XercesHelper.  They walk children one level at a time, never by
// recursion, so that no document, however deep, can exhaust the stack here.
#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMText.hpp>

#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "xerces_errors.h"
#include "xml_text.h"

namespace opc {
namespace model {
namespace {

bool sameText(XMLCh const* actual, XercesString const& expected) {
  return expected.str() == (actual == nullptr ? u"" : actual);
}

// Elements made without a namespace (DOM level 1) have no local name: their name is it.
XMLCh const* localNameOf(xercesc::DOMElement const* element) {
  XMLCh const* local = element->getLocalName();
  return local != nullptr ? local : element->getNodeName();
}

xercesc::DOMElement* asElement(xercesc::DOMNode* node) {
  return node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE
             ? static_cast<xercesc::DOMElement*>(node)
             : nullptr;
}

// The first child element, in document order, that matches, or null.
template <typename Match>
xercesc::DOMElement* findChild(xercesc::DOMElement const* parent, Match const& match) {
  for (xercesc::DOMNode* node = parent->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    xercesc::DOMElement* element = asElement(node);
    if (element != nullptr && match(element)) {
      return element;
    }
  }
  return nullptr;
}

[[noreturn]] void throwMissing(xercesc::DOMElement const* parent, std::string const& what) {
  std::string text = "XML error: element " + what + " is missing";
  if (parent != nullptr) {
    text += " in element " + detail::quotedName(parent->getNodeName());
  }
  throw InvalidXMLDocument(text);
}

void requireElement(void const* element, char const* operation) {
  if (element == nullptr) {
    throw InvalidXMLDocument(std::string("XML error: ") + operation + " needs an element");
  }
}

XMLCh const* namespaceOrNull(XercesString const& namespaceURI) {
  return namespaceURI.str().empty() ? nullptr : static_cast<XMLCh const*>(namespaceURI);
}

}  // namespace

xercesc::DOMElement* XercesHelper::appendElementNS(xercesc::DOMDocument* document,
                                                   XercesString const& namespaceURI,
                                                   XercesString const& name) {
  if (document == nullptr) {
    throw InvalidXMLDocument("XML error: appending an element needs a document");
  }
  if (document->getDocumentElement() != nullptr) {
    throw InvalidXMLDocument("XML error: the document has a document element already");
  }
  return detail::translateXercesErrors([&] {
    xercesc::DOMElement* element = document->createElementNS(namespaceOrNull(namespaceURI), name);
    document->appendChild(element);
    return element;
  });
}

xercesc::DOMElement* XercesHelper::appendElementNS(xercesc::DOMElement* const parent,
                                                   XercesString const& namespaceURI,
                                                   XercesString const& name) {
  requireElement(parent, "appending an element");
  return detail::translateXercesErrors([&] {
    xercesc::DOMElement* element =
        parent->getOwnerDocument()->createElementNS(namespaceOrNull(namespaceURI), name);
    parent->appendChild(element);
    return element;
  });
}

xercesc::DOMElement* XercesHelper::getElement(xercesc::DOMElement const* const parent,
                                              XercesString const& name) {
  xercesc::DOMElement* found = nullptr;
  if (parent != nullptr) {
    found = findChild(parent, [&](xercesc::DOMElement const* element) {
      return sameText(localNameOf(element), name);
    });
  }
  if (found == nullptr) {
    throwMissing(parent, detail::quotedName(name));
  }
  return found;
}

xercesc::DOMElement* XercesHelper::findElement(xercesc::DOMElement const* const parent,
                                               XercesString const& name) {
  if (parent == nullptr) return nullptr;
  return findChild(parent, [&](xercesc::DOMElement const* element) {
    return sameText(localNameOf(element), name);
  });
}

xercesc::DOMElement* XercesHelper::getElementNS(xercesc::DOMElement const* const parent,
                                                XercesString const& namespaceURI,
                                                XercesString const& name) {
  xercesc::DOMElement* found = nullptr;
  if (parent != nullptr) {
    found = findChild(parent, [&](xercesc::DOMElement const* element) {
      return sameText(localNameOf(element), name) &&
             sameText(element->getNamespaceURI(), namespaceURI);
    });
  }
  if (found == nullptr) {
    throwMissing(
        parent, detail::quotedName(name) + " of the namespace " + detail::quotedName(namespaceURI));
  }
  return found;
}

std::vector<xercesc::DOMElement*> XercesHelper::getElements(xercesc::DOMElement const* const parent,
                                                            XercesString const& name) {
  std::vector<xercesc::DOMElement*> found;
  if (parent == nullptr) {
    return found;
  }
  for (xercesc::DOMNode* node = parent->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    xercesc::DOMElement* element = asElement(node);
    if (element != nullptr && sameText(localNameOf(element), name)) {
      found.push_back(element);
    }
  }
  return found;
}

bool XercesHelper::getElementText(xercesc::DOMElement const* const element, std::u16string& text) {
  if (element == nullptr) {
    return false;
  }
  std::u16string joined;
  for (xercesc::DOMNode* node = element->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    xercesc::DOMNode::NodeType const type = node->getNodeType();
    if (type == xercesc::DOMNode::TEXT_NODE || type == xercesc::DOMNode::CDATA_SECTION_NODE) {
      joined += static_cast<xercesc::DOMText*>(node)->getData();
    }
  }
  if (joined.empty()) {
    return false;
  }
  text = std::move(joined);
  return true;
}

void XercesHelper::setElementText(xercesc::DOMElement* const element, std::u16string const& text) {
  requireElement(element, "setting a text");
  detail::translateXercesErrors([&] {
    // Done by hand rather than with setTextContent, which leaves an empty text node behind
    // for an empty text.
    while (xercesc::DOMNode* child = element->getFirstChild()) {
      element->removeChild(child)->release();
    }
    if (!text.empty()) {
      element->appendChild(element->getOwnerDocument()->createTextNode(text.c_str()));
    }
  });
}

bool XercesHelper::getElementAttribute(xercesc::DOMElement const* const element,
                                       XercesString const& name, std::u16string& value) {
  if (element == nullptr) {
    return false;
  }
  xercesc::DOMAttr const* attribute = element->getAttributeNode(name);
  if (attribute == nullptr) {
    return false;
  }
  XMLCh const* text = attribute->getValue();
  value = text == nullptr ? std::u16string() : std::u16string(text);
  return true;
}

void XercesHelper::setElementAttribute(xercesc::DOMElement* const element, XercesString const& name,
                                       std::u16string const& value) {
  requireElement(element, "setting an attribute");
  detail::translateXercesErrors([&] { element->setAttribute(name, value.c_str()); });
}

}  // namespace model
}  // namespace opc
