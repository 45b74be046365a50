// The engine of libvki18n_icu: what libvki18n asks of ICU, behind the plain interface that
// libvki18n loads by name.
#include "icu_library.h"

#include <cstdint>
#include <string>

#include <unicode/ucnv.h>
#include <unicode/unorm2.h>
#include <unicode/utypes.h>

#include <fl/i18n/charset.h>

namespace fl {
namespace i18n {
namespace detail {
namespace {

char const* standardName(char const* name) {
  for (char const* standard : {"MIME", "IANA"}) {
    UErrorCode status = U_ZERO_ERROR;
    char const* found = ucnv_getStandardName(name, standard, &status);
    if (U_SUCCESS(status) && found != nullptr) return found;
  }
  return nullptr;
}

class Engine final : public IcuEngine {
 public:
  std::unique_ptr<IcuConverter> openConverter(std::string const& charset) override {
    return openIcuConverter(charset);
  }

  std::vector<DetectedCharset> detect(char const* data, std::size_t size) override {
    return detectWithIcu(data, size);
  }

  // glibc names ASCII "ANSI_X3.4-1968" and Latin-1 "ISO-8859-1" or "ISO_8859-1:1987"; users
  // and other platforms know the preferred MIME names, so the name is mapped through ICU's
  // alias table: its MIME name where it has one ("US-ASCII", "ISO-8859-1"), else its IANA
  // name.
  std::string preferredEncodingName(char const* codeset) override {
    if (char const* found = standardName(codeset)) return found;
    UErrorCode status = U_ZERO_ERROR;
    char const* canonical = ucnv_getCanonicalName(codeset, "", &status);
    if (U_SUCCESS(status) && canonical != nullptr) {
      if (char const* found = standardName(canonical)) return found;
    }
    return codeset;
  }

  std::u16string normalizeNfc(std::u16string const& text) override {
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
};

}  // namespace
}  // namespace detail
}  // namespace i18n
}  // namespace fl

fl::i18n::detail::IcuEngine* vki18n_icu_engine() {
  // Never destroyed: a converter or a caller may still use it while the process exits.
  static fl::i18n::detail::IcuEngine* const engine = new fl::i18n::detail::Engine();
  return engine;
}
