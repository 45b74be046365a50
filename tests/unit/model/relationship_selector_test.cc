#include <string>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/relationship.h>
#include <opc/model/relationship_selector.h>
#include <opc/model/uri.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidRelationship;
using opc::model::Relationship;
using opc::model::RelationshipSelector;
using opc::model::RelationshipSelectorType;
using opc::model::TargetMode;
using opc::model::URI;

TEST(RelationshipSelectorTest, HasFixedEnumeratorValues) {
  EXPECT_EQ(static_cast<std::int32_t>(RelationshipSelectorType::ByID), 0);
  EXPECT_EQ(static_cast<std::int32_t>(RelationshipSelectorType::ByType), 1);
  EXPECT_EQ(sizeof(RelationshipSelectorType), 4u);
}

TEST(RelationshipSelectorTest, KeepsItsValues) {
  RelationshipSelector const selector(URI(u"/fsroot/a.txt"), RelationshipSelectorType::ByType,
                                      u"http://example.com/rel");
  EXPECT_EQ(selector.getSourceURI().toString(), u"/fsroot/a.txt");
  EXPECT_EQ(selector.getSelectorType(), RelationshipSelectorType::ByType);
  EXPECT_EQ(selector.getSelectionCriteria(), u"http://example.com/rel");
}

TEST(RelationshipSelectorTest, AcceptsAnyTextAsKey) {
  RelationshipSelector const selector(URI(u"not a uri"), RelationshipSelectorType::ByID, u"");
  EXPECT_EQ(selector.getSourceURI().toString(), u"not a uri");
  EXPECT_EQ(selector.getSelectionCriteria(), u"");
}

TEST(RelationshipSelectorTest, RefusesUnknownSelectorType) {
  EXPECT_THROW_MESSAGE(
      RelationshipSelector(URI(u"/"), static_cast<RelationshipSelectorType>(2), u"R1"),
      InvalidRelationship,
      "Invalid relationship selector type 2: it must be ByID (0) or ByType (1)");
}

struct EqualityCase {
  std::u16string source;
  RelationshipSelectorType type;
  std::u16string criteria;
  bool equal;
};

class RelationshipSelectorEqualityTest : public ::testing::TestWithParam<EqualityCase> {};

TEST_P(RelationshipSelectorEqualityTest, ComparesAllThreeExactly) {
  RelationshipSelector const base(URI(u"/a.xml"), RelationshipSelectorType::ByID, u"R1");
  EqualityCase const& c = GetParam();
  RelationshipSelector const other(URI(c.source), c.type, c.criteria);
  EXPECT_EQ(base == other, c.equal);
  EXPECT_EQ(other == base, c.equal);
  EXPECT_EQ(base != other, !c.equal);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RelationshipSelectorEqualityTest,
    ::testing::Values(EqualityCase{u"/a.xml", RelationshipSelectorType::ByID, u"R1", true},
                      EqualityCase{u"/a.xml", RelationshipSelectorType::ByType, u"R1", false},
                      EqualityCase{u"/A.xml", RelationshipSelectorType::ByID, u"R1", false},
                      EqualityCase{u"/a.xml", RelationshipSelectorType::ByID, u"r1", false},
                      EqualityCase{u"/b.xml", RelationshipSelectorType::ByID, u"R1", false}));

TEST(RelationshipSelectorTest, CopiesAndAssigns) {
  RelationshipSelector const original(URI(u"/"), RelationshipSelectorType::ByType, u"urn:x");
  RelationshipSelector copy(original);
  EXPECT_EQ(copy, original);
  RelationshipSelector assigned(URI(u"/z"), RelationshipSelectorType::ByID, u"R9");
  assigned = original;
  EXPECT_EQ(assigned, original);
  EXPECT_EQ(assigned.getSelectorType(), RelationshipSelectorType::ByType);
}

TEST(RelationshipSelectorTest, MatchesRelationshipsOfItsSource) {
  Relationship const relationship(u"R1", u"urn:type", URI(u"b.xml"), TargetMode::Internal,
                                  URI(u"/a.xml"));
  EXPECT_TRUE(RelationshipSelector(URI(u"/a.xml"), RelationshipSelectorType::ByID, u"R1")
                  .matches(relationship));
  EXPECT_TRUE(RelationshipSelector(URI(u"/a.xml"), RelationshipSelectorType::ByType, u"urn:type")
                  .matches(relationship));
  EXPECT_FALSE(RelationshipSelector(URI(u"/a.xml"), RelationshipSelectorType::ByID, u"urn:type")
                   .matches(relationship));
  EXPECT_FALSE(RelationshipSelector(URI(u"/a.xml"), RelationshipSelectorType::ByType, u"R1")
                   .matches(relationship));
  EXPECT_FALSE(
      RelationshipSelector(URI(u"/"), RelationshipSelectorType::ByID, u"R1").matches(relationship));
}

}  // namespace
