#include <string>

#include <gtest/gtest.h>

#include <opc/model/xml/xerces_string.h>

namespace {

using opc::model::XercesString;

TEST(XercesStringTest, KeepsEveryCodeUnitIncludingSurrogatePairs) {
  // "a", e acute, a CJK character, U+1F600 as a surrogate pair, and U+FFFD.
  std::u16string const text = u"a\u00e9\u4e2d\U0001F600\uFFFD";
  ASSERT_EQ(6u, text.size());
  XercesString const value(text);
  EXPECT_EQ(text, static_cast<std::u16string>(value));
  char16_t const* raw = value;
  EXPECT_EQ(text, std::u16string(raw));
  EXPECT_EQ(char16_t(0xD83D), raw[3]);
  EXPECT_EQ(char16_t(0xDE00), raw[4]);
  EXPECT_EQ(char16_t(0), raw[6]);
}

TEST(XercesStringTest, KeepsUnpairedSurrogates) {
  std::u16string const text{char16_t(0xDC00), u'x', char16_t(0xD800)};
  XercesString const value(text.c_str());
  EXPECT_EQ(text, static_cast<std::u16string>(value));
}

TEST(XercesStringTest, PointerConstructorCopiesUpToTheNull) {
  char16_t buffer[] = u"name";
  XercesString const value(buffer);
  buffer[0] = u'g';
  EXPECT_EQ(u"name", static_cast<std::u16string>(value));
}

TEST(XercesStringTest, NullPointerIsEmpty) {
  XercesString const value(static_cast<char16_t const*>(nullptr));
  EXPECT_EQ(u"", static_cast<std::u16string>(value));
  EXPECT_EQ(char16_t(0), static_cast<char16_t const*>(value)[0]);
}

TEST(XercesStringTest, EmptyTextGivesTerminatedBuffer) {
  XercesString value(std::u16string{});
  char16_t* raw = value;
  ASSERT_NE(nullptr, raw);
  EXPECT_EQ(char16_t(0), raw[0]);
}

TEST(XercesStringTest, EmbeddedNullIsKeptInTheStringForm) {
  std::u16string const text(u"a\0b", 3);
  XercesString const value(text);
  EXPECT_EQ(text, static_cast<std::u16string>(value));
  EXPECT_EQ(u"a", std::u16string(static_cast<char16_t const*>(value)));
}

TEST(XercesStringTest, MutablePointerWritesIntoTheValue) {
  XercesString value(u"abc");
  char16_t* raw = value;
  raw[0] = u'x';
  EXPECT_EQ(u"xbc", static_cast<std::u16string>(value));
}

TEST(XercesStringTest, ComparesCodeUnitByCodeUnit) {
  XercesString const a(u"fileEntry");
  EXPECT_FALSE(a != XercesString(u"fileEntry"));
  EXPECT_TRUE(a != XercesString(u"FileEntry"));
  EXPECT_TRUE(a != XercesString(u"fileEntr"));
  EXPECT_TRUE(a == u"fileEntry");
  EXPECT_TRUE(a != u"fileEntries");
  EXPECT_TRUE(a == std::u16string(u"fileEntry"));
  EXPECT_TRUE(XercesString(std::u16string(u"a\0b", 3)) != XercesString(u"a"));
}

TEST(XercesStringTest, CopiesAndMovesAreIndependent) {
  XercesString original(u"one");
  XercesString copy(original);
  static_cast<char16_t*>(copy)[0] = u'O';
  EXPECT_EQ(u"one", static_cast<std::u16string>(original));
  XercesString moved(std::move(copy));
  EXPECT_EQ(u"One", static_cast<std::u16string>(moved));
  XercesString assigned(u"x");
  assigned = original;
  EXPECT_EQ(u"one", static_cast<std::u16string>(assigned));
}

}  // namespace
