#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>

#include "support/expect_exception.h"

namespace {

using opc::model::ContentType;
using opc::model::InvalidContentType;
using Parameters = std::vector<std::pair<std::u16string, std::u16string>>;

struct ParseCase {
  std::u16string text;
  std::u16string type;
  std::u16string subType;
  Parameters parameters;
  std::u16string written;
};

class ContentTypeParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ContentTypeParseTest, ParsesAndWritesBack) {
  ParseCase const& c = GetParam();
  ContentType const type(c.text);
  EXPECT_EQ(type.getType(), c.type);
  EXPECT_EQ(type.getSubType(), c.subType);
  EXPECT_EQ(type.getParameters(), c.parameters);
  EXPECT_EQ(type.toString(), c.written);
  // What is written parses back to an equal value, and writes the same again.
  ContentType const again(type.toString());
  EXPECT_EQ(again, type);
  EXPECT_EQ(again.toString(), c.written);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ContentTypeParseTest,
    ::testing::Values(
        ParseCase{u"text/plain", u"text", u"plain", {}, u"text/plain"},
        ParseCase{u"application/vnd.openxmlformats-package.relationships+xml",
                  u"application",
                  u"vnd.openxmlformats-package.relationships+xml",
                  {},
                  u"application/vnd.openxmlformats-package.relationships+xml"},
        // Case is kept as given.
        ParseCase{u"Text/HTML;Charset=UTF-8",
                  u"Text",
                  u"HTML",
                  {{u"Charset", u"UTF-8"}},
                  u"Text/HTML;Charset=UTF-8"},
        // Optional white space around ";" is read and not written.
        ParseCase{u"text/plain ; charset=utf-8",
                  u"text",
                  u"plain",
                  {{u"charset", u"utf-8"}},
                  u"text/plain;charset=utf-8"},
        ParseCase{u"text/plain;\tcharset=utf-8 \t;a=b",
                  u"text",
                  u"plain",
                  {{u"charset", u"utf-8"}, {u"a", u"b"}},
                  u"text/plain;charset=utf-8;a=b"},
        // Parameters keep their order.
        ParseCase{u"a/b;z=1;y=2;x=3",
                  u"a",
                  u"b",
                  {{u"z", u"1"}, {u"y", u"2"}, {u"x", u"3"}},
                  u"a/b;z=1;y=2;x=3"},
        // Every tchar in a token.
        ParseCase{u"a!#$%&'*+-.^_`|~9/b;p!#$%&'*+-.^_`|~=v!#$%&'*+-.^_`|~",
                  u"a!#$%&'*+-.^_`|~9",
                  u"b",
                  {{u"p!#$%&'*+-.^_`|~", u"v!#$%&'*+-.^_`|~"}},
                  u"a!#$%&'*+-.^_`|~9/b;p!#$%&'*+-.^_`|~=v!#$%&'*+-.^_`|~"},
        // Quoted values: quotes dropped, escapes undone; written quoted only if needed.
        ParseCase{u"a/b;x=\"token\"", u"a", u"b", {{u"x", u"token"}}, u"a/b;x=token"},
        ParseCase{
            u"a/b;x=\"two words\"", u"a", u"b", {{u"x", u"two words"}}, u"a/b;x=\"two words\""},
        ParseCase{u"a/b;x=\"q\\\"uote\\\\back\"",
                  u"a",
                  u"b",
                  {{u"x", u"q\"uote\\back"}},
                  u"a/b;x=\"q\\\"uote\\\\back\""},
        ParseCase{u"a/b;x=\"\\a\\b\"", u"a", u"b", {{u"x", u"ab"}}, u"a/b;x=ab"},
        ParseCase{u"a/b;x=\"\"", u"a", u"b", {{u"x", u""}}, u"a/b;x=\"\""},
        ParseCase{u"a/b;x=\";=,/\"", u"a", u"b", {{u"x", u";=,/"}}, u"a/b;x=\";=,/\""},
        ParseCase{
            u"a/b;x=\"tab\there\"", u"a", u"b", {{u"x", u"tab\there"}}, u"a/b;x=\"tab\there\""},
        ParseCase{
            u"a/b;x=\"caf\u00e9\"", u"a", u"b", {{u"x", u"caf\u00e9"}}, u"a/b;x=\"caf\u00e9\""},
        ParseCase{u"application/octet-stream;encryption=AES-256-GCM;iv=inline",
                  u"application",
                  u"octet-stream",
                  {{u"encryption", u"AES-256-GCM"}, {u"iv", u"inline"}},
                  u"application/octet-stream;encryption=AES-256-GCM;iv=inline"}));

