// Text helpers of the XML layer, free of the XML library's headers so that the element
// operations on plain nodes share them.  Internal: nothing here is exported.
#ifndef OPC_MODEL_XML_XML_TEXT_H_
#define OPC_MODEL_XML_XML_TEXT_H_

#include <string>

namespace opc {
namespace model {
namespace detail {

// Null-terminated UTF-16 (the XML library's own text), or null for none, as narrow message
// text, through opc::toUDEString like every name in a message.  Null gives "".
std::string toMessageText(char16_t const* text);
std::string toMessageText(std::u16string const& text);

// The same in double quotes.
std::string quotedName(char16_t const* text);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XML_TEXT_H_
