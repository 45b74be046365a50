// The UTF-8 form of one code point, shared by the text conversions and the file-system names
// of libopccore.  Private to the library.
#ifndef OPC_CORE_UTF8_APPEND_H_
#define OPC_CORE_UTF8_APPEND_H_

#include <string>

namespace opc {
namespace detail {

// Appends the UTF-8 bytes of `c` (at most U+10FFFF; surrogates are the caller's concern).
inline void appendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_UTF8_APPEND_H_
