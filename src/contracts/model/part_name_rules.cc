#include "part_name_rules.h"

#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
// The C library's header is written for C: its inline functions return _Bool, which GCC takes
// in C++ and Clang does not.  A Clang build keeps the compiler's probe.
#if defined(__has_include) && !defined(__clang__)
#if __has_include(<sys/platform/x86.h>)
#include <sys/platform/x86.h>
#endif
#endif

#include <opc/core/string_conversions.h>
#include <opc/model/part_name.h>

#include "plain_item_name.h"
#include "text_chars.h"

namespace opc {
namespace model {
namespace detail {
namespace {

bool isSegmentCharacter(char32_t c) {
  return isUnreserved(c) || isSubDelim(c) || c == ':' || c == '@' || isUcsChar(c);
}

// The ASCII characters that a segment takes as they stand (isSegmentCharacter's ASCII ones),
// looked up in one step: a long name is mostly such characters, and the classes one by one
// cost several calls per character.
struct SegmentAscii {
  bool of[128] = {};
  constexpr SegmentAscii() {
    for (char c = 'a'; c <= 'z'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char c = 'A'; c <= 'Z'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char c = '0'; c <= '9'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char const c : std::string_view("-._~!$&'()*+,;=:@")) {
      of[static_cast<unsigned char>(c)] = true;
    }
  }
};
constexpr SegmentAscii kSegmentAscii;

// The value of a hexadecimal digit that isHexDigit accepted.
char32_t hexDigitValue(char16_t c) {
  if (c <= u'9') return c - u'0';
  return (c | 0x20) - u'a' + 10;
}

// The segment is name[start, stop): checked in place, since a name is validated far more
// often than it is refused.  A surrogate pair never spans a "/", so reading code points from
// the whole name gives those of the segment.
std::optional<std::string> findSegmentError(std::u16string const& name, std::size_t start,
                                            std::size_t stop) {
  if (start == stop) return std::string("empty segments are not allowed");
  std::size_t i = start;
  while (i < stop) {
    char16_t const unit = name[i];
    if (unit < 0x80 && kSegmentAscii.of[unit]) {
      ++i;
      continue;
    }
    if (unit == u'%') {
      if (i + 2 >= stop || !isHexDigit(name[i + 1]) || !isHexDigit(name[i + 2])) {
        return std::string("\"%\" must be followed by two hexadecimal digits");
      }
      char32_t const decoded = hexDigitValue(name[i + 1]) * 16 + hexDigitValue(name[i + 2]);
      if (decoded == '/') return std::string("percent-encoded \"/\" is not allowed");
      if (decoded == '\\') return std::string("percent-encoded \"\\\" is not allowed");
      if (isUnreserved(decoded)) {
        return "percent-encoded unreserved character " + describeCharacter(decoded) +
               " is not allowed";
      }
      i += 3;
      continue;
    }
    char32_t const c = nextCodePoint(name, i);
    if (!isSegmentCharacter(c)) return "character " + describeCharacter(c) + " is not allowed";
  }
  std::size_t const length = stop - start;
  bool const dots =
      name[start] == u'.' && (length == 1 || (length == 2 && name[start + 1] == u'.'));
  if (dots) return "segment " + quoted(name.substr(start, length)) + " is not allowed";
  if (name[stop - 1] == u'.') {
    return "segment " + quoted(name.substr(start, length)) + " must not end with \".\"";
  }
  return std::nullopt;
}

// The bytes that an escape may encode: every one but "/", "\\" and the unreserved characters.
struct EscapableBytes {
  bool of[256] = {};
  constexpr EscapableBytes() {
    for (int b = 0; b < 256; ++b) {
      bool const unreserved = (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') ||
                              (b >= '0' && b <= '9') || b == '-' || b == '.' || b == '_' ||
                              b == '~';
      of[b] = !unreserved && b != '/' && b != '\\';
    }
  }
};
constexpr EscapableBytes kEscapable;

bool isHexUnit(char16_t c) {
  return (c >= u'0' && c <= u'9') || ((c | 0x20) >= u'a' && (c | 0x20) <= u'f');
}

// Whether `name` is a valid part name of ASCII alone, in one pass: what nearly every name is.
// Only ever true when findPartNameError below finds nothing; false for anything it would have
// to look at more closely, which it then does.
bool isPlainValidName(std::u16string const& name) {
  std::size_t const size = name.size();
  if (size < 2 || name[0] != u'/') return false;
  std::size_t segment = 1;
  std::size_t i = 1;
  for (;;) {
    // One segment, from `segment` to the next "/" or the end.
    while (i < size) {
      char16_t const unit = name[i];
      if (unit < 0x80 && kSegmentAscii.of[unit]) {
        ++i;
      } else if (unit == u'%' && i + 2 < size && isHexUnit(name[i + 1]) && isHexUnit(name[i + 2]) &&
                 kEscapable.of[hexDigitValue(name[i + 1]) * 16 + hexDigitValue(name[i + 2])]) {
        i += 3;
      } else {
        break;
      }
    }
    std::size_t const length = i - segment;
    if (length == 0 || name[i - 1] == u'.') return false;
    if (i == size) return true;
    if (name[i] != u'/') return false;
    segment = ++i;
  }
}

}  // namespace

std::optional<std::string> findPartNameError(std::u16string const& name) {
  if (isPlainValidName(name)) return std::nullopt;
  if (name.empty()) return std::string("a part name must not be empty");
  if (name[0] != u'/') return std::string("a part name must start with \"/\"");
  std::size_t const delimiter = name.find_first_of(u"?#");
  if (delimiter != std::u16string::npos) {
    return std::string(name[delimiter] == u'?' ? "a part name must not have a query"
                                               : "a part name must not have a fragment");
  }
  if (name.back() == u'/') return std::string("a part name must not end with \"/\"");
  std::size_t start = 1;
  while (start <= name.size()) {
    std::size_t const slash = name.find(u'/', start);
    std::size_t const stop = slash == std::u16string::npos ? name.size() : slash;
    if (auto error = findSegmentError(name, start, stop)) return error;
    start = stop + 1;
  }
  return std::nullopt;
}

std::string makePartNameKey(std::u16string const& name) {
  // ASCII, by far the most common, maps character for character, by a loop without branches
  // that the compiler turns into wide instructions; anything else goes through its UTF-8 bytes.
  std::string key(name.size(), '\0');
  char* const out = key.data();
  char16_t seen = 0;
  for (std::size_t i = 0; i < name.size(); ++i) {
    char16_t const c = name[i];
    seen |= c;
    unsigned const upper = static_cast<char16_t>(c - u'A') < 26 ? 1 : 0;
    out[i] = static_cast<char>(c + upper * (u'a' - u'A'));
  }
  if (seen < 0x80) return key;
  // The key of the UTF-8 bytes, made from the text as it is read: ASCII lowered, every byte of
  // another character escaped.  A long name of other scripts made a copy in UTF-8 and went
  // over it twice.
  key.clear();
  key.reserve(3 * name.size());
  for (std::size_t i = 0; i < name.size(); ++i) {
    char16_t const c = name[i];
    if (c < 0x80) {
      key += c >= u'A' && c <= u'Z' ? static_cast<char>(c - u'A' + 'a') : static_cast<char>(c);
      continue;
    }
    char32_t code = c;
    if (c >= 0xD800 && c <= 0xDFFF) {
      bool const paired =
          c <= 0xDBFF && i + 1 < name.size() && name[i + 1] >= 0xDC00 && name[i + 1] <= 0xDFFF;
      if (!paired) {
        // An unpaired surrogate: what the conversion makes of it decides.
        std::string const bytes = opc::detail::toUTF8String(name);
        key.clear();
        appendPartNameKeyBytes(key, bytes);
        return key;
      }
      code = 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (name[++i] - 0xDC00);
    }
    unsigned char bytes[4];
    std::size_t count = 0;
    if (code < 0x800) {
      bytes[count++] = static_cast<unsigned char>(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
      bytes[count++] = static_cast<unsigned char>(0xE0 | (code >> 12));
      bytes[count++] = static_cast<unsigned char>(0x80 | ((code >> 6) & 0x3F));
    } else {
      bytes[count++] = static_cast<unsigned char>(0xF0 | (code >> 18));
      bytes[count++] = static_cast<unsigned char>(0x80 | ((code >> 12) & 0x3F));
      bytes[count++] = static_cast<unsigned char>(0x80 | ((code >> 6) & 0x3F));
    }
    bytes[count++] = static_cast<unsigned char>(0x80 | (code & 0x3F));
    for (std::size_t b = 0; b < count; ++b) {
      key += '%';
      key += kPartNameKeyHex[bytes[b] >> 4];
      key += kPartNameKeyHex[bytes[b] & 0xF];
    }
  }
  return key;
}

void appendPartNameKeyBytes(std::string& key, std::string_view utf8) {
  // ASCII, nearly every name of a large package, is written in place, sixteen bytes a step
  // where the processor has the instructions; a name with any other byte is written again
  // below, byte by byte.
  std::size_t const start = key.size();
  key.resize(start + utf8.size());
  char* const out = &key[start];
  unsigned char high = 0;
  std::size_t i = 0;
#if defined(__SSE2__)
  __m128i const a = _mm_set1_epi8('A');
  __m128i const lastLetter = _mm_set1_epi8('Z' - 'A');
  __m128i const caseBit = _mm_set1_epi8('a' - 'A');
  __m128i seen = _mm_setzero_si128();
  // Writes the sixteen bytes at `at` with their capitals made small.
  auto const writeBlock = [&](std::size_t at) {
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(utf8.data() + at));
    // A capital is a byte whose distance from 'A', unsigned, is at most that of 'Z'.
    __m128i const fromA = _mm_sub_epi8(bytes, a);
    __m128i const upper = _mm_cmpeq_epi8(_mm_min_epu8(fromA, lastLetter), fromA);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at),
                     _mm_or_si128(bytes, _mm_and_si128(upper, caseBit)));
    seen = _mm_or_si128(seen, bytes);
  };
  for (; i + 16 <= utf8.size(); i += 16) writeBlock(i);
  if (i < utf8.size() && i >= 16) {
    // The last sixteen bytes, some of them written already: the same bytes again.
    writeBlock(utf8.size() - 16);
    i = utf8.size();
  }
  if (_mm_movemask_epi8(seen) != 0) high = 0x80;
#endif
  for (; i < utf8.size(); ++i) {
    unsigned char const value = static_cast<unsigned char>(utf8[i]);
    high |= value;
    unsigned char const upper = static_cast<unsigned char>(value - 'A') < 26 ? 1 : 0;
    out[i] = static_cast<char>(value + upper * ('a' - 'A'));
  }
  if ((high & 0x80) == 0) return;
  key.resize(start);
  for (char const byte : utf8) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value >= 0x80) {
      key += '%';
      key += kPartNameKeyHex[value >> 4];
      key += kPartNameKeyHex[value & 0xF];
    } else if (value >= 'A' && value <= 'Z') {
      key += static_cast<char>(value - 'A' + 'a');
    } else {
      key += byte;
    }
  }
}

