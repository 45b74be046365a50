#include <cstddef>
#include <cstdio>
#include <string>

#include <foundation/crypto/encoding.h>
#include <foundation/crypto/exceptions.h>

namespace foundation {
namespace crypto {
namespace utils {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kNotInAlphabet = -1;

// The value of a base64 character, or kNotInAlphabet.
int base64Value(char16_t c) {
  if (c >= u'A' && c <= u'Z') return c - u'A';
  if (c >= u'a' && c <= u'z') return c - u'a' + 26;
  if (c >= u'0' && c <= u'9') return c - u'0' + 52;
  if (c == u'+') return 62;
  if (c == u'/') return 63;
  return kNotInAlphabet;
}

// A character for a message: itself if printable ASCII, U+XXXX otherwise.
std::string shown(char16_t c) {
  if (c > 0x20 && c < 0x7F) return std::string("'") + static_cast<char>(c) + "'";
  char code[16];
  std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
  return code;
}

[[noreturn]] void refuse(std::string const& why) {
  throw Exception("Invalid base64 text: " + why + ".");
}

}  // namespace

std::u16string hexEncode(bytes const& data) {
  std::u16string out(data.size() * 2, u'0');
  for (std::size_t i = 0; i < data.size(); ++i) {
    out[2 * i] = static_cast<char16_t>(kHexDigits[data[i] >> 4]);
    out[2 * i + 1] = static_cast<char16_t>(kHexDigits[data[i] & 0x0F]);
  }
  return out;
}

std::u16string base64Encode(bytes const& data) {
  std::u16string out;
  out.reserve((data.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= data.size(); i += 3) {
    unsigned const group = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
    out += static_cast<char16_t>(kBase64Alphabet[(group >> 18) & 0x3F]);
    out += static_cast<char16_t>(kBase64Alphabet[(group >> 12) & 0x3F]);
    out += static_cast<char16_t>(kBase64Alphabet[(group >> 6) & 0x3F]);
    out += static_cast<char16_t>(kBase64Alphabet[group & 0x3F]);
  }
  std::size_t const rest = data.size() - i;
  if (rest > 0) {
    unsigned const group = (data[i] << 16) | (rest == 2 ? data[i + 1] << 8 : 0);
    out += static_cast<char16_t>(kBase64Alphabet[(group >> 18) & 0x3F]);
    out += static_cast<char16_t>(kBase64Alphabet[(group >> 12) & 0x3F]);
    out += rest == 2 ? static_cast<char16_t>(kBase64Alphabet[(group >> 6) & 0x3F]) : u'=';
    out += u'=';
  }
  return out;
}

bytes base64Decode(std::u16string const& text) {
  if (text.size() % 4 != 0) {
    refuse("its length " + std::to_string(text.size()) + " is not a multiple of 4");
  }
  // "=" may stand only in the last one or two places, and a second "=" only after a first.
  std::size_t padding = 0;
  if (!text.empty() && text.back() == u'=') padding = text[text.size() - 2] == u'=' ? 2 : 1;
  std::size_t const digits = text.size() - padding;
  bytes out;
  out.reserve(text.size() / 4 * 3);
  unsigned group = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    int const value = base64Value(text[i]);
    if (value == kNotInAlphabet) {
      refuse((text[i] == u'=' ? std::string("padding '='") : "the character " + shown(text[i])) +
             " at position " + std::to_string(i) + " is not allowed there");
    }
    group = (group << 6) | static_cast<unsigned>(value);
    if (i % 4 == 3) {
      out.push_back(static_cast<unsigned char>(group >> 16));
      out.push_back(static_cast<unsigned char>(group >> 8));
      out.push_back(static_cast<unsigned char>(group));
      group = 0;
    }
  }
  // The last group: 2 digits give one byte and leave 4 bits over, 3 digits give two bytes
  // and leave 2; bits left over must be zero, or two texts would mean the same bytes.
  if (padding == 2) {
    if ((group & 0x0F) != 0) refuse("the bits left over before the padding are not zero");
    out.push_back(static_cast<unsigned char>(group >> 4));
  } else if (padding == 1) {
    if ((group & 0x03) != 0) refuse("the bits left over before the padding are not zero");
    out.push_back(static_cast<unsigned char>(group >> 10));
    out.push_back(static_cast<unsigned char>(group >> 2));
  }
  return out;
}

}  // namespace utils
}  // namespace crypto
}  // namespace foundation
