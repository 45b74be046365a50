#include "cipherdata/cipher_data_names.h"

#include <opc/core/string_conversions.h>
#include <opc/vkservices/schema_base.h>

namespace opc {
namespace vkservices {
namespace detail {
namespace {

constexpr char16_t kRelationshipPath[] = u"/package/2018/relationships/cipherData";
constexpr char16_t kNamespacePath[] = u"/package/2018/cipherData";

// Every element is declared, so that a document is understood whole or refused with the
// parser's line and column; the values are plain strings, checked by the reader (base64) or
// kept as they stand (the salt).  Two places are looser than a reader needs, on purpose:
//  - the selector may be missing here, so that the reader, which requires it, can say which
//    element is missing in its own words;
//  - "NewEntry" holds anything, validated only where a grammar knows it, so that a document
//    of a later writer stays valid.
constexpr char kSchemaHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<xsd:schema xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"\n"
    "            xmlns=\"";
constexpr char kSchemaBetween[] =
    "\"\n"
    "            targetNamespace=\"";
constexpr char kSchemaBody[] =
    "\"\n"
    "            elementFormDefault=\"qualified\" attributeFormDefault=\"unqualified\"\n"
    "            blockDefault=\"#all\">\n"
    "  <xsd:element name=\"CipherData\" type=\"CipherDataType\"/>\n"
    "  <xsd:complexType name=\"CipherDataType\">\n"
    "    <xsd:sequence>\n"
    "      <xsd:element name=\"CipherEntry\" type=\"CipherEntryType\" minOccurs=\"1\"\n"
    "                   maxOccurs=\"unbounded\"/>\n"
    "    </xsd:sequence>\n"
    "  </xsd:complexType>\n"
    "  <xsd:complexType name=\"CipherEntryType\">\n"
    "    <xsd:sequence>\n"
    "      <!-- Optional here; its presence is enforced by the reader. -->\n"
    "      <xsd:element name=\"RelationshipSelector\" type=\"RelationshipSelectorType\"\n"
    "                   minOccurs=\"0\" maxOccurs=\"1\"/>\n"
    "      <xsd:element name=\"Hash\" type=\"xsd:string\"/>\n"
    "      <xsd:element name=\"Salt\" type=\"xsd:string\"/>\n"
    "      <xsd:element name=\"IV\" type=\"xsd:string\"/>\n"
    "      <xsd:element name=\"NewEntry\" type=\"NewEntryType\" minOccurs=\"0\" maxOccurs=\"1\"/>\n"
    "    </xsd:sequence>\n"
    "  </xsd:complexType>\n"
    "  <!-- Each attribute is optional here; the reader requires all three. -->\n"
    "  <xsd:complexType name=\"RelationshipSelectorType\">\n"
    "    <xsd:attribute name=\"SourceURI\" type=\"xsd:string\"/>\n"
    "    <xsd:attribute name=\"SelectorType\" type=\"xsd:string\"/>\n"
    "    <xsd:attribute name=\"Value\" type=\"xsd:string\"/>\n"
    "  </xsd:complexType>\n"
    "  <!-- A place for what later writers add; this library neither reads nor writes it. -->\n"
    "  <xsd:complexType name=\"NewEntryType\">\n"
    "    <xsd:sequence>\n"
    "      <xsd:any minOccurs=\"0\" maxOccurs=\"unbounded\" processContents=\"lax\"/>\n"
    "    </xsd:sequence>\n"
    "  </xsd:complexType>\n"
    "</xsd:schema>\n";

}  // namespace

std::u16string cipherDataRelationshipType() {
  return std::u16string(SchemaBase) + kRelationshipPath;
}

std::u16string cipherDataNamespace() { return std::u16string(SchemaBase) + kNamespacePath; }

std::string cipherDataSchemaText() {
  std::string const ns = opc::toASCIIString(cipherDataNamespace());
  return kSchemaHead + ns + kSchemaBetween + ns + kSchemaBody;
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
