#include <cstddef>
#include <cstdint>
#include <errno.h>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <string>
#include <strings.h>
#include <vector>
#include <wctype.h>

#include <opc/core/string_conversions.h>

namespace opc {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kQuestionMark = 0x3F;

// iconv's name for UTF-32 in the byte order of char32_t, so that its output can be read as
// char32_t values directly (plain "UTF-32" would write or expect a byte-order mark).
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr char kUtf32[] = "UTF-32BE";
#else
constexpr char kUtf32[] = "UTF-32LE";
#endif

bool isAscii(std::string const& text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) > 0x7F) return false;
  }
  return true;
}

bool isAscii(std::u16string const& text) {
  for (char16_t c : text) {
    if (c > 0x7F) return false;
  }
  return true;
}

bool isHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Reads the code point at `i` and advances past it.  A surrogate without its partner gives
// `unpaired` instead, so that each caller decides what an unpaired surrogate becomes.
char32_t nextCodePoint(std::u16string const& text, std::size_t& i, char32_t unpaired) {
  char32_t const c = text[i++];
  if (isHighSurrogate(c) && i < text.size() && isLowSurrogate(text[i])) {
    char32_t const low = text[i++];
    return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
  }
  if (isHighSurrogate(c) || isLowSurrogate(c)) return unpaired;
  return c;
}

void appendUtf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out.push_back(static_cast<char16_t>(c));
  } else {
    c -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
  }
}

// The number of UTF-8 bytes of `c` (at most U+10FFFF).
std::size_t utf8Size(char32_t c) { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

// Writes the UTF-8 bytes of `c` (at most U+10FFFF, no surrogate) at `to`; returns their end.
char* putUtf8(char* to, char32_t c) {
  if (c < 0x80) {
    *to++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *to++ = static_cast<char>(0xC0 | (c >> 6));
    *to++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *to++ = static_cast<char>(0xE0 | (c >> 12));
    *to++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *to++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *to++ = static_cast<char>(0xF0 | (c >> 18));
    *to++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *to++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *to++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return to;
}

std::string encodeUtf8(std::u16string const& text, char32_t unpaired) {
  // Measured first and written in place once: a byte at a time through the string's own
  // appends cost several times the encoding itself, and every name of another script that a
  // listing prints comes through here.
  std::size_t const size = text.size();
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < size; ++i) {
    char16_t const c = text[i];
    if (c < 0x80) {
      bytes += 1;
    } else if (c < 0x800) {
      bytes += 2;
    } else if (isHighSurrogate(c) && i + 1 < size && isLowSurrogate(text[i + 1])) {
      bytes += 4;
      ++i;
    } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
      bytes += utf8Size(unpaired);
    } else {
      bytes += 3;
    }
  }
  std::string out(bytes, '\0');
  char* to = out.data();
  for (std::size_t i = 0; i < size;) {
    char16_t const c = text[i];
    if (c < 0x80) {
      *to++ = static_cast<char>(c);
      ++i;
    } else {
      to = putUtf8(to, nextCodePoint(text, i, unpaired));
    }
  }
  return out;
}

// What a decoder does with bytes that are not valid text.
enum class InvalidBytes {
  kReplace,  // one U+FFFD per maximal invalid subpart
  kLatin1,   // each byte as the ISO-8859-1 character of the same value: nothing is lost
};

void appendInvalid(std::u16string& out, char const* bytes, std::size_t count, InvalidBytes mode) {
  if (mode == InvalidBytes::kReplace) {
    out.push_back(static_cast<char16_t>(kReplacement));
    return;
  }
  for (std::size_t k = 0; k < count; ++k) {
    out.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[k])));
  }
}

// A UTF-8 decoder after the table of well-formed byte sequences of Unicode: the range of
// the second byte depends on the first, which rules out overlong forms, surrogates and code
// points above U+10FFFF without any check after decoding.  Where a sequence breaks off, the
// bytes read so far form one maximal invalid subpart, and decoding resumes at the byte that
// broke it.  `allowSurrogates` accepts surrogates encoded as three bytes (CESU-8 and Java's
// modified UTF-8), which then pass into the UTF-16 result as they stand.
std::u16string decodeUtf8(std::string const& text, InvalidBytes mode, bool allowSurrogates) {
  std::u16string out;
  out.reserve(text.size());
  std::size_t const size = text.size();
  std::size_t i = 0;
  while (i < size) {
    unsigned char const lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      out.push_back(lead);
      ++i;
      continue;
    }
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    char32_t c = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      c = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED && !allowSurrogates) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      c = lead & 0x07;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    }
    std::size_t read = 1;
    while (read < length && i + read < size) {
      unsigned char const next = static_cast<unsigned char>(text[i + read]);
      if (next < low || next > high) break;
      c = (c << 6) | (next & 0x3F);
      low = 0x80;
      high = 0xBF;
      ++read;
    }
    if (length != 0 && read == length) {
      appendUtf16(out, c);
    } else {
      appendInvalid(out, text.data() + i, read, mode);
    }
    i += read;
  }
  return out;
}

