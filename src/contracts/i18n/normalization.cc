#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include <unicode/unorm2.h>
#include <unicode/utypes.h>

#include <fl/i18n/charset.h>
#include <fl/i18n/normalization.h>

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

}  // namespace

std::u16string normalizeNfc(std::u16string const& text) {
  if (hasUnpairedSurrogate(text)) {
    throw I18nError("Text with an unpaired surrogate has no normal form");
  }
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max() / 3)) {
    throw I18nError("Text of " + std::to_string(text.size()) +
                    " UTF-16 units is too long to normalise");
  }
  UErrorCode status = U_ZERO_ERROR;
  UNormalizer2 const* const nfc = unorm2_getNFCInstance(&status);
  if (U_FAILURE(status)) {
    throw I18nError(std::string("Cannot load the NFC normaliser: ") + u_errorName(status));
  }
  auto const* const source = reinterpret_cast<UChar const*>(text.data());
  auto const length = static_cast<int32_t>(text.size());
  // The result is written straight into the string that is returned, sized once for the
  // longest result NFC can give (three times the input, a bound that Unicode's stability
  // policy keeps), so that no other buffer of ours ever holds the text, which may be a
  // password.  Shrinking it afterwards does not reallocate.
  std::u16string out(text.size() * 3, u'\0');
  auto* const target = reinterpret_cast<UChar*>(out.empty() ? nullptr : &out[0]);
  int32_t const needed =
      unorm2_normalize(nfc, source, length, target, static_cast<int32_t>(out.size()), &status);
  if (U_FAILURE(status)) {
    throw I18nError(std::string("Unicode normalisation failed: ") + u_errorName(status));
  }
  out.resize(static_cast<std::size_t>(needed));
  return out;
}

}  // namespace i18n
}  // namespace fl
