#include <string>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/uri.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidURI;
using opc::model::URI;

TEST(URITest, KeepsTextAsGiven) {
  EXPECT_EQ(URI(u"/a/b.xml").toString(), u"/a/b.xml");
  EXPECT_EQ(URI(std::u16string(u"C:\\My Documents\\a b.doc")).toString(),
            u"C:\\My Documents\\a b.doc");
  char16_t const text[] = u"http://example.com/x";
  EXPECT_EQ(URI(text).toString(), u"http://example.com/x");
  EXPECT_EQ(URI(static_cast<char16_t const*>(nullptr)).toString(), u"");
}

TEST(URITest, GivesSlashAndDot) {
  EXPECT_EQ(URI::getSlash(), u'/');
  EXPECT_EQ(URI::getDot(), u'.');
}

TEST(URITest, ComparesTextExactly) {
  EXPECT_EQ(URI(u"/a"), URI(u"/a"));
  EXPECT_NE(URI(u"/a"), URI(u"/A"));
  EXPECT_NE(URI(u"/%41"), URI(u"/A"));
  EXPECT_TRUE(URI(u"/a") < URI(u"/b"));
  EXPECT_FALSE(URI(u"/b") < URI(u"/a"));
}

struct EncodeCase {
  std::u16string text;
  std::string keep;
  std::u16string encoded;
};

class URIEncodeComponentTest : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(URIEncodeComponentTest, EncodesAllButUnreservedAndKept) {
  EncodeCase const& c = GetParam();
  EXPECT_EQ(URI::encodeComponent(c.text, c.keep), c.encoded);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URIEncodeComponentTest,
    ::testing::Values(
        EncodeCase{u"/a/b.txt", "/+@", u"/a/b.txt"},
        EncodeCase{u"/a b/c+d@e.txt", "/+@", u"/a%20b/c+d@e.txt"},
        EncodeCase{u"/100%/#1?x", "/+@", u"/100%25/%231%3Fx"},
        EncodeCase{u"AZaz09-._~", "", u"AZaz09-._~"},
        EncodeCase{u"!$&'()*,;=:[]", "/+@", u"%21%24%26%27%28%29%2A%2C%3B%3D%3A%5B%5D"},
        EncodeCase{u"a\\b\"c<d>e{f}g|h^i`", "", u"a%5Cb%22c%3Cd%3Ee%7Bf%7Dg%7Ch%5Ei%60"},
        // Without "/" kept, the slash is encoded like any other character.
        EncodeCase{u"/a/b", "", u"%2Fa%2Fb"},
        // Non-ASCII as the escapes of its UTF-8 bytes, upper-case hexadecimal.
        EncodeCase{u"/\u00e9t\u00e9", "/", u"/%C3%A9t%C3%A9"},
        EncodeCase{u"\u65e5", "", u"%E6%97%A5"}, EncodeCase{u"\U0001F600", "", u"%F0%9F%98%80"},
        // Control characters, and an unpaired surrogate as U+FFFD.
        EncodeCase{u"\t\n", "", u"%09%0A"},
        EncodeCase{std::u16string(1, char16_t(0xD800)), "", u"%EF%BF%BD"},
        // A kept "%" stays; bytes above 0x7F in `keep` never keep UTF-8 bytes.
        EncodeCase{u"%20", "%", u"%20"}, EncodeCase{u"\u00e9", "\xC3\xA9", u"%C3%A9"},
        EncodeCase{u"", "/+@", u""}));

struct ValidityCase {
  std::u16string text;
  bool valid;
  bool absolute;
};

class URIValidityTest : public ::testing::TestWithParam<ValidityCase> {};

