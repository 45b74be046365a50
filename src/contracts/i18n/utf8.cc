#include "utf8.h"

#include <cstdint>
#include <cstring>

namespace fl {
namespace i18n {
namespace detail {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isContinuation(unsigned char byte, unsigned char low = 0x80, unsigned char high = 0xBF) {
  return byte >= low && byte <= high;
}

// The length of the well-formed sequence that starts at `p` (table 3-7 of the Unicode
// standard), or 0 if there is none.  `end` bounds the bytes that may be looked at.
std::size_t sequenceLength(unsigned char const* p, unsigned char const* end) {
  unsigned char const lead = p[0];
  std::size_t const available = static_cast<std::size_t>(end - p);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    return available >= 2 && isContinuation(p[1]) ? 2 : 0;
  }
  if (lead >= 0xE0 && lead <= 0xEF) {
    if (available < 3) return 0;
    // E0 would allow overlong forms below A0, ED the surrogates from A0 up.
    unsigned char const low = lead == 0xE0 ? 0xA0 : 0x80;
    unsigned char const high = lead == 0xED ? 0x9F : 0xBF;
    return isContinuation(p[1], low, high) && isContinuation(p[2]) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    if (available < 4) return 0;
    // F0 would allow overlong forms below 90, F4 code points above U+10FFFF from 90 up.
    unsigned char const low = lead == 0xF0 ? 0x90 : 0x80;
    unsigned char const high = lead == 0xF4 ? 0x8F : 0xBF;
    return isContinuation(p[1], low, high) && isContinuation(p[2]) && isContinuation(p[3]) ? 4 : 0;
  }
  return 0;
}

// The length of the maximal subpart at `p`: the bytes that start a well-formed sequence, as
// far as they go before a byte that cannot continue it or the end, at least the lead byte.
// With the bounds of sequenceLength, so that a complete sequence gives its whole length.
std::size_t subpartLength(unsigned char const* p, unsigned char const* end) {
  unsigned char const lead = p[0];
  std::size_t need;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    need = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    need = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    need = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 1;
  }
  std::size_t length = 1;
  while (length < need && p + length != end && isContinuation(p[length], low, high)) {
    ++length;
    low = 0x80;
    high = 0xBF;
  }
  return length;
}

// Text is mostly ASCII: the first byte from `p` on that may not be, found eight bytes at a
// time; fewer than eight bytes at the end are left to the caller.
unsigned char const* skipAsciiWords(unsigned char const* p, unsigned char const* end) {
  while (end - p >= 8) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    if ((word & UINT64_C(0x8080808080808080)) != 0) break;
    p += 8;
  }
  return p;
}

std::size_t encodedLength(char32_t c) {
  if (c < 0x80) return 1;
  if (c < 0x800) return 2;
  if (c < 0x10000) return 3;
  return 4;
}

void put(char*& out, char32_t c) {
  if (c < 0x80) {
    *out++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *out++ = static_cast<char>(0xC0 | (c >> 6));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *out++ = static_cast<char>(0xE0 | (c >> 12));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | (c >> 18));
    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
}

// Calls `visit` with each code point of `text`, pairing surrogates and replacing an
// unpaired one.
template <class Visit>
void forEachCodePoint(std::u16string const& text, Visit&& visit) {
  std::size_t const size = text.size();
  for (std::size_t i = 0; i < size; ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDFFF) {
      if (c <= 0xDBFF && i + 1 < size && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
        ++i;
      } else {
        c = kReplacement;
      }
    }
    visit(c);
  }
}

}  // namespace

bool isWellFormedUtf8(char const* data, std::size_t size) {
  auto const* p = reinterpret_cast<unsigned char const*>(data);
  auto const* const end = p + size;
  while (p != end) {
    p = skipAsciiWords(p, end);
    if (p == end) break;
    std::size_t const length = sequenceLength(p, end);
    if (length == 0) return false;
    p += length;
  }
  return true;
}

void Utf8Validator::update(unsigned char const* p, std::size_t size) {
  unsigned char const* const end = p + size;
  while (p != end && !broken_) {
    if (expected_ > 0) {
      if (*p < low_ || *p > high_) {
        broken_ = true;
        return;
      }
      ++p;
      --expected_;
      low_ = 0x80;
      high_ = 0xBF;
      continue;
    }
    p = skipAsciiWords(p, end);
    if (p == end) break;
    unsigned char const lead = *p++;
    if (lead < 0x80) continue;
    // The same bounds as sequenceLength, kept for the bytes that are still to come.
    if (lead >= 0xC2 && lead <= 0xDF) {
      expected_ = 1;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      expected_ = 2;
      low_ = lead == 0xE0 ? 0xA0 : 0x80;
      high_ = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      expected_ = 3;
      low_ = lead == 0xF0 ? 0x90 : 0x80;
      high_ = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
      broken_ = true;
    }
  }
}

std::string encodeUtf8(std::u16string const& text) {
  // Measured first, so that a text of hundreds of MiB is written into one allocation.
  std::size_t length = 0;
  forEachCodePoint(text, [&length](char32_t c) { length += encodedLength(c); });
  std::string out(length, '\0');
  char* cursor = out.empty() ? nullptr : &out[0];
  forEachCodePoint(text, [&cursor](char32_t c) { put(cursor, c); });
  return out;
}

std::u16string decodeUtf8(char const* data, std::size_t size, bool dropByteOrderMark) {
  if (size == 0) return std::u16string();
  auto const* p = reinterpret_cast<unsigned char const*>(data);
  auto const* const end = p + size;
  // Never more UTF-16 units than bytes; the string is shrunk once at the end.
  std::u16string out(size, u'\0');
  char16_t* cursor = &out[0];
  while (p != end) {
    unsigned char const* const ascii = skipAsciiWords(p, end);
    while (p != ascii) *cursor++ = *p++;
    if (p == end) break;
    if (*p < 0x80) {
      *cursor++ = *p++;
      continue;
    }
    std::size_t const length = sequenceLength(p, end);
    if (length == 0) {
      *cursor++ = static_cast<char16_t>(kReplacement);
      p += subpartLength(p, end);
      continue;
    }
    char32_t c;
    if (length == 2) {
      c = (char32_t{p[0]} & 0x1F) << 6 | (p[1] & 0x3F);
    } else if (length == 3) {
      c = (char32_t{p[0]} & 0x0F) << 12 | (char32_t{p[1]} & 0x3F) << 6 | (p[2] & 0x3F);
    } else {
      c = (char32_t{p[0]} & 0x07) << 18 | (char32_t{p[1]} & 0x3F) << 12 |
          (char32_t{p[2]} & 0x3F) << 6 | (p[3] & 0x3F);
    }
    p += length;
    if (c < 0x10000) {
      *cursor++ = static_cast<char16_t>(c);
    } else {
      c -= 0x10000;
      *cursor++ = static_cast<char16_t>(0xD800 + (c >> 10));
      *cursor++ = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    }
  }
  out.resize(static_cast<std::size_t>(cursor - &out[0]));
  if (dropByteOrderMark && !out.empty() && out[0] == u'\uFEFF') out.erase(0, 1);
  return out;
}

bool isAscii(char const* data, std::size_t size) {
  auto const* p = reinterpret_cast<unsigned char const*>(data);
  auto const* const end = p + size;
  p = skipAsciiWords(p, end);
  while (p != end && *p < 0x80) ++p;
  return p == end;
}

std::u16string widenAscii(char const* data, std::size_t size) {
  std::u16string out(size, u'\0');
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<unsigned char>(data[i]);
  return out;
}

}  // namespace detail
}  // namespace i18n
}  // namespace fl