struct InvalidCase {
  std::u16string text;
  std::string message;
};

class ContentTypeInvalidTest : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(ContentTypeInvalidTest, RejectsWithReason) {
  EXPECT_THROW_MESSAGE(ContentType{GetParam().text}, InvalidContentType, GetParam().message);
}

std::string invalid(std::string const& text, std::string const& reason) {
  return "Invalid content type \"" + text + "\": " + reason;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ContentTypeInvalidTest,
    ::testing::Values(
        InvalidCase{u"", invalid("", "a content type must not be empty")},
        InvalidCase{u" text/plain",
                    invalid(" text/plain", "white space is not allowed at the start")},
        InvalidCase{u"text/plain ",
                    invalid("text/plain ", "white space is not allowed at the end")},
        InvalidCase{u"text/plain;a=b\t",
                    invalid("text/plain;a=b\\x09", "white space is not allowed at the end")},
        InvalidCase{u"/plain", invalid("/plain", "the type is missing")},
        InvalidCase{u"text", invalid("text", "\"/\" and the subtype are missing")},
        InvalidCase{u"text/", invalid("text/", "the subtype is missing")},
        InvalidCase{u"text/;a=b", invalid("text/;a=b", "the subtype is missing")},
        InvalidCase{u"te xt/plain",
                    invalid("te xt/plain", "character \" \" is not allowed in the type")},
        InvalidCase{u"text /plain",
                    invalid("text /plain", "character \" \" is not allowed in the type")},
        InvalidCase{u"text/ plain",
                    invalid("text/ plain", "character \" \" is not allowed in the subtype")},
        InvalidCase{u"text/pl@in",
                    invalid("text/pl@in", "character \"@\" is not allowed in the subtype")},
        InvalidCase{u"text/plain/x",
                    invalid("text/plain/x", "character \"/\" is not allowed in the subtype")},
        InvalidCase{u"text/plain x",
                    invalid("text/plain x", "white space must be followed by \";\"")},
        InvalidCase{u"text/plain;", invalid("text/plain;", "a parameter must follow \";\"")},
        InvalidCase{u"text/plain; ;a=b",
                    invalid("text/plain; ;a=b", "a parameter must follow \";\"")},
        InvalidCase{u"text/plain;;a=b",
                    invalid("text/plain;;a=b", "a parameter must follow \";\"")},
        InvalidCase{u"text/plain;=b",
                    invalid("text/plain;=b", "character \"=\" is not allowed in a parameter name")},
        InvalidCase{u"text/plain;a", invalid("text/plain;a", "parameter \"a\" has no value")},
        InvalidCase{u"text/plain;a;b=c",
                    invalid("text/plain;a;b=c", "parameter \"a\" has no value")},
        InvalidCase{u"text/plain;a=", invalid("text/plain;a=", "parameter \"a\" has no value")},
        InvalidCase{u"text/plain;a=;b=c",
                    invalid("text/plain;a=;b=c", "parameter \"a\" has no value")},
        InvalidCase{
            u"text/plain;a =b",
            invalid("text/plain;a =b", "character \" \" is not allowed in parameter \"a\"")},
        InvalidCase{u"text/plain;a= b", invalid("text/plain;a= b", "parameter \"a\" has no value")},
        InvalidCase{u"text/plain;a=b c",
                    invalid("text/plain;a=b c", "white space must be followed by \";\"")},
        InvalidCase{u"text/plain;a=b/c",
                    invalid("text/plain;a=b/c",
                            "character \"/\" is not allowed in the value of parameter \"a\"")},
        InvalidCase{u"text/plain;a=@",
                    invalid("text/plain;a=@",
                            "character \"@\" is not allowed in the value of parameter \"a\"")},
        InvalidCase{
            u"text/plain;a=\"b",
            invalid("text/plain;a=\"b", "the quoted value of parameter \"a\" is not closed")},
        InvalidCase{
            u"text/plain;a=\"b\\\"",
            invalid("text/plain;a=\"b\\\"", "the quoted value of parameter \"a\" is not closed")},
        InvalidCase{
            u"text/plain;a=\"b\"c",
            invalid("text/plain;a=\"b\"c",
                    "character \"c\" is not allowed after the quoted value of parameter \"a\"")},
        InvalidCase{u"text/plain;a=\"b\nc\"",
                    invalid("text/plain;a=\"b\\x0Ac\"",
                            "character U+000A is not allowed in the value of parameter \"a\"")},
        InvalidCase{u"text/plain;a=\"\u0100\"",
                    invalid("text/plain;a=\"?\"",
                            "character U+0100 is not allowed in the value of parameter \"a\"")},
        InvalidCase{u"text/plain;a=1;A=2",
                    invalid("text/plain;a=1;A=2", "parameter \"A\" appears more than once")},
        InvalidCase{u"t\u00e9xt/plain",
                    invalid("t?xt/plain", "character U+00E9 is not allowed in the type")},
        InvalidCase{
            u"text/plain(comment)",
            invalid("text/plain(comment)", "character \"(\" is not allowed in the subtype")}));

