// Text conversions: UTF-8 decoding (strict and lenient) against a reference decoder, UTF-8
// encoding, narrow text in the "C", UTF-8 and ISO-8859-1 locales, ASCII and wide text,
// caseless comparison and the white-space test.
//
// Input: raw bytes, read as UTF-8 or narrow text; as UTF-16 text through textFromBytes.  A
// line feed separates the two texts that are compared.
#include <cstddef>
#include <cstdint>
#include <locale.h>
#include <string>

#include <opc/core/string_conversions.h>

#include "fuzz_support.h"

namespace {

using opcvk_fuzz::check;
using opcvk_fuzz::printable;

// How many bytes from `i` on start a well-formed sequence (Unicode table 3-7), counting the
// lead byte: the full length for a complete sequence, less for a maximal invalid subpart.
std::size_t validPrefix(std::string const& bytes, std::size_t i, bool surrogates,
                        std::size_t& fullLength) {
  auto at = [&](std::size_t k) -> unsigned {
    return i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0x100u;
  };
  unsigned const lead = at(0);
  unsigned low = 0x80;
  unsigned high = 0xBF;
  if (lead < 0x80) {
    fullLength = 1;
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    fullLength = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    fullLength = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED && !surrogates) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    fullLength = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    fullLength = 0;
    return 0;
  }
  std::size_t length = 1;
  if (at(1) < low || at(1) > high) return length;
  for (length = 2; length < fullLength; ++length) {
    if (at(length) < 0x80 || at(length) > 0xBF) return length;
  }
  return length;
}

// The decoding that the library promises: one U+FFFD per maximal invalid subpart.
std::u16string referenceDecode(std::string const& bytes, bool strict) {
  std::u16string out;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t fullLength = 0;
    std::size_t const length = validPrefix(bytes, i, !strict, fullLength);
    if (length == fullLength && length > 0) {
      opcvk_fuzz::appendUTF16(out, opcvk_fuzz::decodeSequence(bytes, i, length));
      i += length;
    } else {
      out += u'\uFFFD';
      i += length == 0 ? 1 : length;
    }
  }
  return out;
}

// Narrow text in a UTF-8 locale: characters of well-formed sequences, every other byte as
// its ISO-8859-1 character.
std::u16string referenceLocaleUTF8Decode(std::string const& bytes) {
  std::u16string out;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t const length = opcvk_fuzz::utf8SequenceLength(bytes, i);
    if (length == 0) {
      out += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
      ++i;
    } else {
      opcvk_fuzz::appendUTF16(out, opcvk_fuzz::decodeSequence(bytes, i, length));
      i += length;
    }
  }
  return out;
}

std::u16string latin1(std::string const& bytes) {
  std::u16string out;
  for (char byte : bytes) out += static_cast<char16_t>(static_cast<unsigned char>(byte));
  return out;
}

// The code points of UTF-16 text, an unpaired surrogate as `unpaired`.
std::u32string codePoints(std::u16string const& text, char32_t unpaired) {
  std::u32string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = unpaired;
    }
    out += c;
  }
  return out;
}

bool hasUnpairedSurrogate(std::u16string const& text) {
  return codePoints(text, 0xD800).find(0xD800) != std::u32string::npos;
}

// Narrow text that the "C" (ASCII), UTF-8 and ISO-8859-1 locales give for UTF-16 text: what
// the codeset cannot hold, an unpaired surrogate included, becomes "?".
enum class Codeset { kAscii, kUTF8, kLatin1 };

std::string referenceNarrow(std::u16string const& text, Codeset codeset) {
  constexpr char32_t kUnpaired = 0xD800;
  std::string out;
  for (char32_t c : codePoints(text, kUnpaired)) {
    if (codeset == Codeset::kUTF8 && c != kUnpaired) {
      std::u16string one;
      opcvk_fuzz::appendUTF16(one, c);
      out += opcvk_fuzz::utf8FromText(one);
    } else if (c < 0x80 || (codeset == Codeset::kLatin1 && c <= 0xFF)) {
      out += static_cast<char>(c);
    } else {
      out += '?';
    }
  }
  return out;
}

