#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>

#include "data/text/sample_texts.h"
#include "support/expect_exception.h"

namespace {

namespace texts = opcvk_test::texts;
using fl::i18n::codecvt_string_to_ustring;
using fl::i18n::I18nError;
using fl::i18n::ustring_to_utf8;

std::u16string convert(std::string const& charset, std::string const& bytes,
                       bool dropByteOrderMark = true) {
  codecvt_string_to_ustring const converter(charset, dropByteOrderMark);
  return converter.convert(bytes.data(), bytes.size());
}

std::string toUtf8(std::string const& charset, std::string const& bytes,
                   bool dropByteOrderMark = true) {
  return ustring_to_utf8(convert(charset, bytes, dropByteOrderMark));
}

// UTF-16 code units read straight from bytes, as the reference for the converter.
std::u16string unitsOf(std::string const& bytes, bool littleEndian) {
  std::u16string units;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    auto const first = static_cast<unsigned char>(bytes[i]);
    auto const second = static_cast<unsigned char>(bytes[i + 1]);
    units += static_cast<char16_t>(littleEndian ? first | (second << 8) : (first << 8) | second);
  }
  return units;
}

std::string const kUtf8Bom("\xEF\xBB\xBF");

TEST(CharsetConversionTest, RecodesRealTextToTheReferenceUtf8) {
  struct Case {
    char const* charset;
    std::string const& bytes;
    std::string const& utf8;
  };
  std::vector<Case> const cases = {
      {"ISO-8859-1", texts::kFrenchLatin1, texts::kFrenchUtf8},
      {"windows-1252", texts::kQuotesWindows1252, texts::kQuotesUtf8},
      {"Shift_JIS", texts::kJapaneseShiftJis, texts::kJapaneseUtf8},
      {"UTF-16LE", texts::kMixedUtf16le, texts::kMixedUtf8},
      {"UTF-16BE", texts::kMixedUtf16be, texts::kMixedUtf8},
      {"UTF-8", texts::kMixedUtf8, texts::kMixedUtf8},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(toUtf8(c.charset, c.bytes), c.utf8) << c.charset;
  }
}

TEST(CharsetConversionTest, GivesTheUtf16OfTheText) {
  std::u16string const expected = unitsOf(texts::kMixedUtf16le, true);
  ASSERT_EQ(expected, unitsOf(texts::kMixedUtf16be, false));
  EXPECT_EQ(convert("UTF-8", texts::kMixedUtf8), expected);
  EXPECT_EQ(convert("UTF-16BE", texts::kMixedUtf16be), expected);
  // The character outside the basic plane is a surrogate pair.
  EXPECT_NE(expected.find(u"\xD83D\xDE00"), std::u16string::npos);
}

TEST(CharsetConversionTest, DetectedNameConvertsEverySample) {
  for (std::string const& bytes :
       {texts::kFrenchLatin1, texts::kQuotesWindows1252, texts::kJapaneseShiftJis,
        texts::kMixedUtf16le, texts::kMixedUtf16be, texts::kJapaneseUtf8}) {
    std::ostringstream remarks;
    std::string const charset =
        fl::i18n::detect_charset(bytes.data(), bytes.size(), remarks, "sample");
    std::string const utf8 = toUtf8(charset, bytes);
    EXPECT_TRUE(utf8 == texts::kFrenchUtf8 || utf8 == texts::kQuotesUtf8 ||
                utf8 == texts::kJapaneseUtf8 || utf8 == texts::kMixedUtf8)
        << charset;
  }
}

TEST(CharsetConversionTest, DropsALeadingByteOrderMarkWhenAsked) {
  std::string const utf16le = std::string("\xFF\xFE", 2) + texts::kMixedUtf16le;
  std::string const utf16be = std::string("\xFE\xFF", 2) + texts::kMixedUtf16be;
  EXPECT_EQ(toUtf8("UTF-16LE", utf16le, true), texts::kMixedUtf8);
  EXPECT_EQ(toUtf8("UTF-16BE", utf16be, true), texts::kMixedUtf8);
  EXPECT_EQ(toUtf8("UTF-8", kUtf8Bom + texts::kFrenchUtf8, true), texts::kFrenchUtf8);

  EXPECT_EQ(toUtf8("UTF-16LE", utf16le, false), kUtf8Bom + texts::kMixedUtf8);
  EXPECT_EQ(toUtf8("UTF-16BE", utf16be, false), kUtf8Bom + texts::kMixedUtf8);
  EXPECT_EQ(toUtf8("UTF-8", kUtf8Bom + texts::kFrenchUtf8, false), kUtf8Bom + texts::kFrenchUtf8);
}

TEST(CharsetConversionTest, KeepsAByteOrderMarkThatIsNotAtTheStart) {
  EXPECT_EQ(convert("UTF-8", "a" + kUtf8Bom + "b"), u"a\uFEFFb");
  // Only one mark is dropped.
  EXPECT_EQ(convert("UTF-8", kUtf8Bom + kUtf8Bom + "b"), u"\uFEFFb");
  // In a single-byte encoding the three bytes are three characters.
  EXPECT_EQ(convert("ISO-8859-1", kUtf8Bom + "b"), u"\u00EF\u00BB\u00BFb");
}

