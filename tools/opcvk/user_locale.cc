#include "user_locale.h"

#include <clocale>
#include <cstring>
#include <unistd.h>

namespace opcvk {
namespace {

constexpr int kUsedCategories[] = {LC_CTYPE, LC_NUMERIC, LC_MESSAGES};

// The value of "NAME=value" if it names a locale variable ("LC_..."), else nullptr; `isAll`
// tells whether it is LC_ALL.
char const* localeVariableValue(char const* entry, bool& isAll) {
  if (std::strncmp(entry, "LC_", 3) != 0) return nullptr;
  char const* const equals = std::strchr(entry, '=');
  if (equals == nullptr) return nullptr;
  isAll = equals - entry == 6 && std::strncmp(entry, "LC_ALL", 6) == 0;
  return equals + 1;
}

}  // namespace

bool environmentNamesOneLocale(char const* const* environment) {
  bool categoryVariableSet = false;
  for (char const* const* entry = environment; *entry != nullptr; ++entry) {
    bool isAll = false;
    char const* const value = localeVariableValue(*entry, isAll);
    if (value == nullptr || *value == '\0') continue;
    if (isAll) return true;
    categoryVariableSet = true;
  }
  return !categoryVariableSet;
}

void adoptUserLocale() {
  // Loading all twelve categories of a locale costs twice the instructions of the three the
  // tool uses, and where the locale is not in the archive (as C.UTF-8 is not) a file each to
  // find, open and map: some 45 more system calls, in every command.
  //
  // setlocale(LC_ALL, "") sets every category or, when any of them cannot be loaded, none.
  // When the environment names one locale for all of them, the categories used load or fail
  // together, and setting only those gives the same result.  A mix of names keeps the
  // all-or-nothing call, so that a category that fails still leaves the codeset at "C".
  if (!environmentNamesOneLocale(environ)) {
    std::setlocale(LC_ALL, "");
    return;
  }
  for (int const category : kUsedCategories) {
    if (std::setlocale(category, "") == nullptr) {
      std::setlocale(LC_ALL, "C");
      return;
    }
  }
}

}  // namespace opcvk
