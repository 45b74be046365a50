// Names of items: CP437 decoding and the checks against hostile names.
#include "zip_names.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <opc/core/string_conversions.h>

namespace opc {
namespace model {
namespace detail {
namespace {

// The characters of bytes 0x80..0xFF in code page 437, the encoding that the ZIP format
// assumes for names without the language-encoding flag.
constexpr char16_t kCp437High[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF,
    0x00EE, 0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA,
    0x00F1, 0x00D1, 0x00AA, 0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557,
    0x255D, 0x255C, 0x255B, 0x2510, 0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559,
    0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4, 0x03A6, 0x0398, 0x03A9, 0x03B4,
    0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

void appendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

}  // namespace

std::string cp437ToUtf8(std::string const& bytes) {
  std::string out;
  assignCp437AsUtf8(bytes, out);
  return out;
}

void assignCp437AsUtf8(std::string_view bytes, std::string& out) {
  std::size_t ascii = 0;
  while (ascii < bytes.size() && static_cast<unsigned char>(bytes[ascii]) < 0x80) ++ascii;
  out.assign(bytes.data(), ascii);
  for (char const byte : bytes.substr(ascii)) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value < 0x80) {
      out += byte;
    } else {
      appendUtf8(out, kCp437High[value - 0x80]);
    }
  }
}

namespace {

// Whether the name may hold a NUL, a backslash or two dots in a row: one pass, sixteen bytes
// a step, the last step over the name's last sixteen bytes.  A name that may goes through the
// searches of nameProblem, which tell which problem comes first; so does one too short for a
// step, or long enough that the library's searches, which take more bytes a step, cost less
// than this pass.
bool mayHoldBadBytes(std::string_view name) {
#if defined(__SSE2__)
  if (name.size() < 16 || name.size() >= 64) return true;
  for (std::size_t at = 0; at < name.size(); at += 16) {
    std::size_t const start = std::min(at, name.size() - 16);
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(name.data() + start));
    __m128i const bad = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_setzero_si128()),
                                     _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
    if (_mm_movemask_epi8(bad) != 0) return true;
    unsigned const dots =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('.'))));
    unsigned const dotBefore = (start > 0 && name[start - 1] == '.') ? 1u : 0u;
    if ((dots & ((dots << 1) | dotBefore)) != 0) return true;
  }
  return false;
#else
  (void)name;
  return true;
#endif
}

}  // namespace

std::string nameProblem(std::string_view name) {
  if (name.empty()) return "its name is empty";
  if (!mayHoldBadBytes(name)) {
    if (name[0] == '/') return "its name is an absolute path";
    if (name.size() >= 2 && isAsciiLetter(name[0]) && name[1] == ':') {
      return "its name starts with a drive letter";
    }
    return std::string();
  }
  // Each check is a search of the whole name (the library's, which compares many bytes at
  // a time); a name with several problems is told the first of this order.
  if (name.find('\0') != std::string_view::npos) return "its name holds a NUL character";
  if (name.find('\\') != std::string_view::npos) return "its name holds a backslash";
  if (name[0] == '/') return "its name is an absolute path";
  if (name.size() >= 2 && isAsciiLetter(name[0]) && name[1] == ':') {
    return "its name starts with a drive letter";
  }
  // A ".." segment is a ".." with a "/" or an end of the name on either side.
  for (std::size_t at = name.find(".."); at != std::string_view::npos;
       at = name.find("..", at + 1)) {
    bool const startsSegment = at == 0 || name[at - 1] == '/';
    bool const endsSegment = at + 2 == name.size() || name[at + 2] == '/';
    if (startsSegment && endsSegment) return "its name holds a \"..\" segment";
  }
  return std::string();
}

std::string foldAsciiCase(std::string name) {
  for (char& c : name) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return name;
}

bool equalFoldingAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char const x = a[i];
    char const y = b[i];
    if (x == y) continue;
    auto lower = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (lower(x) != lower(y)) return false;
  }
  return true;
}

std::string quoteName(std::string const& name) {
  // Names are UTF-8 by now, but one flagged UTF-8 need not be well formed: the lenient
  // decoding still shows the caller which item is meant.
  // A NUL is shown as "?" so that the message is not cut short where it is read as C text.
  std::string shown = name;
  for (char& c : shown) {
    if (c == '\0') c = '?';
  }
  return "\"" + opc::toUDEString(opc::detail::toStringFromUTF8String(shown)) + "\"";
}

}  // namespace detail
}  // namespace model
}  // namespace opc