// The codeset of the calling thread's locale: the one set by uselocale if the thread has
// one, else the process's, set by setlocale.
std::string currentCodeset() {
  locale_t const current = uselocale(nullptr);
  char const* codeset =
      current == LC_GLOBAL_LOCALE ? nl_langinfo(CODESET) : nl_langinfo_l(CODESET, current);
  return codeset != nullptr ? codeset : "";
}

bool isUtf8Codeset(std::string const& codeset) {
  return strcasecmp(codeset.c_str(), "UTF-8") == 0 || strcasecmp(codeset.c_str(), "UTF8") == 0;
}

// One conversion descriptor per call: iconv_t carries shift state and must not be shared
// between threads, and opening one is cheap next to the conversion once glibc has loaded
// the codeset's module.
class Converter {
 public:
  Converter(char const* to, char const* from) : cd_(iconv_open(to, from)) {}
  ~Converter() {
    if (isOpen()) iconv_close(cd_);
  }
  Converter(Converter const&) = delete;
  Converter& operator=(Converter const&) = delete;

  bool isOpen() const { return cd_ != invalid(); }
  iconv_t get() const { return cd_; }

 private:
  static iconv_t invalid() { return reinterpret_cast<iconv_t>(static_cast<std::intptr_t>(-1)); }

  iconv_t cd_;
};

constexpr std::size_t kIconvError = static_cast<std::size_t>(-1);

// An output buffer that iconv writes into through a moving pointer and that grows on demand.
template <typename Unit>
class OutputBuffer {
 public:
  explicit OutputBuffer(std::size_t units) : data_(units + 16) {}

  void reserve(std::size_t bytes) {
    if (left_ >= bytes) return;
    std::size_t const used = usedBytes();
    data_.resize(data_.size() * 2 + bytes / sizeof(Unit) + 1);
    next_ = reinterpret_cast<char*>(data_.data()) + used;
    left_ = data_.size() * sizeof(Unit) - used;
  }
  void grow() { reserve(left_ + data_.size() * sizeof(Unit) + 16); }

  char** next() { return &next_; }
  std::size_t* left() { return &left_; }
  std::size_t usedBytes() const {
    return static_cast<std::size_t>(next_ - reinterpret_cast<char const*>(data_.data()));
  }
  Unit const* begin() const { return data_.data(); }
  std::size_t usedUnits() const { return usedBytes() / sizeof(Unit); }

 private:
  std::vector<Unit> data_;
  char* next_ = reinterpret_cast<char*>(data_.data());
  std::size_t left_ = data_.size() * sizeof(Unit);
};

// The language tag characters U+E0000..U+E007F, which glibc's converters drop without an
// error when the codeset cannot hold them.
bool isTagCharacter(char32_t c) { return c >= 0xE0000 && c <= 0xE007F; }

// UTF-16 to `codeset`.  The text goes in as UTF-32 so that an unrepresentable character
// can be stepped over whole: iconv stops at it with EILSEQ, a "?" is converted in its place
// through the same descriptor (which keeps any shift state right) and conversion resumes.
// A tag character goes through on its own, so that a silent drop is seen and also becomes
// "?": no character of the text may vanish from a message.
// //TRANSLIT is avoided on purpose: its replacements vary with the locale.
std::string encodeWithIconv(std::u16string const& text, std::string const& codeset) {
  std::vector<char32_t> input;
  input.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) input.push_back(nextCodePoint(text, i, kQuestionMark));

  Converter converter(codeset.c_str(), kUtf32);
  if (!converter.isOpen()) {
    // An encoding that iconv does not know: ASCII is the part of it that can be trusted.
    std::string out;
    for (char32_t c : input) out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    return out;
  }
  OutputBuffer<char> out(text.size() * 2);
  auto convert = [&converter, &out](char32_t* begin, std::size_t count) {
    char* in = reinterpret_cast<char*>(begin);
    std::size_t inLeft = count * sizeof(char32_t);
    while (inLeft > 0) {
      if (iconv(converter.get(), &in, &inLeft, out.next(), out.left()) != kIconvError) break;
      if (errno == E2BIG) {
        out.grow();
      } else {
        // EILSEQ: the character has no form in the codeset (EINVAL cannot occur, as the
        // input holds whole code points only).
        char32_t question = kQuestionMark;
        char* q = reinterpret_cast<char*>(&question);
        std::size_t qLeft = sizeof(question);
        out.reserve(16);
        iconv(converter.get(), &q, &qLeft, out.next(), out.left());
        in += sizeof(char32_t);
        inLeft -= sizeof(char32_t);
      }
    }
  };
  char32_t replacement = kQuestionMark;
  for (std::size_t start = 0; start < input.size();) {
    std::size_t end = start;
    while (end < input.size() && !isTagCharacter(input[end])) ++end;
    if (end > start) {
      convert(input.data() + start, end - start);
      start = end;
      continue;
    }
    std::size_t const before = out.usedBytes();
    convert(input.data() + start, 1);
    if (out.usedBytes() == before) convert(&replacement, 1);
    ++start;
  }
  // Return a stateful encoding to its initial shift state.
  out.reserve(16);
  while (iconv(converter.get(), nullptr, nullptr, out.next(), out.left()) == kIconvError &&
         errno == E2BIG) {
    out.grow();
  }
  return std::string(out.begin(), out.usedUnits());
}

