// Sets a locale for the calling thread only, and puts the previous one back.
#ifndef TESTS_SUPPORT_SCOPED_THREAD_LOCALE_H_
#define TESTS_SUPPORT_SCOPED_THREAD_LOCALE_H_

#include <langinfo.h>
#include <locale.h>
#include <string>

namespace opcvk_test {

// Installs a locale for the calling thread only, and puts the previous one back.  The
// library's conversions read the thread's locale, so tests can run every codeset side by side
// without touching the process's.
class ScopedThreadLocale {
 public:
  explicit ScopedThreadLocale(char const* name)
      : locale_(newlocale(LC_ALL_MASK, name, nullptr)),
        previous_(locale_ != nullptr ? uselocale(locale_) : nullptr) {}
  ~ScopedThreadLocale() {
    if (locale_ == nullptr) return;
    uselocale(previous_);
    freelocale(locale_);
  }
  ScopedThreadLocale(ScopedThreadLocale const&) = delete;
  ScopedThreadLocale& operator=(ScopedThreadLocale const&) = delete;

  bool installed() const { return locale_ != nullptr; }
  std::string codeset() const { return nl_langinfo_l(CODESET, locale_); }

 private:
  locale_t locale_;
  locale_t previous_;
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_SCOPED_THREAD_LOCALE_H_
