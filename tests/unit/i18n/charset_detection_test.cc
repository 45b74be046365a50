#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>

#include "data/text/sample_texts.h"

namespace {

namespace texts = opcvk_test::texts;

struct Detection {
  std::string charset;
  std::string remarks;
};

Detection detect(std::string const& bytes, std::string const& name = "sample.txt") {
  std::ostringstream remarks;
  Detection result;
  result.charset = fl::i18n::detect_charset(bytes.data(), bytes.size(), remarks, name);
  result.remarks = remarks.str();
  return result;
}

struct Case {
  char const* label;
  std::string bytes;
  char const* charset;
};

std::string const kUtf8Bom("\xEF\xBB\xBF");
std::string const kUtf16LeBom("\xFF\xFE");
std::string const kUtf16BeBom("\xFE\xFF");

TEST(CharsetDetectionTest, NamesTheEncodingOfRealText) {
  std::vector<Case> const cases = {
      {"ASCII", "The quick brown fox jumps over the lazy dog. Pack my box with five dozen jugs.",
       "UTF-8"},
      {"UTF-8, French", texts::kFrenchUtf8, "UTF-8"},
      {"UTF-8, quotes", texts::kQuotesUtf8, "UTF-8"},
      {"UTF-8, Japanese", texts::kJapaneseUtf8, "UTF-8"},
      {"UTF-8, several scripts", texts::kMixedUtf8, "UTF-8"},
      {"UTF-8 with BOM", kUtf8Bom + texts::kFrenchUtf8, "UTF-8"},
      {"UTF-16LE with BOM", kUtf16LeBom + texts::kMixedUtf16le, "UTF-16LE"},
      {"UTF-16BE with BOM", kUtf16BeBom + texts::kMixedUtf16be, "UTF-16BE"},
      {"UTF-16LE without BOM", texts::kMixedUtf16le, "UTF-16LE"},
      {"UTF-16BE without BOM", texts::kMixedUtf16be, "UTF-16BE"},
      {"ISO-8859-1", texts::kFrenchLatin1, "ISO-8859-1"},
      {"windows-1252", texts::kQuotesWindows1252, "windows-1252"},
      {"Shift_JIS", texts::kJapaneseShiftJis, "Shift_JIS"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(detect(c.bytes).charset, c.charset) << c.label;
  }
}

TEST(CharsetDetectionTest, EmptyInputIsUtf8) {
  std::ostringstream remarks;
  EXPECT_EQ(fl::i18n::detect_charset(nullptr, 0, remarks, "empty.txt"), "UTF-8");
  EXPECT_EQ(remarks.str(), "charset of empty.txt: UTF-8 (empty)\n");
}

TEST(CharsetDetectionTest, AByteOrderMarkDecidesAlone) {
  // Each mark is followed by bytes that would not pass for the encoding it announces.
  std::string const latin1 = texts::kFrenchLatin1;
  EXPECT_EQ(detect(kUtf8Bom + latin1).charset, "UTF-8");
  EXPECT_EQ(detect(kUtf16LeBom + latin1).charset, "UTF-16LE");
  EXPECT_EQ(detect(kUtf16BeBom + latin1).charset, "UTF-16BE");
  EXPECT_EQ(detect(std::string("\xFF\xFE\0\0", 4) + latin1).charset, "UTF-32LE");
  EXPECT_EQ(detect(std::string("\0\0\xFE\xFF", 4) + latin1).charset, "UTF-32BE");
  // The marks alone, the shortest inputs that hold them.
  EXPECT_EQ(detect(kUtf8Bom).charset, "UTF-8");
  EXPECT_EQ(detect(kUtf16LeBom).charset, "UTF-16LE");
  EXPECT_EQ(detect(std::string("\xFF\xFE\0\0", 4)).charset, "UTF-32LE");
  EXPECT_EQ(detect(kUtf16LeBom).remarks, "charset of sample.txt: UTF-16LE (byte order mark)\n");
}

TEST(CharsetDetectionTest, ShortWellFormedUtf8IsUtf8) {
  // Too short for a statistical guess, which would take most of these for something else.
  for (std::string const& text :
       {std::string("a"), std::string("\xC3\xA9"), std::string("na\xC3\xAFve"),
        std::string("\xE2\x82\xAC"), std::string("\xF0\x9F\x98\x80"), std::string("\x7F\n\t")}) {
    EXPECT_EQ(detect(text).charset, "UTF-8") << text;
  }
}

TEST(CharsetDetectionTest, AZeroByteAloneDoesNotMakeUtf8Wide) {
  Detection const result = detect(std::string("Plain text\0with a zero byte", 27));
  EXPECT_EQ(result.charset, "UTF-8");
  EXPECT_NE(result.remarks.find("zero bytes"), std::string::npos) << result.remarks;
}

TEST(CharsetDetectionTest, AsciiLettersInUtf16WithoutMarkAreUtf16) {
  // Well-formed UTF-8 as well, byte for byte; the zero bytes give it away.
  std::string const le("W\0i\0d\0e\0 \0l\0e\0t\0t\0e\0r\0s\0 \0h\0e\0r\0e\0.\0", 36);
  std::string const be("\0W\0i\0d\0e\0 \0l\0e\0t\0t\0e\0r\0s\0 \0h\0e\0r\0e\0.", 36);
  EXPECT_EQ(detect(le).charset, "UTF-16LE");
  EXPECT_EQ(detect(be).charset, "UTF-16BE");
}

TEST(CharsetDetectionTest, MalformedUtf8IsNotSettledAsUtf8) {
  // Overlong forms, encoded surrogates and code points above U+10FFFF are not UTF-8 by our
  // strict reading, so the detector is asked and says why in its remark.
  for (std::string const& bad :
       {std::string("\xC0\xAF"), std::string("\xED\xA0\x80"), std::string("\xF4\x90\x80\x80"),
        std::string("\xE2\x82"), std::string("\x80"), std::string("\xFF")}) {
    Detection const result = detect(texts::kFrenchUtf8 + bad);
    EXPECT_NE(result.remarks.find("not well-formed UTF-8"), std::string::npos) << result.remarks;
  }
}

TEST(CharsetDetectionTest, RemarksNameTheDataTheChoiceAndTheRunnersUp) {
  Detection const result = detect(texts::kQuotesWindows1252, "letters/hotel.txt");
  EXPECT_EQ(result.remarks.rfind("charset of letters/hotel.txt: windows-1252 (", 0), 0u)
      << result.remarks;
  EXPECT_NE(result.remarks.find("confidence"), std::string::npos) << result.remarks;
  EXPECT_NE(result.remarks.find("runners-up: "), std::string::npos) << result.remarks;
  // One line per detection.
  EXPECT_EQ(result.remarks.find('\n'), result.remarks.size() - 1) << result.remarks;

  Detection const utf8 = detect(texts::kFrenchUtf8, "fr.txt");
  EXPECT_EQ(utf8.remarks, "charset of fr.txt: UTF-8 (well-formed UTF-8, 366 bytes)\n");
}

TEST(CharsetDetectionTest, EveryAnswerCanBeConverted) {
  // Bytes that look like nothing in particular still get a name that a converter accepts.
  std::string noise;
  for (int i = 0; i < 4096; ++i) noise += static_cast<char>((i * 7919 + 13) % 256);
  for (std::string const& bytes :
       {noise, std::string("\x80\x81\xFF"), std::string("\xFE"), std::string(1000, '\xFF')}) {
    std::string const charset = detect(bytes).charset;
    EXPECT_NO_THROW(fl::i18n::codecvt_string_to_ustring(charset, true)) << charset;
  }
}

TEST(CharsetDetectionTest, DetectsFromSeveralThreadsAtOnce) {
  // Each thread records every answer that differs from the expected one.
  std::vector<std::string> wrong(8);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < wrong.size(); ++i) {
    threads.emplace_back([&wrong, i] {
      bool const japanese = i % 2 == 0;
      std::string const& bytes = japanese ? texts::kJapaneseShiftJis : texts::kFrenchLatin1;
      for (int round = 0; round < 20; ++round) {
        std::ostringstream remarks;
        std::string const charset =
            fl::i18n::detect_charset(bytes.data(), bytes.size(), remarks, "t");
        if (charset != (japanese ? "Shift_JIS" : "ISO-8859-1")) wrong[i] += charset + ";";
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::string const& answers : wrong) EXPECT_EQ(answers, "");
}

}  // namespace
