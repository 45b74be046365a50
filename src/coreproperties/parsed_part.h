// ParsedPart: the document of an XML part, read through a handler's parser with a bound on
// the part's size.  Internal to the core properties subsystem.
#ifndef SRC_COREPROPERTIES_PARSED_PART_H_
#define SRC_COREPROPERTIES_PARSED_PART_H_

#include <cstddef>
#include <string>

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMLSParser.hpp>

#include <opc/core/input_stream.h>

namespace opc {
namespace vkservices {
namespace detail {

// The largest XML part of the core properties that is read.  A real one is a few hundred
// bytes; a larger one is hostile and would only cost memory in the parser's tree.
constexpr std::size_t kMaxPropertiesPartSize = std::size_t{4} << 20;

// Parses the part from `stream` (opened, read to its end and closed) with `parser`, which
// keeps the document; the parser's document pool is reset when this object goes, however the
// reading ends, so that a handler holds no document between reads.  `validate` asks for
// validation against the parser's cached grammar.
//
// Raises opc::model::InvalidPartContent with the parser's text for a document that is not
// well-formed or not valid, and "The <partDescription> part is larger than 4194304 bytes"
// once the stream gives more than kMaxPropertiesPartSize bytes.  An exception of the stream
// passes through.
class ParsedPart {
 public:
  ParsedPart(xercesc::DOMLSParser& parser, opc::InputStream& stream, bool validate,
             std::string const& partDescription);
  ParsedPart(ParsedPart const&) = delete;
  ParsedPart& operator=(ParsedPart const&) = delete;
  ~ParsedPart();

  // The document element, or null if the document has none; owned by the parser.
  xercesc::DOMElement* root() const { return root_; }

 private:
  xercesc::DOMLSParser& parser_;
  xercesc::DOMElement* root_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_PARSED_PART_H_
