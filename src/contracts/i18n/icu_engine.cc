// Loading libvki18n_icu.  libvki18n does not link ICU: the first answer that needs it loads the
// companion here, once for the process, and every later call finds it loaded.
#include "icu_engine.h"

#include <string>

#include <fl/i18n/charset.h>

#include "companion_library.h"

namespace fl {
namespace i18n {
namespace detail {
namespace {

// The companion's file name and its entry, shared with the companion's build
// (icu/icu_library.h).
constexpr char kIcuLibrary[] = VKI18N_ICU_LIBRARY;
constexpr char kEntry[] = "vki18n_icu_engine";

IcuEngine* loadEngine() {
  opcvk_companion::CompanionEntry const loaded =
      opcvk_companion::loadCompanion(kIcuLibrary, kIcuLibrary, kEntry);
  std::string const failure =
      opcvk_companion::failureMessage(loaded, "The ICU library", kIcuLibrary, kEntry);
  if (!failure.empty()) throw I18nError(failure);
  using Entry = IcuEngine* (*)();
  return reinterpret_cast<Entry>(loaded.entry)();
}

}  // namespace

IcuEngine& icuEngine() {
  // A failed load leaves the static unset, so that a later call tries again.
  static IcuEngine* const engine = loadEngine();
  return *engine;
}

}  // namespace detail
}  // namespace i18n
}  // namespace fl