TEST(CharsetConversionTest, ReplacesInvalidBytesWithTheReplacementCharacter) {
  EXPECT_EQ(convert("UTF-8",
                    "a\xFF"
                    "b"),
            u"a\uFFFDb");
  EXPECT_EQ(convert("UTF-8",
                    "a\xC0\xAF"
                    "b"),
            u"a\uFFFD\uFFFDb");
  EXPECT_EQ(convert("UTF-8",
                    "a\xED\xA0\x80"
                    "b"),
            u"a\uFFFD\uFFFD\uFFFDb");
  EXPECT_EQ(convert("UTF-8", "cut \xE2\x82"), u"cut \uFFFD");
  // ICU's own substitute for US-ASCII would be the control character U+001A.
  EXPECT_EQ(convert("US-ASCII", "a\x80z"), u"a\uFFFDz");
  EXPECT_EQ(convert("Shift_JIS", "\x93\xFA\x96\x7B\x82"), u"\u65E5\u672C\uFFFD");
  EXPECT_EQ(convert("UTF-16LE", std::string("a\0b", 3)), u"a\uFFFD");
  // An unpaired surrogate in UTF-16 input.
  EXPECT_EQ(convert("UTF-16LE", std::string("\x00\xD8z\0", 4)), u"\uFFFDz");
}

TEST(CharsetConversionTest, EachCallStartsAfresh) {
  codecvt_string_to_ustring const converter("UTF-16LE", true);
  // A dangling half unit is not carried into the next text.
  EXPECT_EQ(converter.convert("A", 1), u"\uFFFD");
  EXPECT_EQ(converter.convert("B\0", 2), u"B");
  // And the next text's mark is dropped again.
  EXPECT_EQ(converter.convert("\xFF\xFE"
                              "C\0",
                              4),
            u"C");
  EXPECT_EQ(converter.convert("\xFF\xFE"
                              "C\0",
                              4),
            u"C");
}

TEST(CharsetConversionTest, EmptyInputGivesEmptyText) {
  codecvt_string_to_ustring const converter("Shift_JIS", true);
  EXPECT_EQ(converter.convert(nullptr, 0), u"");
  EXPECT_EQ(ustring_to_utf8(u""), "");
}

TEST(CharsetConversionTest, ConvertsTextLargerThanOnePieceOfInput) {
  // Over 3 MiB of Shift_JIS, fed to ICU in pieces: characters cut at the edges of the
  // pieces must come out whole.  An odd prefix shifts the two-byte characters off any
  // power-of-two boundary.
  std::string bytes = "x";
  std::string expected = "x";
  while (bytes.size() < (std::size_t{3} << 20) + 12345) {
    bytes += texts::kJapaneseShiftJis;
    expected += texts::kJapaneseUtf8;
  }
  EXPECT_TRUE(toUtf8("Shift_JIS", bytes) == expected);
}

TEST(CharsetConversionTest, UnknownEncodingRaisesI18nError) {
  EXPECT_THROW_MESSAGE(codecvt_string_to_ustring("no-such-encoding", true), I18nError,
                       "Unknown character encoding \"no-such-encoding\": U_FILE_ACCESS_ERROR");
  EXPECT_THROW_MESSAGE(codecvt_string_to_ustring("", true), I18nError,
                       "Unknown character encoding \"\"");
  EXPECT_THROW_MESSAGE(codecvt_string_to_ustring(std::string("UTF-8\0x", 7), true), I18nError,
                       "Unknown character encoding \"UTF-8\\x00x\"");
}

TEST(CharsetConversionTest, AcceptsAliasesOfAnEncoding) {
  for (char const* name : {"latin1", "iso-8859-1", "ISO_8859-1:1987", "cp1252", "sjis", "utf8"}) {
    EXPECT_NO_THROW(codecvt_string_to_ustring(name, true)) << name;
  }
  EXPECT_EQ(convert("latin1", "\xE9t\xE9"), u"\u00E9t\u00E9");
}

TEST(Utf8EncodingTest, EncodesEveryLengthOfSequence) {
  EXPECT_EQ(ustring_to_utf8(u"\u007F"), "\x7F");
  EXPECT_EQ(ustring_to_utf8(u"\u0080"), "\xC2\x80");
  EXPECT_EQ(ustring_to_utf8(u"\u07FF"), "\xDF\xBF");
  EXPECT_EQ(ustring_to_utf8(u"\u0800"), "\xE0\xA0\x80");
  EXPECT_EQ(ustring_to_utf8(u"\uFFFF"), "\xEF\xBF\xBF");
  EXPECT_EQ(ustring_to_utf8(u"\U00010000"), "\xF0\x90\x80\x80");
  EXPECT_EQ(ustring_to_utf8(u"\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(ustring_to_utf8(u"\U0010FFFF"), "\xF4\x8F\xBF\xBF");
  EXPECT_EQ(ustring_to_utf8(std::u16string(1, u'\0')), std::string(1, '\0'));
}

TEST(Utf8EncodingTest, UnpairedSurrogatesBecomeReplacementCharacters) {
  std::string const replacement("\xEF\xBF\xBD");
  std::u16string const high(1, static_cast<char16_t>(0xD83D));
  std::u16string const low(1, static_cast<char16_t>(0xDE00));
  EXPECT_EQ(ustring_to_utf8(high), replacement);
  EXPECT_EQ(ustring_to_utf8(low), replacement);
  EXPECT_EQ(ustring_to_utf8(u"a" + high + u"b"), "a" + replacement + "b");
  EXPECT_EQ(ustring_to_utf8(u"a" + high), "a" + replacement);
  // A low surrogate before a high one is no pair.
  EXPECT_EQ(ustring_to_utf8(low + high), replacement + replacement);
  EXPECT_EQ(ustring_to_utf8(high + high + low), replacement + "\xF0\x9F\x98\x80");
}

}  // namespace
