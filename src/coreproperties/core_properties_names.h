// The names by which the three extended core properties parts are found and recognised: part
// names, content types, relationship types, XML namespaces and element names, and the schema
// of the core part.  Internal to the core properties subsystem.
#ifndef SRC_COREPROPERTIES_CORE_PROPERTIES_NAMES_H_
#define SRC_COREPROPERTIES_CORE_PROPERTIES_NAMES_H_

#include <memory>
#include <string>

#include "contracts/model/xml_engine/xml_engine.h"

namespace opc {
namespace vkservices {
namespace detail {

// Part names of new parts.  Existing parts are found by their relationships, whatever their
// names.
inline constexpr char16_t kCorePartName[] = u"/metadata/vkcoreProperties.xml";
inline constexpr char16_t kExtensionPartName[] = u"/metadata/vkcorePropertiesExtension.xml";
inline constexpr char16_t kReleaseInfoPartName[] = u"/metadata/vkcorePropertiesReleaseInfo.xml";

inline constexpr char16_t kCorePartContentType[] =
    u"application/vnd.veltrance.package.coreProperties+xml";
inline constexpr char16_t kExtensionPartContentType[] =
    u"application/vnd.veltrance.package.corePropertiesExtension+xml";
inline constexpr char16_t kReleaseInfoPartContentType[] =
    u"application/vnd.veltrance.package.corePropertiesReleaseInfo+xml";

// SchemaBase followed by the path of each relationship type and namespace.
std::u16string coreRelationshipType();
std::u16string extensionRelationshipType();
std::u16string releaseInfoRelationshipType();
std::u16string coreNamespace();
std::u16string extensionNamespace();

// The document element of both XML parts, and the elements inside them.
inline constexpr char16_t kRootElement[] = u"vkcoreProperties";
inline constexpr char16_t kContentTypeElement[] = u"contentType";
inline constexpr char16_t kFriendlyNameElement[] = u"contentTypeFriendlyName";
inline constexpr char16_t kReleaseElement[] = u"orvaneRelease";
inline constexpr char16_t kVersionElement[] = u"orvaneVersion";
inline constexpr char16_t kUUIDElement[] = u"uuid";

// The system identifier of the core part's schema, which names it in the parser's messages.
inline constexpr char16_t kCoreSchemaId[] = u"vkcoreProperties.xsd";

// The schema of the core part: UTF-8 text with an XML declaration, never read from a file.
std::string coreSchemaText();

// A reader that validates documents against `schemaText`, announced as kCoreSchemaId; loads
// the XML library if it is not loaded yet.  Raises opc::model::InvalidXMLSchema "Schema could
// not be loaded: " followed by the parser's text if it is not a valid schema, and the
// engine's opc::Exception if the XML library cannot be loaded.
std::unique_ptr<opc::model::detail::XmlTreeReader> makeCoreReader(std::string const& schemaText);

// Whether the schema of the core part accepts `root`, a document read without validation,
// for certain: "vkcoreProperties" in the namespace `ns` without attributes, holding the three
// elements in order and the optional fourth, each holding text alone without attributes, and
// only whitespace between them.  False for anything else, valid or not, which the validating
// parser then judges with its own messages.
bool isPlainlyValidCoreDocument(opc::model::detail::XmlNode const& root, std::u16string const& ns);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_CORE_PROPERTIES_NAMES_H_
