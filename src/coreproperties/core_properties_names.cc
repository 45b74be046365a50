#include "coreproperties/core_properties_names.h"

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

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
