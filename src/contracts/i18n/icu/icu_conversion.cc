// Conversion from any encoding that ICU knows to UTF-16.
#include <algorithm>
#include <cstddef>
#include <string>

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>

#include <fl/i18n/charset.h>

#include "../quoted_name.h"
#include "icu_handles.h"
#include "icu_library.h"

namespace fl {
namespace i18n {
namespace detail {
namespace {

// ICU refuses a source span of 2 GiB or more; input is fed to it in pieces of this size.
constexpr std::size_t kSourcePiece = std::size_t{1} << 20;
// Units converted per call before they are appended to the result.
constexpr std::size_t kTargetUnits = std::size_t{1} << 15;

// Every byte sequence that the encoding does not allow, or that maps to nothing, becomes
// U+FFFD.  ICU's own substitution writes U+001A for the single-byte encodings whose
// substitution byte is 0x1A, which would turn bad input into a control character.
void substituteReplacementCharacter(void const* /*context*/, UConverterToUnicodeArgs* args,
                                    char const* /*codeUnits*/, int32_t /*length*/,
                                    UConverterCallbackReason reason, UErrorCode* status) {
  if (reason != UCNV_UNASSIGNED && reason != UCNV_ILLEGAL && reason != UCNV_IRREGULAR) return;
  *status = U_ZERO_ERROR;
  static UChar const kReplacement = 0xFFFD;
  ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, status);
}

class Converter final : public IcuConverter {
 public:
  Converter(ConverterHandle handle, std::string charset)
      : handle_(std::move(handle)), charset_(std::move(charset)) {}

  std::u16string convert(char const* data, std::size_t size, bool dropByteOrderMark) override {
    UConverter* const icu = handle_.get();
    // Each call converts a text of its own: nothing is carried over from the last one.
    ucnv_resetToUnicode(icu);

    if (size == 0) data = "";  // ICU is given a range, never a null pointer

    std::u16string out;
    std::u16string target(kTargetUnits, u'\0');
    bool atStart = true;
    char const* source = data;
    char const* const end = data + size;
    do {
      std::size_t const left = static_cast<std::size_t>(end - source);
      char const* const pieceEnd = source + std::min(left, kSourcePiece);
      bool const flush = pieceEnd == end;
      for (;;) {
        UChar* cursor = &target[0];
        UErrorCode status = U_ZERO_ERROR;
        ucnv_toUnicode(icu, &cursor, cursor + target.size(), &source, pieceEnd, nullptr, flush,
                       &status);
        std::size_t skip = 0;
        std::size_t const produced = static_cast<std::size_t>(cursor - &target[0]);
        if (atStart && produced > 0) {
          if (dropByteOrderMark && target[0] == u'\uFEFF') skip = 1;
          atStart = false;
        }
        out.append(target, skip, produced - skip);
        if (status == U_BUFFER_OVERFLOW_ERROR) continue;
        if (U_FAILURE(status)) {
          throw I18nError("Cannot convert text from \"" + charset_ + "\": " + u_errorName(status));
        }
        break;
      }
    } while (source != end);
    return out;
  }

 private:
  ConverterHandle handle_;
  std::string charset_;
};

}  // namespace

std::unique_ptr<IcuConverter> openIcuConverter(std::string const& charset) {
  UErrorCode status = U_ZERO_ERROR;
  ConverterHandle handle(ucnv_open(charset.c_str(), &status));
  if (U_FAILURE(status) || !handle) {
    throw I18nError("Unknown character encoding " + quotedName(charset) + ": " +
                    u_errorName(status));
  }
  status = U_ZERO_ERROR;
  ucnv_setToUCallBack(handle.get(), substituteReplacementCharacter, nullptr, nullptr, nullptr,
                      &status);
  if (U_FAILURE(status)) {
    throw I18nError("Cannot set up the converter for " + quotedName(charset) + ": " +
                    u_errorName(status));
  }
  return std::make_unique<Converter>(std::move(handle), charset);
}

}  // namespace detail
}  // namespace i18n
}  // namespace fl
