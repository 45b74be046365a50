#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/relationship_id.h>

#include "support/expect_exception.h"

namespace {

using opc::model::ensureValidRelationshipId;
using opc::model::generateRelationshipId;
using opc::model::InvalidRelationship;
using opc::model::isValidRelationshipId;

struct IdCase {
  std::u16string id;
  bool valid;
};

class RelationshipIdTest : public ::testing::TestWithParam<IdCase> {};

TEST_P(RelationshipIdTest, ChecksNCName) {
  EXPECT_EQ(isValidRelationshipId(GetParam().id), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RelationshipIdTest,
    ::testing::Values(IdCase{u"R1", true}, IdCase{u"rId12", true}, IdCase{u"_x", true},
                      IdCase{u"a-b.c_d", true}, IdCase{u"\u00e9t\u00e9", true},
                      IdCase{u"\u65e5\u672c", true}, IdCase{u"a\u00b7\u0300", true},
                      IdCase{u"R\U00010000", true}, IdCase{u"", false}, IdCase{u"1R", false},
                      IdCase{u"-R", false}, IdCase{u".R", false}, IdCase{u"R:1", false},
                      IdCase{u":R", false}, IdCase{u"R 1", false}, IdCase{u"R#1", false},
                      IdCase{u"\u00b7R", false}, IdCase{u"R\u00d7", false},
                      IdCase{std::u16string(u"R") + char16_t(0xD800), false}));

TEST(RelationshipIdTest, EnsureNamesTheReason) {
  EXPECT_NO_THROW(ensureValidRelationshipId(u"R1"));
  EXPECT_THROW_MESSAGE(ensureValidRelationshipId(u""), InvalidRelationship,
                       "Invalid relationship id \"\": an id must not be empty");
  EXPECT_THROW_MESSAGE(ensureValidRelationshipId(u"9a"), InvalidRelationship,
                       "Invalid relationship id \"9a\": an id must start with a letter or \"_\"");
  EXPECT_THROW_MESSAGE(ensureValidRelationshipId(u":a"), InvalidRelationship,
                       "Invalid relationship id \":a\": an id must start with a letter or \"_\"");
  EXPECT_THROW_MESSAGE(ensureValidRelationshipId(u"a b"), InvalidRelationship,
                       "Invalid relationship id \"a b\": character \" \" is not allowed");
  EXPECT_THROW_MESSAGE(ensureValidRelationshipId(u"$a"), InvalidRelationship,
                       "Invalid relationship id \"$a\": character \"$\" is not allowed");
}

TEST(RelationshipIdTest, GeneratesFreeIds) {
  EXPECT_EQ(generateRelationshipId(std::set<std::u16string>{}), u"R1");
  EXPECT_EQ(generateRelationshipId(std::set<std::u16string>{u"R1", u"R2"}), u"R3");
  // Counting starts after the number of ids in use and goes on past taken ones.
  EXPECT_EQ(generateRelationshipId(std::set<std::u16string>{u"R3", u"R4"}), u"R5");
  EXPECT_EQ(generateRelationshipId(std::set<std::u16string>{u"a", u"b"}), u"R3");
  std::set<std::u16string> taken;
  for (int i = 0; i < 20; ++i) {
    std::u16string const id = generateRelationshipId(taken);
    EXPECT_TRUE(isValidRelationshipId(id));
    EXPECT_TRUE(taken.insert(id).second) << "id given twice";
  }
  EXPECT_EQ(taken.count(u"RA"), 1u);
  EXPECT_EQ(taken.count(u"R14"), 1u);
}

TEST(RelationshipIdTest, GeneratesFromHighWaterMark) {
  auto const isTaken = [](std::u16string const& id) { return id == u"R10" || id == u"R11"; };
  EXPECT_EQ(generateRelationshipId(isTaken, 16), u"R12");
  EXPECT_EQ(generateRelationshipId(isTaken, 0), u"R1");
  EXPECT_EQ(generateRelationshipId([](std::u16string const&) { return false; },
                                   UINT64_C(0xFFFFFFFFFFFFFFFF)),
            u"RFFFFFFFFFFFFFFFF");
}

}  // namespace
