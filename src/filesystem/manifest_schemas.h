// The XML schemas of the two forms of the file-system manifest, compiled into the library,
// and their loading into a parser's grammar cache.
#ifndef SRC_FILESYSTEM_MANIFEST_SCHEMAS_H_
#define SRC_FILESYSTEM_MANIFEST_SCHEMAS_H_

#include <string>

#include <xercesc/dom/DOMLSParser.hpp>

#include <opc/model/xml/xml_stream_reader.h>

namespace opc {
namespace vkservices {
namespace detail {

// The schema of the current form (namespace kManifestNamespace) and of the older form
// (kManifestNamespaceV1): UTF-8 texts with an XML declaration, never read from a file.
// Each is made once, on first use, and lives as long as the process; thread-safe.
std::string const& manifestSchemaText();
std::string const& manifestSchemaTextV1();

// Loads `schemaText` into the grammar cache of `parser`, a parser made by
// opc::model::XercesHelper::createParser, so that documents of its namespace are validated
// against it.  Raises opc::model::InvalidXMLSchema "Schema could not be loaded: " followed by
// the text of the parser's error if the text is not a valid schema.  `systemId` names the
// schema in that text.
void loadManifestGrammar(xercesc::DOMLSParser* parser, std::string const& schemaText,
                         std::u16string const& systemId);

// The same for the streaming reader that reads manifests.
void loadManifestGrammar(opc::model::XmlStreamReader& reader, std::string const& schemaText,
                         std::u16string const& systemId);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_MANIFEST_SCHEMAS_H_
