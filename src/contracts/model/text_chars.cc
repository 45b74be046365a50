#include "text_chars.h"

#include <opc/core/string_conversions.h>

namespace opc {
namespace model {
namespace detail {

int hexValue(char32_t c) {
  if (isAsciiDigit(c)) return static_cast<int>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
  return -1;
}

bool asciiCaselessEqual(std::u16string const& a, std::u16string const& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  }
  return true;
}

std::u16string asciiLowered(std::u16string const& text) {
  std::u16string result(text);
  for (char16_t& c : result) c = asciiLower(c);
  return result;
}

bool isSubDelim(char32_t c) {
  switch (c) {
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
      return true;
    default:
      return false;
  }
}

bool isUcsChar(char32_t c) {
  if (c >= 0xA0 && c <= 0xD7FF) return true;
  if (c >= 0xF900 && c <= 0xFDCF) return true;
  if (c >= 0xFDF0 && c <= 0xFFEF) return true;
  // From U+10000 on, every plane up to U+E0000 counts except its last two code points,
  // which are non-characters; plane 15 and 16 are private use.
  if (c >= 0x10000 && c <= 0xEFFFD) {
    if ((c & 0xFFFF) >= 0xFFFE) return false;
    if (c >= 0xE0000 && c < 0xE1000) return false;
    return true;
  }
  return false;
}

char32_t nextCodePoint(std::u16string const& text, std::size_t& index) {
  char32_t const unit = text[index++];
  if (unit >= 0xD800 && unit <= 0xDBFF && index < text.size()) {
    char32_t const low = text[index];
    if (low >= 0xDC00 && low <= 0xDFFF) {
      ++index;
      return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
  }
  return unit;
}

std::string describeCharacter(char32_t c) {
  if (c >= 0x20 && c <= 0x7E) return std::string("\"") + static_cast<char>(c) + "\"";
  static char const kHex[] = "0123456789ABCDEF";
  std::string digits;
  for (char32_t v = c; v != 0 || digits.size() < 4; v >>= 4) {
    digits.insert(digits.begin(), kHex[v & 0xF]);
  }
  return "U+" + digits;
}

namespace {

// Control characters would cut a message short (U+0000 ends what()) or break its line, so
// they are shown as "\xHH"; the runs between them go through `narrow`.
std::string quoteWith(std::u16string const& text, std::string (*narrow)(std::u16string const&)) {
  static char const kHex[] = "0123456789ABCDEF";
  std::string result("\"");
  std::size_t runStart = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    bool const atEnd = i == text.size();
    if (!atEnd && text[i] >= 0x20 && text[i] != 0x7F) continue;
    result += narrow(text.substr(runStart, i - runStart));
    if (atEnd) break;
    result += "\\x";
    result += kHex[(text[i] >> 4) & 0xF];
    result += kHex[text[i] & 0xF];
    runStart = i + 1;
  }
  return result + "\"";
}

}  // namespace

std::string quoted(std::u16string const& text) { return quoteWith(text, opc::toUDEString); }

std::string quotedAscii(std::u16string const& text) { return quoteWith(text, opc::toASCIIString); }

bool isWellFormedUtf8(std::string const& bytes) {
  std::size_t i = 0;
  while (i < bytes.size()) {
    unsigned char const lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t length = 0;
    char32_t value = 0;
    char32_t minimum = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, value = lead & 0x1F, minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3, value = lead & 0x0F, minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, value = lead & 0x07, minimum = 0x10000;
    } else {
      return false;
    }
    if (bytes.size() - i < length) return false;
    for (std::size_t k = 1; k < length; ++k) {
      unsigned char const next = static_cast<unsigned char>(bytes[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      value = (value << 6) | (next & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
      return false;
    }
    i += length;
  }
  return true;
}

void appendPercentEscape(std::u16string& out, unsigned char byte) {
  static char16_t const kHex[] = u"0123456789ABCDEF";
  out += u'%';
  out += kHex[byte >> 4];
  out += kHex[byte & 0xF];
}

}  // namespace detail
}  // namespace model
}  // namespace opc
