#include "filesystem/manifest_schemas.h"

#include <opc/model/xml/xml_exceptions.h>

#include "filesystem/file_system_manifest_xml_names.h"

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// Both schemas are strict: every element and attribute that a reader does not know fails
// validation, so that a document is either understood whole or refused with the parser's
// line and column.  Permissions are plain strings on purpose: the reader checks them
// itself, with messages that say what is wrong in terms of the format.
//
// `date` is a dateTime or the empty string: an empty date means "unknown" and must pass,
// while any other text that is not a dateTime fails here rather than in the reader.

constexpr char kHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n"
    "<xsd:schema xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"\n"
    "            xmlns=\"";
constexpr char kBetweenNamespaces[] =
    "\"\n"
    "            targetNamespace=\"";
constexpr char kSettings[] =
    "\"\n"
    "            elementFormDefault=\"qualified\" attributeFormDefault=\"unqualified\"\n"
    "            blockDefault=\"#all\">\n";

constexpr char kCommonTypes[] =
    "  <xsd:simpleType name=\"typeType\">\n"
    "    <xsd:restriction base=\"xsd:string\">\n"
    "      <xsd:enumeration value=\"SymLink\"/>\n"
    "      <xsd:enumeration value=\"File\"/>\n"
    "      <xsd:enumeration value=\"Folder\"/>\n"
    "    </xsd:restriction>\n"
    "  </xsd:simpleType>\n"
    "  <xsd:simpleType name=\"emptyType\">\n"
    "    <xsd:restriction base=\"xsd:string\">\n"
    "      <xsd:length value=\"0\"/>\n"
    "    </xsd:restriction>\n"
    "  </xsd:simpleType>\n"
    "  <xsd:simpleType name=\"dateType\">\n"
    "    <xsd:union memberTypes=\"xsd:dateTime emptyType\"/>\n"
    "  </xsd:simpleType>\n";

constexpr char kFileEntryHead[] =
    "  <xsd:complexType name=\"fileEntryType\">\n"
    "    <xsd:simpleContent>\n"
    "      <xsd:extension base=\"xsd:string\">\n"
    "        <xsd:attribute name=\"name\" type=\"xsd:string\" use=\"required\"/>\n";
constexpr char kContentString[] =
    "        <xsd:attribute name=\"content\" type=\"xsd:string\" use=\"required\"/>\n";
constexpr char kContentURI[] =
    "        <xsd:attribute name=\"content\" type=\"xsd:anyURI\" use=\"required\"/>\n";
constexpr char kFileEntryTail[] =
    "        <xsd:attribute name=\"type\" type=\"typeType\" use=\"required\"/>\n"
    "        <xsd:attribute name=\"date\" type=\"dateType\" use=\"optional\"/>\n"
    "        <xsd:attribute name=\"permissions\" type=\"xsd:string\" use=\"optional\"/>\n"
    "      </xsd:extension>\n"
    "    </xsd:simpleContent>\n"
    "  </xsd:complexType>\n";

constexpr char kFileEntriesHead[] =
    "  <xsd:complexType name=\"fileEntriesType\">\n"
    "    <xsd:sequence>\n"
    "      <xsd:element name=\"fileEntry\" type=\"fileEntryType\" minOccurs=\"0\"\n"
    "                   maxOccurs=\"unbounded\"/>\n"
    "    </xsd:sequence>\n";
constexpr char kRootAttributes[] =
    "    <xsd:attribute name=\"createdByEncoding\" type=\"xsd:string\" use=\"required\"/>\n"
    "    <xsd:attribute name=\"createdByPlatform\" type=\"xsd:string\" use=\"required\"/>\n"
    "    <xsd:attribute name=\"version\" type=\"xsd:decimal\" use=\"required\"/>\n";
constexpr char kRootAttributesV1[] =
    "    <xsd:attribute name=\"platform\" type=\"xsd:string\" use=\"required\"/>\n"
    "    <xsd:attribute name=\"encoding\" type=\"xsd:string\" use=\"required\"/>\n";
constexpr char kTail[] =
    "  </xsd:complexType>\n"
    "  <xsd:element name=\"fileEntries\" type=\"fileEntriesType\"/>\n"
    "</xsd:schema>\n";

constexpr auto kSchema =
    joinASCII<char>(kHead, SchemaBase, kManifestNamespacePath, kBetweenNamespaces, SchemaBase,
                    kManifestNamespacePath, kSettings, kCommonTypes, kFileEntryHead, kContentString,
                    kFileEntryTail, kFileEntriesHead, kRootAttributes, kTail);

constexpr auto kSchemaV1 =
    joinASCII<char>(kHead, SchemaBase, kManifestNamespacePathV1, kBetweenNamespaces, SchemaBase,
                    kManifestNamespacePathV1, kSettings, kCommonTypes, kFileEntryHead, kContentURI,
                    kFileEntryTail, kFileEntriesHead, kRootAttributesV1, kTail);

}  // namespace

std::string const& manifestSchemaText() {
  static std::string const text = kSchema.str();
  return text;
}

std::string const& manifestSchemaTextV1() {
  static std::string const text = kSchemaV1.str();
  return text;
}

std::vector<opc::model::detail::XmlGrammar> manifestGrammars() {
  return {{manifestSchemaText(), kManifestSchemaId}, {manifestSchemaTextV1(), kManifestSchemaIdV1}};
}

std::unique_ptr<opc::model::detail::XmlEventReader> makeManifestReader(
    std::vector<opc::model::detail::XmlGrammar> const& grammars) {
  opc::model::detail::XmlReaderSettings settings;
  settings.grammars = grammars;
  try {
    return opc::model::detail::xmlEngine().makeEventReader(settings);
  } catch (opc::model::InvalidXMLDocument const& e) {
    // A grammar that does not compile is a fault of the library's own schema.
    throw opc::model::InvalidXMLSchema(std::string("Schema could not be loaded: ") + e.what());
  }
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
