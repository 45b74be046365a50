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

}  // namespace detail
}  // namespace i18n
}  // namespace fl