// `codeset` to UTF-16.  A byte where iconv finds an invalid or incomplete sequence is
// handled by `mode`, and conversion resumes at the next byte.
std::u16string decodeWithIconv(std::string const& text, std::string const& codeset,
                               InvalidBytes mode) {
  std::u16string result;
  Converter converter(kUtf32, codeset.c_str());
  if (!converter.isOpen()) {
    // An encoding that iconv does not know: keep ASCII, treat the rest as invalid.
    for (char c : text) {
      if (static_cast<unsigned char>(c) < 0x80) {
        result.push_back(static_cast<char16_t>(c));
      } else {
        appendInvalid(result, &c, 1, mode);
      }
    }
    return result;
  }
  result.reserve(text.size());
  std::vector<char> input(text.begin(), text.end());
  char* in = input.data();
  std::size_t inLeft = input.size();
  auto flush = [&result](OutputBuffer<char32_t>& out) {
    for (std::size_t k = 0; k < out.usedUnits(); ++k) appendUtf16(result, out.begin()[k]);
  };
  while (inLeft > 0) {
    OutputBuffer<char32_t> out(inLeft);
    std::size_t const status = iconv(converter.get(), &in, &inLeft, out.next(), out.left());
    int const error = errno;
    flush(out);
    if (status != kIconvError) break;
    if (error == E2BIG) continue;
    if (error == EINVAL) {
      // An incomplete sequence at the end of the text: all of it is invalid.
      appendInvalid(result, in, inLeft, mode);
      break;
    }
    appendInvalid(result, in, 1, mode);
    ++in;
    --inLeft;
  }
  return result;
}

// Case folding by glibc's tables for the whole of Unicode.  The locale is made once and
// kept for the life of the process; towupper_l and towlower_l only read it, so threads
// may share it.
locale_t caseLocale() {
  static locale_t const locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

char32_t foldAscii(char32_t c) { return c >= U'A' && c <= U'Z' ? c + (U'a' - U'A') : c; }

// Upper case first, then lower case: that brings variants such as U+017F LONG S, U+212A
// KELVIN SIGN and U+00B5 MICRO SIGN to the same letter as their ordinary forms, as simple
// case folding does, where lower-casing alone would leave them apart.
char32_t fold(char32_t c) {
  if (c < 0x80) return foldAscii(c);
  locale_t const locale = caseLocale();
  if (locale == nullptr) return c;
  wint_t const upper = towupper_l(static_cast<wint_t>(c), locale);
  return static_cast<char32_t>(towlower_l(upper, locale));
}

bool isWhitespace(char16_t c) {
  switch (c) {
    case 0x0009:
    case 0x000A:
    case 0x000B:
    case 0x000C:
    case 0x000D:
    case 0x0020:
    case 0x0085:
    case 0x00A0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return true;
    default:
      return c >= 0x2000 && c <= 0x200A;
  }
}

}  // namespace

std::u16string toString(std::string const& text, bool strict) {
  if (isAscii(text)) return std::u16string(text.begin(), text.end());
  InvalidBytes const mode = strict ? InvalidBytes::kLatin1 : InvalidBytes::kReplace;
  std::string const codeset = currentCodeset();
  if (isUtf8Codeset(codeset)) return decodeUtf8(text, mode, false);
  return decodeWithIconv(text, codeset, mode);
}

std::string toUDEString(std::u16string const& text) {
  if (isAscii(text)) return std::string(text.begin(), text.end());
  std::string const codeset = currentCodeset();
  if (isUtf8Codeset(codeset)) return encodeUtf8(text, kQuestionMark);
  return encodeWithIconv(text, codeset);
}

std::string toASCIIString(std::u16string const& text) {
  std::string out;
  out.reserve(text.size());
  for (char16_t c : text) out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  return out;
}

std::wstring toWideString(std::u16string const& text) {
  static_assert(sizeof(wchar_t) >= sizeof(char32_t), "wide text must hold every code point");
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    out.push_back(static_cast<wchar_t>(nextCodePoint(text, i, kReplacement)));
  }
  return out;
}

int caselessCompare(std::u16string const& a, std::u16string const& b) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    // Unpaired surrogates compare as themselves: they have no case and differ from U+FFFD.
    char32_t const x = fold(nextCodePoint(a, i, a[i]));
    char32_t const y = fold(nextCodePoint(b, j, b[j]));
    if (x != y) return x < y ? -1 : 1;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

bool hasWhitespace(std::u16string const& text) {
  for (char16_t c : text) {
    if (isWhitespace(c)) return true;
  }
  return false;
}

namespace detail {

std::u16string toStringFromUTF8String(std::string const& text, bool strict) {
  return decodeUtf8(text, InvalidBytes::kReplace, !strict);
}

std::string toUTF8String(std::u16string const& text) { return encodeUtf8(text, kReplacement); }

}  // namespace detail
}  // namespace opc
