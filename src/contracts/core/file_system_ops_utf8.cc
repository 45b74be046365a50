#include "file_system_ops_utf8.h"

#include <cstddef>
#include <cstdint>

#include <opc/core/string_conversions.h>

#include "utf8_append.h"

namespace opc {
namespace detail {
namespace {

constexpr char16_t kEscapeBase = 0xDC00;  // U+DC80..U+DCFF stand for the bytes 0x80..0xFF.

bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Converts `text`; `lone` says what to do with a code unit that has no UTF-8 form: it returns
// false to stop the conversion.
template <typename Lone>
bool convert(std::u16string const& text, std::string& out, Lone lone) {
  // A leading run of ASCII, the whole of most paths, is copied a code unit a byte.
  std::size_t ascii = 0;
  while (ascii < text.size() && text[ascii] != 0 && text[ascii] < 0x80) ++ascii;
  out.resize(ascii);
  for (std::size_t i = 0; i < ascii; ++i) out[i] = static_cast<char>(text[i]);
  if (ascii == text.size()) return true;
  out.reserve(text.size());
  for (std::size_t i = ascii; i < text.size(); ++i) {
    char16_t c = text[i];
    if (isHighSurrogate(c) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
      char32_t full = 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) +
                      (static_cast<char32_t>(text[i + 1]) - 0xDC00);
      appendUtf8(out, full);
      ++i;
    } else if (isHighSurrogate(c) || isLowSurrogate(c) || c == 0) {
      if (!lone(c, out)) return false;
    } else {
      appendUtf8(out, c);
    }
  }
  return true;
}

// Length of the valid UTF-8 sequence at `i`, or 0 if the bytes there are not one.
std::size_t validSequenceAt(std::string const& s, std::size_t i, char32_t& value) {
  auto byte = [&](std::size_t k) { return static_cast<std::uint8_t>(s[k]); };
  std::uint8_t b0 = byte(i);
  std::size_t length;
  char32_t minimum;
  if (b0 < 0x80) {
    value = b0;
    return 1;
  } else if (b0 >= 0xC2 && b0 <= 0xDF) {
    length = 2, minimum = 0x80, value = b0 & 0x1F;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    length = 3, minimum = 0x800, value = b0 & 0x0F;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    length = 4, minimum = 0x10000, value = b0 & 0x07;
  } else {
    return 0;
  }
  if (i + length > s.size()) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    value = (value << 6) | (byte(i + k) & 0x3F);
  }
  // Overlong forms, encoded surrogates and values beyond Unicode are not UTF-8.
  if (value < minimum || (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF) return 0;
  return length;
}

}  // namespace

bool toFileSystemBytes(std::u16string const& path, std::string& out) {
  return convert(path, out, [](char16_t c, std::string& bytes) {
    if (c < kEscapeBase + 0x80 || c > kEscapeBase + 0xFF) return false;
    bytes.push_back(static_cast<char>(c - kEscapeBase));
    return true;
  });
}

std::u16string fromFileSystemBytes(std::string const& bytes) {
  std::u16string out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    char32_t value = 0;
    std::size_t length = validSequenceAt(bytes, i, value);
    if (length == 0) {
      out.push_back(static_cast<char16_t>(kEscapeBase + static_cast<std::uint8_t>(bytes[i])));
      ++i;
      continue;
    }
    if (value >= 0x10000) {
      value -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (value >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(value));
    }
    i += length;
  }
  return out;
}

std::string toMessageText(std::u16string const& path) {
  // A NUL would end what() early and hide the rest of the message.
  std::string text = toUDEString(path);
  for (char& c : text) {
    if (c == '\0') c = '?';
  }
  return text;
}

}  // namespace detail
}  // namespace opc
