#include <cstddef>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>

#include "data/text/sample_texts.h"

namespace {

namespace texts = opcvk_test::texts;

// What the whole-buffer detection says of `text`: whether it settles as UTF-8 without the
// detector, and its remark.
struct Whole {
  bool settled;
  std::string remark;
};

Whole wholeBuffer(std::string const& text) {
  std::ostringstream remarks;
  std::string const charset = fl::i18n::detect_charset(text.data(), text.size(), remarks, "t");
  std::string const remark = remarks.str();
  bool const settled =
      charset == "UTF-8" && (remark == "charset of t: UTF-8 (empty)\n" ||
                             remark == "charset of t: UTF-8 (byte order mark)\n" ||
                             remark.rfind("charset of t: UTF-8 (well-formed UTF-8, ", 0) == 0);
  return Whole{settled, remark};
}

// Feeds `text` to a check in pieces cut at `cuts` (ascending offsets) and compares its verdict
// and remark with the whole-buffer detection.
void expectSameAsWhole(std::string const& text, std::vector<std::size_t> const& cuts) {
  fl::i18n::Utf8TextCheck check;
  std::size_t from = 0;
  for (std::size_t cut : cuts) {
    check.update(text.data() + from, cut - from);
    from = cut;
  }
  check.update(text.data() + from, text.size() - from);
  Whole const whole = wholeBuffer(text);
  std::string cutText;
  for (std::size_t cut : cuts) cutText += " " + std::to_string(cut);
  ASSERT_EQ(check.settled(), whole.settled) << "cuts:" << cutText << " size " << text.size();
  if (!whole.settled) return;
  std::ostringstream remark;
  check.writeRemark(remark, "t");
  ASSERT_EQ(remark.str(), whole.remark) << "cuts:" << cutText;
}

std::vector<std::string> const& samples() {
  static std::vector<std::string> const all = {
      "",
      "a",
      "plain ASCII, long enough for the eight-byte path\n",
      "\xC3\xA9t\xC3\xA9",                         // two-byte sequences
      "\xE2\x82\xAC 5",                            // three bytes
      "x\xF0\x9F\x98\x80y",                        // four bytes
      "\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF",  // the edges of the allowed ranges
      "\xEF\xBB\xBF"
      "marked",  // the byte order mark
      "\xEF\xBB\xBF"
      "marked but \xFF broken",  // the mark decides alone
      "\xEF\xBB",                // the start of a mark only
      "\xC0\x80",                // overlong
      "\xE0\x80\x80",            // overlong
      "\xE0\x9F\xBF",            // overlong
      "\xED\xA0\x80",            // a surrogate
      "\xF0\x8F\xBF\xBF",        // overlong
      "\xF4\x90\x80\x80",        // above U+10FFFF
      "\xF5\x80\x80\x80",        // no such lead byte
      "\x80",                    // a lone continuation
      "ends cut \xE2\x82",       // a sequence cut off at the end
      "ends cut \xF0\x9F\x98",
      std::string("zero\0byte", 9),               // well-formed, with a zero byte
      std::string("\xEF\xBB\xBFzero\0byte", 12),  // the mark with a zero byte
      "\xFF\xFE"
      "a\0b\0",  // the UTF-16LE mark
      texts::kFrenchUtf8,
      texts::kJapaneseUtf8,
      texts::kMixedUtf8,
      texts::kFrenchLatin1,
      texts::kMixedUtf16le,
  };
  return all;
}

std::string remarkOf(fl::i18n::Utf8TextCheck const& check) {
  std::ostringstream remark;
  check.writeRemark(remark, "<unknown>");
  return remark.str();
}

TEST(Utf8TextCheckTest, OnePieceAgreesWithWholeBufferDetection) {
  for (std::string const& text : samples()) expectSameAsWhole(text, {});
}

TEST(Utf8TextCheckTest, EveryCutAgreesWithWholeBufferDetection) {
  // Every cut point, inside every multi-byte sequence and the byte order mark included.
  for (std::string const& text : samples()) {
    for (std::size_t cut = 0; cut <= text.size(); ++cut) expectSameAsWhole(text, {cut});
  }
}

TEST(Utf8TextCheckTest, EveryPairOfCutsAgreesWithWholeBufferDetection) {
  // Two cuts can leave a single byte of a sequence alone in the middle piece.
  for (std::string const& text : samples()) {
    if (text.size() > 40) continue;
    for (std::size_t first = 0; first <= text.size(); ++first) {
      for (std::size_t second = first; second <= text.size(); ++second) {
        expectSameAsWhole(text, {first, second});
      }
    }
  }
}

TEST(Utf8TextCheckTest, RandomTextsAndCutsAgreeWithWholeBufferDetection) {
  // Bytes drawn mostly from the edges of the ranges that decide, so that near-misses of
  // every rule turn up; the seed is fixed so that a failure can be replayed.
  static unsigned char const kAlphabet[] = {'a',  0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F,
                                            0xA0, 0xBB, 0xBF, 0xC0, 0xC2, 0xDF, 0xE0,
                                            0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
  std::mt19937 random(20261124);
  std::uniform_int_distribution<std::size_t> pick(0, sizeof kAlphabet - 1);
  std::uniform_int_distribution<std::size_t> length(0, 12);
  for (int round = 0; round < 5000; ++round) {
    std::string text;
    std::size_t const size = length(random);
    for (std::size_t i = 0; i < size; ++i) {
      // Valid text is rare among random bytes: most bytes are continuations or ASCII.
      unsigned char const byte = kAlphabet[pick(random)];
      text.push_back(static_cast<char>(byte));
    }
    std::uniform_int_distribution<std::size_t> at(0, text.size());
    std::size_t first = at(random);
    std::size_t second = at(random);
    if (first > second) std::swap(first, second);
    expectSameAsWhole(text, {first, second});
    if (HasFatalFailure()) return;
  }
}

TEST(Utf8TextCheckTest, LongTextCountsEveryByte) {
  std::string text;
  for (int i = 0; i < 10000; ++i) text += texts::kMixedUtf8;
  expectSameAsWhole(text, {1, 65536, 65537, text.size() - 1});
}

TEST(Utf8TextCheckTest, BadByteRulesOutEveryContinuation) {
  fl::i18n::Utf8TextCheck check;
  check.update("ok", 2);
  EXPECT_TRUE(check.maySettle());
  check.update("\xFF", 1);
  EXPECT_FALSE(check.maySettle());
  check.update("fine again", 10);
  EXPECT_FALSE(check.maySettle());
  EXPECT_FALSE(check.settled());
}

TEST(Utf8TextCheckTest, ZeroByteRulesOutEveryContinuation) {
  fl::i18n::Utf8TextCheck check;
  check.update("a\0", 2);
  EXPECT_FALSE(check.maySettle());
  check.update("b", 1);
  EXPECT_FALSE(check.settled());
}

TEST(Utf8TextCheckTest, UnfinishedSequenceMaySettleYetIsNotSettled) {
  fl::i18n::Utf8TextCheck check;
  check.update("\xE2\x82", 2);
  EXPECT_TRUE(check.maySettle());
  EXPECT_FALSE(check.settled());
  check.update("\xAC", 1);
  EXPECT_TRUE(check.settled());
}

TEST(Utf8TextCheckTest, ByteOrderMarkKeepsTheTextSettledWhateverFollows) {
  fl::i18n::Utf8TextCheck check;
  check.update("\xEF", 1);
  check.update("\xBB\xBF", 2);
  check.update("\xFF\0", 2);
  EXPECT_TRUE(check.maySettle());
  EXPECT_TRUE(check.settled());
  EXPECT_EQ(remarkOf(check), "charset of <unknown>: UTF-8 (byte order mark)\n");
}

TEST(Utf8TextCheckTest, EmptyTextIsSettled) {
  fl::i18n::Utf8TextCheck check;
  check.update("", 0);
  EXPECT_TRUE(check.settled());
  EXPECT_EQ(remarkOf(check), "charset of <unknown>: UTF-8 (empty)\n");
}

}  // namespace
