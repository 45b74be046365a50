// The character level of the strict XML readers: the readers that take the plain form this
// library writes without the XML parser, and give up on anything else so that the parser reads
// it instead.  Shared by the model's reader of content types and relationships and by the file
// system's manifest reader, so that both accept exactly the same characters and references.
//
// Header only, and never installed: each library compiles its own hidden copy.
#ifndef OPC_MODEL_STRICT_XML_STRICT_XML_TEXT_H_
#define OPC_MODEL_STRICT_XML_STRICT_XML_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace opc {
namespace model {
namespace strict_xml {

// Whether `c` is a character that XML 1.0 allows in a document.
inline bool isXmlChar(std::uint32_t c) {
  if (c < 0x20) return c == 0x09 || c == 0x0A || c == 0x0D;
  return c <= 0xD7FF || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

inline void appendCodePoint(std::u16string& out, std::uint32_t c) {
  if (c < 0x10000) {
    out.push_back(static_cast<char16_t>(c));
  } else {
    c -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
  }
}

// Consumes `text` if the bytes from `at` go on with it.
inline bool takeText(unsigned char const*& at, unsigned char const* end, std::string_view text) {
  if (static_cast<std::size_t>(end - at) < text.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (at[i] != static_cast<unsigned char>(text[i])) return false;
  }
  at += text.size();
  return true;
}

// What the decoders below give for bytes that are not a character they take.
inline constexpr std::uint32_t kNoCharacter = 0xFFFFFFFFu;

// One character of two to four bytes at `at` (before `end`), decoded strictly: no overlong
// form, no surrogate, no code point above U+10FFFF, and only characters that XML allows.
// Returns it and moves `at` past it; kNoCharacter, with `at` where it was, otherwise.
inline std::uint32_t multiByteCharacter(unsigned char const*& at, unsigned char const* end) {
  unsigned char const lead = *at;
  // The forms of nearly every character of another script first: two bytes (U+0080 to U+07FF,
  // all of them characters), and three bytes with leads whose second byte may be any
  // continuation byte (no overlong form, no surrogate), of which only U+FFFE and U+FFFF are no
  // characters.  Everything else takes the general road below, with the same outcome.
  std::size_t const left = static_cast<std::size_t>(end - at);
  if (lead >= 0xC2 && lead <= 0xDF && left >= 2 && (at[1] & 0xC0) == 0x80) {
    std::uint32_t const c = (std::uint32_t{lead} & 0x1F) << 6 | (at[1] & 0x3F);
    at += 2;
    return c;
  }
  if (lead >= 0xE1 && lead <= 0xEF && lead != 0xED && left >= 3 && (at[1] & 0xC0) == 0x80 &&
      (at[2] & 0xC0) == 0x80) {
    std::uint32_t const c =
        (std::uint32_t{lead} & 0x0F) << 12 | (at[1] & 0x3Fu) << 6 | (at[2] & 0x3F);
    if (c > 0xFFFD) return kNoCharacter;
    at += 3;
    return c;
  }
  std::size_t length = 0;
  std::uint32_t c = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    c = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    c = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    c = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return kNoCharacter;
  }
  if (static_cast<std::size_t>(end - at) < length) return kNoCharacter;
  for (std::size_t i = 1; i < length; ++i) {
    unsigned char const next = at[i];
    if (next < (i == 1 ? low : 0x80) || next > (i == 1 ? high : 0xBF)) return kNoCharacter;
    c = (c << 6) | (next & 0x3F);
  }
  if (!isXmlChar(c)) return kNoCharacter;
  at += length;
  return c;
}

// As multiByteCharacter, the character appended to `out`; false for bytes it does not take.
inline bool takeMultiByte(unsigned char const*& at, unsigned char const* end, std::u16string& out) {
  std::uint32_t const c = multiByteCharacter(at, end);
  if (c == kNoCharacter) return false;
  appendCodePoint(out, c);
  return true;
}

// "&" at `at` and one of the five predefined entities or a character reference of a character
// that XML allows: its character.  kNoCharacter otherwise, with `at` somewhere in the
// reference: the reader gives up then.
inline std::uint32_t referenceCharacter(unsigned char const*& at, unsigned char const* end) {
  static constexpr struct {
    std::string_view text;
    char16_t character;
  } kEntities[] = {
      {"&lt;", u'<'}, {"&gt;", u'>'}, {"&amp;", u'&'}, {"&quot;", u'"'}, {"&apos;", u'\''}};
  for (auto const& entity : kEntities) {
    if (takeText(at, end, entity.text)) return entity.character;
  }
  if (!takeText(at, end, "&#")) return kNoCharacter;
  bool const hex = takeText(at, end, "x");
  std::uint32_t c = 0;
  std::size_t count = 0;
  while (at != end && *at != ';') {
    unsigned char const d = *at;
    std::uint32_t value = 0;
    if (d >= '0' && d <= '9') {
      value = d - '0';
    } else if (hex && d >= 'a' && d <= 'f') {
      value = d - 'a' + 10;
    } else if (hex && d >= 'A' && d <= 'F') {
      value = d - 'A' + 10;
    } else {
      return kNoCharacter;
    }
    // Eight digits hold every character; more, even leading zeros, are left to the parser.
    if (++count > 8) return kNoCharacter;
    c = c * (hex ? 16 : 10) + value;
    ++at;
  }
  if (count == 0 || !takeText(at, end, ";") || !isXmlChar(c)) return kNoCharacter;
  return c;
}

// As referenceCharacter, the character appended to `out`; false for what it does not take.
inline bool takeReference(unsigned char const*& at, unsigned char const* end, std::u16string& out) {
  std::uint32_t const c = referenceCharacter(at, end);
  if (c == kNoCharacter) return false;
  appendCodePoint(out, c);
  return true;
}

// Writes `c` at `to` as one UTF-16 unit or a surrogate pair; returns the end of what it wrote.
inline char16_t* putCodePoint(char16_t* to, std::uint32_t c) {
  if (c < 0x10000) {
    *to++ = static_cast<char16_t>(c);
  } else {
    c -= 0x10000;
    *to++ = static_cast<char16_t>(0xD800 + (c >> 10));
    *to++ = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
  return to;
}

// Whitespace as XML has it: space, tab, line feed, carriage return.
inline bool isSpace(unsigned char c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }

inline void skipSpaces(unsigned char const*& at, unsigned char const* end) {
  while (at != end && isSpace(*at)) ++at;
}

// "=" and a quoted attribute value at `at`, its characters and references decoded into `out`.
// `takePlain(out)` takes the bytes that need no decoding: it is called at a printable ASCII
// byte (or the quote that does not close this value) and must consume at least that byte, by
// moving the very `at` given here.  False, for the reader to give up, on a value that is not
// closed, a byte that is not a character, or a raw tab, line feed or carriage return, which
// the parser normalises.
template <typename TakePlain>
bool takeAttributeValue(unsigned char const*& at, unsigned char const* end, std::u16string& out,
                        TakePlain&& takePlain) {
  skipSpaces(at, end);
  if (!takeText(at, end, "=")) return false;
  skipSpaces(at, end);
  if (at == end || (*at != '"' && *at != '\'')) return false;
  unsigned char const quote = *at++;
  out.clear();
  while (at != end) {
    unsigned char const c = *at;
    if (c == quote) {
      ++at;
      return true;
    }
    if (c >= 0x80) {
      if (!takeMultiByte(at, end, out)) return false;
    } else if (c == '&') {
      if (!takeReference(at, end, out)) return false;
    } else if (c < 0x20 || c == '<') {
      return false;
    } else {
      takePlain(out);
    }
  }
  return false;
}

}  // namespace strict_xml
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_STRICT_XML_STRICT_XML_TEXT_H_