TEST(ContentTypeTest, ConstructsFromPointer) {
  char16_t const text[] = u"text/xml;charset=utf-8";
  EXPECT_EQ(ContentType(text).toString(), u"text/xml;charset=utf-8");
  EXPECT_THROW_MESSAGE(ContentType(static_cast<char16_t const*>(nullptr)), InvalidContentType,
                       "Invalid content type \"\": a content type must not be empty");
}

struct EqualityCase {
  std::u16string left;
  std::u16string right;
  bool equal;
  // Written alike, character for character (isWrittenAs).
  bool alike;
};

class ContentTypeEqualityTest : public ::testing::TestWithParam<EqualityCase> {};

TEST_P(ContentTypeEqualityTest, ComparesByCaseRules) {
  EqualityCase const& c = GetParam();
  ContentType const left(c.left);
  ContentType const right(c.right);
  EXPECT_EQ(left == right, c.equal);
  EXPECT_EQ(right == left, c.equal);
  EXPECT_EQ(left != right, !c.equal);
}

// Written alike exactly when the texts are the same, whatever == says.
TEST_P(ContentTypeEqualityTest, WrittenAlikeWhenTheTextsAreTheSame) {
  EqualityCase const& c = GetParam();
  ContentType const left(c.left);
  ContentType const right(c.right);
  EXPECT_EQ(left.isWrittenAs(right), c.alike);
  EXPECT_EQ(right.isWrittenAs(left), c.alike);
  EXPECT_EQ(left.toString() == right.toString(), c.alike);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ContentTypeEqualityTest,
    ::testing::Values(
        EqualityCase{u"text/plain", u"text/plain", true, true},
        EqualityCase{u"TEXT/Plain", u"text/plain", true, false},
        EqualityCase{u"text/PLAIN", u"text/plain", true, false},
        EqualityCase{u"text/plain", u"text/html", false, false},
        EqualityCase{u"text/plain", u"texts/plain", false, false},
        EqualityCase{u"text/plain", u"text/plain;a=b", false, false},
        EqualityCase{u"a/b;x=1;y=2", u"a/b;x=1;y=2", true, true},
        EqualityCase{u"a/b;x=1;y=2", u"a/b;y=2;x=1", true, false},
        EqualityCase{u"a/b;X=1", u"a/b;x=1", true, false},
        EqualityCase{u"a/b;x=abc", u"a/b;x=ABC", false, false},
        EqualityCase{u"a/b;x=abc", u"a/b;x=\"abc\"", true, true},
        EqualityCase{u"a/b;x=\"a b\"", u"a/b;x=\"a b\"", true, true},
        EqualityCase{u"a/b;x=\"a b\"", u"a/b;x=\"a  b\"", false, false},
        EqualityCase{u"a/b;x=1", u"a/b;y=1", false, false},
        EqualityCase{u"a/b;x=1;y=2", u"a/b;x=1;z=2", false, false},
        EqualityCase{u"text/plain;charset=UTF-8", u"text/plain;CHARSET=utf-8", true, false},
        EqualityCase{u"text/plain;charset=UTF-8", u"text/plain;charset=utf-8", true, false},
        EqualityCase{u"text/plain;encryption=AES", u"text/plain;encryption=aes", false, false}));

TEST(ContentTypeTest, WrittenAsFollowsAddedAndRemovedParameters) {
  ContentType grown(u"a/b");
  ContentType const full(u"a/b;x=1");
  EXPECT_FALSE(grown.isWrittenAs(full));
  grown.addParameter(u"x", u"1");
  EXPECT_TRUE(grown.isWrittenAs(full));
  grown.removeParameter(u"x");
  EXPECT_TRUE(grown.isWrittenAs(ContentType(u"a/b")));
}

