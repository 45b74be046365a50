// Charset detection and conversion: whatever the bytes, detection names an encoding that a
// converter accepts, and conversion by way of UTF-16 gives well-formed UTF-8.  Well-formed
// UTF-8 without zero bytes is always "UTF-8".  The same bytes are also converted from one of
// a list of encodings (chosen by the first byte) with and without dropping a byte order
// mark, and the UTF-16 reading of the bytes (unpaired surrogates included) is encoded as
// UTF-8 and compared with a reference encoder.  The answers given without ICU (UTF-8, ASCII
// from a single-byte encoding, NFC of text below U+0300) are compared with ICU's own.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include <fl/i18n/charset.h>
#include <fl/i18n/normalization.h>

#include "fuzz_support.h"
#include "icu_engine.h"

namespace {

using opcvk_fuzz::check;
using opcvk_fuzz::printable;

// Encodings with state, several byte widths and escape sequences, besides the ones that the
// detector names.
char const* const kEncodings[] = {
    "UTF-8",      "UTF-16LE",   "UTF-16BE", "UTF-16",      "UTF-32LE",  "UTF-32BE",
    "UTF-7",      "SCSU",       "BOCU-1",   "Shift_JIS",   "EUC-JP",    "ISO-2022-JP",
    "GB18030",    "Big5",       "EUC-KR",   "ISO-2022-KR", "KOI8-R",    "windows-1252",
    "ISO-8859-1", "ISO-8859-8", "US-ASCII", "IBM037",      "HZ-GB-2312"};

// A stream that writes nowhere: the remarks are not checked here.
std::ostream& nowhere() {
  static std::ostream stream(nullptr);
  return stream;
}

std::string convertToUtf8(std::string const& charset, std::string const& bytes, bool drop) {
  fl::i18n::codecvt_string_to_ustring const converter(charset, drop);
  return fl::i18n::ustring_to_utf8(converter.convert(bytes.data(), bytes.size()));
}

void checkDetection(std::string const& bytes) {
  std::string const shown = printable(bytes);
  std::string const charset =
      fl::i18n::detect_charset(bytes.data(), bytes.size(), nowhere(), "fuzz");
  check(!charset.empty(), "detection names an encoding", shown);
  if (opcvk_fuzz::isWellFormedUTF8(bytes) && bytes.find('\0') == std::string::npos) {
    check(charset == "UTF-8", "well-formed UTF-8 without zero bytes is UTF-8",
          shown + "\" gave " + charset);
  }
  std::string const utf8 = convertToUtf8(charset, bytes, true);
  check(opcvk_fuzz::isWellFormedUTF8(utf8), "detection then conversion gives UTF-8",
        shown + "\" as " + charset + " gave \"" + printable(utf8));
}

void checkConversion(std::string const& bytes) {
  if (bytes.empty()) return;
  std::string const charset =
      kEncodings[static_cast<unsigned char>(bytes[0]) % (sizeof kEncodings / sizeof *kEncodings)];
  std::string const rest = bytes.substr(1);
  std::string const shown = charset + " \"" + printable(rest);
  std::string const dropped = convertToUtf8(charset, rest, true);
  std::string const kept = convertToUtf8(charset, rest, false);
  check(opcvk_fuzz::isWellFormedUTF8(dropped) && opcvk_fuzz::isWellFormedUTF8(kept),
        "conversion gives well-formed UTF-8", shown);
  check(kept == dropped || kept == "\xEF\xBB\xBF" + dropped,
        "dropping the byte order mark drops that and nothing else",
        shown + "\" kept \"" + printable(kept) + "\" dropped \"" + printable(dropped));
}

void checkEncoding(std::string const& bytes) {
  std::u16string const text = opcvk_fuzz::textFromBytes(bytes);
  std::string const utf8 = fl::i18n::ustring_to_utf8(text);
  check(utf8 == opcvk_fuzz::utf8FromText(text),
        "UTF-16 to UTF-8 pairs surrogates and replaces unpaired ones", printable(text));
}

// The converters that go without ICU for some input give what ICU's converter gives.
void checkRoadsWithoutIcu(std::string const& bytes) {
  fl::i18n::detail::IcuEngine& icu = fl::i18n::detail::icuEngine();
  std::string const shown = printable(bytes);
  for (char const* charset : {"UTF-8", "windows-1252", "US-ASCII"}) {
    for (bool drop : {true, false}) {
      fl::i18n::codecvt_string_to_ustring const converter(charset, drop);
      check(converter.convert(bytes.data(), bytes.size()) ==
                icu.openConverter(charset)->convert(bytes.data(), bytes.size(), drop),
            "the converter without ICU gives ICU's text", std::string(charset) + " \"" + shown);
    }
  }
  // NFC of a text with no unpaired surrogate, below U+0300 or not.
  std::u16string text = opcvk_fuzz::textFromBytes(bytes);
  for (char16_t& unit : text) {
    if (unit >= 0xD800 && unit <= 0xDFFF) unit = u'?';
  }
  std::u16string low = text;
  for (char16_t& unit : low) unit = static_cast<char16_t>(unit % 0x300);
  for (std::u16string const& sample : {text, low}) {
    check(fl::i18n::normalizeNfc(sample) == icu.normalizeNfc(sample),
          "NFC without ICU is ICU's NFC", printable(sample));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const bytes(reinterpret_cast<char const*>(data), size);
  opcvk_fuzz::mustNotThrow("detection and conversion", printable(bytes),
                           [&] { checkDetection(bytes); });
  opcvk_fuzz::mustNotThrow("conversion", printable(bytes), [&] { checkConversion(bytes); });
  opcvk_fuzz::mustNotThrow("encoding", printable(bytes), [&] { checkEncoding(bytes); });
  opcvk_fuzz::mustNotThrow("roads without ICU", printable(bytes),
                           [&] { checkRoadsWithoutIcu(bytes); });
  return 0;
}
