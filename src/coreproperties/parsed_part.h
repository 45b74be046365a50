// readPropertiesPart: the document of an XML part of the core properties, read through a
// handler's reader with a bound on the part's size.  Internal to the core properties
// subsystem.
#ifndef SRC_COREPROPERTIES_PARSED_PART_H_
#define SRC_COREPROPERTIES_PARSED_PART_H_

#include <cstddef>
#include <functional>
#include <string>

#include <opc/core/input_stream.h>

#include "contracts/model/xml_engine/xml_engine.h"

namespace opc {
namespace vkservices {
namespace detail {

// The largest XML part of the core properties that is read.  A real one is a few hundred
// bytes; a larger one is hostile and would only cost memory in the reader's tree.
constexpr std::size_t kMaxPropertiesPartSize = std::size_t{4} << 20;

// Reads the part from `stream` (opened, read to its end and closed) and gives its document
// element; the tree is the caller's.  The plain reader reads it when it can vouch for the
// document and `vouch` accepts the tree it read: `vouch` tells that the parser's road would
// accept the document as well (valid against the grammar, for a validating read) and give
// the same values.  Otherwise `reader` gives the reader (made on first need, so that a part
// read plainly never loads the parser), which reads the same bytes, and `validate` asks for
// validation against its grammar.
//
// Raises opc::model::InvalidPartContent with the parser's text for a document that is not
// well-formed or not valid, and "The <partDescription> part is larger than 4194304 bytes"
// once the stream gives more than kMaxPropertiesPartSize bytes.  An exception of the stream
// passes through.
opc::model::detail::XmlNode readPropertiesPart(
    std::function<opc::model::detail::XmlTreeReader&()> const& reader, opc::InputStream& stream,
    bool validate, std::string const& partDescription,
    std::function<bool(opc::model::detail::XmlNode const&)> const& vouch);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_PARSED_PART_H_
