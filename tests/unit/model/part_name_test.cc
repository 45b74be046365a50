#include <set>
#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/model/uri.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartName;
using opc::model::PartName;
using opc::model::URI;

// Valid names: each must parse, print back unchanged and parse again to an equal name.
class PartNameValidTest : public ::testing::TestWithParam<std::u16string> {};

TEST_P(PartNameValidTest, AcceptsAndKeepsText) {
  std::u16string const& text = GetParam();
  EXPECT_TRUE(PartName::isValid(text));
  PartName const name(text);
  EXPECT_EQ(name.toString(), text);
  EXPECT_EQ(PartName(name.toString()), name);
  EXPECT_EQ(name.getURI().toString(), text);
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, PartNameValidTest,
    ::testing::Values(u"/a", u"/fsroot/a", u"/a/b.xml", u"/word/document.xml", u"/_rels/.rels",
                      u"/a/_rels/b.xml.rels",
                      // Every RFC 3986 pchar that is not a letter or digit.
                      u"/-._~", u"/!$&'()*+,;=:@", u"/a.b.c", u"/.a", u"/..a", u"/a..b",
                      // Escapes of characters that must be escaped, in either case.
                      u"/a%20b", u"/%25", u"/%3F%23", u"/%c3%a9", u"/%C3%A9", u"/%7F",
                      // Non-ASCII characters of an IRI, and one outside the BMP.
                      u"/\u00e9t\u00e9/\u65e5\u672c.txt", u"/\U0001F600", u"/\u00a0",
                      u"/a/b/c/d/e/f/g/h"));

struct InvalidCase {
  std::u16string text;
  std::string message;
};

