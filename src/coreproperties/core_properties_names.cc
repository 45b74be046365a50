#include "coreproperties/core_properties_names.h"

#include <algorithm>
#include <cstddef>

#include <opc/core/string_conversions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/schema_base.h>

namespace opc {
namespace vkservices {
namespace detail {

std::u16string coreRelationshipType() {
  return SchemaBase + std::u16string(u"/package/2012/relationships/coreProperties");
}

std::u16string extensionRelationshipType() {
  return SchemaBase + std::u16string(u"/package/2014/relationships/corePropertiesExtension");
}

std::u16string releaseInfoRelationshipType() {
  return SchemaBase + std::u16string(u"/package/2019/relationships/corePropertiesReleaseInfo");
}

std::u16string coreNamespace() {
  return SchemaBase + std::u16string(u"/package/2012/coreProperties");
}

std::u16string extensionNamespace() {
  return SchemaBase + std::u16string(u"/package/2014/corePropertiesExtension");
}

std::string coreSchemaText() {
  // "orvaneVersion" is declared so that documents that carry it stay valid; nothing reads or
  // writes it.  Every value is a plain string: the record's setters judge them, with
  // messages that say what the form should be.
  std::string const ns = opc::detail::toUTF8String(coreNamespace());
  return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n"
         "<xsd:schema xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"\n"
         "            xmlns=\"" +
         ns + "\" targetNamespace=\"" + ns +
         "\"\n"
         "            elementFormDefault=\"qualified\" attributeFormDefault=\"unqualified\"\n"
         "            blockDefault=\"#all\">\n"
         "  <xsd:complexType name=\"vkcorePropertiesType\">\n"
         "    <xsd:sequence>\n"
         "      <xsd:element name=\"contentType\" type=\"xsd:string\"/>\n"
         "      <xsd:element name=\"contentTypeFriendlyName\" type=\"xsd:string\"/>\n"
         "      <xsd:element name=\"orvaneRelease\" type=\"xsd:string\"/>\n"
         "      <xsd:element name=\"orvaneVersion\" type=\"xsd:string\" minOccurs=\"0\"/>\n"
         "    </xsd:sequence>\n"
         "  </xsd:complexType>\n"
         "  <xsd:element name=\"vkcoreProperties\" type=\"vkcorePropertiesType\"/>\n"
         "</xsd:schema>\n";
}

std::unique_ptr<opc::model::detail::XmlTreeReader> makeCoreReader(std::string const& schemaText) {
  opc::model::detail::XmlReaderSettings settings;
  settings.grammars.push_back({schemaText, kCoreSchemaId});
  try {
    return opc::model::detail::xmlEngine().makeTreeReader(settings);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidXMLSchema(std::string("Schema could not be loaded: ") + e.what());
  }
}

// Whether the schema of the part accepts `root`, read without validation, for certain: the
// three elements in order and the optional fourth, each holding text alone, no attribute, and
// only whitespace between them.  Anything else, valid or not, is left to the validating
// parser, whose messages tell what is wrong.
bool isPlainlyValidCoreDocument(opc::model::detail::XmlNode const& root, std::u16string const& ns) {
  static char16_t const* const kElements[] = {kContentTypeElement, kFriendlyNameElement,
                                              kReleaseElement, kVersionElement};
  if (root.namespaceURI != ns || root.localName != kRootElement) return false;
  if (!root.attributes.empty() || root.children.size() < 3 || root.children.size() > 4) {
    return false;
  }
  for (std::size_t i = 0; i < root.children.size(); ++i) {
    opc::model::detail::XmlNode const& child = root.children[i];
    if (child.namespaceURI != ns || child.localName != kElements[i] || !child.attributes.empty() ||
        !child.children.empty()) {
      return false;
    }
  }
  return std::all_of(root.text.begin(), root.text.end(),
                     [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\n'; });
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
