#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include <fl/i18n/charset.h>
#include <fl/i18n/normalization.h>

#include "icu_engine.h"

namespace fl {
namespace i18n {
namespace {

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

bool hasUnpairedSurrogate(std::u16string const& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isHighSurrogate(text[i])) {
      if (i + 1 == text.size() || !isLowSurrogate(text[i + 1])) return true;
      ++i;
    } else if (isLowSurrogate(text[i])) {
      return true;
    }
  }
  return false;
}

// Below U+0300 every character is its own NFC and composes with nothing before or after it
// (U+0300, the first combining mark, is the first code point whose NFC quick check is not
// "yes"), so such a text is in NFC as it stands.  Passwords are mostly such text.
bool isBelowFirstCombiningMark(std::u16string const& text) {
  for (char16_t unit : text) {
    if (unit >= 0x0300) return false;
  }
  return true;
}

}  // namespace

std::u16string normalizeNfc(std::u16string const& text) {
  if (hasUnpairedSurrogate(text)) {
    throw I18nError("Text with an unpaired surrogate has no normal form");
  }
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max() / 3)) {
    throw I18nError("Text of " + std::to_string(text.size()) +
                    " UTF-16 units is too long to normalise");
  }
  if (isBelowFirstCombiningMark(text)) return text;
  return detail::icuEngine().normalizeNfc(text);
}

}  // namespace i18n
}  // namespace fl
