#include <gtest/gtest.h>

#include <fl/i18n/vk_locale.h>

#include "support/scoped_thread_locale.h"

namespace {

// The encoding name is what a package records as the encoding it was made under, so it is
// the name other platforms know, not the C library's own spelling.
void expectEncodingName(char const* locale, char const* expected) {
  opcvk_test::ScopedThreadLocale scoped(locale);
  if (!scoped.installed()) GTEST_SKIP() << "locale " << locale << " is not installed";
  EXPECT_EQ(fl::i18n::VkLocale::global().getEncodingName(), expected);
}

TEST(VkLocaleTest, TheCLocaleIsUsAscii) { expectEncodingName("C", "US-ASCII"); }

TEST(VkLocaleTest, AUtf8LocaleIsUtf8) { expectEncodingName("C.UTF-8", "UTF-8"); }

TEST(VkLocaleTest, ALatin1LocaleHasThePreferredMimeName) {
  expectEncodingName("en_US.ISO-8859-1", "ISO-8859-1");
}

}  // namespace
