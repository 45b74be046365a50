// fl::i18n::VkLocale: what the process's locale says about text.
#ifndef FL_I18N_VK_LOCALE_H_
#define FL_I18N_VK_LOCALE_H_

#include <string>

#include <fl/i18n/export.h>

namespace fl {
namespace i18n {

// A snapshot of the character encoding of a locale.
//
// `global()` reads the process's current C locale (LC_CTYPE) at the moment of the call: the
// locale that the program chose with setlocale, or "C" if it never did.  The library never
// changes the locale itself.  Thread-safe: each call takes its own snapshot.
//
// The codesets of the C library's own locales are named without ICU; any other codeset is
// looked up in ICU's alias table, which `global()` loads for it, and raises I18nError
// (declared in <fl/i18n/charset.h>) naming the library and the reason if that fails.
class FL_I18N_EXPORT VkLocale {
 public:
  static VkLocale global();

  // The preferred IANA name of the locale's encoding where one is known ("UTF-8",
  // "US-ASCII", "ISO-8859-1", ...), else the C library's own name for it.  Never empty.
  std::string getEncodingName() const;

 private:
  explicit VkLocale(std::string encodingName);

  std::string encodingName_;
};

}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_VK_LOCALE_H_
