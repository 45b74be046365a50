#include "filesystem/file_system_node_table.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using opc::vkservices::detail::FileSystemNodeTable;
using opc::vkservices::detail::kNoNode;
using opc::vkservices::detail::kRootNode;
using opc::vkservices::detail::NodeIndex;

// Names come from documents anyone may write: if every table hashed a path the same way, a
// writer could choose names that all land in one run of slots.  Eight tables of one process
// agreeing on a path by chance is a chance of 2^-224.
TEST(FileSystemNodeTableTest, EachTableHashesAPathItsOwnWay) {
  std::set<std::uint32_t> hashes;
  for (int made = 0; made < 8; ++made) {
    FileSystemNodeTable const table;
    hashes.insert(table.hashOf(u"/folder/file.txt"));
  }
  EXPECT_GT(hashes.size(), 1u);
}

// The hash takes a long path thirty-two bytes a step in four lanes, then sixteen bytes a step
// in two, and then what is left: a unit changed anywhere, in any lane, in the last word or in
// the tail, changes the hash, and so does a path cut short by a unit.  Lengths run past the
// four lanes' threshold of 32 units and through every remainder after it.  Each pair agreeing
// by chance is a chance of 2^-32.
TEST(FileSystemNodeTableTest, HashTakesEveryUnitOfAPath) {
  FileSystemNodeTable const table;
  for (std::size_t length = 1; length <= 90; ++length) {
    std::u16string path(length, u'a');
    path[0] = u'/';
    std::uint32_t const hash = table.hashOf(path);
    EXPECT_NE(table.hashOf(path.substr(0, length - 1)), hash) << length;
    for (std::size_t at = 0; at < length; ++at) {
      std::u16string changed = path;
      changed[at] = u'\u00e1';
      EXPECT_NE(table.hashOf(changed), hash) << length << " " << at;
      changed[at] = u'b';
      EXPECT_NE(table.hashOf(changed), hash) << length << " " << at;
    }
  }
}

TEST(FileSystemNodeTableTest, FindsWhatItHoldsUnderTheHashOfItsPath) {
  FileSystemNodeTable table;
  NodeIndex const folder = table.insert(kRootNode, u"/folder");
  NodeIndex const file = table.insert(folder, u"/folder/file.txt");
  EXPECT_EQ(table.find(u"/"), kRootNode);
  EXPECT_EQ(table.find(u"/folder"), folder);
  EXPECT_EQ(table.find(u"/folder/file.txt", table.hashOf(u"/folder/file.txt")), file);
  EXPECT_EQ(table.find(u"/folder/file"), kNoNode);
  EXPECT_EQ(table.nameOf(file), u"file.txt");
  std::u16string path;
  table.appendPath(file, path);
  EXPECT_EQ(path, u"/folder/file.txt");
}

TEST(FileSystemNodeTableTest, HoldsMoreTextThanItMadeRoomFor) {
  FileSystemNodeTable table;
  table.reserveText(8);
  std::u16string path = u"";
  NodeIndex parent = kRootNode;
  for (int level = 0; level < 40; ++level) {
    path += u"/folder-" + std::u16string(1, static_cast<char16_t>(u'a' + level % 26));
    parent = table.insert(parent, path);
  }
  table.reserveText(2);
  EXPECT_EQ(table.find(path), parent);
  EXPECT_EQ(table.nameOf(parent), u"folder-n");
  std::u16string again;
  table.appendPath(parent, again);
  EXPECT_EQ(again, path);
}

// Records are made as they are handed out, chunk after chunk: records past the first chunks,
// and records handed out again after an erase, start as new ones and keep what they are given.
TEST(FileSystemNodeTableTest, RecordsAcrossChunksAndReusedOnesStartAfresh) {
  FileSystemNodeTable table;
  constexpr int kCount = 10000;
  auto pathOf = [](int number) {
    return u"/entry-" + std::u16string(1, static_cast<char16_t>(u'a' + number % 26)) +
           std::u16string(static_cast<std::size_t>(number / 26 + 1), u'x');
  };
  std::vector<NodeIndex> made;
  for (int number = 0; number < kCount; ++number) {
    made.push_back(table.insert(kRootNode, pathOf(number)));
  }
  for (int number = 0; number < kCount; number += 3) table.erase(made[number]);
  for (int number = 0; number < kCount; number += 3) {
    NodeIndex const again = table.insert(kRootNode, pathOf(number));
    EXPECT_EQ(table[again].firstChild, kNoNode) << number;
    EXPECT_EQ(table[again].contentSize, 0u) << number;
    EXPECT_FALSE(table[again].hasTime) << number;
    made[number] = again;
  }
  for (int number = 0; number < kCount; ++number) {
    ASSERT_EQ(table.find(pathOf(number)), made[number]) << number;
    EXPECT_EQ(table.nameOf(made[number]), pathOf(number).substr(1)) << number;
    EXPECT_TRUE(table[made[number]].inUse) << number;
    EXPECT_EQ(table[made[number]].parent, kRootNode) << number;
  }
}

}  // namespace
