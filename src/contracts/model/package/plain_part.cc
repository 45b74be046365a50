#include "plain_part.h"

#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>

namespace opc {
namespace model {
namespace detail {

bool readPlainPart(std::function<std::shared_ptr<opc::InputStream>()> const& open, std::size_t size,
                   PlainDocumentShape const& shape, std::vector<PlainElement>& elements,
                   std::string const& context) {
  std::shared_ptr<opc::InputStream> const stream = open();
  try {
    return readPlainElements(*stream, size, shape, elements);
  } catch (InvalidXMLDocument const& e) {
    // A failure to close the stream, told as the parser's road tells it.
    throw InvalidPackage(context + ": " + e.what());
  } catch (InvalidPartContent const& e) {
    throw InvalidPackage(context + ": " + e.what());
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
