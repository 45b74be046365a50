#include <langinfo.h>
#include <utility>

#include <unicode/ucnv.h>

#include <fl/i18n/vk_locale.h>

namespace fl {
namespace i18n {
namespace {

// glibc names ASCII "ANSI_X3.4-1968" and Latin-1 "ISO-8859-1" or "ISO_8859-1:1987"; users and
// other platforms know the preferred MIME names, so the name is mapped through ICU's alias
// table: its MIME name where it has one ("US-ASCII", "ISO-8859-1"), else its IANA name.
char const* standardName(char const* name) {
  for (char const* standard : {"MIME", "IANA"}) {
    UErrorCode status = U_ZERO_ERROR;
    char const* found = ucnv_getStandardName(name, standard, &status);
    if (U_SUCCESS(status) && found != nullptr) return found;
  }
  return nullptr;
}

std::string preferredName(char const* codeset) {
  if (codeset == nullptr || *codeset == '\0') return "US-ASCII";
  if (char const* found = standardName(codeset)) return found;
  UErrorCode status = U_ZERO_ERROR;
  char const* canonical = ucnv_getCanonicalName(codeset, "", &status);
  if (U_SUCCESS(status) && canonical != nullptr) {
    if (char const* found = standardName(canonical)) return found;
  }
  return codeset;
}

}  // namespace

VkLocale VkLocale::global() { return VkLocale(preferredName(nl_langinfo(CODESET))); }

std::string VkLocale::getEncodingName() const { return encodingName_; }

VkLocale::VkLocale(std::string encodingName) : encodingName_(std::move(encodingName)) {}

}  // namespace i18n
}  // namespace fl
