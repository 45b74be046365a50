#include "read_ahead.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

using opcvk::ReadAhead;
using opcvk::ReadResult;
using opcvk::SourceItem;
using opcvk::SourceTree;
using opcvk_test::TempDir;

std::string bytesOf(ReadResult const& result) {
  return std::string(result.bytes.begin(), result.bytes.end());
}

void write(std::string const& path, std::string const& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// A tree of files of these names and expected sizes.
SourceTree treeOf(std::vector<std::pair<std::string, std::uint64_t>> const& files) {
  SourceTree tree;
  for (auto const& file : files) {
    SourceItem item;
    item.size = file.second;
    tree.add(item, file.first);
  }
  return tree;
}

std::vector<std::uint32_t> allOf(SourceTree const& tree) {
  std::vector<std::uint32_t> indices;
  for (std::uint32_t i = 0; i < tree.items.size(); ++i) indices.push_back(i);
  return indices;
}

// Distinct content for each file, of a size that varies with the index.
std::string contentFor(std::size_t index) {
  return std::to_string(index) + std::string(index % 37, 'x') + "\n";
}

class ReadAheadOrderTest : public ::testing::TestWithParam<unsigned> {};

TEST_P(ReadAheadOrderTest, GivesEveryFileInTheOrderOfTheListWhateverTheThreads) {
  TempDir dir;
  std::vector<std::pair<std::string, std::uint64_t>> files;
  for (std::size_t i = 0; i < 600; ++i) {
    std::string const name = "f" + std::to_string(i);
    write(dir / name, contentFor(i));
    files.emplace_back(name, contentFor(i).size());
  }
  SourceTree const tree = treeOf(files);
  // Every other file only, and a window far smaller than the list, so that the ring of
  // results wraps many times.
  std::vector<std::uint32_t> indices;
  for (std::uint32_t i = 0; i < tree.items.size(); i += 2) indices.push_back(i);
  ReadAhead reader(dir.path(), tree, indices, GetParam(), 4, 64);
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
  SourceTree const tree = treeOf({{"a", 5}, {"b-missing", 5}, {"c", 5}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 2, 8, 1024);
  EXPECT_EQ(bytesOf(reader.next()), "alpha");
  ReadResult const missing = reader.next();
  EXPECT_TRUE(missing.failedToOpen);
  EXPECT_EQ(missing.error, ENOENT);
  EXPECT_TRUE(missing.bytes.empty());
  ReadResult const last = reader.next();
  EXPECT_EQ(last.error, 0);
  EXPECT_EQ(bytesOf(last), "gamma");
}

// Files of several folders, their folders coming back after others: each is read from its
// own folder, whatever the thread that reads it read before.
TEST_P(ReadAheadOrderTest, ReadsFilesOfFoldersThatComeAndGoInTheList) {
  TempDir dir;
  for (char const* folder : {"a", "a/b", "a/b/c", "d", "db"}) {
    ASSERT_EQ(::mkdir((dir / folder).c_str(), 0755), 0);
  }
  std::vector<std::string> const names = {"a/x",  "a/b/x", "a/y",   "top", "a/b/c/x", "d/x",
                                          "db/x", "d/y",   "a/b/y", "a/z", "db/y",    "d/z"};
  std::vector<std::pair<std::string, std::uint64_t>> files;
  for (std::size_t i = 0; i < names.size(); ++i) {
    write(dir / names[i], contentFor(i) + names[i]);
    files.emplace_back(names[i], (contentFor(i) + names[i]).size());
  }
  SourceTree const tree = treeOf(files);
  ReadAhead reader(dir.path(), tree, allOf(tree), GetParam(), 4, 64);
  for (std::size_t i = 0; i < names.size(); ++i) {
    ReadResult const result = reader.next();
    EXPECT_EQ(result.error, 0) << names[i];
    EXPECT_EQ(bytesOf(result), contentFor(i) + names[i]);
  }
}

// Below a folder that is missing, or that is a file, a file fails with the error its whole
// path gives; the files around it, in the same folder or not, are read.
TEST(ReadAheadTest, TellsAFileBelowAMissingOrFalseFolderAsItsWholePathWould) {
  TempDir dir;
  ASSERT_EQ(::mkdir((dir / "a").c_str(), 0755), 0);
  write(dir / "a/one", "one");
  write(dir / "a/three", "three");
  write(dir / "plain", "plain");
  SourceTree const tree =
      treeOf({{"a/one", 3}, {"a/two-missing", 3}, {"gone/x", 1}, {"plain/x", 1}, {"a/three", 5}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 1, 8, 1024);
  EXPECT_EQ(bytesOf(reader.next()), "one");
  ReadResult const missing = reader.next();
  EXPECT_TRUE(missing.failedToOpen);
  EXPECT_EQ(missing.error, ENOENT);
  ReadResult const gone = reader.next();
  EXPECT_TRUE(gone.failedToOpen);
  EXPECT_EQ(gone.error, ENOENT);
  ReadResult const underFile = reader.next();
  EXPECT_TRUE(underFile.failedToOpen);
  EXPECT_EQ(underFile.error, ENOTDIR);
  ReadResult const last = reader.next();
  EXPECT_EQ(last.error, 0);
  EXPECT_EQ(bytesOf(last), "three");
}

TEST(ReadAheadTest, TellsAFileThatOpensButCannotBeRead) {
  TempDir dir;
  ASSERT_EQ(::mkdir((dir / "folder").c_str(), 0755), 0);
  SourceTree const tree = treeOf({{"folder", 0}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 1, 8, 1024);
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
  SourceTree const tree = treeOf({{"small", 1}, {"big", big.size()}, {"small", 1}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 2, 8, 100);
  EXPECT_EQ(bytesOf(reader.next()), "s");
  EXPECT_EQ(bytesOf(reader.next()), big);
  EXPECT_EQ(bytesOf(reader.next()), "s");
}

TEST(ReadAheadTest, ReadsAFileToItsEndWhenItGrewSinceTheWalk) {
  TempDir dir;
  std::string const grown(5000, 'g');
  write(dir / "grown", grown);
  write(dir / "shrunk", "ab");
  SourceTree const tree = treeOf({{"grown", 3}, {"shrunk", 100}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 1, 8, 1024);
  EXPECT_EQ(bytesOf(reader.next()), grown);
  EXPECT_EQ(bytesOf(reader.next()), "ab");
}

// A read that stops at the size the walk saw ends the file; one byte more (the byte asked
// beyond that size) means it goes on.
TEST(ReadAheadTest, ReadsFilesOfTheWalksSizeAndOfOneByteMoreWhole) {
  TempDir dir;
  write(dir / "same", "abc");
  write(dir / "longer", "abcd");
  write(dir / "empty", "");
  write(dir / "double", "abcdef");
  SourceTree const tree =
      treeOf({{"same", 3}, {"longer", 3}, {"empty", 0}, {"double", 3}, {"empty", 1}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 2, 8, 1024);
  EXPECT_EQ(bytesOf(reader.next()), "abc");
  EXPECT_EQ(bytesOf(reader.next()), "abcd");
  EXPECT_EQ(bytesOf(reader.next()), "");
  EXPECT_EQ(bytesOf(reader.next()), "abcdef");
  EXPECT_EQ(bytesOf(reader.next()), "");
}

// A file the walk told by its kind alone: its reader learns size, mode and time from the
// file it has open, reads it whole however large it is below the limit, and only tells one
// above the limit.  One it cannot open gets the status of its path where there is one.
TEST(ReadAheadTest, LearnsTheStatusOfAFileTheWalkDidNotAskAndTellsOneAboveTheLimit) {
  TempDir dir;
  std::string const text(60, 't');
  write(dir / "text", text);
  write(dir / "large", std::string(101, 'l'));
  ASSERT_EQ(::chmod((dir / "text").c_str(), 0604), 0);
  timeval const times[2] = {{1600000000, 0}, {1600000000, 250000}};
  ASSERT_EQ(::utimes((dir / "text").c_str(), times), 0);
  SourceTree tree = treeOf({{"text", 0}, {"large", 0}, {"missing", 0}, {"known-large", 200}});
  for (std::size_t i = 0; i < 3; ++i) tree.items[i].statusKnown = false;
  ReadAhead reader(dir.path(), tree, allOf(tree), 2, 8, 1024, 100);

  ReadResult const read = reader.next();
  EXPECT_EQ(bytesOf(read), text);
  EXPECT_TRUE(read.statusKnown);
  EXPECT_FALSE(read.large);
  EXPECT_EQ(read.size, text.size());
  EXPECT_EQ(read.mode, 0604u);
  EXPECT_EQ(read.mtimeSeconds, 1600000000);
  EXPECT_EQ(read.mtimeNanoseconds, 250000000u);

  ReadResult const large = reader.next();
  EXPECT_TRUE(large.large);
  EXPECT_TRUE(large.bytes.empty());
  EXPECT_EQ(large.size, 101u);

  ReadResult const missing = reader.next();
  EXPECT_TRUE(missing.failedToOpen);
  EXPECT_EQ(missing.error, ENOENT);
  EXPECT_FALSE(missing.statusKnown);

  // A file the walk saw above the limit is not even opened (it does not exist here).
  ReadResult const knownLarge = reader.next();
  EXPECT_TRUE(knownLarge.large);
  EXPECT_EQ(knownLarge.error, 0);
  EXPECT_FALSE(knownLarge.failedToOpen);
}

TEST(ReadAheadTest, AskingPastTheLastFileIsALogicError) {
  TempDir dir;
  write(dir / "a", "alpha");
  SourceTree const tree = treeOf({{"a", 5}});
  ReadAhead reader(dir.path(), tree, allOf(tree), 1, 8, 1024);
  reader.next();
  EXPECT_THROW(reader.next(), std::logic_error);
}

TEST(ReadAheadTest, AnEmptyListStartsNoThreadAndGivesNothing) {
  SourceTree const tree;
  ReadAhead reader("/nonexistent", tree, {}, 4, 8, 1024);
  EXPECT_THROW(reader.next(), std::logic_error);
}

TEST(ReadAheadTest, StopsCleanlyWhenDestroyedBeforeEverythingWasTaken) {
  TempDir dir;
  std::vector<std::pair<std::string, std::uint64_t>> files;
  for (std::size_t i = 0; i < 200; ++i) {
    write(dir / ("f" + std::to_string(i)), contentFor(i));
    files.emplace_back("f" + std::to_string(i), contentFor(i).size());
  }
  SourceTree const tree = treeOf(files);
  ReadAhead reader(dir.path(), tree, allOf(tree), 3, 16, 1 << 20);
  EXPECT_EQ(bytesOf(reader.next()), contentFor(0));
  // The destructor joins workers that wait for room in the window; the test ends.
}

}  // namespace
