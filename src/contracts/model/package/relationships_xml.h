// The XML of a relationships part ("_rels/.rels", "<folder>/_rels/<name>.rels").  Internal to
// libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_PACKAGE_RELATIONSHIPS_XML_H_
#define OPC_MODEL_PACKAGE_RELATIONSHIPS_XML_H_

#include <cstddef>
#include <functional>
#include <memory>
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

// Gives a new stream of a document, from its first byte, each time it is called.
using OpenStream = std::function<std::shared_ptr<opc::InputStream>()>;

// Reads the relationships as readRelationships() above does, with the same outcome on every
// input, from a stream that `open` gives; `size` is the size the document is expected to have.
// A document of the plain form that writeRelationships makes is read without the XML parser;
// any other, or a stream that fails, is read again by the parser from a second stream.  What
// `open` raises passes through.
std::vector<Relationship> readRelationships(OpenStream const& open, std::size_t size,
                                            URI const& sourceURI, std::string const& context);

// Writes the document of these relationships: every one with its Id, Type and Target, and
// TargetMode="External" for external ones.  Targets are written with non-ASCII characters
// percent-encoded (see asciiOnly), which names the same target.
void writeRelationships(std::vector<Relationship> const& relationships, opc::OutputStream& stream);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_RELATIONSHIPS_XML_H_