class PartNameInvalidTest : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(PartNameInvalidTest, RejectsWithReason) {
  InvalidCase const& c = GetParam();
  EXPECT_FALSE(PartName::isValid(c.text));
  EXPECT_THROW_MESSAGE(PartName{c.text}, InvalidPartName, c.message);
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, PartNameInvalidTest,
    ::testing::Values(
        InvalidCase{u"", "Invalid part name \"\": a part name must not be empty"},
        InvalidCase{u"a/b", "Invalid part name \"a/b\": a part name must start with \"/\""},
        InvalidCase{u"/", "Invalid part name \"/\": a part name must not end with \"/\""},
        InvalidCase{u"/a/", "Invalid part name \"/a/\": a part name must not end with \"/\""},
        InvalidCase{u"//a", "Invalid part name \"//a\": empty segments are not allowed"},
        InvalidCase{u"/a//b", "Invalid part name \"/a//b\": empty segments are not allowed"},
        InvalidCase{u"/a/./b", "Invalid part name \"/a/./b\": segment \".\" is not allowed"},
        InvalidCase{u"/a/../b", "Invalid part name \"/a/../b\": segment \"..\" is not allowed"},
        InvalidCase{u"/..", "Invalid part name \"/..\": segment \"..\" is not allowed"},
        InvalidCase{u"/a./b",
                    "Invalid part name \"/a./b\": segment \"a.\" must not end with \".\""},
        InvalidCase{u"/a/b.",
                    "Invalid part name \"/a/b.\": segment \"b.\" must not end with \".\""},
        InvalidCase{u"/...", "Invalid part name \"/...\": segment \"...\" must not end with \".\""},
        InvalidCase{u"/a?b", "Invalid part name \"/a?b\": a part name must not have a query"},
        InvalidCase{u"/a#b", "Invalid part name \"/a#b\": a part name must not have a fragment"},
        InvalidCase{u"/a#b?c",
                    "Invalid part name \"/a#b?c\": a part name must not have a fragment"},
        InvalidCase{u"/a%",
                    "Invalid part name \"/a%\": \"%\" must be followed by two hexadecimal "
                    "digits"},
        InvalidCase{u"/a%2",
                    "Invalid part name \"/a%2\": \"%\" must be followed by two "
                    "hexadecimal digits"},
        InvalidCase{u"/a%zz",
                    "Invalid part name \"/a%zz\": \"%\" must be followed by two "
                    "hexadecimal digits"},
        InvalidCase{u"/a%2Fb",
                    "Invalid part name \"/a%2Fb\": percent-encoded \"/\" is not allowed"},
        InvalidCase{u"/a%2fb",
                    "Invalid part name \"/a%2fb\": percent-encoded \"/\" is not allowed"},
        InvalidCase{u"/a%5Cb",
                    "Invalid part name \"/a%5Cb\": percent-encoded \"\\\" is not allowed"},
        InvalidCase{u"/%41",
                    "Invalid part name \"/%41\": percent-encoded unreserved character "
                    "\"A\" is not allowed"},
        InvalidCase{u"/%7a",
                    "Invalid part name \"/%7a\": percent-encoded unreserved character "
                    "\"z\" is not allowed"},
        InvalidCase{u"/%30",
                    "Invalid part name \"/%30\": percent-encoded unreserved character "
                    "\"0\" is not allowed"},
        InvalidCase{u"/a%2Eb",
                    "Invalid part name \"/a%2Eb\": percent-encoded unreserved "
                    "character \".\" is not allowed"},
        InvalidCase{u"/%5F",
                    "Invalid part name \"/%5F\": percent-encoded unreserved character "
                    "\"_\" is not allowed"},
        InvalidCase{u"/%2D%7E",
                    "Invalid part name \"/%2D%7E\": percent-encoded unreserved "
                    "character \"-\" is not allowed"},
        InvalidCase{u"/a b", "Invalid part name \"/a b\": character \" \" is not allowed"},
        InvalidCase{u"/a\\b", "Invalid part name \"/a\\b\": character \"\\\" is not allowed"},
        InvalidCase{u"/[Content_Types].xml",
                    "Invalid part name \"/[Content_Types].xml\": character \"[\" is not allowed"},
        InvalidCase{u"/a\"b", "Invalid part name \"/a\"b\": character \"\"\" is not allowed"},
        InvalidCase{u"/a<b>", "Invalid part name \"/a<b>\": character \"<\" is not allowed"},
        InvalidCase{u"/a|b", "Invalid part name \"/a|b\": character \"|\" is not allowed"},
        InvalidCase{std::u16string(u"/a\0b", 4),
                    "Invalid part name \"/a\\x00b\": character U+0000 is not allowed"},
        InvalidCase{u"/a\tb", "Invalid part name \"/a\\x09b\": character U+0009 is not allowed"},
        InvalidCase{u"/a\u007f", "Invalid part name \"/a\\x7F\": character U+007F is not allowed"},
        // Non-ASCII characters that an IRI does not allow: C1 controls, private use,
        // non-characters, unpaired surrogates.  In the "C" locale they print as "?".
        InvalidCase{u"/a\u0085", "Invalid part name \"/a?\": character U+0085 is not allowed"},
        InvalidCase{u"/\ue000", "Invalid part name \"/?\": character U+E000 is not allowed"},
        InvalidCase{u"/\ufffe", "Invalid part name \"/?\": character U+FFFE is not allowed"},
        InvalidCase{std::u16string(u"/a") + char16_t(0xD800),
                    "Invalid part name \"/a?\": character U+D800 is not allowed"},
        InvalidCase{std::u16string(u"/") + char16_t(0xDC00) + u"x",
                    "Invalid part name \"/?x\": character U+DC00 is not allowed"},
        // Each segment is judged on its own, whatever follows it in the name.
        InvalidCase{std::u16string(u"/a") + char16_t(0xD800) + u"/b",
                    "Invalid part name \"/a?/b\": character U+D800 is not allowed"},
        InvalidCase{u"/a%4/1",
                    "Invalid part name \"/a%4/1\": \"%\" must be followed by two "
                    "hexadecimal digits"},
        InvalidCase{u"/a/.", "Invalid part name \"/a/.\": segment \".\" is not allowed"},
        InvalidCase{u"/../a", "Invalid part name \"/../a\": segment \"..\" is not allowed"},
        InvalidCase{u"/a/b./c",
                    "Invalid part name \"/a/b./c\": segment \"b.\" must not end with \".\""},
        InvalidCase{u"/a/.b/c/",
                    "Invalid part name \"/a/.b/c/\": a part name must not end with "
                    "\"/\""}));