#if defined(OPC_MODEL_PLAIN_ITEM_NAME_SHUFFLE)
namespace {

// The C library asked the processor what it has once, as the program started, and answers
// from what it keeps.  The compiler's own probe would link a second copy of the whole inquiry
// into this library, run as the library loads, by every program, whether or not it ever checks
// a name: a dozen processor queries, each a trap to the hypervisor on a virtual machine, about
// 70 microseconds there, where a short command takes two milliseconds.
bool processorHasShuffle() {
#if defined(CPU_FEATURE_ACTIVE)
  return CPU_FEATURE_ACTIVE(SSSE3);
#else
  return __builtin_cpu_supports("ssse3");
#endif
}

}  // namespace
#endif

bool isPlainPartItemName(std::string_view itemName) {
#if defined(OPC_MODEL_PLAIN_ITEM_NAME_SHUFFLE)
  // Every processor of the last fifteen years has the shuffle: the table-driven check takes a
  // third of the instructions of the comparisons one class at a time.
  static bool const shuffle = processorHasShuffle();
  if (shuffle) return isPlainItemNameShuffle(itemName);
#endif
#if defined(__SSE2__)
  return isPlainItemNameWide(itemName);
#else
  return isPlainItemNameBytewise(itemName);
#endif
}

std::string_view PartNameAccess::key(PartName const& name) { return name.key(); }

std::u16string PartNameAccess::text(PartName const& name) { return name.toString(); }

std::string_view PartNameAccess::asciiText(PartName const& name) { return name.asciiText(); }

PartName PartNameAccess::make(std::u16string const& name, std::string const& key) {
  return PartName(name, key);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
