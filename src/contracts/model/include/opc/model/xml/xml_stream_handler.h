// XmlStreamHandler: what an XmlStreamReader tells of a document as it reads it.
#ifndef OPC_MODEL_XML_XML_STREAM_HANDLER_H_
#define OPC_MODEL_XML_XML_STREAM_HANDLER_H_

#include <cstddef>
#include <string_view>
#include <vector>

#include <opc/model/export.h>

namespace opc {
namespace model {

// One attribute of an element as the reader saw it, after the parser's normalisation of its
// value.  `name` is the qualified name as written ("version", "xsi:type"); a namespace
// declaration ("xmlns", "xmlns:p") is an attribute like any other.
struct XmlStreamAttribute {
  std::u16string_view name;
  std::u16string_view value;
};

// The start of one element.  The texts are views into the reader's buffers: they stay valid
// during the call that receives them, and not a moment longer; copy what must be kept.
struct OPC_MODEL_EXPORT XmlStreamElement {
  std::u16string_view namespaceURI;  // empty when the element is in no namespace
  std::u16string_view localName;
  std::size_t depth = 0;  // 0 for the document element, 1 for its children, ...
  std::vector<XmlStreamAttribute> const* attributes = nullptr;

  // The value of the attribute whose qualified name is `name`, or nullptr if the element has
  // none (a present but empty attribute gives a pointer to an empty view).  Linear in the
  // number of attributes.
  std::u16string_view const* findAttribute(std::u16string_view name) const;
};

// Receives the elements of a document in document order, from one thread at a time.  Text,
// comments and processing instructions are not reported.
//
// A handler may throw to refuse what it is given: see XmlStreamReader::read for what then
// happens.
class OPC_MODEL_EXPORT XmlStreamHandler {
 public:
  virtual ~XmlStreamHandler();

  // Called when an element starts, with its attributes (those that the grammar supplies by
  // default included).  An empty element <a/> starts and ends at once.
  virtual void startElement(XmlStreamElement const& element) = 0;

  // Called when an element ends.  Does nothing unless overridden.
  virtual void endElement(std::size_t depth);
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XML_STREAM_HANDLER_H_
