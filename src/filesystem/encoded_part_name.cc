#include "filesystem/encoded_part_name.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// Per ASCII unit, whether a part name keeps it as it stands.
struct KeptUnits {
  bool of[128] = {};
  constexpr KeptUnits() {
    for (char c = 'a'; c <= 'z'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char c = 'A'; c <= 'Z'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char c = '0'; c <= '9'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char const c : std::string_view("-._~/+@")) of[static_cast<unsigned char>(c)] = true;
  }
};
constexpr KeptUnits kKept;

// Per byte, its escape "%XX" (upper-case digits) as three UTF-16 units in the low 48 bits of a
// word, in the machine's (little-endian) order, and zero above: an escape is written with one
// store of eight bytes and checked with one load, where a name of another script is nearly all
// escapes.  The store writes one unit past the escape, which the writer leaves room for.
struct Escapes {
  std::uint64_t of[256] = {};
  constexpr Escapes() {
    constexpr char16_t kHex[] = u"0123456789ABCDEF";
    for (int b = 0; b < 256; ++b) {
      of[b] = std::uint64_t{u'%'} | std::uint64_t{kHex[b >> 4]} << 16 |
              std::uint64_t{kHex[b & 0xF]} << 32;
    }
  }
};
constexpr Escapes kEscapes;
constexpr std::uint64_t kEscapeMask = (std::uint64_t{1} << 48) - 1;
// The units that an escape's store writes beyond the escape itself.
constexpr std::size_t kSpill = 1;

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

// Writes the escape of `byte` at `to`, and one unit after it that the next write replaces.
char16_t* putEscape(char16_t* to, std::uint32_t byte) {
  std::memcpy(to, &kEscapes.of[byte], sizeof kEscapes.of[byte]);
  return to + 3;
}

// The UTF-8 bytes of the character at `at` in `path` that is not ASCII, in `bytes`; moves `at`
// past it (one unit or a surrogate pair) and returns how many bytes it has (2 to 4).
std::size_t utf8Of(std::u16string_view path, std::size_t& at, std::uint32_t* bytes) {
  std::uint32_t point = path[at++];
  if (isHighSurrogate(static_cast<char16_t>(point)) && at < path.size() &&
      isLowSurrogate(path[at])) {
    point = 0x10000 + ((point - 0xD800) << 10) + (path[at++] - 0xDC00);
  }
  if (point < 0x800) {
    bytes[0] = 0xC0 | (point >> 6);
    bytes[1] = 0x80 | (point & 0x3F);
    return 2;
  }
  if (point < 0x10000) {
    bytes[0] = 0xE0 | (point >> 12);
    bytes[1] = 0x80 | ((point >> 6) & 0x3F);
    bytes[2] = 0x80 | (point & 0x3F);
    return 3;
  }
  bytes[0] = 0xF0 | (point >> 18);
  bytes[1] = 0x80 | ((point >> 12) & 0x3F);
  bytes[2] = 0x80 | ((point >> 6) & 0x3F);
  bytes[3] = 0x80 | (point & 0x3F);
  return 4;
}

bool isKept(char16_t unit) { return unit < 0x80 && kKept.of[unit]; }

// Paths are mostly runs of letters and digits between the characters that need escapes: eight
// units of such a run are told, copied and compared in one step where the processor has the
// instructions for it.
#if defined(__SSE2__)
constexpr std::size_t kStep = 8;

__m128i loadStep(char16_t const* units) {
  return _mm_loadu_si128(reinterpret_cast<__m128i const*>(units));
}

