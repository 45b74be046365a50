// The part name made from a file's path: exact texts for the cases a name may hold, and the
// table-driven writer held to a plain one, escape by escape, over random paths.
#include "filesystem/encoded_part_name.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

using opc::vkservices::detail::appendEncodedPartName;
using opc::vkservices::detail::EncodedPartNameCheck;
using opc::vkservices::detail::isEncodedPartNameOf;

std::u16string encoded(std::u16string_view path) {
  std::u16string out;
  appendEncodedPartName(path, out);
  return out;
}

// The rule written out one append at a time, as plainly as it reads.
void appendEscapeByUnit(std::u16string& out, std::uint32_t byte) {
  static char16_t const kHex[] = u"0123456789ABCDEF";
  out.push_back(u'%');
  out.push_back(kHex[byte >> 4]);
  out.push_back(kHex[byte & 0xF]);
}

std::u16string encodedByUnit(std::u16string_view path) {
  std::u16string out(u"/fsroot");
  for (std::size_t at = 0; at < path.size(); ++at) {
    char16_t const unit = path[at];
    if (unit < 0x80) {
      bool const kept = (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') ||
                        (unit >= u'0' && unit <= u'9') ||
                        std::u16string_view(u"-._~/+@").find(unit) != std::u16string_view::npos;
      if (kept) {
        out.push_back(unit);
      } else {
        appendEscapeByUnit(out, unit);
      }
      continue;
    }
    std::uint32_t point = unit;
    if (unit >= 0xD800 && unit < 0xDC00 && at + 1 < path.size() && path[at + 1] >= 0xDC00 &&
        path[at + 1] < 0xE000) {
      point = 0x10000 + ((point - 0xD800) << 10) + (path[at + 1] - 0xDC00);
      ++at;
    }
    if (point < 0x800) {
      appendEscapeByUnit(out, 0xC0 | (point >> 6));
    } else if (point < 0x10000) {
      appendEscapeByUnit(out, 0xE0 | (point >> 12));
      appendEscapeByUnit(out, 0x80 | ((point >> 6) & 0x3F));
    } else {
      appendEscapeByUnit(out, 0xF0 | (point >> 18));
      appendEscapeByUnit(out, 0x80 | ((point >> 12) & 0x3F));
      appendEscapeByUnit(out, 0x80 | ((point >> 6) & 0x3F));
    }
    appendEscapeByUnit(out, 0x80 | (point & 0x3F));
  }
  return out;
}

TEST(EncodedPartNameTest, KeepsPlainCharactersAndEscapesTheRest) {
  EXPECT_EQ(encoded(u""), u"/fsroot");
  EXPECT_EQ(encoded(u"/a/B-9._~+@"), u"/fsroot/a/B-9._~+@");
  EXPECT_EQ(encoded(u"/a b%c#d?e"), u"/fsroot/a%20b%25c%23d%3Fe");
  EXPECT_EQ(encoded(u"/!$&'()*,;=:[]\\"), u"/fsroot/%21%24%26%27%28%29%2A%2C%3B%3D%3A%5B%5D%5C");
  EXPECT_EQ(encoded(std::u16string(u"/\0\x1f\x7f", 4)), u"/fsroot/%00%1F%7F");
}

TEST(EncodedPartNameTest, EscapesEachUtf8ByteInUpperCase) {
  EXPECT_EQ(encoded(u"/\u00e9"), u"/fsroot/%C3%A9");
  EXPECT_EQ(encoded(u"/\u0080\u07ff"), u"/fsroot/%C2%80%DF%BF");
  EXPECT_EQ(encoded(u"/\u0800\u65e5\uffff"), u"/fsroot/%E0%A0%80%E6%97%A5%EF%BF%BF");
  EXPECT_EQ(encoded(u"/\U0001F600\U0010FFFF"), u"/fsroot/%F0%9F%98%80%F4%8F%BF%BF");
}

TEST(EncodedPartNameTest, EscapesAnUnpairedSurrogateByItsValue) {
  EXPECT_EQ(encoded(std::u16string(u"/\xd800")), u"/fsroot/%ED%A0%80");
  EXPECT_EQ(encoded(std::u16string(u"/\xdc00"
                                   u"a")),
            u"/fsroot/%ED%B0%80a");
  // A high surrogate followed by another high one, then a pair.
  EXPECT_EQ(encoded(std::u16string(u"/\xd83d\xd83d\xde00")), u"/fsroot/%ED%A0%BD%F0%9F%98%80");
}

TEST(EncodedPartNameTest, AppendsToWhatIsThere) {
  std::u16string out(u"x");
  appendEncodedPartName(u"/\u00e9", out);
  EXPECT_EQ(out, u"x/fsroot/%C3%A9");
}

TEST(EncodedPartNameTest, AgreesWithThePlainRuleOnRandomPaths) {
  // Units from every range that the writer tells apart: kept and escaped ASCII, two- and
  // three-byte characters, both halves of surrogates.
  static char16_t const kUnits[] = {u'a',   u'Z',   u'5',   u'/',   u'.',   u' ',   u'%',
                                    0,      0x7F,   0x80,   0x7FF,  0x800,  0xD7FF, 0xD800,
                                    0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFD, 0xFFFF, u'~'};
  std::mt19937 random(1125);
  for (int round = 0; round < 20000; ++round) {
    std::u16string path;
    std::size_t const length = random() % 24;
    for (std::size_t i = 0; i < length; ++i) {
      path += random() % 4 == 0 ? static_cast<char16_t>(random() % 0x10000)
                                : kUnits[random() % (sizeof kUnits / sizeof kUnits[0])];
    }
    std::u16string const expected = encodedByUnit(path);
    ASSERT_EQ(encoded(path), expected);
    ASSERT_TRUE(isEncodedPartNameOf(path, expected));
    // Any other text is not: one unit changed, one more, one fewer.
    std::u16string changed = expected;
    changed[random() % changed.size()] ^= 1 << (random() % 16);
    ASSERT_FALSE(isEncodedPartNameOf(path, changed));
    ASSERT_FALSE(isEncodedPartNameOf(path, expected + u"a"));
    ASSERT_FALSE(isEncodedPartNameOf(path, expected.substr(0, expected.size() - 1)));
  }
}

TEST(EncodedPartNameTest, LongPathsAreWrittenWhole) {
  // Past the block in which the name is made, with characters of every length at its edge.
  for (std::size_t lead = 0; lead < 16; ++lead) {
    std::u16string path(lead, u'a');
    for (int i = 0; i < 300; ++i) path += i % 3 == 0 ? u"/\u00e9" : u"\U0001F600\u65e5";
    std::u16string const expected = encodedByUnit(path);
    EXPECT_EQ(encoded(path), expected);
    EXPECT_TRUE(isEncodedPartNameOf(path, expected));
  }
}

TEST(EncodedPartNameTest, OtherNamesAreNotThePathEncoded) {
  EXPECT_TRUE(isEncodedPartNameOf(u"/a b", u"/fsroot/a%20b"));
  EXPECT_FALSE(isEncodedPartNameOf(u"/a b", u"/fsroot/a%20B"));
  EXPECT_FALSE(isEncodedPartNameOf(u"/a b", u"/fsroot/a b"));
  EXPECT_FALSE(isEncodedPartNameOf(u"/a b", u"/fsroo/a%20b"));
  EXPECT_FALSE(isEncodedPartNameOf(u"/a b", u"/fsroot/a%20"));
  EXPECT_FALSE(isEncodedPartNameOf(u"/\u00e9", u"/fsroot/%c3%a9"));
  EXPECT_FALSE(isEncodedPartNameOf(u"/\u00e9", u"/fsroot/\u00e9"));
}

TEST(EncodedPartNameCheckTest, AnswersAsTheFunctionWhateverCameBefore) {
  // Files of one folder after another, with names that encode the folder differently, not at
  // all, or its path with a "/" that is no folder's; the check keeps a folder between them.
  struct Case {
    std::u16string_view path;
    std::u16string_view name;
  };
  static Case const kCases[] = {
      {u"/\u00e4/x", u"/fsroot/%C3%A4/x"},
      {u"/\u00e4/y", u"/fsroot/%C3%A4/y"},
      {u"/\u00e4/y z", u"/fsroot/%C3%A4/y%20z"},
      {u"/\u00e4/y", u"/fsroot/\u00e4/y"},
      {u"/\u00e4/y", u"/fsroot/%c3%a4/y"},
      {u"/\u00e4/y", u"/fsroot/%C3%A4%2Fy"},
      {u"/\u00e4/x/y", u"/fsroot/%C3%A4/x/y"},
      {u"/\u00e4/x/y", u"/fsroot/%C3%A4/x%2Fy"},
      {u"/\u00e4/x/z", u"/fsroot/%C3%A4/x/z"},
      {u"/\u00e4/x", u"/fsroot/%C3%A4/x"},
      {u"/\u00e4/", u"/fsroot/%C3%A4/"},
      {u"/\u00e4/", u"/fsroot/%C3%A4/a"},
      {u"/a", u"/fsroot/a"},
      {u"/b", u"/fsroot/b"},
      {u"/\xD83D/a", u"/fsroot/%ED%A0%BD/a"},
      {u"/\xD83D/\xDE00", u"/fsroot/%ED%A0%BD/%ED%B8%80"},
      {u"/\xD83D/\xDE00", u"/fsroot/%ED%A0%BD/%F0%9F%98%80"},
      {u"/\xD83D\xDE00/a", u"/fsroot/%F0%9F%98%80/a"},
      {u"/\xD83D\xDE00/b", u"/fsroot/%F0%9F%98%80/b"},
      {u"//a", u"/fsroot//a"},
      {u"//b", u"/fsroot//b"},
      {u"a", u"/fsroot/a"},
      {u"a", u"/fsroota"},
      {u"/c d/e", u"/fsroot/c%20d/e"},
      {u"/c d/f", u"/fsroot/c d/f"},
      {u"/c d/f", u"/fsroot/c%20d/f"},
  };
  EncodedPartNameCheck check;
  for (std::size_t i = 0; i < std::size(kCases); ++i) {
    EXPECT_EQ(check(kCases[i].path, kCases[i].name),
              isEncodedPartNameOf(kCases[i].path, kCases[i].name))
        << "case " << i;
  }
  EXPECT_TRUE(check(u"/\u00e4/y", u"/fsroot/%C3%A4/y"));
  EXPECT_FALSE(check(u"/\u00e4/y", u"/fsroot/\u00e4/y"));
}

TEST(EncodedPartNameCheckTest, AgreesWithTheFunctionOnRandomTrees) {
  // Paths in few folders, each name the path encoded or changed in one unit, in runs.
  static char16_t const kUnits[] = {u'a', u'/', u' ', 0xE9, 0x65E5, 0xD83D, 0xDE00, u'%'};
  std::mt19937 random(2611);
  EncodedPartNameCheck check;
  std::u16string folder = u"/";
  for (int round = 0; round < 20000; ++round) {
    if (random() % 8 == 0) {
      folder = u"";
      std::size_t const length = random() % 8;
      for (std::size_t i = 0; i < length; ++i) folder += kUnits[random() % 8];
    }
    std::u16string path = folder + u"/";
    std::size_t const length = random() % 6;
    for (std::size_t i = 0; i < length; ++i) path += kUnits[random() % 8];
    std::u16string name = encodedByUnit(path);
    if (random() % 3 == 0) name[random() % name.size()] ^= 1 << (random() % 8);
    ASSERT_EQ(check(path, name), isEncodedPartNameOf(path, name));
  }
}

}  // namespace