TEST(PartNameTest, KeepsFsrootNameUnchanged) {
  EXPECT_EQ(PartName(u"/fsroot/a").toString(), u"/fsroot/a");
}

TEST(PartNameTest, RefusesBlankInsideName) {
  std::u16string const text(u"/Docs/Read Me.txt");
  EXPECT_THROW_MESSAGE(PartName{text}, InvalidPartName,
                       "Invalid part name \"/Docs/Read Me.txt\": character \" \" is not allowed");
}

struct EquivalenceCase {
  std::u16string left;
  std::u16string right;
  bool equal;
};

class PartNameEquivalenceTest : public ::testing::TestWithParam<EquivalenceCase> {};

TEST_P(PartNameEquivalenceTest, ComparesWithoutAsciiCase) {
  EquivalenceCase const& c = GetParam();
  PartName const left(c.left);
  PartName const right(c.right);
  EXPECT_EQ(left == right, c.equal);
  EXPECT_EQ(left != right, !c.equal);
  // The order is consistent with equivalence: neither sorts before the other when equal.
  EXPECT_EQ(!(left < right) && !(right < left), c.equal);
  if (c.equal) {
    EXPECT_EQ(left.hash(), right.hash());
  }
  // Text is kept as given, whatever the comparison.
  EXPECT_EQ(left.toString(), c.left);
  EXPECT_EQ(right.toString(), c.right);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PartNameEquivalenceTest,
    ::testing::Values(
        EquivalenceCase{u"/a.xml", u"/a.xml", true}, EquivalenceCase{u"/A.XML", u"/a.xml", true},
        EquivalenceCase{u"/Word/Document.xml", u"/word/document.XML", true},
        EquivalenceCase{u"/%c3%a9", u"/%C3%A9", true},
        // The IRI form equals the URI form of the same name.
        EquivalenceCase{u"/\u00e9", u"/%C3%A9", true},
        EquivalenceCase{u"/\u00e9", u"/%c3%a9", true},
        // Non-ASCII letters are not folded.
        EquivalenceCase{u"/\u00c9", u"/\u00e9", false},
        EquivalenceCase{u"/\u0391", u"/\u03b1", false}, EquivalenceCase{u"/a", u"/b", false},
        EquivalenceCase{u"/a/b", u"/a%2Cb", false}, EquivalenceCase{u"/a", u"/a/b", false},
        // An escape is not the character it encodes, unless it must be one.
        EquivalenceCase{u"/a%3Bb", u"/a;b", false},
        // ASCII letters fold beside non-ASCII characters too.
        EquivalenceCase{u"/Doc\u00e9/X.xml", u"/doc%C3%A9/x.XML", true},
        EquivalenceCase{u"/ABC\u00e9", u"/abc%c3%a9", true},
        EquivalenceCase{u"/ABC\u00c9", u"/abc\u00e9", false},
        // Characters of two, three and four bytes in UTF-8, beside their escapes.
        EquivalenceCase{u"/\u07ff\u0800\u20ac\uffef", u"/%DF%BF%E0%A0%80%E2%82%AC%EF%BF%AF", true},
        EquivalenceCase{u"/X\U0001F600y/\U00010000", u"/x%F0%9F%98%80Y/%F0%90%80%80", true},
        EquivalenceCase{u"/\u20ac", u"/%E2%82%AD", false},
        EquivalenceCase{u"/\U0001F600", u"/\U0001F601", false}));

TEST(PartNameTest, WorksAsKeyOfOrderedAndHashedContainers) {
  std::set<PartName> ordered{PartName(u"/A"), PartName(u"/a"), PartName(u"/b")};
  EXPECT_EQ(ordered.size(), 2u);
  std::unordered_set<PartName> hashed{PartName(u"/X/Y"), PartName(u"/x/y"), PartName(u"/x/z")};
  EXPECT_EQ(hashed.size(), 2u);
  EXPECT_EQ(hashed.count(PartName(u"/x/Y")), 1u);
}