TEST_P(URIValidityTest, ChecksSyntaxAndScheme) {
  ValidityCase const& c = GetParam();
  EXPECT_EQ(URI(c.text).isValid(), c.valid);
  EXPECT_EQ(URI(c.text).isAbsolute(), c.absolute);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URIValidityTest,
    ::testing::Values(
        ValidityCase{u"", true, false}, ValidityCase{u"/a/b.xml", true, false},
        ValidityCase{u"../b.xml", true, false},
        ValidityCase{u"http://example.com/a?b=c#d", true, true},
        ValidityCase{u"mailto:someone@example.com", true, true},
        ValidityCase{u"urn:isbn:0451450523", true, true},
        ValidityCase{u"HTTP+X.y-z:rest", true, true}, ValidityCase{u"//host:80/path", true, false},
        ValidityCase{u"//[::1]/path", true, false}, ValidityCase{u"a/b:c", true, false},
        ValidityCase{u"./a:b", true, false}, ValidityCase{u"#frag", true, false},
        ValidityCase{u"?q=/x?", true, false}, ValidityCase{u"/\u00e9t\u00e9", true, false},
        ValidityCase{u"?\ue000", true, false}, ValidityCase{u"/a%20b", true, false},
        // Invalid: a bad scheme, bad characters, bad escapes.
        ValidityCase{u"1a:b", false, false}, ValidityCase{u":b", false, false},
        ValidityCase{u"a b", false, false}, ValidityCase{u"C:\\dir\\a.doc", false, true},
        ValidityCase{u"/a%2", false, false}, ValidityCase{u"/a%g0", false, false},
        ValidityCase{u"#a#b", false, false}, ValidityCase{u"/\ue000", false, false},
        ValidityCase{u"/a<b>", false, false}, ValidityCase{u"http://h^st/", false, true}));

TEST(URITest, EnsureValidNamesTheReason) {
  EXPECT_NO_THROW(URI(u"/a/b").ensureValid());
  EXPECT_THROW_MESSAGE(URI(u"a b").ensureValid(), InvalidURI,
                       "Invalid URI \"a b\": character \" \" is not allowed");
  EXPECT_THROW_MESSAGE(URI(u"/a%4").ensureValid(), InvalidURI,
                       "Invalid URI \"/a%4\": \"%\" must be followed by two hexadecimal digits");
  EXPECT_THROW_MESSAGE(URI(u"1x:y").ensureValid(), InvalidURI,
                       "Invalid URI \"1x:y\": \"1x\" before \":\" is not a valid scheme");
  EXPECT_THROW_MESSAGE(URI(u"#a#b").ensureValid(), InvalidURI,
                       "Invalid URI \"#a#b\": character \"#\" is not allowed");
}

struct ResolveCase {
  std::u16string reference;
  std::u16string target;
};

// RFC 3986 section 5.4, base "http://a/b/c/d;p?q": normal and abnormal examples.
class URIResolveRfcTest : public ::testing::TestWithParam<ResolveCase> {};

TEST_P(URIResolveRfcTest, FollowsRfcExamples) {
  URI const base(u"http://a/b/c/d;p?q");
  EXPECT_EQ(base.resolve(URI(GetParam().reference)).toString(), GetParam().target);
}

INSTANTIATE_TEST_SUITE_P(
    Normal, URIResolveRfcTest,
    ::testing::Values(
        ResolveCase{u"g:h", u"g:h"}, ResolveCase{u"g", u"http://a/b/c/g"},
        ResolveCase{u"./g", u"http://a/b/c/g"}, ResolveCase{u"g/", u"http://a/b/c/g/"},
        ResolveCase{u"/g", u"http://a/g"}, ResolveCase{u"//g", u"http://g"},
        ResolveCase{u"?y", u"http://a/b/c/d;p?y"}, ResolveCase{u"g?y", u"http://a/b/c/g?y"},
        ResolveCase{u"#s", u"http://a/b/c/d;p?q#s"}, ResolveCase{u"g#s", u"http://a/b/c/g#s"},
        ResolveCase{u"g?y#s", u"http://a/b/c/g?y#s"}, ResolveCase{u";x", u"http://a/b/c/;x"},
        ResolveCase{u"g;x", u"http://a/b/c/g;x"}, ResolveCase{u"g;x?y#s", u"http://a/b/c/g;x?y#s"},
        ResolveCase{u"", u"http://a/b/c/d;p?q"}, ResolveCase{u".", u"http://a/b/c/"},
        ResolveCase{u"./", u"http://a/b/c/"}, ResolveCase{u"..", u"http://a/b/"},
        ResolveCase{u"../", u"http://a/b/"}, ResolveCase{u"../g", u"http://a/b/g"},
        ResolveCase{u"../..", u"http://a/"}, ResolveCase{u"../../", u"http://a/"},
        ResolveCase{u"../../g", u"http://a/g"}));