TEST(ContentTypeTest, LooksUpParametersWithoutCase) {
  ContentType const type(u"a/b;Encryption=AES-256-GCM;iv=inline");
  EXPECT_TRUE(type.hasParameter(u"encryption"));
  EXPECT_TRUE(type.hasParameter(u"ENCRYPTION"));
  EXPECT_TRUE(type.hasParameter(u"iv"));
  EXPECT_FALSE(type.hasParameter(u"platform"));
  EXPECT_FALSE(type.hasParameter(u""));
  EXPECT_EQ(type.getParameterValue(u"encryption"), u"AES-256-GCM");
  EXPECT_EQ(type.getParameterValue(u"IV"), u"inline");
  EXPECT_EQ(type.getParameterValue(u"platform"), u"");
}

TEST(ContentTypeTest, AddsParametersInOrder) {
  ContentType type(u"application/octet-stream");
  type.addParameter(u"encryption", u"AES-256-GCM");
  type.addParameter(u"iv", u"inline");
  type.addParameter(u"note", u"a \"quoted\" \\ word");
  EXPECT_EQ(type.toString(),
            u"application/octet-stream;encryption=AES-256-GCM;iv=inline;"
            u"note=\"a \\\"quoted\\\" \\\\ word\"");
  EXPECT_EQ(ContentType(type.toString()), type);
  EXPECT_EQ(ContentType(type.toString()).getParameterValue(u"note"), u"a \"quoted\" \\ word");
}

TEST(ContentTypeTest, AddReplacesParameterInPlace) {
  ContentType type(u"text/plain;charset=windows-1252;platform=x");
  type.addParameter(u"Charset", u"utf-8");
  EXPECT_EQ(type.toString(), u"text/plain;Charset=utf-8;platform=x");
  EXPECT_EQ(type.getParameters().size(), 2u);
}

TEST(ContentTypeTest, RemovesParameter) {
  ContentType type(u"a/b;x=1;y=2;z=3");
  type.removeParameter(u"Y");
  EXPECT_EQ(type.toString(), u"a/b;x=1;z=3");
  EXPECT_FALSE(type.hasParameter(u"y"));
  type.removeParameter(u"absent");
  EXPECT_EQ(type.toString(), u"a/b;x=1;z=3");
  type.removeParameter(u"x");
  type.removeParameter(u"z");
  EXPECT_EQ(type.toString(), u"a/b");
  EXPECT_EQ(type, ContentType(u"a/b"));
}

TEST(ContentTypeTest, AddRefusesUnwritableParameters) {
  ContentType type(u"a/b;x=1");
  EXPECT_THROW_MESSAGE(type.addParameter(u"", u"v"), InvalidContentType,
                       "Invalid parameter name \"\" for content type \"a/b;x=1\": a name must not "
                       "be empty");
  EXPECT_THROW_MESSAGE(type.addParameter(u"a b", u"v"), InvalidContentType,
                       "Invalid parameter name \"a b\" for content type \"a/b;x=1\": character "
                       "\" \" is not allowed");
  EXPECT_THROW_MESSAGE(type.addParameter(u"n=", u"v"), InvalidContentType,
                       "Invalid parameter name \"n=\" for content type \"a/b;x=1\": character "
                       "\"=\" is not allowed");
  EXPECT_THROW_MESSAGE(type.addParameter(u"x", u"line\nbreak"), InvalidContentType,
                       "Invalid value for parameter \"x\" of content type \"a/b;x=1\": character "
                       "U+000A is not allowed");
  EXPECT_THROW_MESSAGE(type.addParameter(u"x", u"\u65e5"), InvalidContentType,
                       "Invalid value for parameter \"x\" of content type \"a/b;x=1\": character "
                       "U+65E5 is not allowed");
  // Nothing changed.
  EXPECT_EQ(type.toString(), u"a/b;x=1");
}

TEST(ContentTypeTest, CopiesAreIndependent) {
  ContentType const original(u"a/b;x=1");
  ContentType copy(original);
  copy.addParameter(u"y", u"2");
  EXPECT_EQ(original.toString(), u"a/b;x=1");
  ContentType assigned(u"c/d");
  assigned = copy;
  EXPECT_EQ(assigned.toString(), u"a/b;x=1;y=2");
}

}  // namespace