struct RelationshipNameCase {
  std::u16string name;
  bool isRelationshipName;
};

class PartNameRelationshipNameTest : public ::testing::TestWithParam<RelationshipNameCase> {};

TEST_P(PartNameRelationshipNameTest, RecognisesRelationshipsParts) {
  EXPECT_EQ(PartName(GetParam().name).isRelationshipName(), GetParam().isRelationshipName);
}

INSTANTIATE_TEST_SUITE_P(Table, PartNameRelationshipNameTest,
                         ::testing::Values(RelationshipNameCase{u"/_rels/.rels", true},
                                           RelationshipNameCase{u"/a/_rels/b.xml.rels", true},
                                           RelationshipNameCase{u"/fsroot/_rels/x.rels", true},
                                           RelationshipNameCase{u"/_RELS/X.Rels", true},
                                           RelationshipNameCase{u"/fsroot/_rels_1/x.rels", false},
                                           RelationshipNameCase{u"/_rels/x", false},
                                           RelationshipNameCase{u"/_rels/xrels", false},
                                           RelationshipNameCase{u"/_rels/a/b.rels", false},
                                           RelationshipNameCase{u"/_rels", false},
                                           RelationshipNameCase{u"/x.rels", false},
                                           RelationshipNameCase{u"/a_rels/x.rels", false},
                                           RelationshipNameCase{u"/_rels.rels", false},
                                           RelationshipNameCase{u"/_relsx/a.rels", false},
                                           RelationshipNameCase{u"/a/_rel/a.rels", false},
                                           RelationshipNameCase{u"/_rels/rels", false},
                                           RelationshipNameCase{u"/x/_Rels/.RELS", true}));

TEST(PartNameTest, GivesRelationshipsPartOfPart) {
  EXPECT_EQ(PartName(u"/a/b.xml").getRelationshipsPartName().toString(), u"/a/_rels/b.xml.rels");
  EXPECT_EQ(PartName(u"/b").getRelationshipsPartName().toString(), u"/_rels/b.rels");
  EXPECT_EQ(PartName::getPackageRelationshipsPartName().toString(), u"/_rels/.rels");
  EXPECT_TRUE(PartName(u"/a/b.xml").getRelationshipsPartName().isRelationshipName());
}

TEST(PartNameTest, RefusesRelationshipsPartOfRelationshipsPart) {
  EXPECT_THROW_MESSAGE(PartName(u"/a/_rels/b.xml.rels").getRelationshipsPartName(), InvalidPartName,
                       "Invalid source part name \"/a/_rels/b.xml.rels\": a relationships part "
                       "cannot have relationships");
}

TEST(PartNameTest, GivesSourceOfRelationshipsPart) {
  auto const source = PartName(u"/a/_rels/b.xml.rels").getRelationshipsSourceName();
  ASSERT_TRUE(source.has_value());
  EXPECT_EQ(source->toString(), u"/a/b.xml");
  EXPECT_EQ(PartName(u"/_rels/x.rels").getRelationshipsSourceName()->toString(), u"/x");
  EXPECT_FALSE(PartName(u"/_rels/.rels").getRelationshipsSourceName().has_value());
  EXPECT_FALSE(PartName(u"/_Rels/.RELS").getRelationshipsSourceName().has_value());
  // Round trip both ways.
  PartName const part(u"/x/y/\u00e9.xml");
  EXPECT_EQ(part.getRelationshipsPartName().getRelationshipsSourceName()->toString(),
            part.toString());
}

