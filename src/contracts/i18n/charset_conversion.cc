#include <cstddef>
#include <memory>
#include <string>

#include <fl/i18n/charset.h>

#include "icu_engine.h"
#include "plain_charsets.h"
#include "quoted_name.h"
#include "utf8.h"

namespace fl {
namespace i18n {

// A converter goes without ICU where its answer can be given exactly here: UTF-8 always, a
// single-byte encoding whose lower half is ASCII for pure ASCII input.  ICU's converter is
// opened when the first input needs it, and kept.
struct codecvt_string_to_ustring::Impl {
  std::string charset;
  bool dropByteOrderMark = false;
  detail::PlainRoad road = detail::PlainRoad::kNone;
  std::unique_ptr<detail::IcuConverter> icu;

  detail::IcuConverter& icuConverter() {
    if (!icu) icu = detail::icuEngine().openConverter(charset);
    return *icu;
  }
};

codecvt_string_to_ustring::codecvt_string_to_ustring(std::string const& charset,
                                                     bool dropByteOrderMark)
    : impl_(std::make_unique<Impl>()) {
  // ICU opens its default converter for an empty name; a name with a NUL would be cut
  // short.  Neither names an encoding.
  if (charset.empty() || charset.find('\0') != std::string::npos) {
    throw I18nError("Unknown character encoding " + detail::quotedName(charset));
  }
  impl_->charset = charset;
  impl_->dropByteOrderMark = dropByteOrderMark;
  impl_->road = detail::plainRoadFor(charset);
  // Every other name is tried now, so that an unknown encoding is told here, not at the
  // first conversion.
  if (impl_->road == detail::PlainRoad::kNone) impl_->icuConverter();
}

codecvt_string_to_ustring::~codecvt_string_to_ustring() = default;

std::u16string codecvt_string_to_ustring::convert(char const* data, std::size_t size) const {
  Impl& state = *impl_;
  switch (state.road) {
    case detail::PlainRoad::kUtf8:
      return detail::decodeUtf8(data, size, state.dropByteOrderMark);
    case detail::PlainRoad::kAsciiCompatible:
      if (detail::isAscii(data, size)) return detail::widenAscii(data, size);
      break;
    case detail::PlainRoad::kNone:
      break;
  }
  return state.icuConverter().convert(data, size, state.dropByteOrderMark);
}

std::string ustring_to_utf8(std::u16string const& text) { return detail::encodeUtf8(text); }

}  // namespace i18n
}  // namespace fl