bool isWhiteSpace(char16_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

int sign(int value) { return (value > 0) - (value < 0); }

std::u16string asciiUpper(std::u16string text) {
  for (char16_t& c : text) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  return text;
}

// A locale installed for this thread for the duration of a scope.
class ThreadLocale {
 public:
  explicit ThreadLocale(locale_t locale) : previous_(uselocale(locale)) {}
  ~ThreadLocale() { uselocale(previous_); }
  ThreadLocale(ThreadLocale const&) = delete;
  ThreadLocale& operator=(ThreadLocale const&) = delete;

 private:
  locale_t previous_;
};

locale_t localeNamed(char const* name) {
  locale_t const locale = newlocale(LC_ALL_MASK, name, nullptr);
  if (locale == nullptr) opcvk_fuzz::fail("the locale exists", name);
  return locale;
}

void checkUTF8(std::string const& bytes) {
  std::string const shown = printable(bytes);
  std::u16string const strict = opc::detail::toStringFromUTF8String(bytes);
  check(strict == referenceDecode(bytes, true), "strict decoding replaces each maximal subpart",
        shown + "\" gave \"" + printable(strict));
  check(!hasUnpairedSurrogate(strict), "strict decoding gives no unpaired surrogate", shown);
  std::string const encoded = opc::detail::toUTF8String(strict);
  check(opcvk_fuzz::isWellFormedUTF8(encoded), "encoding gives well-formed UTF-8", shown);
  check(opc::detail::toStringFromUTF8String(encoded) == strict,
        "decoding what was encoded gives the text back", shown);
  if (opcvk_fuzz::isWellFormedUTF8(bytes)) {
    check(encoded == bytes, "decoding then encoding well-formed UTF-8 is the identity", shown);
  }

  std::u16string const lenient = opc::detail::toStringFromUTF8String(bytes, false);
  check(lenient == referenceDecode(bytes, false),
        "lenient decoding takes encoded surrogates as code units",
        shown + "\" gave \"" + printable(lenient));
}

void checkLocales(std::string const& bytes, std::u16string const& text) {
  static locale_t const cLocale = localeNamed("C");
  static locale_t const utf8Locale = localeNamed("C.UTF-8");
  static locale_t const latin1Locale = localeNamed("en_US.ISO-8859-1");
  std::string const shownBytes = printable(bytes);
  std::string const shownText = printable(text);
  {
    ThreadLocale const scope(cLocale);
    check(opc::toString(bytes) == latin1(bytes), "the C locale reads bytes one by one", shownBytes);
    check(opc::toUDEString(text) == referenceNarrow(text, Codeset::kAscii),
          "the C locale writes ASCII and ? for the rest", shownText);
  }
  {
    ThreadLocale const scope(utf8Locale);
    check(opc::toString(bytes) == referenceLocaleUTF8Decode(bytes),
          "a UTF-8 locale reads UTF-8 and each other byte as ISO-8859-1", shownBytes);
    check(opc::toUDEString(text) == referenceNarrow(text, Codeset::kUTF8),
          "a UTF-8 locale writes UTF-8 and ? for unpaired surrogates", shownText);
    if (opcvk_fuzz::isWellFormedUTF8(bytes)) {
      check(opc::toUDEString(opc::toString(bytes)) == bytes,
            "UTF-8 text survives a UTF-8 locale both ways", shownBytes);
    }
  }
  {
    ThreadLocale const scope(latin1Locale);
    check(opc::toString(bytes) == latin1(bytes), "ISO-8859-1 reads each byte", shownBytes);
    check(opc::toUDEString(opc::toString(bytes)) == bytes,
          "every byte survives ISO-8859-1 both ways", shownBytes);
    check(opc::toUDEString(text) == referenceNarrow(text, Codeset::kLatin1),
          "ISO-8859-1 writes U+0000..U+00FF and ? for the rest", shownText);
  }
}

void checkText(std::u16string const& a, std::u16string const& b) {
  std::string const shown = printable(a) + "\" and \"" + printable(b);
  std::string const ascii = opc::toASCIIString(a);
  check(ascii.size() == a.size(), "ASCII narrowing keeps one byte per code unit", shown);
  for (std::size_t i = 0; i < a.size(); ++i) {
    check(ascii[i] == (a[i] < 0x80 ? static_cast<char>(a[i]) : '?'),
          "ASCII narrowing keeps ASCII and writes ? for the rest", shown);
  }

  std::wstring const wide = opc::toWideString(a);
  std::u32string const points = codePoints(a, 0xFFFD);
  check(wide.size() == points.size(), "wide text has one unit per character", shown);
  for (std::size_t i = 0; i < wide.size() && i < points.size(); ++i) {
    check(static_cast<char32_t>(wide[i]) == points[i], "wide text holds the code points", shown);
  }

  bool space = false;
  for (char16_t c : a) space = space || isWhiteSpace(c);
  check(opc::hasWhitespace(a) == space, "hasWhitespace finds exactly the listed characters", shown);

  check(opc::caselessCompare(a, a) == 0, "a text equals itself", shown);
  check(opc::caselessCompare(a, asciiUpper(a)) == 0, "ASCII case is ignored", shown);
  int const ab = opc::caselessCompare(a, b);
  check(sign(ab) == -sign(opc::caselessCompare(b, a)), "the comparison is antisymmetric", shown);
  check(ab == 0 || a != b, "equal texts compare equal", shown);
  if (ab == 0) {
    check(opc::caselessCompare(asciiUpper(a), b) == 0, "equality survives ASCII case", shown);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const bytes(reinterpret_cast<char const*>(data), size);
  opcvk_fuzz::mustNotThrow("UTF-8 conversions", printable(bytes), [&] { checkUTF8(bytes); });
  std::u16string const text = opcvk_fuzz::textFromBytes(bytes);
  opcvk_fuzz::mustNotThrow("locale conversions", printable(bytes),
                           [&] { checkLocales(bytes, text); });
  auto const halves = opcvk_fuzz::splitAt(bytes, '\n');
  opcvk_fuzz::mustNotThrow("text operations", printable(bytes), [&] {
    checkText(opcvk_fuzz::textFromBytes(halves.first), opcvk_fuzz::textFromBytes(halves.second));
  });
  return 0;
}
