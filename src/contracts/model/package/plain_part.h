// The first road of reading a part in the package's own flat form (the content types, the
// relationships parts): without the XML parser, which reads the part only when this road cannot
// vouch for it.
#ifndef OPC_MODEL_PACKAGE_PLAIN_PART_H_
#define OPC_MODEL_PACKAGE_PLAIN_PART_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opc/core/input_stream.h>

#include "../xml/plain_elements.h"

namespace opc {
namespace model {
namespace detail {

// Reads a stream that `open` opens through the strict reader (readPlainElements): true with
// `elements` filled if the document is plain; false if the caller must read it through the
// parser from a new stream.  The stream is released before this returns.  A failure that
// closing it raises is an InvalidPackage of `context`, as the parser's road tells it.
bool readPlainPart(std::function<std::shared_ptr<opc::InputStream>()> const& open, std::size_t size,
                   PlainDocumentShape const& shape, std::vector<PlainElement>& elements,
                   std::string const& context);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PLAIN_PART_H_
