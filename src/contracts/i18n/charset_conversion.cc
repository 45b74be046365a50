#include <algorithm>
#include <cstddef>
#include <string>

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>

#include <fl/i18n/charset.h>

#include "icu_handles.h"
#include "utf8.h"

namespace fl {
namespace i18n {
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

// The name in quotes for a message, control bytes (a NUL included, which would end the
// message) as \xNN.
std::string quoted(std::string const& name) {
  std::string out = "\"";
  for (char c : name) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      char const* const digits = "0123456789ABCDEF";
      out += "\\x";
      out += digits[byte >> 4];
      out += digits[byte & 0xF];
    } else {
      out += c;
    }
  }
  return out + "\"";
}

}  // namespace

struct codecvt_string_to_ustring::Impl {
  detail::ConverterHandle handle;
  std::string charset;
  bool dropByteOrderMark;
};

codecvt_string_to_ustring::codecvt_string_to_ustring(std::string const& charset,
                                                     bool dropByteOrderMark)
    : impl_(std::make_unique<Impl>()) {
  // ICU opens its default converter for an empty name; a name with a NUL would be cut
  // short.  Neither names an encoding.
  if (charset.empty() || charset.find('\0') != std::string::npos) {
    throw I18nError("Unknown character encoding " + quoted(charset));
  }
  UErrorCode status = U_ZERO_ERROR;
  detail::ConverterHandle handle(ucnv_open(charset.c_str(), &status));
  if (U_FAILURE(status) || !handle) {
    throw I18nError("Unknown character encoding " + quoted(charset) + ": " + u_errorName(status));
  }
  status = U_ZERO_ERROR;
  ucnv_setToUCallBack(handle.get(), substituteReplacementCharacter, nullptr, nullptr, nullptr,
                      &status);
  if (U_FAILURE(status)) {
    throw I18nError("Cannot set up the converter for " + quoted(charset) + ": " +
                    u_errorName(status));
  }
  impl_->handle = std::move(handle);
  impl_->charset = charset;
  impl_->dropByteOrderMark = dropByteOrderMark;
}

codecvt_string_to_ustring::~codecvt_string_to_ustring() = default;

std::u16string codecvt_string_to_ustring::convert(char const* data, std::size_t size) const {
  UConverter* const icu = impl_->handle.get();
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
        if (impl_->dropByteOrderMark && target[0] == u'\uFEFF') skip = 1;
        atStart = false;
      }
      out.append(target, skip, produced - skip);
      if (status == U_BUFFER_OVERFLOW_ERROR) continue;
      if (U_FAILURE(status)) {
        throw I18nError("Cannot convert text from \"" + impl_->charset +
                        "\": " + u_errorName(status));
      }
      break;
    }
  } while (source != end);
  return out;
}

std::string ustring_to_utf8(std::u16string const& text) { return detail::encodeUtf8(text); }

}  // namespace i18n
}  // namespace fl
