// ICU's charset detector, and the names of its candidates that a converter accepts.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

#include <fl/i18n/charset.h>

#include "icu_handles.h"
#include "icu_library.h"

namespace fl {
namespace i18n {
namespace detail {
namespace {

// The detector's name as the MIME name where there is one ("ISO-8859-8-I" is converted as
// "ISO-8859-8"), else as the detector gives it; empty if no converter opens for it (the
// detector knows a few EBCDIC variants, such as "IBM420_rtl", that ICU cannot convert).
std::string convertibleName(char const* detected) {
  UErrorCode status = U_ZERO_ERROR;
  ConverterHandle converter(ucnv_open(detected, &status));
  if (U_FAILURE(status) || !converter) return std::string();
  status = U_ZERO_ERROR;
  char const* mime = ucnv_getStandardName(detected, "MIME", &status);
  if (U_SUCCESS(status) && mime != nullptr) return mime;
  return detected;
}

}  // namespace

std::vector<DetectedCharset> detectWithIcu(char const* data, std::size_t size) {
  UErrorCode status = U_ZERO_ERROR;
  DetectorHandle detector(ucsdet_open(&status));
  if (U_FAILURE(status) || !detector) {
    throw I18nError(std::string("Cannot open the charset detector: ") + u_errorName(status));
  }
  // ICU takes the length as int32_t; beyond 2 GiB the start of the text is sample enough.
  auto const length = static_cast<int32_t>(
      std::min<std::size_t>(size, static_cast<std::size_t>(std::numeric_limits<int32_t>::max())));
  ucsdet_setText(detector.get(), data, length, &status);
  int32_t count = 0;
  UCharsetMatch const** matches = ucsdet_detectAll(detector.get(), &count, &status);
  // ICU reports "no encoding matched" as this error; to us it is an empty list.
  if (status == U_INVALID_CHAR_FOUND) return {};
  if (U_FAILURE(status)) {
    throw I18nError(std::string("Cannot detect the charset: ") + u_errorName(status));
  }
  std::vector<DetectedCharset> candidates;
  for (int32_t i = 0; i < count && matches != nullptr; ++i) {
    UErrorCode matchStatus = U_ZERO_ERROR;
    char const* name = ucsdet_getName(matches[i], &matchStatus);
    int32_t const confidence = ucsdet_getConfidence(matches[i], &matchStatus);
    if (U_FAILURE(matchStatus) || name == nullptr) continue;
    std::string canonical = convertibleName(name);
    if (canonical.empty()) continue;
    bool const seen = std::any_of(candidates.begin(), candidates.end(),
                                  [&](DetectedCharset const& c) { return c.name == canonical; });
    if (!seen) candidates.push_back(DetectedCharset{std::move(canonical), confidence});
  }
  return candidates;
}

}  // namespace detail
}  // namespace i18n
}  // namespace fl