// Per unit of `units`, all ones if a part name keeps it: "-./0-9", "@A-Z", "a-z", "_", "~", "+".
// Compared as signed 16-bit lanes, units from 0x8000 up are negative and fall in no range.
__m128i keptLanes(__m128i units) {
  auto const within = [units](short low, short high) {
    return _mm_and_si128(_mm_cmpgt_epi16(units, _mm_set1_epi16(static_cast<short>(low - 1))),
                         _mm_cmplt_epi16(units, _mm_set1_epi16(static_cast<short>(high + 1))));
  };
  __m128i const ranges =
      _mm_or_si128(_mm_or_si128(within(0x2D, 0x39), within(0x40, 0x5A)), within(0x61, 0x7A));
  __m128i const singles = _mm_or_si128(_mm_cmpeq_epi16(units, _mm_set1_epi16(0x5F)),
                                       _mm_or_si128(_mm_cmpeq_epi16(units, _mm_set1_epi16(0x7E)),
                                                    _mm_cmpeq_epi16(units, _mm_set1_epi16(0x2B))));
  return _mm_or_si128(ranges, singles);
}

// How many of the eight lanes of `lanes` are all ones from the first on.
std::size_t leadingLanes(__m128i lanes) {
  unsigned const mask = static_cast<unsigned>(_mm_movemask_epi8(lanes));
  return mask == 0xFFFF ? kStep : static_cast<std::size_t>(__builtin_ctz(~mask)) / 2;
}
#endif

// Whether `name` starts with the part-name root of files and is long enough to hold the
// encoding of `path` after it.
bool mayEncode(std::u16string_view path, std::u16string_view name) {
  return name.size() >= kPartRoot.size() + path.size() &&
         std::memcmp(name.data(), kPartRoot.data(), kPartRoot.size() * sizeof(char16_t)) == 0;
}

// Whether `encoded` is exactly the encoding of `path` that appendEncodedPartName writes after
// the root.  Compared character by character against the text as it stands, without making
// any of it.
bool encodes(std::u16string_view path, std::u16string_view encoded) {
  if (encoded.size() < path.size()) return false;
  char16_t const* at = encoded.data();
  char16_t const* const end = encoded.data() + encoded.size();
  // Whether the escape of `byte` comes next.
  auto const escapeNext = [&at, end](std::uint32_t byte) {
    std::uint64_t units = 0;
    // Eight bytes where the name has them, else the last three units alone: never past its end.
    if (end - at >= 4) {
      std::memcpy(&units, at, sizeof units);
    } else if (end - at == 3) {
      std::memcpy(&units, at, 3 * sizeof(char16_t));
    } else {
      return false;
    }
    if ((units & kEscapeMask) != kEscapes.of[byte]) return false;
    at += 3;
    return true;
  };
  char16_t const* const units = path.data();
  std::size_t const count = path.size();
  std::uint32_t bytes[4];
  for (std::size_t i = 0; i < count;) {
    char16_t const unit = units[i];
    if (isKept(unit)) {
#if defined(__SSE2__)
      // A run of kept units from here, as long as the name has them too.
      if (count - i >= kStep && end - at >= static_cast<std::ptrdiff_t>(kStep)) {
        __m128i const step = loadStep(units + i);
        std::size_t const run =
            leadingLanes(_mm_and_si128(keptLanes(step), _mm_cmpeq_epi16(step, loadStep(at))));
        if (run == 0) return false;
        i += run;
        at += run;
        continue;
      }
#endif
      if (at == end || *at != unit) return false;
      ++at;
      ++i;
    } else if (unit < 0x80) {
      if (!escapeNext(unit)) return false;
      ++i;
    } else if (unit < 0x800) {
      if (!escapeNext(0xC0 | (unit >> 6)) || !escapeNext(0x80 | (unit & 0x3F))) return false;
      ++i;
    } else if (!isHighSurrogate(unit) && !isLowSurrogate(unit)) {
      if (!escapeNext(0xE0 | (unit >> 12)) || !escapeNext(0x80 | ((unit >> 6) & 0x3F)) ||
          !escapeNext(0x80 | (unit & 0x3F))) {
        return false;
      }
      ++i;
    } else {
      std::size_t const n = utf8Of(path, i, bytes);
      for (std::size_t k = 0; k < n; ++k) {
        if (!escapeNext(bytes[k])) return false;
      }
    }
  }
  return at == end;
}

