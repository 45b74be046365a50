// Every answer about an encoding that the library gives without ICU is the answer ICU gives.
#include "plain_charsets.h"

#include <cstddef>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>

#include "icu_engine.h"

namespace {

using fl::i18n::codecvt_string_to_ustring;
using fl::i18n::detail::icuEngine;
using fl::i18n::detail::kAsciiCompatibleNameCount;
using fl::i18n::detail::kAsciiCompatibleNames;
using fl::i18n::detail::kPlainCodesetNameCount;
using fl::i18n::detail::kPlainCodesetNames;
using fl::i18n::detail::kUtf8NameCount;
using fl::i18n::detail::kUtf8Names;
using fl::i18n::detail::plainPreferredName;
using fl::i18n::detail::PlainRoad;
using fl::i18n::detail::plainRoadFor;

std::u16string icuConversion(char const* charset, std::string const& bytes, bool drop) {
  return icuEngine().openConverter(charset)->convert(bytes.data(), bytes.size(), drop);
}

std::u16string plainConversion(char const* charset, std::string const& bytes, bool drop) {
  codecvt_string_to_ustring const converter(charset, drop);
  return converter.convert(bytes.data(), bytes.size());
}

TEST(PlainCharsetsTest, EveryCodesetOfTheTableHasIcusPreferredName) {
  ASSERT_GT(kPlainCodesetNameCount, 30u);
  for (std::size_t i = 0; i < kPlainCodesetNameCount; ++i) {
    char const* const codeset = kPlainCodesetNames[i].codeset;
    EXPECT_EQ(kPlainCodesetNames[i].preferred, icuEngine().preferredEncodingName(codeset))
        << codeset;
    EXPECT_EQ(plainPreferredName(codeset), kPlainCodesetNames[i].preferred) << codeset;
  }
}

TEST(PlainCharsetsTest, OnlyTheExactSpellingOfACodesetIsInTheTable) {
  EXPECT_STREQ(plainPreferredName("ANSI_X3.4-1968"), "US-ASCII");
  EXPECT_EQ(plainPreferredName("ansi_x3.4-1968"), nullptr);
  EXPECT_EQ(plainPreferredName("ISO_8859-1:1987"), nullptr);
  EXPECT_EQ(plainPreferredName("utf8"), nullptr);
  EXPECT_EQ(plainPreferredName(""), nullptr);
  // Such spellings go to ICU, which knows them.
  EXPECT_EQ(icuEngine().preferredEncodingName("ISO_8859-1:1987"), "ISO-8859-1");
  EXPECT_EQ(icuEngine().preferredEncodingName("utf8"), "UTF-8");
}

TEST(PlainCharsetsTest, ConvertersGoWithoutIcuOnlyForTheNamesListed) {
  for (std::size_t i = 0; i < kUtf8NameCount; ++i) {
    EXPECT_EQ(plainRoadFor(kUtf8Names[i]), PlainRoad::kUtf8) << kUtf8Names[i];
  }
  for (std::size_t i = 0; i < kAsciiCompatibleNameCount; ++i) {
    EXPECT_EQ(plainRoadFor(kAsciiCompatibleNames[i]), PlainRoad::kAsciiCompatible)
        << kAsciiCompatibleNames[i];
  }
  for (char const* name : {"Utf-8", "UTF_8", "latin1", "Shift_JIS", "ISO-2022-JP", "UTF-16LE",
                           "ISO-8859-16", "cp1252", ""}) {
    EXPECT_EQ(plainRoadFor(name), PlainRoad::kNone) << name;
  }
}

TEST(PlainCharsetsTest, Utf8NamesAreIcusUtf8) {
  // The same converter: ICU gives the same text for a sample with every kind of sequence, a
  // bad one included.
  std::string const sample =
      "\xEF\xBB\xBF"
      "a\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80\xFF\xED\xA0\x80\xEF\xBF\xBF";
  for (std::size_t i = 0; i < kUtf8NameCount; ++i) {
    EXPECT_EQ(icuConversion(kUtf8Names[i], sample, false), icuConversion("UTF-8", sample, false))
        << kUtf8Names[i];
  }
}

TEST(PlainCharsetsTest, AsciiCompatibleNamesMapEveryAsciiByteToItself) {
  for (std::size_t i = 0; i < kAsciiCompatibleNameCount; ++i) {
    char const* const name = kAsciiCompatibleNames[i];
    for (int byte = 0; byte < 0x80; ++byte) {
      std::string const one(1, static_cast<char>(byte));
      EXPECT_EQ(icuConversion(name, one, true), std::u16string(1, static_cast<char16_t>(byte)))
          << name << " byte " << byte;
    }
  }
}

TEST(PlainCharsetsTest, PureAsciiConvertsAsIcuConvertsIt) {
  std::mt19937 random(20261125);
  std::uniform_int_distribution<int> length(0, 64);
  std::uniform_int_distribution<int> byte(0, 0x7F);
  for (std::size_t i = 0; i < kAsciiCompatibleNameCount; ++i) {
    char const* const name = kAsciiCompatibleNames[i];
    for (int round = 0; round < 200; ++round) {
      std::string text(static_cast<std::size_t>(length(random)), '\0');
      for (char& c : text) c = static_cast<char>(byte(random));
      // Escape sequences, which an encoding with state would act on.
      if (round % 10 == 0) text += "\x1B$B\x1B(B\x1B$)C\x0E\x0F~{~}";
      for (bool drop : {true, false}) {
        EXPECT_EQ(plainConversion(name, text, drop), icuConversion(name, text, drop)) << name;
      }
    }
  }
}

TEST(PlainCharsetsTest, NonAsciiInputOfAnAsciiCompatibleEncodingIsIcus) {
  std::string const latin1 = "caf\xE9 \x80\xFF";
  for (std::size_t i = 0; i < kAsciiCompatibleNameCount; ++i) {
    char const* const name = kAsciiCompatibleNames[i];
    EXPECT_EQ(plainConversion(name, latin1, true), icuConversion(name, latin1, true)) << name;
  }
  EXPECT_EQ(plainConversion("ISO-8859-1", latin1, true), u"caf\u00E9 \u0080\u00FF");
  EXPECT_EQ(plainConversion("US-ASCII", latin1, true), u"caf\uFFFD \uFFFD\uFFFD");
}

}  // namespace
