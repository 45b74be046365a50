// The hash that files part keys: keys come from item names that anyone may choose, so which
// keys meet must depend on a seed that they cannot know, and keys made to meet under one seed
// must fall apart under another.
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "package/part_table.h"

namespace opc {
namespace model {
namespace {

using detail::PartTable;

// Keys of every length the hash treats its own way: the tail alone, one and two lanes, and
// four lanes with what is left after them.
std::vector<std::string> keysOfEveryShape() {
  std::vector<std::string> keys;
  for (std::size_t length : {1u, 7u, 8u, 15u, 16u, 31u, 63u, 64u, 100u, 540u}) {
    std::string key = "/";
    while (key.size() < length) key += static_cast<char>('a' + key.size() % 26);
    keys.push_back(key.substr(0, length));
  }
  return keys;
}

TEST(PartTableHashTest, OneKeyHashesApartUnderTwoSeeds) {
  std::mt19937_64 draws(20261125);
  for (std::string const& key : keysOfEveryShape()) {
    int same = 0;
    for (int draw = 0; draw < 64; ++draw) {
      std::uint64_t const first = draws();
      std::uint64_t const second = draws();
      if (PartTable::hashOf(key, first) == PartTable::hashOf(key, second)) ++same;
    }
    // Two 32-bit hashes agree by chance once in four billion draws.
    EXPECT_LE(same, 1) << key.size();
  }
}

TEST(PartTableHashTest, KeysMadeToMeetUnderOneSeedSpreadUnderAnother) {
  // A writer who knew the seed could find, by trying names, many that fall on one slot of a
  // table; the test does the same over a table of 64 slots.
  constexpr std::uint32_t kMask = 63;
  constexpr std::size_t kWanted = 32;
  std::mt19937_64 draws(4242);
  for (std::size_t length : {12u, 40u, 90u}) {
    std::uint64_t const known = draws();
    std::vector<std::string> meeting;
    for (std::uint64_t tried = 0; meeting.size() < kWanted; ++tried) {
      std::string key = "/folder/" + std::to_string(tried);
      key.resize(length, 'x');
      key.replace(key.size() - 8, 8, std::to_string(100000000 + tried).substr(1));
      if ((PartTable::hashOf(key, known) & kMask) == 0) meeting.push_back(key);
    }
    std::set<std::string> const distinct(meeting.begin(), meeting.end());
    ASSERT_EQ(distinct.size(), kWanted) << length;
    std::uint64_t const other = draws();
    std::set<std::uint32_t> slots;
    for (std::string const& key : meeting) slots.insert(PartTable::hashOf(key, other) & kMask);
    // 32 keys over 64 slots at random fill 25 on average; fewer than 12 has a chance below
    // one in a billion.
    EXPECT_GE(slots.size(), 12u) << length;
  }
}

TEST(PartTableHashTest, TheProcessHashIsOneOfTheSeededHashes) {
  // Keys looked up in the table, in the content types and in the folders are hashed once and
  // compared across all three: one process, one hash.
  for (std::string const& key : keysOfEveryShape()) {
    EXPECT_EQ(PartTable::hashOf(key), PartTable::hashOf(key)) << key.size();
  }
  // And it is not the hash of a fixed seed of zero, which anyone could compute: for one key
  // in ten agreeing by chance, the chance is 2^-320.
  int agreeing = 0;
  for (std::string const& key : keysOfEveryShape()) {
    if (PartTable::hashOf(key) == PartTable::hashOf(key, 0)) ++agreeing;
  }
  EXPECT_LT(agreeing, 10);
}

}  // namespace
}  // namespace model
}  // namespace opc