bool sameText(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
}

}  // namespace

void appendEncodedPartName(std::u16string_view path, std::u16string& out) {
  // Made in a block on the stack and appended a block at a time: the name's size is not known
  // before it is made, and measuring it first cost more than the copy.
  char16_t block[512];
  // The most that one step writes: an escaped character of four bytes, or a run of eight kept
  // units, and the unit that an escape's store writes beyond itself.
  constexpr std::size_t kMostPerStep = 12 + kSpill;
  std::memcpy(block, kPartRoot.data(), kPartRoot.size() * sizeof(char16_t));
  char16_t* to = block + kPartRoot.size();
  char16_t const* const units = path.data();
  std::size_t const count = path.size();
  std::uint32_t bytes[4];
  for (std::size_t at = 0; at < count;) {
    if (static_cast<std::size_t>(std::end(block) - to) < kMostPerStep) {
      out.append(block, static_cast<std::size_t>(to - block));
      to = block;
    }
    char16_t const unit = units[at];
    if (isKept(unit)) {
#if defined(__SSE2__)
      // A run of kept units from here: all eight are stored, and those past the run written
      // over next.
      if (count - at >= kStep) {
        __m128i const step = loadStep(units + at);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), step);
        std::size_t const run = leadingLanes(keptLanes(step));
        to += run;
        at += run;
        continue;
      }
#endif
      *to++ = unit;
      ++at;
    } else if (unit < 0x80) {
      to = putEscape(to, unit);
      ++at;
    } else if (unit < 0x800) {
      // The two- and three-byte characters, by far the most of another script, written out
      // without the loop over their bytes.
      to = putEscape(to, 0xC0 | (unit >> 6));
      to = putEscape(to, 0x80 | (unit & 0x3F));
      ++at;
    } else if (!isHighSurrogate(unit) && !isLowSurrogate(unit)) {
      to = putEscape(to, 0xE0 | (unit >> 12));
      to = putEscape(to, 0x80 | ((unit >> 6) & 0x3F));
      to = putEscape(to, 0x80 | (unit & 0x3F));
      ++at;
    } else {
      std::size_t const n = utf8Of(path, at, bytes);
      for (std::size_t i = 0; i < n; ++i) to = putEscape(to, bytes[i]);
    }
  }
  out.append(block, static_cast<std::size_t>(to - block));
}

bool isEncodedPartNameOf(std::u16string_view path, std::u16string_view name) {
  return mayEncode(path, name) && encodes(path, name.substr(kPartRoot.size()));
}

bool EncodedPartNameCheck::operator()(std::u16string_view path, std::u16string_view name) {
  if (!mayEncode(path, name)) return false;
  std::u16string_view const encoded = name.substr(kPartRoot.size());
  // Each character is encoded on its own, so a path that goes on from a folder found encoded,
  // after a "/" (which ends a character), is encoded as the encoded folder and the encoding of
  // the rest: the files of a folder follow each other, and only the rest is then compared.
  // Only the path's own folder is taken so: the folder kept is then the one that follows.
  std::size_t const slash = path.rfind(u'/');
  std::size_t const folder = folder_.size();
  std::size_t const encodedFolder = encodedFolder_.size();
  if (slash == folder && slash != std::u16string_view::npos && encoded.size() > encodedFolder &&
      encoded[encodedFolder] == u'/' && sameText(path.substr(0, folder), folder_) &&
      sameText(encoded.substr(0, encodedFolder), encodedFolder_)) {
    return encodes(path.substr(folder), encoded.substr(encodedFolder));
  }
  if (!encodes(path, encoded)) return false;
  // No escape holds a "/": the last "/" of the encoded text is the encoding of the path's last.
  if (slash != std::u16string_view::npos) {
    folder_.assign(path.substr(0, slash));
    encodedFolder_.assign(encoded.substr(0, encoded.rfind(u'/')));
  }
  return true;
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
