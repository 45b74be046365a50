#include <string>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship.h>
#include <opc/model/uri.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidRelationship;
using opc::model::Relationship;
using opc::model::TargetMode;
using opc::model::URI;

constexpr char16_t kType[] = u"http://example.com/relationships/manifest";

TEST(RelationshipTest, KeepsItsValues) {
  Relationship const relationship(u"R1", kType, URI(u"../b.xml"), TargetMode::Internal,
                                  URI(u"/a/c.xml"));
  EXPECT_EQ(relationship.getID(), u"R1");
  EXPECT_EQ(relationship.getType(), kType);
  EXPECT_EQ(relationship.getTargetURI().toString(), u"../b.xml");
  EXPECT_EQ(relationship.getTargetMode(), TargetMode::Internal);
  EXPECT_EQ(relationship.getSourceURI().toString(), u"/a/c.xml");
  EXPECT_EQ(relationship.getTargetPartName().toString(), u"/b.xml");
}

struct TargetCase {
  std::u16string source;
  std::u16string target;
  std::u16string part;
};

class RelationshipTargetTest : public ::testing::TestWithParam<TargetCase> {};

TEST_P(RelationshipTargetTest, ResolvesInternalTargetAgainstSource) {
  TargetCase const& c = GetParam();
  Relationship const relationship(u"rId7", kType, URI(c.target), TargetMode::Internal,
                                  URI(c.source));
  EXPECT_EQ(relationship.getTargetPartName().toString(), c.part);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RelationshipTargetTest,
    ::testing::Values(
        TargetCase{u"/", u"metadata/x.xml", u"/metadata/x.xml"},
        TargetCase{u"/", u"/metadata/x.xml", u"/metadata/x.xml"},
        TargetCase{u"/", u"../x.xml", u"/x.xml"},
        TargetCase{u"/word/document.xml", u"media/image1.png", u"/word/media/image1.png"},
        TargetCase{u"/word/document.xml", u"../customXml/item1.xml", u"/customXml/item1.xml"},
        TargetCase{u"/a/b/c.xml", u"./d%20e.xml", u"/a/b/d%20e.xml"},
        TargetCase{u"/a/c.xml", u"\u00e9.xml", u"/a/\u00e9.xml"}));

TEST(RelationshipTest, KeepsExternalTargetAsGiven) {
  Relationship const relationship(u"R2", kType, URI(u"file:///C:\\My Documents\\a b.doc"),
                                  TargetMode::External, URI(u"/"));
  EXPECT_EQ(relationship.getTargetURI().toString(), u"file:///C:\\My Documents\\a b.doc");
  EXPECT_EQ(relationship.getTargetMode(), TargetMode::External);
  EXPECT_THROW_MESSAGE(relationship.getTargetPartName(), InvalidRelationship,
                       "Relationship \"R2\" has an external target, which names no part");
}

struct InvalidCase {
  std::u16string id;
  std::u16string type;
  std::u16string target;
  TargetMode mode;
  std::u16string source;
  std::string message;
};

