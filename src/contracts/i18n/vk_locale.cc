#include <langinfo.h>
#include <utility>

#include <fl/i18n/vk_locale.h>

#include "icu_engine.h"
#include "plain_charsets.h"

namespace fl {
namespace i18n {
namespace {

// The name is the one that ICU's alias table prefers (see IcuEngine::preferredEncodingName).
// The codesets of the C library's own locales have it in a table here, so that a program
// that asks for its locale's encoding, as every new file-system tree does, need not load ICU.
std::string preferredName(char const* codeset) {
  if (codeset == nullptr || *codeset == '\0') return "US-ASCII";
  if (char const* known = detail::plainPreferredName(codeset)) return known;
  return detail::icuEngine().preferredEncodingName(codeset);
}

}  // namespace

VkLocale VkLocale::global() { return VkLocale(preferredName(nl_langinfo(CODESET))); }

std::string VkLocale::getEncodingName() const { return encodingName_; }

VkLocale::VkLocale(std::string encodingName) : encodingName_(std::move(encodingName)) {}

}  // namespace i18n
}  // namespace fl
