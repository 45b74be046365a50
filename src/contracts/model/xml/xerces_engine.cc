#include "xerces_engine.h"

#include <utility>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMText.hpp>

#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_stream_reader.h>

#include "xerces_errors.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr char16_t kXmlnsNamespace[] = u"http://www.w3.org/2000/xmlns/";

std::u16string textOf(XMLCh const* text) {
  return text == nullptr ? std::u16string() : std::u16string(text);
}

bool isText(xercesc::DOMNode const* node) {
  xercesc::DOMNode::NodeType const type = node->getNodeType();
  return type == xercesc::DOMNode::TEXT_NODE || type == xercesc::DOMNode::CDATA_SECTION_NODE;
}

void readAttributes(xercesc::DOMElement const* element, XmlNode& node) {
  xercesc::DOMNamedNodeMap const* attributes = element->getAttributes();
  XMLSize_t const count = attributes == nullptr ? 0 : attributes->getLength();
  bool namespaced = false;
  for (XMLSize_t i = 0; i < count; ++i) {
    xercesc::DOMNode const* attribute = attributes->item(i);
    std::u16string ns = textOf(attribute->getNamespaceURI());
    std::u16string name = textOf(attribute->getNodeName());
    std::u16string value = textOf(attribute->getNodeValue());
    if (ns == kXmlnsNamespace) {
      // "xmlns" declares the default namespace, "xmlns:p" the prefix p.
      std::u16string prefix = name.size() > 6 ? name.substr(6) : std::u16string();
      node.namespaceDeclarations.emplace_back(std::move(prefix), std::move(value));
      continue;
    }
    namespaced = namespaced || !ns.empty();
    node.attributes.emplace_back(std::move(name), std::move(value));
    node.attributeNamespaces.push_back(std::move(ns));
  }
  if (!namespaced) node.attributeNamespaces.clear();
}

// The parser refuses documents deeper than a few hundred elements, so that recursion here
// stays far from the end of the stack.
void readElement(xercesc::DOMElement const* element, XmlNode& node) {
  node.namespaceURI = textOf(element->getNamespaceURI());
  node.name = textOf(element->getNodeName());
  // Elements made without a namespace (DOM level 1) have no local name: their name is it.
  XMLCh const* local = element->getLocalName();
  node.localName = local != nullptr ? std::u16string(local) : node.name;
  readAttributes(element, node);
  for (xercesc::DOMNode const* child = element->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (isText(child)) {
      XMLCh const* data = static_cast<xercesc::DOMText const*>(child)->getData();
      if (data == nullptr) continue;
      node.text += data;
      if (!node.children.empty()) node.children.back().tail += data;
    } else if (child->getNodeType() == xercesc::DOMNode::ELEMENT_NODE) {
      node.children.emplace_back();
      readElement(static_cast<xercesc::DOMElement const*>(child), node.children.back());
    }
  }
}

void setAttributes(xercesc::DOMElement* element, XmlNode const& node) {
  for (std::size_t i = 0; i < node.attributes.size(); ++i) {
    auto const& attribute = node.attributes[i];
    std::u16string const& ns = attributeNamespace(node, i);
    if (ns.empty()) {
      XercesHelper::setElementAttribute(element, attribute.first, attribute.second);
    } else {
      translateXercesErrors([&] {
        element->setAttributeNS(ns.c_str(), attribute.first.c_str(), attribute.second.c_str());
      });
    }
  }
}

// Children are appended after the text: setElementText replaces every child.  The trees
// written are the library's own, a few levels deep.
void writeElement(xercesc::DOMElement* element, XmlNode const& node) {
  setAttributes(element, node);
  if (!node.text.empty()) XercesHelper::setElementText(element, node.text);
  for (XmlNode const& child : node.children) {
    writeElement(XercesHelper::appendElementNS(element, child.namespaceURI, child.name), child);
  }
}

class XercesTreeReader final : public XmlTreeReader {
 public:
  explicit XercesTreeReader(XmlReaderSettings const& settings)
      : parser_(XercesHelper::createParser()) {
    // The parser's safety settings already use cached grammars only and check them in full.
    for (XmlGrammar const& grammar : settings.grammars) {
      XercesHelper::loadGrammar(parser_.get(), grammar.text, grammar.systemId);
    }
  }

  XmlNode read(opc::InputStream& stream, bool validate, std::u16string const& systemId,
               std::u16string const& documentNamespace) override {
    // The document belongs to the parser: it is released once copied, or once the read
    // failed, so that a reader kept for many documents holds none of them.
    DocumentRelease release(*parser_);
    xercesc::DOMDocument const* document = XercesHelper::readDocumentFromStream(
        parser_.get(), stream, validate, systemId, documentNamespace);
    XmlNode root;
    readElement(document->getDocumentElement(), root);
    return root;
  }

 private:
  class DocumentRelease {
   public:
    explicit DocumentRelease(xercesc::DOMLSParser& parser) : parser_(parser) {}
    DocumentRelease(DocumentRelease const&) = delete;
    DocumentRelease& operator=(DocumentRelease const&) = delete;
    ~DocumentRelease() {
      try {
        parser_.resetDocumentPool();
      } catch (...) {
        // Releasing memory does not fail in practice, and a destructor must not throw.
      }
    }

   private:
    xercesc::DOMLSParser& parser_;
  };

  // First, so that the library stays initialised until the parser is gone.
  XercesGuard guard_;
  std::unique_ptr<xercesc::DOMLSParser, XercesDeleter> parser_;
};

class XercesEventReader final : public XmlEventReader {
 public:
  explicit XercesEventReader(XmlReaderSettings const& settings) {
    // The stream reader's parser checks schemas fully whatever the settings say.
    for (XmlGrammar const& grammar : settings.grammars) {
      reader_.loadGrammar(grammar.text, grammar.systemId);
    }
  }

  void read(opc::InputStream& stream, XmlStreamHandler& handler) override {
    reader_.read(stream, handler);
  }

 private:
  XmlStreamReader reader_;
};

class XercesEngine final : public XmlEngine {
 public:
  std::unique_ptr<XmlTreeReader> makeTreeReader(XmlReaderSettings const& settings) override {
    return std::make_unique<XercesTreeReader>(settings);
  }

  std::unique_ptr<XmlEventReader> makeEventReader(XmlReaderSettings const& settings) override {
    return std::make_unique<XercesEventReader>(settings);
  }

  void write(XmlNode const& root, bool standalone, opc::OutputStream& stream) override {
    XercesGuard guard;
    auto document = XercesHelper::createDocument();
    if (standalone) document->setXmlStandalone(true);
    writeElement(XercesHelper::appendElementNS(document.get(), root.namespaceURI, root.name), root);
    auto writer = XercesHelper::createPrettyPrintingWriter();
    XercesHelper::writeDocumentToStream(writer.get(), document.get(), stream);
  }
};

}  // namespace

XmlEngine& xercesEngine() {
  static XercesEngine* const engine = new XercesEngine();
  return *engine;
}

}  // namespace detail
}  // namespace model
}  // namespace opc

opc::model::detail::XmlEngine* opcmodel_xml_engine() { return &opc::model::detail::xercesEngine(); }
