// Text helpers of the XML layer.  Internal to libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_XML_XML_TEXT_H_
#define OPC_MODEL_XML_XML_TEXT_H_

#include <string>

#include <xercesc/util/XercesDefs.hpp>

namespace opc {
namespace model {
namespace detail {

// Text of the XML library (null-terminated UTF-16, or null for none) as narrow message
// text, through opc::toUDEString like every name in a message.  Null gives "".
std::string toMessageText(XMLCh const* text);
std::string toMessageText(std::u16string const& text);

// The same in double quotes.
std::string quotedName(XMLCh const* text);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XML_TEXT_H_
