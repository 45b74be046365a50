// The parts of libvki18n_icu, the companion library that holds everything of libvki18n that
// calls ICU.  Internal to the companion: of this, only the entry is exported.
#ifndef FL_I18N_ICU_ICU_LIBRARY_H_
#define FL_I18N_ICU_ICU_LIBRARY_H_

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <fl/i18n/export.h>

#include "../icu_engine.h"

namespace fl {
namespace i18n {
namespace detail {

// IcuEngine::openConverter.
std::unique_ptr<IcuConverter> openIcuConverter(std::string const& charset);

// IcuEngine::detect.
std::vector<DetectedCharset> detectWithIcu(char const* data, std::size_t size);

}  // namespace detail
}  // namespace i18n
}  // namespace fl

// The entry that libvki18n looks up by name when it loads the companion: the engine, made on
// first use (thread-safe) and never destroyed.
extern "C" FL_I18N_EXPORT fl::i18n::detail::IcuEngine* vki18n_icu_engine();

#endif  // FL_I18N_ICU_ICU_LIBRARY_H_
