#include "read_ahead.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

using opcvk::ReadAhead;
using opcvk::ReadResult;
using opcvk::SourceItem;
using opcvk_test::TempDir;

std::string bytesOf(ReadResult const& result) {
  return std::string(result.bytes.begin(), result.bytes.end());
}

void write(std::string const& path, std::string const& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

SourceItem item(std::string const& name, std::uint64_t size) {
  SourceItem result;
  result.kind = SourceItem::Kind::File;
  result.native = name;
  result.size = size;
  return result;
}

std::vector<std::uint32_t> allOf(std::vector<SourceItem> const& items) {
  std::vector<std::uint32_t> indices;
  for (std::uint32_t i = 0; i < items.size(); ++i) indices.push_back(i);
  return indices;
}

// Distinct content for each file, of a size that varies with the index.
std::string contentFor(std::size_t index) {
  return std::to_string(index) + std::string(index % 37, 'x') + "\n";
}

class ReadAheadOrderTest : public ::testing::TestWithParam<unsigned> {};

TEST_P(ReadAheadOrderTest, GivesEveryFileInTheOrderOfTheListWhateverTheThreads) {
  TempDir dir;
  std::vector<SourceItem> items;
  for (std::size_t i = 0; i < 600; ++i) {
    std::string const name = "f" + std::to_string(i);
    write(dir / name, contentFor(i));
    items.push_back(item(name, contentFor(i).size()));
  }
  // Every other file only, and a window far smaller than the list, so that the ring of
  // results wraps many times.
  std::vector<std::uint32_t> indices;
  for (std::uint32_t i = 0; i < items.size(); i += 2) indices.push_back(i);
  ReadAhead reader(dir.path(), items, indices, GetParam(), 4, 64);
  for (std::uint32_t index : indices) {
    ReadResult const result = reader.next();
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(bytesOf(result), contentFor(index));
  }
}

INSTANTIATE_TEST_SUITE_P(Threads, ReadAheadOrderTest, ::testing::Values(1u, 3u, 8u));

TEST(ReadAheadTest, TellsAFileThatCannotBeOpenedAtItsPlaceAndGoesOn) {
  TempDir dir;
  write(dir / "a", "alpha");
  write(dir / "c", "gamma");
  std::vector<SourceItem> const items{item("a", 5), item("b-missing", 5), item("c", 5)};
  ReadAhead reader(dir.path(), items, allOf(items), 2, 8, 1024);
  EXPECT_EQ(bytesOf(reader.next()), "alpha");
  ReadResult const missing = reader.next();
  EXPECT_TRUE(missing.failedToOpen);
  EXPECT_EQ(missing.error, ENOENT);
  EXPECT_TRUE(missing.bytes.empty());
  ReadResult const last = reader.next();
  EXPECT_EQ(last.error, 0);
  EXPECT_EQ(bytesOf(last), "gamma");
}

TEST(ReadAheadTest, TellsAFileThatOpensButCannotBeRead) {
  TempDir dir;
  ASSERT_EQ(::mkdir((dir / "folder").c_str(), 0755), 0);
  std::vector<SourceItem> const items{item("folder", 0)};
  ReadAhead reader(dir.path(), items, allOf(items), 1, 8, 1024);
  ReadResult const result = reader.next();
  EXPECT_FALSE(result.failedToOpen);
  EXPECT_EQ(result.error, EISDIR);
  EXPECT_TRUE(result.bytes.empty());
}

TEST(ReadAheadTest, ReadsAFileLargerThanTheWholeBudget) {
  TempDir dir;
  std::string const big(10000, 'b');
  write(dir / "big", big);
  write(dir / "small", "s");
  std::vector<SourceItem> const items{item("small", 1), item("big", big.size()), item("small", 1)};
  ReadAhead reader(dir.path(), items, allOf(items), 2, 8, 100);
  EXPECT_EQ(bytesOf(reader.next()), "s");
  EXPECT_EQ(bytesOf(reader.next()), big);
  EXPECT_EQ(bytesOf(reader.next()), "s");
}

TEST(ReadAheadTest, ReadsAFileToItsEndWhenItGrewSinceTheWalk) {
  TempDir dir;
  std::string const grown(5000, 'g');
  write(dir / "grown", grown);
  write(dir / "shrunk", "ab");
  std::vector<SourceItem> const items{item("grown", 3), item("shrunk", 100)};
  ReadAhead reader(dir.path(), items, allOf(items), 1, 8, 1024);
  EXPECT_EQ(bytesOf(reader.next()), grown);
  EXPECT_EQ(bytesOf(reader.next()), "ab");
}

TEST(ReadAheadTest, AskingPastTheLastFileIsALogicError) {
  TempDir dir;
  write(dir / "a", "alpha");
  std::vector<SourceItem> const items{item("a", 5)};
  ReadAhead reader(dir.path(), items, allOf(items), 1, 8, 1024);
  reader.next();
  EXPECT_THROW(reader.next(), std::logic_error);
}

TEST(ReadAheadTest, AnEmptyListStartsNoThreadAndGivesNothing) {
  std::vector<SourceItem> const items;
  ReadAhead reader("/nonexistent", items, {}, 4, 8, 1024);
  EXPECT_THROW(reader.next(), std::logic_error);
}

TEST(ReadAheadTest, StopsCleanlyWhenDestroyedBeforeEverythingWasTaken) {
  TempDir dir;
  std::vector<SourceItem> items;
  for (std::size_t i = 0; i < 200; ++i) {
    write(dir / ("f" + std::to_string(i)), contentFor(i));
    items.push_back(item("f" + std::to_string(i), contentFor(i).size()));
  }
  ReadAhead reader(dir.path(), items, allOf(items), 3, 16, 1 << 20);
  EXPECT_EQ(bytesOf(reader.next()), contentFor(0));
  // The destructor joins workers that wait for room in the window; the test ends.
}

}  // namespace
