// XML documents through the model's reader: well-formedness only, with a required document
// namespace, and validation against a cached grammar.  The reader may refuse a document only
// with InvalidXMLDocument; what it accepts is no deeper than its limit, can be walked, and
// written and read again.
//
// Input: the bytes of a document.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMLSParser.hpp>
#include <xercesc/dom/DOMLSSerializer.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include <opc/core/stream_adaptors.h>
#include <opc/model/xml/xerces_deleter.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "fuzz_support.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::XercesDeleter;
using opc::model::XercesGuard;
using opc::model::XercesHelper;
using opcvk_fuzz::check;

constexpr char16_t kNamespace[] = u"urn:opcvk:fuzz:list";
constexpr std::size_t kMaxDepth = 256;

// A grammar with the features that the library's own grammars use: attribute types, patterns,
// enumerations, required and optional attributes, sequences, choices, occurrence bounds,
// simple content, and lax wildcards.
char const kSchema[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" targetNamespace="urn:opcvk:fuzz:list"
    xmlns="urn:opcvk:fuzz:list" elementFormDefault="qualified" blockDefault="#all">
  <xs:simpleType name="kindType">
    <xs:restriction base="xs:string">
      <xs:enumeration value="Internal"/>
      <xs:enumeration value="External"/>
    </xs:restriction>
  </xs:simpleType>
  <xs:simpleType name="nameType">
    <xs:restriction base="xs:string">
      <xs:pattern value="(/[^/]+)+"/>
      <xs:maxLength value="1024"/>
    </xs:restriction>
  </xs:simpleType>
  <xs:complexType name="entryType">
    <xs:simpleContent>
      <xs:extension base="xs:string">
        <xs:attribute name="Id" type="xs:ID" use="required"/>
        <xs:attribute name="Target" type="xs:anyURI" use="required"/>
        <xs:attribute name="Kind" type="kindType" use="optional"/>
        <xs:attribute name="Size" type="xs:unsignedInt" use="optional"/>
      </xs:extension>
    </xs:simpleContent>
  </xs:complexType>
  <xs:complexType name="itemType">
    <xs:attribute name="Name" type="nameType" use="required"/>
    <xs:attribute name="Type" type="xs:string" use="required"/>
  </xs:complexType>
  <xs:element name="list">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="created" type="xs:dateTime" minOccurs="0"/>
        <xs:choice minOccurs="0" maxOccurs="unbounded">
          <xs:element name="entry" type="entryType"/>
          <xs:element name="item" type="itemType"/>
        </xs:choice>
        <xs:element name="extension" minOccurs="0">
          <xs:complexType>
            <xs:sequence>
              <xs:any namespace="##other" processContents="lax" minOccurs="0"
                  maxOccurs="unbounded"/>
            </xs:sequence>
          </xs:complexType>
        </xs:element>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
</xs:schema>
)";

using Parser = std::unique_ptr<xercesc::DOMLSParser, XercesDeleter>;
using Writer = std::unique_ptr<xercesc::DOMLSSerializer, XercesDeleter>;

// Everything that lives across inputs, in the order it must be made and unmade.
struct Fixture {
  XercesGuard guard;
  Parser plain = XercesHelper::createParser();
  Parser validating = XercesHelper::createParser();
  Writer writer = XercesHelper::createPrettyPrintingWriter();

  Fixture() { XercesHelper::loadGrammar(validating.get(), kSchema, u"list.xsd"); }
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

struct Shape {
  std::size_t elements = 0;
  std::size_t depth = 0;
};

// Walks the elements without recursion, using the element helpers on the way.
Shape walk(xercesc::DOMElement const* root) {
  Shape shape;
  std::vector<std::pair<xercesc::DOMElement const*, std::size_t>> pending{{root, 1}};
  while (!pending.empty()) {
    auto const [element, depth] = pending.back();
    pending.pop_back();
    ++shape.elements;
    if (depth > shape.depth) shape.depth = depth;
    std::u16string text;
    XercesHelper::getElementText(element, text);
    std::u16string value;
    XercesHelper::getElementAttribute(element, u"Id", value);
    for (xercesc::DOMElement const* child = element->getFirstElementChild(); child != nullptr;
         child = child->getNextElementSibling()) {
      pending.emplace_back(child, depth + 1);
    }
  }
  return shape;
}

xercesc::DOMDocument* read(xercesc::DOMLSParser* parser, std::vector<unsigned char> const& bytes,
                           bool validate, std::u16string const& documentNamespace) {
  opc::ByteArrayInAdaptor in(bytes);
  return XercesHelper::readDocumentFromStream(parser, in, validate, u"fuzz.xml", documentNamespace);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Fixture& f = fixture();
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const shown = opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end()));

  xercesc::DOMDocument* document = nullptr;
  bool const wellFormed = opcvk_fuzz::succeeds<InvalidXMLDocument>(
      "readDocumentFromStream", shown, [&] { document = read(f.plain.get(), bytes, false, u""); });
  bool inNamespace = false;
  if (wellFormed) {
    check(document != nullptr && document->getDocumentElement() != nullptr,
          "an accepted document has a document element", shown);
    xercesc::DOMElement const* root = document->getDocumentElement();
    char16_t const* rootNamespace = root->getNamespaceURI();
    inNamespace = rootNamespace != nullptr && std::u16string(rootNamespace) == kNamespace;
    Shape const shape = walk(root);
    check(shape.depth <= kMaxDepth, "an accepted document is no deeper than the limit", shown);

    // What was read can be written, and what was written reads back with the same elements.
    std::vector<unsigned char> written;
    opc::ByteArrayOutAdaptor out(written);
    if (opcvk_fuzz::succeeds<InvalidXMLDocument>("writeDocumentToStream", shown, [&] {
          XercesHelper::writeDocumentToStream(f.writer.get(), document, out);
        })) {
      std::string const shownWritten =
          shown + "\" written as \"" +
          opcvk_fuzz::printable(std::string(written.begin(), written.end()));
      opcvk_fuzz::mustNotThrow("reading a written document", shownWritten, [&] {
        xercesc::DOMDocument* again = read(f.plain.get(), written, false, u"");
        Shape const shapeAgain = walk(again->getDocumentElement());
        check(shapeAgain.elements == shape.elements && shapeAgain.depth == shape.depth,
              "a written document has the elements of the one read", shownWritten);
      });
    }
    f.plain->resetDocumentPool();

    // The document namespace is checked exactly.
    bool const accepted = opcvk_fuzz::succeeds<InvalidXMLDocument>(
        "readDocumentFromStream with a namespace", shown,
        [&] { read(f.plain.get(), bytes, false, kNamespace); });
    check(accepted == inNamespace, "the document namespace is required exactly", shown);
    f.plain->resetDocumentPool();
  }

  bool const valid = opcvk_fuzz::succeeds<InvalidXMLDocument>(
      "readDocumentFromStream validating", shown,
      [&] { document = read(f.validating.get(), bytes, true, kNamespace); });
  if (valid) {
    check(wellFormed && inNamespace, "a valid document is well-formed and in the namespace", shown);
    XercesHelper::getElements(document->getDocumentElement(), u"entry");
  }
  f.validating->resetDocumentPool();
  return 0;
}
