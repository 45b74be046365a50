#include <fl/i18n/charset.h>

namespace fl {
namespace i18n {

I18nError::I18nError(std::string const& message) : std::runtime_error(message) {}

// Defined here so that the class's vtable and typeinfo live once, in the library.
I18nError::~I18nError() = default;

}  // namespace i18n
}  // namespace fl
