// Character classes and small text helpers shared by the value classes of the model.
// Internal to libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_TEXT_CHARS_H_
#define OPC_MODEL_TEXT_CHARS_H_

#include <cstddef>
#include <string>

namespace opc {
namespace model {
namespace detail {

inline bool isAsciiAlpha(char32_t c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
inline bool isAsciiDigit(char32_t c) { return c >= '0' && c <= '9'; }
inline bool isHexDigit(char32_t c) {
  return isAsciiDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}
int hexValue(char32_t c);

inline char16_t asciiLower(char16_t c) {
  return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}
// True if both texts are equal when ASCII letters are folded to lower case; other characters
// must match exactly.
bool asciiCaselessEqual(std::u16string const& a, std::u16string const& b);
std::u16string asciiLowered(std::u16string const& text);

// RFC 3986 character classes.
inline bool isUnreserved(char32_t c) {
  return isAsciiAlpha(c) || isAsciiDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}
bool isSubDelim(char32_t c);
// RFC 3987 "ucschar": the non-ASCII characters that an IRI may hold outside its query.
bool isUcsChar(char32_t c);

// Reads the code point that starts at `index` and moves `index` past it.  An unpaired
// surrogate is returned as itself, a value that no character class accepts.
char32_t nextCodePoint(std::u16string const& text, std::size_t& index);

// A character as messages show it: printable ASCII in double quotes, others as U+XXXX.
std::string describeCharacter(char32_t c);
// A name, path or URI for a message: narrowed by opc::toUDEString, in double quotes, with
// control characters (U+0000 to U+001F, U+007F) shown as "\xHH".
std::string quoted(std::u16string const& text);
// The same for text that is ASCII by design (content types): narrowed by opc::toASCIIString.
std::string quotedAscii(std::u16string const& text);

// True if the bytes are well-formed UTF-8 (no overlong forms, surrogates or values above
// U+10FFFF).
bool isWellFormedUtf8(std::string const& bytes);

// Appends "%XX" with upper-case hexadecimal digits.
void appendPercentEscape(std::u16string& out, unsigned char byte);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_TEXT_CHARS_H_
