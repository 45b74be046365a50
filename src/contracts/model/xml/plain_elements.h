// PlainElements: the child elements of a flat XML document (a root holding empty elements with
// attributes), read without the XML parser when a strict reader can vouch for the document.
// Internal to libopcmodel; exported for the model's own tests and fuzz targets only.
#ifndef OPC_MODEL_XML_PLAIN_ELEMENTS_H_
#define OPC_MODEL_XML_PLAIN_ELEMENTS_H_

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/export.h>

#include "../xml_engine/xml_engine.h"

namespace opc {
namespace model {
namespace detail {

// The most attributes that are read from one child element.
constexpr std::size_t kMaxPlainAttributes = 4;

// One kind of child element: its local name and the names of the attributes read from it
// (unused rooms empty).
struct PlainElementKind {
  std::u16string_view name;
  std::array<std::u16string_view, kMaxPlainAttributes> attributes;
};

// What a flat document holds: its root's local name and namespace, and the kinds of its
// children that a reader looks at.  The kinds are not owned.
struct PlainDocumentShape {
  std::u16string_view root;
  std::u16string_view ns;
  PlainElementKind const* kinds;
  std::size_t kindCount;
};

// A child element of one of the kinds: the index of its kind and the value of each of the
// kind's attributes, or none where the element does not carry it.
struct PlainElement {
  std::size_t kind = 0;
  std::array<std::optional<std::u16string>, kMaxPlainAttributes> values;

  bool operator==(PlainElement const& other) const {
    return kind == other.kind && values == other.values;
  }
};

// Reads the document in `data` (`size` bytes) strictly: true, with the children of the known
// kinds in `elements` (those of the first kind in document order, then those of the second...),
// if the document is one that the XML parser accepts
// as well-formed, whose root is `shape.root` in the namespace `shape.ns`, and in which
// plainElementsOf() below finds the same elements with the same values.  False when the reader
// cannot tell, with `elements` in an unspecified state: the caller leaves the document to the
// parser then.  Never throws but for std::bad_alloc.
//
// What it accepts: UTF-8 without a byte order mark, with only characters that XML allows; an
// optional XML declaration of version "1.0", encoding "UTF-8", standalone "yes" or "no";
// whitespace between the markup; the root, with the namespace declared as the default one and
// no other attribute, holding only empty elements of the known kinds, each with only its
// kind's attributes, each at most once.  Attribute values may hold the five predefined
// entities and character references.  Anything else (comments, processing instructions, a
// document type declaration, CDATA, text, prefixes, other names, a raw tab, line feed or
// carriage return inside a value) makes it give up.
OPC_MODEL_EXPORT bool readPlainElements(unsigned char const* data, std::size_t size,
                                        PlainDocumentShape const& shape,
                                        std::vector<PlainElement>& elements);

// Reads `stream` whole (opened here, read to its end) and then as readPlainElements() does.
// On success the stream is closed, and what its close() raises passes through.  On any other
// outcome, a failure of the stream included, the stream is closed quietly and the result is
// false: the caller reads the document through the parser from a new stream, which then tells
// whatever is wrong with it.  `sizeHint` is the size the document is expected to have: the
// first read asks for all of it at once.
OPC_MODEL_EXPORT bool readPlainElements(opc::InputStream& stream, std::size_t sizeHint,
                                        PlainDocumentShape const& shape,
                                        std::vector<PlainElement>& elements);

// The same elements from a parsed document's root: its child elements whose local name is one
// of the kinds', kind by kind, each kind's in document order, with each attribute of the kind found
// by its name.
OPC_MODEL_EXPORT std::vector<PlainElement> plainElementsOf(XmlNode const& root,
                                                           PlainDocumentShape const& shape);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_PLAIN_ELEMENTS_H_
