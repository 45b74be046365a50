#include "xml_text.h"

#include <opc/core/string_conversions.h>

namespace opc {
namespace model {
namespace detail {

std::string toMessageText(char16_t const* text) {
  return text == nullptr ? std::string() : opc::toUDEString(std::u16string(text));
}

std::string toMessageText(std::u16string const& text) { return opc::toUDEString(text); }

std::string quotedName(char16_t const* text) { return "\"" + toMessageText(text) + "\""; }

}  // namespace detail
}  // namespace model
}  // namespace opc
