// The index that finds a writer's parts by the hashes of their names: every position added is
// found again, names of equal hashes are told apart, and removing a part from the middle of
// the list keeps every other one findable at its new position.
#include "package/part_index.h"

#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

using opc::model::detail::PartIndex;

// A list of "parts" that are just their hashes, kept beside the index as a model of it.
class Model {
 public:
  void add(std::size_t hash) {
    index_.add(hash, static_cast<std::uint32_t>(hashes_.size()));
    hashes_.push_back(hash);
  }
  void remove(std::size_t position) {
    index_.removeAndClose(hashes_[position], static_cast<std::uint32_t>(position));
    hashes_.erase(hashes_.begin() + static_cast<std::ptrdiff_t>(position));
  }
  std::uint32_t find(std::size_t hash, std::size_t wanted) const {
    return index_.find(hash, [&](std::uint32_t at) { return at == wanted; });
  }
  void expectConsistent() const {
    ASSERT_EQ(index_.size(), hashes_.size());
    for (std::size_t i = 0; i < hashes_.size(); ++i) {
      EXPECT_EQ(find(hashes_[i], i), i) << "position " << i;
    }
  }
  std::vector<std::size_t> const& hashes() const { return hashes_; }
  PartIndex const& index() const { return index_; }

 private:
  PartIndex index_;
  std::vector<std::size_t> hashes_;
};

TEST(PartIndexTest, AnEmptyIndexFindsNothing) {
  PartIndex index;
  EXPECT_TRUE(index.empty());
  EXPECT_EQ(index.find(42, [](std::uint32_t) { return true; }), PartIndex::kNone);
}

TEST(PartIndexTest, FindsEveryPositionAddedAndNothingElse) {
  Model model;
  for (std::size_t i = 0; i < 5000; ++i) model.add(i * 2654435761u);
  model.expectConsistent();
  EXPECT_EQ(model.find(7, 0), PartIndex::kNone);
  EXPECT_EQ(model.find(model.hashes()[10], 11), PartIndex::kNone);
}

// Parts whose names hash alike are told apart by their names, here by their positions.
TEST(PartIndexTest, EqualHashesAreToldApartByTheirParts) {
  Model model;
  for (int i = 0; i < 40; ++i) model.add(99);
  model.expectConsistent();
  model.remove(0);
  model.remove(17);
  model.remove(37);
  model.expectConsistent();
  EXPECT_EQ(model.find(99, 37), PartIndex::kNone);
}

// Runs that wrap past the end of the table, removed from at every place.
TEST(PartIndexTest, RemovingFromARunThatWrapsKeepsTheRestFindable) {
  Model model;
  // Homes at the last slots of a table of 16 (8 entries at most before it grows).
  for (std::size_t hash : {15u, 15u, 14u, 0u, 15u, 1u, 14u}) model.add(hash);
  model.expectConsistent();
  model.remove(1);
  model.expectConsistent();
  model.remove(0);
  model.expectConsistent();
  model.remove(2);
  model.expectConsistent();
}

TEST(PartIndexTest, RemovingAPositionLowersTheOnesAbove) {
  Model model;
  for (std::size_t i = 0; i < 10; ++i) model.add(1000 + i);
  model.remove(3);
  EXPECT_EQ(model.find(1004, 3), 3u);
  EXPECT_EQ(model.find(1009, 8), 8u);
  EXPECT_EQ(model.find(1002, 2), 2u);
  EXPECT_EQ(model.find(1003, 3), PartIndex::kNone);
  model.expectConsistent();
}

TEST(PartIndexTest, RemovingWhatIsNotHeldChangesNothing) {
  Model model;
  for (std::size_t i = 0; i < 10; ++i) model.add(i);
  PartIndex copy = model.index();
  copy.removeAndClose(3, 12);
  EXPECT_EQ(copy.size(), 10u);
  EXPECT_EQ(copy.find(7, [](std::uint32_t at) { return at == 7; }), 7u);
}

// Adds and removes at random over few distinct hashes, so that runs are long and crowded,
// against the model after every step.
TEST(PartIndexTest, StaysTrueThroughManyAddsAndRemoves) {
  Model model;
  std::mt19937 random(20261124);
  for (int step = 0; step < 3000; ++step) {
    if (!model.hashes().empty() && random() % 3 == 0) {
      model.remove(random() % model.hashes().size());
    } else {
      model.add(random() % 64);
    }
    if (step % 100 == 0) model.expectConsistent();
  }
  model.expectConsistent();
}

TEST(PartIndexTest, ClearLeavesAnEmptyIndexThatTakesPartsAgain) {
  Model model;
  for (std::size_t i = 0; i < 100; ++i) model.add(i);
  PartIndex index = model.index();
  index.clear();
  EXPECT_TRUE(index.empty());
  EXPECT_EQ(index.find(5, [](std::uint32_t) { return true; }), PartIndex::kNone);
  index.add(5, 0);
  EXPECT_EQ(index.find(5, [](std::uint32_t at) { return at == 0; }), 0u);
}

}  // namespace