INSTANTIATE_TEST_SUITE_P(
    Abnormal, URIResolveRfcTest,
    ::testing::Values(
        ResolveCase{u"../../../g", u"http://a/g"}, ResolveCase{u"../../../../g", u"http://a/g"},
        ResolveCase{u"/./g", u"http://a/g"}, ResolveCase{u"/../g", u"http://a/g"},
        ResolveCase{u"g.", u"http://a/b/c/g."}, ResolveCase{u".g", u"http://a/b/c/.g"},
        ResolveCase{u"g..", u"http://a/b/c/g.."}, ResolveCase{u"..g", u"http://a/b/c/..g"},
        ResolveCase{u"./../g", u"http://a/b/g"}, ResolveCase{u"./g/.", u"http://a/b/c/g/"},
        ResolveCase{u"g/./h", u"http://a/b/c/g/h"}, ResolveCase{u"g/../h", u"http://a/b/c/h"},
        ResolveCase{u"g;x=1/./y", u"http://a/b/c/g;x=1/y"},
        ResolveCase{u"g;x=1/../y", u"http://a/b/c/y"},
        ResolveCase{u"g?y/./x", u"http://a/b/c/g?y/./x"},
        ResolveCase{u"g?y/../x", u"http://a/b/c/g?y/../x"},
        ResolveCase{u"g#s/./x", u"http://a/b/c/g#s/./x"},
        ResolveCase{u"g#s/../x", u"http://a/b/c/g#s/../x"}, ResolveCase{u"http:g", u"http:g"}));

// The same rules with a part name as base, as relationship targets are resolved.
class URIResolvePartTest : public ::testing::TestWithParam<ResolveCase> {};

TEST_P(URIResolvePartTest, ResolvesRelationshipTargets) {
  URI const base(u"/a/b/c.xml");
  EXPECT_EQ(base.resolve(URI(GetParam().reference)).toString(), GetParam().target);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URIResolvePartTest,
    ::testing::Values(
        ResolveCase{u"d.xml", u"/a/b/d.xml"}, ResolveCase{u"./d.xml", u"/a/b/d.xml"},
        ResolveCase{u"../d.xml", u"/a/d.xml"}, ResolveCase{u"../../d.xml", u"/d.xml"},
        ResolveCase{u"../../../../d.xml", u"/d.xml"}, ResolveCase{u"/x/y.xml", u"/x/y.xml"},
        ResolveCase{u"e/f.xml", u"/a/b/e/f.xml"}, ResolveCase{u"e/../f.xml", u"/a/b/f.xml"},
        ResolveCase{u"\u00e9.xml", u"/a/b/\u00e9.xml"},
        ResolveCase{u"d%20e.xml", u"/a/b/d%20e.xml"}, ResolveCase{u"#frag", u"/a/b/c.xml#frag"},
        ResolveCase{u"", u"/a/b/c.xml"}, ResolveCase{u"http://x/y", u"http://x/y"}));

TEST(URITest, ResolvesAgainstPartAndPackage) {
  EXPECT_EQ(URI(u"/a/c.xml").resolve(URI(u"../b.xml")).toString(), u"/b.xml");
  EXPECT_EQ(URI(u"/").resolve(URI(u"word/document.xml")).toString(), u"/word/document.xml");
  // A base fragment is ignored.
  EXPECT_EQ(URI(u"/a/c.xml#f").resolve(URI(u"d.xml")).toString(), u"/a/d.xml");
}

TEST(URITest, ResolveRefusesBadInput) {
  EXPECT_THROW_MESSAGE(URI(u"a/b").resolve(URI(u"c")), InvalidURI,
                       "Invalid base URI \"a/b\": a base must have a scheme or start with \"/\"");
  EXPECT_THROW_MESSAGE(URI(u"").resolve(URI(u"c")), InvalidURI,
                       "Invalid base URI \"\": a base must have a scheme or start with \"/\"");
  EXPECT_THROW_MESSAGE(URI(u"/a b").resolve(URI(u"c")), InvalidURI,
                       "Invalid base URI \"/a b\": character \" \" is not allowed");
  EXPECT_THROW_MESSAGE(URI(u"/a").resolve(URI(u"c d")), InvalidURI,
                       "Invalid URI \"c d\": character \" \" is not allowed");
}

}  // namespace
