// UTF-8 decoded without ICU gives what ICU's UTF-8 converter gives, bad input included.
#include "utf8.h"

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "icu_engine.h"

namespace {

using fl::i18n::detail::decodeUtf8;
using fl::i18n::detail::icuEngine;
using fl::i18n::detail::isAscii;
using fl::i18n::detail::widenAscii;

std::u16string icuDecoding(std::string const& bytes, bool drop) {
  return icuEngine().openConverter("UTF-8")->convert(bytes.data(), bytes.size(), drop);
}

void expectAsIcu(std::string const& bytes) {
  for (bool drop : {true, false}) {
    EXPECT_EQ(decodeUtf8(bytes.data(), bytes.size(), drop), icuDecoding(bytes, drop))
        << ::testing::PrintToString(bytes) << " drop " << drop;
  }
}

TEST(Utf8Test, DecodesEveryKindOfSequenceAsIcuDoes) {
  std::vector<std::string> const cases = {
      "",
      "plain ASCII, longer than one word of eight bytes",
      std::string("\0a\0", 3),
      // Each length, its lowest and highest.
      "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
      // Noncharacters are characters.
      "\xEF\xB7\x90\xEF\xBF\xBE\xEF\xBF\xBF\xF0\x9F\xBF\xBE\xF4\x8F\xBF\xBE",
      // Byte order marks: at the start, twice, later.
      "\xEF\xBB\xBF",
      "\xEF\xBB\xBF\xEF\xBB\xBFx",
      "x\xEF\xBB\xBF",
      "\xFF\xEF\xBB\xBF",
      // Overlong forms.
      "\xC0\x80",
      "\xC1\xBF",
      "\xE0\x80\x80",
      "\xE0\x9F\xBF",
      "\xF0\x80\x80\x80",
      "\xF0\x8F\xBF\xBF",
      // Surrogates, alone and paired.
      "\xED\xA0\x80",
      "\xED\xBF\xBF",
      "\xED\xA0\xBD\xED\xB8\x80",
      "\xED\x9F\xBF",
      // Beyond U+10FFFF, and lead bytes that no form has.
      "\xF4\x90\x80\x80",
      "\xF5\x80\x80\x80",
      "\xF8\x88\x80\x80\x80",
      "\xFC\x84\x80\x80\x80\x80",
      "\xFE\xFF",
      // Continuation bytes alone, sequences cut short in the middle and at the end.
      "\x80\xBF",
      "a\xC3",
      "a\xE6\x97",
      "a\xF0\x9F\x98",
      "\xE6\x97z",
      "\xF0\x9Fz",
      "\xF0\x9F\x98z",
      "\xE6\xC3\xA9",
      "\xF0\xE6\x97\xA5",
      "\xC3\xC3\xA9",
  };
  for (std::string const& bytes : cases) expectAsIcu(bytes);
}

TEST(Utf8Test, DecodesRandomInputAsIcuDoes) {
  // Bytes drawn mostly from the edges of the ranges that decide a sequence, in texts of every
  // length up to a few words.
  std::vector<unsigned char> const edges = {
      0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0,
      0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7, 0xF8, 0xFE, 0xFF};
  std::mt19937 random(1125);
  std::uniform_int_distribution<int> length(0, 40);
  std::uniform_int_distribution<std::size_t> edge(0, edges.size() - 1);
  std::uniform_int_distribution<int> any(0, 0xFF);
  std::uniform_int_distribution<int> choice(0, 3);
  for (int round = 0; round < 20000; ++round) {
    std::string bytes(static_cast<std::size_t>(length(random)), '\0');
    for (char& c : bytes) {
      c = static_cast<char>(choice(random) == 0 ? any(random) : edges[edge(random)]);
    }
    expectAsIcu(bytes);
  }
}

TEST(Utf8Test, DecodesValidTextOfEveryCodePointAsIcuDoes) {
  // Every scalar value once, in one text, as the encoder writes it.
  std::u16string text;
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    if (c < 0x10000) {
      text += static_cast<char16_t>(c);
    } else {
      text += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      text += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  std::string const bytes = fl::i18n::detail::encodeUtf8(text);
  EXPECT_TRUE(decodeUtf8(bytes.data(), bytes.size(), false) == text);
  EXPECT_TRUE(decodeUtf8(bytes.data(), bytes.size(), false) == icuDecoding(bytes, false));
}

TEST(Utf8Test, TellsAndWidensPureAscii) {
  EXPECT_TRUE(isAscii(nullptr, 0));
  std::string const ascii = "plain text, long enough for a word or two\x7F";
  EXPECT_TRUE(isAscii(ascii.data(), ascii.size()));
  EXPECT_EQ(widenAscii(ascii.data(), ascii.size()),
            u"plain text, long enough for a word or two\x7F");
  for (std::size_t at = 0; at < ascii.size(); ++at) {
    std::string other = ascii;
    other[at] = '\x80';
    EXPECT_FALSE(isAscii(other.data(), other.size())) << at;
  }
}

}  // namespace
