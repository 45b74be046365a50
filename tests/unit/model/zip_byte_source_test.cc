// A file source gives the file's bytes whatever the order and size of the reads, on any number
// of threads and beside other sources, and tells a file that shrank after it was opened in
// the same words however the read was served.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>

#include "support/expect_exception.h"
#include "zip/zip_archive.h"

namespace {

using opc::model::InvalidPackage;
using opc::model::detail::openFileSource;
using opc::model::detail::ZipByteSource;

// Bytes that differ from one offset to the next and from one file to another.
std::string patterned(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  std::uint32_t state = seed * 2654435761u + 1;
  for (char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

class ZipByteSourceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ =
        std::filesystem::temp_directory_path() /
        ("opcvk-byte-source-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
         "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string write(std::string const& name, std::string const& bytes) {
    std::string const path = (folder_ / name).string();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  static std::string read(ZipByteSource const& source, std::uint64_t offset, std::size_t count) {
    std::string bytes(count, '\0');
    source.readAt(offset, reinterpret_cast<unsigned char*>(bytes.data()), count);
    return bytes;
  }

  std::filesystem::path folder_;
};

TEST_F(ZipByteSourceTest, SmallReadsInOrderGiveTheFilesBytes) {
  std::string const bytes = patterned(700 * 1024, 1);
  auto const source = openFileSource(write("a.zip", bytes));
  // As items are read: a little more than each, the next one beginning just before the end
  // of the last read, with now and then a run of items left to another thread.
  std::uint64_t offset = 0;
  std::mt19937 random(7);
  while (offset < bytes.size()) {
    std::size_t const count = std::min<std::size_t>(1 + random() % 3000, bytes.size() - offset);
    ASSERT_EQ(read(*source, offset, count), bytes.substr(offset, count)) << "at " << offset;
    std::uint64_t step = count > 64 ? count - random() % 64 : count;
    if (random() % 16 == 0) step += random() % (200 * 1024);
    offset += step;
  }
}

TEST_F(ZipByteSourceTest, ReadsHereAndThereGiveTheFilesBytes) {
  std::string const bytes = patterned(600 * 1024, 2);
  auto const source = openFileSource(write("a.zip", bytes));
  std::mt19937 random(11);
  for (int i = 0; i < 2000; ++i) {
    std::size_t const count = 1 + random() % (i % 2 == 0 ? 2000 : 40000);
    std::uint64_t const offset = random() % (bytes.size() - count + 1);
    ASSERT_EQ(read(*source, offset, count), bytes.substr(offset, count)) << "at " << offset;
  }
  // The whole file in one read, and the last byte alone.
  EXPECT_EQ(read(*source, 0, bytes.size()), bytes);
  EXPECT_EQ(read(*source, bytes.size() - 1, 1), bytes.substr(bytes.size() - 1));
}

TEST_F(ZipByteSourceTest, SourcesReadInTurnGiveEachItsOwnBytes) {
  std::string const first = patterned(300 * 1024, 3);
  std::string const second = patterned(300 * 1024, 4);
  auto const one = openFileSource(write("one.zip", first));
  auto const two = openFileSource(write("two.zip", second));
  for (std::uint64_t offset = 0; offset + 1000 <= first.size(); offset += 900) {
    ASSERT_EQ(read(*one, offset, 1000), first.substr(offset, 1000)) << "at " << offset;
    ASSERT_EQ(read(*two, offset, 1000), second.substr(offset, 1000)) << "at " << offset;
  }
}

TEST_F(ZipByteSourceTest, ANewSourceNeverGivesTheBytesOfOneThatWent) {
  // Sources made one after the other may take the same address; each reads its own file.
  for (unsigned round = 0; round < 20; ++round) {
    std::string const bytes = patterned(64 * 1024, 10 + round);
    auto const source = openFileSource(write("r" + std::to_string(round) + ".zip", bytes));
    for (std::uint64_t offset = 0; offset + 500 <= bytes.size(); offset += 450) {
      ASSERT_EQ(read(*source, offset, 500), bytes.substr(offset, 500))
          << "round " << round << " at " << offset;
    }
  }
}

TEST_F(ZipByteSourceTest, ThreadsReadingOneSourceEachGetTheFilesBytes) {
  std::string const bytes = patterned(1024 * 1024, 5);
  std::shared_ptr<ZipByteSource> const source = openFileSource(write("a.zip", bytes));
  // Each thread takes every fourth run of 20 KiB, in order, as threads that share out the
  // items of an archive in batches do.
  constexpr std::size_t kRun = 20 * 1024;
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::uint64_t run = t * kRun; run < bytes.size(); run += 4 * kRun) {
        for (std::uint64_t offset = run; offset < run + kRun && offset < bytes.size();
             offset += 700) {
          std::size_t const count = std::min<std::size_t>(760, bytes.size() - offset);
          if (read(*source, offset, count) != bytes.substr(offset, count)) ++wrong[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST_F(ZipByteSourceTest, AFileThatShrankIsToldWhereItEnds) {
  std::string const bytes = patterned(400 * 1024, 6);
  std::string const path = write("a.zip", bytes);
  auto const source = openFileSource(path);
  // Reads in order, so that the later ones are served from bytes read ahead.
  EXPECT_EQ(read(*source, 0, 1000), bytes.substr(0, 1000));
  std::filesystem::resize_file(path, 100 * 1024);
  EXPECT_EQ(read(*source, 1000, 1000), bytes.substr(1000, 1000));
  std::string const expected =
      "Invalid ZIP archive: it is truncated (the file \"" + path + "\" ended at offset 102400)";
  // One read that follows the last one, and one far from it.
  EXPECT_THROW_MESSAGE(read(*source, 100 * 1024 - 500, 1000), InvalidPackage, expected);
  EXPECT_THROW_MESSAGE(
      read(*source, 300 * 1024, 1000), InvalidPackage,
      "Invalid ZIP archive: it is truncated (the file \"" + path + "\" ended at offset 307200)");
}

}  // namespace
