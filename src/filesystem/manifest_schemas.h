// The XML schemas of the two forms of the file-system manifest, compiled into the library,
// and the reader that validates manifests against them.
#ifndef SRC_FILESYSTEM_MANIFEST_SCHEMAS_H_
#define SRC_FILESYSTEM_MANIFEST_SCHEMAS_H_

#include <memory>
#include <string>
#include <vector>

#include "contracts/model/xml_engine/xml_engine.h"

namespace opc {
namespace vkservices {
namespace detail {

// The schema of the current form (namespace kManifestNamespace) and of the older form
// (kManifestNamespaceV1): UTF-8 texts with an XML declaration, never read from a file.
// Each is made once, on first use, and lives as long as the process; thread-safe.
std::string const& manifestSchemaText();
std::string const& manifestSchemaTextV1();

// Both schemas, under their system identifiers kManifestSchemaId and kManifestSchemaIdV1.
std::vector<opc::model::detail::XmlGrammar> manifestGrammars();

// A reader that validates every document against the grammar of its namespace among
// `grammars`, compiled here; loads the XML library if it is not loaded yet.  Raises
// opc::model::InvalidXMLSchema "Schema could not be loaded: " followed by the text of the
// parser's error if a text is not a valid schema (the text names the schema by its system
// identifier), and the engine's opc::Exception if the XML library cannot be loaded.
std::unique_ptr<opc::model::detail::XmlEventReader> makeManifestReader(
    std::vector<opc::model::detail::XmlGrammar> const& grammars);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_MANIFEST_SCHEMAS_H_