TEST(PartNameTest, RefusesSourceOfOtherNames) {
  EXPECT_THROW_MESSAGE(PartName(u"/a/b.xml").getRelationshipsSourceName(), InvalidPartName,
                       "Invalid relationships part name \"/a/b.xml\": it must lie in a \"_rels\" "
                       "folder and end with \".rels\"");
  EXPECT_THROW_MESSAGE(PartName(u"/a/_rels/.rels").getRelationshipsSourceName(), InvalidPartName,
                       "Invalid relationships part name \"/a/_rels/.rels\": its source \"/a/\" is "
                       "not a valid part name");
  EXPECT_THROW_MESSAGE(PartName(u"/_rels/b..rels").getRelationshipsSourceName(), InvalidPartName,
                       "Invalid relationships part name \"/_rels/b..rels\": its source \"/b.\" is "
                       "not a valid part name");
}

struct DerivedCase {
  std::u16string name;
  std::u16string existing;
  bool derived;
};

class PartNameDerivedTest : public ::testing::TestWithParam<DerivedCase> {};

TEST_P(PartNameDerivedTest, ComparesLeadingSegments) {
  DerivedCase const& c = GetParam();
  EXPECT_EQ(PartName(c.name).isDerivedFrom(PartName(c.existing)), c.derived);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PartNameDerivedTest,
    ::testing::Values(DerivedCase{u"/a/b", u"/a", true}, DerivedCase{u"/a/b/c", u"/a", true},
                      DerivedCase{u"/A/b", u"/a", true},
                      DerivedCase{u"/\u00e9/b", u"/%C3%A9", true},
                      DerivedCase{u"/a/b", u"/a/b", false}, DerivedCase{u"/ab", u"/a", false},
                      DerivedCase{u"/a", u"/a/b", false}, DerivedCase{u"/b/a", u"/a", false}));

struct FromUriCase {
  std::u16string uri;
  std::u16string name;
};

class PartNameFromUriTest : public ::testing::TestWithParam<FromUriCase> {};

TEST_P(PartNameFromUriTest, ResolvesAgainstPackageRoot) {
  EXPECT_EQ(PartName(URI(GetParam().uri)).toString(), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PartNameFromUriTest,
    ::testing::Values(FromUriCase{u"/a/b.xml", u"/a/b.xml"}, FromUriCase{u"a/b.xml", u"/a/b.xml"},
                      FromUriCase{u"/a/../b.xml", u"/b.xml"},
                      FromUriCase{u"./a/./b.xml", u"/a/b.xml"},
                      FromUriCase{u"../../b.xml", u"/b.xml"},
                      FromUriCase{u"/metadata/x%20y.xml", u"/metadata/x%20y.xml"},
                      FromUriCase{u"/\u00e9.xml", u"/\u00e9.xml"}));

TEST(PartNameTest, GivesSameNameBackThroughItsUri) {
  PartName const name(u"/Fsroot/a%20b/\u00e9.txt");
  EXPECT_EQ(PartName(name.getURI()).toString(), name.toString());
}

TEST(PartNameTest, RefusesUrisThatNameNoPart) {
  EXPECT_THROW_MESSAGE(PartName(URI(u"")), InvalidPartName,
                       "Invalid part name \"\": a part name must not be empty");
  EXPECT_THROW_MESSAGE(PartName(URI(u"http://host/a")), InvalidPartName,
                       "Invalid part name \"http://host/a\": a part name must not have a scheme");
  EXPECT_THROW_MESSAGE(PartName(URI(u"//host/a")), InvalidPartName,
                       "Invalid part name \"//host/a\": a part name must not have an authority");
  EXPECT_THROW_MESSAGE(PartName(URI(u"/a?x")), InvalidPartName,
                       "Invalid part name \"/a?x\": a part name must not have a query");
  EXPECT_THROW_MESSAGE(PartName(URI(u"/a#x")), InvalidPartName,
                       "Invalid part name \"/a#x\": a part name must not have a fragment");
  EXPECT_THROW_MESSAGE(PartName(URI(u"/a/..")), InvalidPartName,
                       "Invalid part name \"/a/..\": a part name must not end with \"/\"");
  EXPECT_THROW_MESSAGE(PartName(URI(u"/a b")), InvalidPartName,
                       "Invalid part name \"/a b\": character \" \" is not allowed");
}

}  // namespace
