#include "user_locale.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr char const kUtf8Locale[] = "C.UTF-8";

bool namesOneLocale(std::vector<char const*> environment) {
  environment.push_back(nullptr);
  return opcvk::environmentNamesOneLocale(environment.data());
}

bool localeIsInstalled(char const* name) {
  locale_t const locale = newlocale(LC_ALL_MASK, name, nullptr);
  if (locale == nullptr) return false;
  freelocale(locale);
  return true;
}

bool categoryIs(int category, char const* name) {
  char const* const current = std::setlocale(category, nullptr);
  return current != nullptr && std::strcmp(current, name) == 0;
}

// Runs in a child process (a death test), with an environment of its own: the locale
// variables of `settings` and no other.
void adoptWith(std::vector<std::pair<char const*, char const*>> const& settings) {
  std::vector<std::string> names{"LANG"};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string const text(*entry);
    if (text.compare(0, 3, "LC_") == 0) names.push_back(text.substr(0, text.find('=')));
  }
  for (std::string const& name : names) unsetenv(name.c_str());
  for (auto const& [name, value] : settings) setenv(name, value, 1);
  opcvk::adoptUserLocale();
}

TEST(UserLocaleTest, OneLocaleWhenOnlyLangIsSet) {
  EXPECT_TRUE(namesOneLocale({"PATH=/bin", "LANG=de_DE.UTF-8"}));
  EXPECT_TRUE(namesOneLocale({}));
}

TEST(UserLocaleTest, OneLocaleWhenLcAllIsSetWhateverTheCategoriesSay) {
  EXPECT_TRUE(namesOneLocale({"LC_TIME=en_GB.UTF-8", "LC_ALL=C.UTF-8", "LANG=de_DE.UTF-8"}));
}

TEST(UserLocaleTest, MixedWhenACategoryVariableIsSet) {
  EXPECT_FALSE(namesOneLocale({"LANG=C.UTF-8", "LC_TIME=en_GB.UTF-8"}));
  EXPECT_FALSE(namesOneLocale({"LC_ALL=", "LC_CTYPE=C.UTF-8"}));
}

TEST(UserLocaleTest, EmptyVariablesCountAsUnset) {
  EXPECT_TRUE(namesOneLocale({"LANG=C.UTF-8", "LC_TIME=", "LC_COLLATE="}));
}

TEST(UserLocaleTest, VariablesThatOnlyBeginLikeOnesDoNotCount) {
  EXPECT_TRUE(namesOneLocale({"LANG=C.UTF-8", "LC_ALLX", "LCX=1", "XLC_TIME=C"}));
  EXPECT_FALSE(namesOneLocale({"LANG=C.UTF-8", "LC_ALLX=C"}));
}

TEST(UserLocaleTest, TakesTheCodesetNumbersAndMessagesOfLangAndLeavesTheRestAtC) {
  if (!localeIsInstalled(kUtf8Locale)) GTEST_SKIP() << kUtf8Locale << " is not installed";
  EXPECT_EXIT(
      {
        adoptWith({{"LANG", kUtf8Locale}});
        bool const taken = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0 &&
                           categoryIs(LC_NUMERIC, kUtf8Locale) &&
                           categoryIs(LC_MESSAGES, kUtf8Locale) && categoryIs(LC_TIME, "C") &&
                           categoryIs(LC_COLLATE, "C");
        std::exit(taken ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(UserLocaleTest, ChangesNothingWhenTheLocaleCannotBeLoaded) {
  EXPECT_EXIT(
      {
        adoptWith({{"LANG", "xx_XX.no-such-codeset"}});
        std::exit(categoryIs(LC_CTYPE, "C") && categoryIs(LC_MESSAGES, "C") ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(UserLocaleTest, MixedNamesSetEveryCategory) {
  if (!localeIsInstalled(kUtf8Locale)) GTEST_SKIP() << kUtf8Locale << " is not installed";
  EXPECT_EXIT(
      {
        adoptWith({{"LANG", kUtf8Locale}, {"LC_TIME", "C"}});
        std::exit(categoryIs(LC_CTYPE, kUtf8Locale) && categoryIs(LC_COLLATE, kUtf8Locale) &&
                          categoryIs(LC_TIME, "C")
                      ? 0
                      : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(UserLocaleTest, MixedNamesOfWhichOneFailsLeaveTheCodesetAtC) {
  if (!localeIsInstalled(kUtf8Locale)) GTEST_SKIP() << kUtf8Locale << " is not installed";
  EXPECT_EXIT(
      {
        adoptWith({{"LANG", kUtf8Locale}, {"LC_TIME", "xx_XX.no-such-codeset"}});
        std::exit(categoryIs(LC_CTYPE, "C") ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
