#include <cstring>
#include <langinfo.h>
#include <locale.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>

#include "support/scoped_thread_locale.h"

namespace {

using opc::caselessCompare;
using opc::hasWhitespace;
using opc::toASCIIString;
using opc::toString;
using opc::toUDEString;
using opc::toWideString;
using opc::detail::toStringFromUTF8String;
using opc::detail::toUTF8String;
using opcvk_test::ScopedThreadLocale;

// The name under which this machine has an ISO-8859-1 locale, or null if it has none.
char const* findLatin1Locale() {
  static char const* const kCandidates[] = {"en_US.ISO-8859-1",
                                            "de_DE.ISO-8859-1",
                                            "fr_FR.ISO-8859-1",
                                            "en_GB.ISO-8859-1",
                                            "en_US.iso88591",
                                            "de_DE.iso88591",
                                            "en_US",
                                            "de_DE"};
  for (char const* name : kCandidates) {
    locale_t const locale = newlocale(LC_ALL_MASK, name, nullptr);
    if (locale == nullptr) continue;
    bool const latin1 = std::strcmp(nl_langinfo_l(CODESET, locale), "ISO-8859-1") == 0;
    freelocale(locale);
    if (latin1) return name;
  }
  return nullptr;
}

constexpr char kLatin1[] = "<ISO-8859-1>";

// Installs `name`, or an ISO-8859-1 locale for kLatin1.  Reports why a locale is missing.
std::string localeName(char const* name) {
  if (std::strcmp(name, kLatin1) != 0) return name;
  char const* found = findLatin1Locale();
  return found != nullptr ? found : "";
}

// --- UTF-8 codec -------------------------------------------------------------------------

struct Utf8Case {
  std::u16string text;
  std::string utf8;
};

class Utf8RoundTripTest : public ::testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8RoundTripTest, EncodesAndDecodesExactly) {
  Utf8Case const& c = GetParam();
  EXPECT_EQ(toUTF8String(c.text), c.utf8);
  EXPECT_EQ(toStringFromUTF8String(c.utf8), c.text);
  EXPECT_EQ(toStringFromUTF8String(c.utf8, false), c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Utf8RoundTripTest,
    ::testing::Values(Utf8Case{u"", ""}, Utf8Case{u"/fsroot/a.txt", "/fsroot/a.txt"},
                      Utf8Case{std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
                      Utf8Case{u"\u007f", "\x7f"}, Utf8Case{u"\u0080", "\xc2\x80"},
                      Utf8Case{u"\u00e9t\u00e9", "\xc3\xa9t\xc3\xa9"},
                      Utf8Case{u"\u07ff", "\xdf\xbf"}, Utf8Case{u"\u0800", "\xe0\xa0\x80"},
                      Utf8Case{u"\u20ac", "\xe2\x82\xac"},
                      Utf8Case{u"\u65e5\u672c", "\xe6\x97\xa5\xe6\x9c\xac"},
                      Utf8Case{u"\ud7ff", "\xed\x9f\xbf"}, Utf8Case{u"\ue000", "\xee\x80\x80"},
                      Utf8Case{u"\ufeff", "\xef\xbb\xbf"}, Utf8Case{u"\uffff", "\xef\xbf\xbf"},
                      Utf8Case{u"\U00010000", "\xf0\x90\x80\x80"},
                      Utf8Case{u"x\U0001F600y", "x\xf0\x9f\x98\x80y"},
                      Utf8Case{u"\U0010FFFF", "\xf4\x8f\xbf\xbf"}));

struct MalformedCase {
  char const* what;
  std::string utf8;
  std::u16string text;
};

class MalformedUtf8Test : public ::testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedUtf8Test, ReplacesEachMaximalSubpartAndGoesOn) {
  MalformedCase const& c = GetParam();
  EXPECT_EQ(toStringFromUTF8String(c.utf8), c.text) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Table, MalformedUtf8Test,
    ::testing::Values(
        MalformedCase{"overlong slash", "\xc0\xaf", u"\ufffd\ufffd"},
        MalformedCase{"overlong two bytes", "a\xc1\xbf", u"a\ufffd\ufffd"},
        MalformedCase{"overlong three bytes", "\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},
        MalformedCase{"overlong four bytes", "\xf0\x80\x80\xaf", u"\ufffd\ufffd\ufffd\ufffd"},
        MalformedCase{"encoded surrogate", "\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},
        MalformedCase{"encoded surrogate pair", "\xed\xa0\xbd\xed\xb8\x80",
                      u"\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd"},
        MalformedCase{"above U+10FFFF", "\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"},
        MalformedCase{"lead byte F5", "\xf5\x80", u"\ufffd\ufffd"},
        MalformedCase{"byte FF", "a\xffz", u"a\ufffdz"},
        MalformedCase{"truncated at end", "\xe2\x82", u"\ufffd"},
        MalformedCase{"truncated before ASCII",
                      "\xe2\x82"
                      "A",
                      u"\ufffdA"},
        MalformedCase{"truncated four bytes", "\xf0\x9f\x98", u"\ufffd"},
        MalformedCase{"lone continuation", "\x80", u"\ufffd"},
        MalformedCase{"two lone continuations", "\x80\xbf", u"\ufffd\ufffd"},
        MalformedCase{"lead then lead", "\xc3\xc3\xa9", u"\ufffd\u00e9"},
        MalformedCase{"mixed",
                      "a\xf1\x80\x80\xe1\x80\xc2"
                      "b\x80"
                      "c\x80\xbf"
                      "d",
                      u"a\ufffd\ufffd\ufffdb\ufffdc\ufffd\ufffdd"},
        MalformedCase{"valid after invalid", "\xff\xf0\x9f\x98\x80", u"\ufffd\U0001F600"}));

TEST(StringConversionsTest, LenientUtf8AcceptsEncodedSurrogates) {
  // CESU-8 of U+1F600: each surrogate encoded on its own.
  EXPECT_EQ(toStringFromUTF8String("\xed\xa0\xbd\xed\xb8\x80", false), u"\U0001F600");
  EXPECT_EQ(toStringFromUTF8String("a\xed\xb0\x80", false), u"a\xdc00");
  // Everything else stays malformed.
  EXPECT_EQ(toStringFromUTF8String("\xc0\xaf\xf4\x90\x80\x80", false),
            u"\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd");
}

struct Utf16Case {
  std::u16string text;
  std::string utf8;
  std::wstring wide;
};

class UnpairedSurrogateTest : public ::testing::TestWithParam<Utf16Case> {};

TEST_P(UnpairedSurrogateTest, BecomesReplacementCharacter) {
  Utf16Case const& c = GetParam();
  EXPECT_EQ(toUTF8String(c.text), c.utf8);
  EXPECT_EQ(toWideString(c.text), c.wide);
}

INSTANTIATE_TEST_SUITE_P(
    Table, UnpairedSurrogateTest,
    ::testing::Values(Utf16Case{u"\xd800", "\xef\xbf\xbd", L"\ufffd"},
                      Utf16Case{u"a\xdc00z", "a\xef\xbf\xbdz", L"a\ufffdz"},
                      Utf16Case{u"a\xd83d", "a\xef\xbf\xbd", L"a\ufffd"},
                      Utf16Case{u"\xdc00\xd800", "\xef\xbf\xbd\xef\xbf\xbd", L"\ufffd\ufffd"},
                      Utf16Case{u"\xd83d\xd83d\xde00", "\xef\xbf\xbd\xf0\x9f\x98\x80",
                                L"\ufffd\U0001F600"}));

// --- ASCII and wide text -----------------------------------------------------------------

struct NarrowingCase {
  std::u16string text;
  std::string ascii;
  std::wstring wide;
};

class NarrowingTest : public ::testing::TestWithParam<NarrowingCase> {};

TEST_P(NarrowingTest, ConvertsEachCodeUnitOrCodePoint) {
  NarrowingCase const& c = GetParam();
  EXPECT_EQ(toASCIIString(c.text), c.ascii);
  EXPECT_EQ(toWideString(c.text), c.wide);
}

INSTANTIATE_TEST_SUITE_P(
    Table, NarrowingTest,
    ::testing::Values(NarrowingCase{u"", "", L""}, NarrowingCase{u"0755", "0755", L"0755"},
                      NarrowingCase{std::u16string(u"a\0\x7f", 3), std::string("a\0\x7f", 3),
                                    std::wstring(L"a\0\x7f", 3)},
                      NarrowingCase{u"\u0080", "?", L"\u0080"},
                      NarrowingCase{u"caf\u00e9", "caf?", L"caf\u00e9"},
                      // A truncation to 8 bits would have made U+0141 into "A".
                      NarrowingCase{u"\u0141", "?", L"\u0141"},
                      NarrowingCase{u"\u65e5\u672c", "??", L"\u65e5\u672c"},
                      NarrowingCase{u"\U0001F600.", "??.", L"\U0001F600."},
                      NarrowingCase{u"\U0010FFFF", "??", L"\U0010FFFF"}));

// --- Case-insensitive comparison ---------------------------------------------------------

struct CompareCase {
  std::u16string a;
  std::u16string b;
  int sign;
};

int signOf(int value) { return (value > 0) - (value < 0); }

class CaselessCompareTest : public ::testing::TestWithParam<CompareCase> {};

TEST_P(CaselessCompareTest, OrdersFoldedCodePoints) {
  CompareCase const& c = GetParam();
  EXPECT_EQ(signOf(caselessCompare(c.a, c.b)), c.sign);
  EXPECT_EQ(signOf(caselessCompare(c.b, c.a)), -c.sign);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CaselessCompareTest,
    ::testing::Values(
        CompareCase{u"", u"", 0}, CompareCase{u"ABC", u"abc", 0},
        CompareCase{u"Current", u"cURRENT", 0}, CompareCase{u"a", u"B", -1},
        CompareCase{u"A", u"b", -1}, CompareCase{u"b", u"A", 1},
        CompareCase{u"STRASSE", u"strasse", 0}, CompareCase{u"abc", u"ABCD", -1},
        CompareCase{u"", u"a", -1}, CompareCase{u"a", std::u16string(u"a\0", 2), -1},
        CompareCase{u"[", u"a", -1}, CompareCase{u"\u00c9T\u00c9", u"\u00e9t\u00e9", 0},
        CompareCase{u"\u0394\u03a3", u"\u03b4\u03c3", 0},
        // Final sigma folds to sigma.
        CompareCase{u"\u03c2", u"\u03c3", 0}, CompareCase{u"\u0416", u"\u0436", 0},
        // KELVIN SIGN, LONG S and MICRO SIGN fold onto ordinary letters.
        CompareCase{u"\u212a", u"k", 0}, CompareCase{u"\u212a", u"K", 0},
        CompareCase{u"\u017f", u"S", 0}, CompareCase{u"\u00b5", u"\u039c", 0},
        // One character never folds to two.
        CompareCase{u"stra\u00dfe", u"STRASSE", 1}, CompareCase{u"\U00010400", u"\U00010428", 0},
        CompareCase{u"\U0001F600", u"\uffff", 1}, CompareCase{u"\U00010400x", u"\U00010428X", 0},
        CompareCase{u"a\xd800", u"A\xd800", 0}, CompareCase{u"\u00e9", u"f", 1}));

// --- White space ---------------------------------------------------------------------

TEST(StringConversionsTest, EveryWhiteSpaceCharacterIsFound) {
  std::vector<char16_t> const whiteSpace = {0x0009, 0x000A, 0x000B, 0x000C, 0x000D, 0x0020, 0x0085,
                                            0x00A0, 0x1680, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004,
                                            0x2005, 0x2006, 0x2007, 0x2008, 0x2009, 0x200A, 0x2028,
                                            0x2029, 0x202F, 0x205F, 0x3000};
  for (char16_t c : whiteSpace) {
    EXPECT_TRUE(hasWhitespace(std::u16string(1, c))) << std::hex << int{c};
    EXPECT_TRUE(hasWhitespace(u"name" + std::u16string(1, c) + u"end")) << std::hex << int{c};
  }
  // Every other BMP code unit is not white space.
  std::size_t found = 0;
  for (char32_t c = 0; c <= 0xFFFF; ++c) {
    if (hasWhitespace(std::u16string(1, static_cast<char16_t>(c)))) ++found;
  }
  EXPECT_EQ(found, whiteSpace.size());
}

struct WhitespaceCase {
  std::u16string text;
  bool expected;
};

class HasWhitespaceTest : public ::testing::TestWithParam<WhitespaceCase> {};

TEST_P(HasWhitespaceTest, FindsWhiteSpaceAnywhere) {
  EXPECT_EQ(hasWhitespace(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HasWhitespaceTest,
    ::testing::Values(WhitespaceCase{u"", false}, WhitespaceCase{u"a_b", false},
                      WhitespaceCase{u"a b", true}, WhitespaceCase{u" lead", true},
                      WhitespaceCase{u"trail\n", true}, WhitespaceCase{u"no\u00a0break", true},
                      // Format characters that look blank are not White_Space.
                      WhitespaceCase{u"zero\u200bwidth", false},
                      WhitespaceCase{u"\u180e\ufeff\u2060", false},
                      WhitespaceCase{u"\U0001F600", false},
                      WhitespaceCase{std::u16string(u"a\0b", 3), false}));

// --- User default encoding ---------------------------------------------------------------

struct EncodeCase {
  char const* locale;
  std::u16string text;
  std::string expected;
};

class ToUDEStringTest : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(ToUDEStringTest, WritesTheThreadsCodeset) {
  EncodeCase const& c = GetParam();
  std::string const name = localeName(c.locale);
  if (name.empty()) GTEST_SKIP() << "no ISO-8859-1 locale is installed on this machine";
  ScopedThreadLocale locale(name.c_str());
  ASSERT_TRUE(locale.installed()) << name;
  EXPECT_EQ(toUDEString(c.text), c.expected) << name << " (" << locale.codeset() << ")";
}

INSTANTIATE_TEST_SUITE_P(
    Table, ToUDEStringTest,
    ::testing::Values(EncodeCase{"C", u"", ""}, EncodeCase{"C", u"/a/b c.txt", "/a/b c.txt"},
                      EncodeCase{"C", std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
                      EncodeCase{"C", u"caf\u00e9", "caf?"},
                      EncodeCase{"C", u"\u65e5 \u672c", "? ?"},
                      EncodeCase{"C", u"x\U0001F600y", "x?y"}, EncodeCase{"C", u"a\xd800z", "a?z"},
                      EncodeCase{"POSIX", u"\u00e9/\u0080", "?/?"},
                      EncodeCase{"C.UTF-8", u"/a/b.txt", "/a/b.txt"},
                      EncodeCase{"C.UTF-8", u"caf\u00e9", "caf\xc3\xa9"},
                      EncodeCase{"C.UTF-8", u"\u65e5\U0001F600", "\xe6\x97\xa5\xf0\x9f\x98\x80"},
                      EncodeCase{"C.UTF-8", u"a\xd800z\xdc00", "a?z?"},
                      EncodeCase{kLatin1, u"caf\u00e9", "caf\xe9"},
                      EncodeCase{kLatin1, u"\u00a0\u00ff", "\xa0\xff"},
                      EncodeCase{kLatin1, u"5\u20ac \u0141\U0001F600", "5? ??"},
                      EncodeCase{kLatin1, u"\xdc00\u00e9", "?\xe9"},
                      // Tag characters, which the system's converters would drop silently.
                      EncodeCase{"C", u"a\U000E0001b\U000E007F", "a?b?"},
                      EncodeCase{kLatin1, u"\U000E0000\u00e9", "?\xe9"},
                      EncodeCase{"C.UTF-8", u"\U000E0020", "\xf3\xa0\x80\xa0"}));

struct DecodeCase {
  char const* locale;
  std::string bytes;
  bool strict;
  std::u16string expected;
};

class ToStringTest : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(ToStringTest, ReadsTheThreadsCodeset) {
  DecodeCase const& c = GetParam();
  std::string const name = localeName(c.locale);
  if (name.empty()) GTEST_SKIP() << "no ISO-8859-1 locale is installed on this machine";
  ScopedThreadLocale locale(name.c_str());
  ASSERT_TRUE(locale.installed()) << name;
  EXPECT_EQ(toString(c.bytes, c.strict), c.expected)
      << name << " (" << locale.codeset() << ") strict=" << c.strict;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ToStringTest,
    ::testing::Values(
        DecodeCase{"C", "", true, u""}, DecodeCase{"C", "/a/b c.txt", true, u"/a/b c.txt"},
        DecodeCase{"C", std::string("a\0b", 3), true, std::u16string(u"a\0b", 3)},
        // Not ASCII: strict mode keeps each byte as ISO-8859-1, the other gives U+FFFD.
        DecodeCase{"C", "caf\xe9", true, u"caf\u00e9"},
        DecodeCase{"C", "caf\xe9", false, u"caf\ufffd"},
        DecodeCase{"C", "\x80\xff", true, u"\u0080\u00ff"},
        DecodeCase{"C", "\x80\xff", false, u"\ufffd\ufffd"},
        DecodeCase{"POSIX", "a\xc3\xa9", true, u"a\u00c3\u00a9"},
        DecodeCase{"C.UTF-8", "/a/b.txt", true, u"/a/b.txt"},
        DecodeCase{"C.UTF-8", "caf\xc3\xa9", true, u"caf\u00e9"},
        DecodeCase{"C.UTF-8", "\xf0\x9f\x98\x80", true, u"\U0001F600"},
        DecodeCase{"C.UTF-8", "caf\xe9", true, u"caf\u00e9"},
        DecodeCase{"C.UTF-8", "caf\xe9", false, u"caf\ufffd"},
        DecodeCase{"C.UTF-8", "\xe2\x82", true, u"\u00e2\u0082"},
        DecodeCase{"C.UTF-8", "\xe2\x82", false, u"\ufffd"},
        DecodeCase{"C.UTF-8", "\xed\xa0\x80", true, u"\u00ed\u00a0\u0080"},
        DecodeCase{"C.UTF-8", "\xc0\xaf\xc3\xa9", true, u"\u00c0\u00af\u00e9"},
        DecodeCase{kLatin1, "caf\xe9", true, u"caf\u00e9"},
        DecodeCase{kLatin1, "\x80\xa4\xff", false, u"\u0080\u00a4\u00ff"},
        DecodeCase{kLatin1, "caf\xc3\xa9", true, u"caf\u00c3\u00a9"}));

TEST(StringConversionsTest, RoundTripsThroughEveryLocale) {
  std::u16string const text = u"/dossier/\u00e9t\u00e9 \u00ff\u00a0.txt";
  for (char const* locale : {"C.UTF-8", kLatin1}) {
    std::string const name = localeName(locale);
    if (name.empty()) continue;
    ScopedThreadLocale scoped(name.c_str());
    ASSERT_TRUE(scoped.installed()) << name;
    EXPECT_EQ(toString(toUDEString(text)), text) << name;
  }
}

TEST(StringConversionsTest, UsesTheCallingThreadsLocaleOnly) {
  ScopedThreadLocale utf8("C.UTF-8");
  ASSERT_TRUE(utf8.installed());
  std::string fromOtherThread;
  std::thread other([&fromOtherThread] { fromOtherThread = toUDEString(u"\u00e9"); });
  other.join();
  // The test runner never calls setlocale: the process stays in the "C" locale.
  EXPECT_EQ(fromOtherThread, "?");
  EXPECT_EQ(toUDEString(u"\u00e9"), "\xc3\xa9");
}

TEST(StringConversionsTest, ConvertsInManyThreadsAtOnce) {
  std::u16string const text(2000, u'\u00e9');
  std::vector<std::thread> threads;
  std::vector<int> failures(8, 0);
  for (std::size_t t = 0; t < failures.size(); ++t) {
    threads.emplace_back([t, &text, &failures] {
      ScopedThreadLocale locale(t % 2 == 0 ? "C.UTF-8" : "C");
      std::string const expected = t % 2 == 0 ? toUTF8String(text) : std::string(text.size(), '?');
      for (int i = 0; i < 50; ++i) {
        if (toUDEString(text) != expected) ++failures[t];
        if (caselessCompare(text, u"\u00c9") <= 0) ++failures[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, std::vector<int>(failures.size(), 0));
}

TEST(StringConversionsTest, LongTextIsNeverTruncated) {
  std::u16string text;
  for (int i = 0; i < 10000; ++i) text += u"\u00e9\U0001F600a";
  ScopedThreadLocale locale("C");
  std::string const narrow = toUDEString(text);
  EXPECT_EQ(narrow.size(), 30000u);
  EXPECT_EQ(narrow.substr(0, 6), "??a??a");
  EXPECT_EQ(toString(std::string(50000, '\xe9')), std::u16string(50000, u'\u00e9'));
}

// UTF-16 to UTF-8 written out one byte at a time, as plainly as the rule reads: the reference
// that the encoder, which measures first and writes in place, must agree with.
std::string utf8ByByte(std::u16string const& text, char32_t unpaired) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = unpaired;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

TEST(StringConversionsTest, EncodesRandomTextAsTheByteWiseRuleDoes) {
  // Units from each range the encoder tells apart, both halves of surrogates among them, in
  // every order: pairs, halves alone, halves at the start and the end.
  static char16_t const kUnits[] = {u'a',   0,      0x7F,   0x80,   0x7FF,  0x800, 0xD7FF,
                                    0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFF};
  ScopedThreadLocale locale("C.UTF-8");
  ASSERT_TRUE(locale.installed());
  std::mt19937 random(1125);
  for (int round = 0; round < 20000; ++round) {
    std::u16string text;
    std::size_t const length = random() % 20;
    for (std::size_t i = 0; i < length; ++i) {
      text += random() % 4 == 0 ? static_cast<char16_t>(random() % 0x10000)
                                : kUnits[random() % (sizeof kUnits / sizeof kUnits[0])];
    }
    ASSERT_EQ(toUTF8String(text), utf8ByByte(text, 0xFFFD));
    ASSERT_EQ(toUDEString(text), utf8ByByte(text, u'?'));
  }
}

}  // namespace
