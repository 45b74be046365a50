#include <langinfo.h>
#include <utility>

#include <unicode/ucnv.h>

#include <fl/i18n/vk_locale.h>

namespace fl {
namespace i18n {
namespace {

// glibc names ASCII "ANSI_X3.4-1968"; users and other platforms know the IANA names, so the
// name is mapped through ICU's alias table when ICU knows it.
std::string preferredName(char const* codeset) {
  if (codeset == nullptr || *codeset == '\0') return "US-ASCII";
  UErrorCode status = U_ZERO_ERROR;
  char const* iana = ucnv_getStandardName(codeset, "IANA", &status);
  if (U_SUCCESS(status) && iana != nullptr) return iana;
  status = U_ZERO_ERROR;
  char const* canonical = ucnv_getCanonicalName(codeset, "", &status);
  if (U_SUCCESS(status) && canonical != nullptr) {
    status = U_ZERO_ERROR;
    iana = ucnv_getStandardName(canonical, "IANA", &status);
    if (U_SUCCESS(status) && iana != nullptr) return iana;
  }
  return codeset;
}

}  // namespace

VkLocale VkLocale::global() { return VkLocale(preferredName(nl_langinfo(CODESET))); }

std::string VkLocale::getEncodingName() const { return encodingName_; }

VkLocale::VkLocale(std::string encodingName) : encodingName_(std::move(encodingName)) {}

}  // namespace i18n
}  // namespace fl
