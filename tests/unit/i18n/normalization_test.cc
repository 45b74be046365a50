#include <random>
#include <string>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>
#include <fl/i18n/normalization.h>

#include "icu_engine.h"
#include "support/expect_exception.h"

namespace {

using fl::i18n::I18nError;
using fl::i18n::normalizeNfc;

TEST(NormalizationTest, ComposesDecomposedText) {
  EXPECT_EQ(normalizeNfc(u"e\u0301"), u"\u00e9");
  EXPECT_EQ(normalizeNfc(u"Pa\u0308sswo\u0308rd"), u"P\u00e4ssw\u00f6rd");
  // Hangul jamo compose algorithmically.
  EXPECT_EQ(normalizeNfc(u"\u1100\u1161\u11a8"), u"\uac01");
  // Combining marks are put in canonical order before composing.
  EXPECT_EQ(normalizeNfc(u"a\u0323\u0302"), u"\u1ead");
  EXPECT_EQ(normalizeNfc(u"a\u0302\u0323"), u"\u1ead");
}

TEST(NormalizationTest, LeavesComposedAndPlainTextAsItIs) {
  for (std::u16string const& text :
       {std::u16string(), std::u16string(u"plain ASCII"), std::u16string(u"\u00e9t\u00e9"),
        std::u16string(u"\U0001F511 key"), std::u16string(u"\u65e5\u672c\u8a9e")}) {
    EXPECT_EQ(normalizeNfc(text), text);
  }
}

TEST(NormalizationTest, ReplacesSingletonsAndMayLengthenText) {
  // The ohm sign is canonically the Greek capital omega.
  EXPECT_EQ(normalizeNfc(u"\u2126"), u"\u03a9");
  // U+0958 is excluded from composition: its NFC form is two characters.
  EXPECT_EQ(normalizeNfc(u"\u0958"), u"\u0915\u093c");
  // U+FB2C has a three-unit NFC form.
  EXPECT_EQ(normalizeNfc(u"\ufb2c"), u"\u05e9\u05bc\u05c1");
  EXPECT_EQ(normalizeNfc(std::u16string(50, u'\ufb2c')).size(), 150u);
}

TEST(NormalizationTest, RefusesUnpairedSurrogatesWithoutQuotingTheText) {
  for (std::u16string const& text :
       {std::u16string(u"secret\xD800"), std::u16string(u"\xDC00secret"),
        std::u16string(u"se\xD800\xD800"
                       u"cret"),
        std::u16string(u"secret\xDBFF x")}) {
    EXPECT_THROW_MESSAGE(normalizeNfc(text), I18nError,
                         "Text with an unpaired surrogate has no normal form");
  }
  EXPECT_EQ(normalizeNfc(u"\xD83D\xDD11"), u"\U0001F511");
}

TEST(NormalizationTest, TextBelowTheFirstCombiningMarkIsInNfcAsIcuSays) {
  // Every unit below U+0300 alone, then in random texts of them, answered without ICU, is
  // what ICU answers.
  fl::i18n::detail::IcuEngine& icu = fl::i18n::detail::icuEngine();
  for (char16_t unit = 0; unit < 0x0300; ++unit) {
    std::u16string const text(1, unit);
    EXPECT_EQ(normalizeNfc(text), icu.normalizeNfc(text)) << static_cast<int>(unit);
  }
  std::mt19937 random(300);
  std::uniform_int_distribution<int> length(0, 24);
  std::uniform_int_distribution<int> unit(0, 0x02FF);
  for (int round = 0; round < 5000; ++round) {
    std::u16string text(static_cast<std::size_t>(length(random)), u'\0');
    for (char16_t& c : text) c = static_cast<char16_t>(unit(random));
    EXPECT_EQ(normalizeNfc(text), icu.normalizeNfc(text));
    EXPECT_EQ(normalizeNfc(text), text);
  }
  // The first combining mark after such text composes with it.
  EXPECT_EQ(normalizeNfc(u"e\u0300"), u"\u00E8");
}

}  // namespace
