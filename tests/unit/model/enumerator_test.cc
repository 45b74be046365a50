#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/enumerator.h>
#include <opc/model/relationship.h>
#include <opc/model/uri.h>

namespace {

using opc::model::Enumerator;

TEST(EnumeratorTest, IsASnapshotOfTheVector) {
  std::vector<std::u16string> source{u"a", u"b", u"c"};
  Enumerator<std::vector<std::u16string>> const entries(source);
  source.push_back(u"d");
  source[0] = u"changed";
  EXPECT_EQ(entries.size(), 3u);
  EXPECT_FALSE(entries.empty());
  std::vector<std::u16string> seen;
  for (auto const& entry : entries) seen.push_back(entry);
  EXPECT_EQ(seen, (std::vector<std::u16string>{u"a", u"b", u"c"}));
  EXPECT_EQ(entries.getEntries(), seen);
}

TEST(EnumeratorTest, TakesMovedVector) {
  std::vector<int> source{1, 2, 3};
  Enumerator<std::vector<int>> entries(std::move(source));
  EXPECT_EQ(entries.size(), 3u);
  int sum = 0;
  for (int& value : entries) sum += value;
  EXPECT_EQ(sum, 6);
}

TEST(EnumeratorTest, EmptyHasNoEntries) {
  Enumerator<std::vector<int>> const fromNothing;
  EXPECT_TRUE(fromNothing.empty());
  EXPECT_EQ(fromNothing.begin(), fromNothing.end());
  Enumerator<std::vector<int>> const fromEmpty{std::vector<int>()};
  EXPECT_TRUE(fromEmpty.empty());
  EXPECT_EQ(fromEmpty.size(), 0u);
}

TEST(EnumeratorTest, HoldsRelationshipsByValue) {
  using opc::model::Relationship;
  using opc::model::TargetMode;
  using opc::model::URI;
  std::vector<Relationship> relationships{
      Relationship(u"R1", u"urn:t", URI(u"a.xml"), TargetMode::Internal, URI(u"/")),
      Relationship(u"R2", u"urn:t", URI(u"b.xml"), TargetMode::Internal, URI(u"/"))};
  Enumerator<std::vector<Relationship>> const entries(relationships);
  relationships.clear();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries.begin()->getID(), u"R1");
  EXPECT_EQ((entries.begin() + 1)->getTargetPartName().toString(), u"/b.xml");
}

TEST(EnumeratorTest, CopiesAreIndependent) {
  Enumerator<std::vector<int>> original(std::vector<int>{1, 2});
  Enumerator<std::vector<int>> copy(original);
  *copy.begin() = 10;
  EXPECT_EQ(*original.begin(), 1);
  EXPECT_EQ(*copy.begin(), 10);
}

}  // namespace
