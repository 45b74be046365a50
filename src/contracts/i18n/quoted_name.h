// How an encoding's name appears in a message.  Private to libvki18n and its companion.
#ifndef FL_I18N_QUOTED_NAME_H_
#define FL_I18N_QUOTED_NAME_H_

#include <string>

namespace fl {
namespace i18n {
namespace detail {

// The name in quotes, control bytes (a NUL included, which would end the message) as \xNN.
inline std::string quotedName(std::string const& name) {
  std::string out = "\"";
  for (char c : name) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      char const* const digits = "0123456789ABCDEF";
      out += "\\x";
      out += digits[byte >> 4];
      out += digits[byte & 0xF];
    } else {
      out += c;
    }
  }
  return out + "\"";
}

}  // namespace detail
}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_QUOTED_NAME_H_
