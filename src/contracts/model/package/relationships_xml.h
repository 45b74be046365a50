// The XML of a relationships part ("_rels/.rels", "<folder>/_rels/<name>.rels").  Internal to
// libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_PACKAGE_RELATIONSHIPS_XML_H_
#define OPC_MODEL_PACKAGE_RELATIONSHIPS_XML_H_

#include <string>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/relationship.h>
#include <opc/model/uri.h>

namespace opc {
namespace model {
namespace detail {

extern char16_t const kRelationshipsNamespace[];

// Parses the relationships of the source `sourceURI` from `stream` (opened, read and closed
// here), in document order.  Throws InvalidPackage, its message starting with `context`, if
// the document is not well-formed XML (a document type declaration included), is not a
// Relationships document of the relationships namespace, or holds a relationship without
// Id, Type or Target, with a TargetMode other than "Internal" or "External", that the
// Relationship constructor refuses, or whose id another relationship already has.
std::vector<Relationship> readRelationships(opc::InputStream& stream, URI const& sourceURI,
                                            std::string const& context);

// Writes the document of these relationships: every one with its Id, Type and Target, and
// TargetMode="External" for external ones.  Targets are written with non-ASCII characters
// percent-encoded (see asciiOnly), which names the same target.
void writeRelationships(std::vector<Relationship> const& relationships, opc::OutputStream& stream);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_RELATIONSHIPS_XML_H_