class RelationshipInvalidTest : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(RelationshipInvalidTest, RejectsWithReason) {
  InvalidCase const& c = GetParam();
  EXPECT_THROW_MESSAGE(Relationship(c.id, c.type, URI(c.target), c.mode, URI(c.source)),
                       InvalidRelationship, c.message);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RelationshipInvalidTest,
    ::testing::Values(
        InvalidCase{u"", kType, u"a.xml", TargetMode::Internal, u"/",
                    "Invalid relationship id \"\": an id must not be empty"},
        InvalidCase{u"1R", kType, u"a.xml", TargetMode::Internal, u"/",
                    "Invalid relationship id \"1R\": an id must start with a letter or \"_\""},
        InvalidCase{u"R:1", kType, u"a.xml", TargetMode::Internal, u"/",
                    "Invalid relationship id \"R:1\": character \":\" is not allowed"},
        InvalidCase{u"R1", u"", u"a.xml", TargetMode::Internal, u"/",
                    "Invalid relationship \"R1\": its type must not be empty"},
        InvalidCase{u"R1", u"http://x/a b", u"a.xml", TargetMode::Internal, u"/",
                    "Invalid type \"http://x/a b\" of relationship \"R1\": character \" \" is "
                    "not allowed"},
        InvalidCase{u"R1", kType, u"a.xml", TargetMode::Internal, u"a.xml",
                    "Invalid source \"a.xml\" of relationship \"R1\": a part name must start "
                    "with \"/\""},
        InvalidCase{u"R1", kType, u"a.xml", TargetMode::Internal, u"/_rels/.rels",
                    "Invalid source \"/_rels/.rels\" of relationship \"R1\": a relationships part "
                    "cannot have relationships"},
        InvalidCase{u"R1", kType, u"", TargetMode::Internal, u"/",
                    "Invalid internal target \"\" of relationship \"R1\": the target must not be "
                    "empty"},
        InvalidCase{u"R1", kType, u"http://x/y", TargetMode::Internal, u"/",
                    "Invalid internal target \"http://x/y\" of relationship \"R1\": an internal "
                    "target must not have a scheme"},
        InvalidCase{u"R1", kType, u"//x/y", TargetMode::Internal, u"/",
                    "Invalid internal target \"//x/y\" of relationship \"R1\": an internal target "
                    "must not have an authority"},
        InvalidCase{u"R1", kType, u"a.xml?q", TargetMode::Internal, u"/",
                    "Invalid internal target \"a.xml?q\" of relationship \"R1\": an internal "
                    "target must not have a query"},
        InvalidCase{u"R1", kType, u"a.xml#f", TargetMode::Internal, u"/",
                    "Invalid internal target \"a.xml#f\" of relationship \"R1\": an internal "
                    "target must not have a fragment"},
        InvalidCase{u"R1", kType, u"a b.xml", TargetMode::Internal, u"/",
                    "Invalid internal target \"a b.xml\" of relationship \"R1\": character \" \" "
                    "is not allowed"},
        InvalidCase{u"R1", kType, u"../", TargetMode::Internal, u"/a/b.xml",
                    "Invalid internal target \"../\" of relationship \"R1\": it resolves to "
                    "\"/\", which is not a valid part name: a part name must not end with \"/\""},
        InvalidCase{u"R1", kType, u"x%2Fy", TargetMode::Internal, u"/",
                    "Invalid internal target \"x%2Fy\" of relationship \"R1\": it resolves to "
                    "\"/x%2Fy\", which is not a valid part name: percent-encoded \"/\" is not "
                    "allowed"},
        InvalidCase{u"R1", kType, u"", TargetMode::External, u"/",
                    "Invalid external target \"\" of relationship \"R1\": the target must not be "
                    "empty"},
        InvalidCase{u"R1", kType, u"http://x/\ny", TargetMode::External, u"/",
                    "Invalid external target \"http://x/\\x0Ay\" of relationship \"R1\": character "
                    "U+000A is not allowed"},
        InvalidCase{u"R1", kType, u"a.xml", static_cast<TargetMode>(5), u"/",
                    "Invalid target mode 5 of relationship \"R1\": it must be Internal (0) or "
                    "External (1)"}));

TEST(RelationshipTest, ComparesAllValues) {
  Relationship const base(u"R1", kType, URI(u"a.xml"), TargetMode::Internal, URI(u"/"));
  EXPECT_EQ(base, Relationship(u"R1", kType, URI(u"a.xml"), TargetMode::Internal, URI(u"/")));
  EXPECT_NE(base, Relationship(u"R2", kType, URI(u"a.xml"), TargetMode::Internal, URI(u"/")));
  EXPECT_NE(base,
            Relationship(u"R1", u"urn:other", URI(u"a.xml"), TargetMode::Internal, URI(u"/")));
  EXPECT_NE(base, Relationship(u"R1", kType, URI(u"/a.xml"), TargetMode::Internal, URI(u"/")));
  EXPECT_NE(base, Relationship(u"R1", kType, URI(u"a.xml"), TargetMode::External, URI(u"/")));
  EXPECT_NE(base, Relationship(u"R1", kType, URI(u"a.xml"), TargetMode::Internal, URI(u"/b.xml")));
}

TEST(RelationshipTest, CopiesAndAssigns) {
  Relationship const original(u"R1", kType, URI(u"a.xml"), TargetMode::Internal, URI(u"/"));
  Relationship copy(original);
  EXPECT_EQ(copy, original);
  Relationship other(u"R9", kType, URI(u"http://x"), TargetMode::External, URI(u"/"));
  other = original;
  EXPECT_EQ(other, original);
  EXPECT_EQ(other.getTargetPartName().toString(), u"/a.xml");
}

}  // namespace
