// Large files that sit together among small ones, shared among threads: the tree, and the
// failure told (a wrong CRC-32 of a stored and of a deflated item, a cut item, failures on
// either side of a large file), are those of extractAll whatever the number of threads.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <sys/stat.h>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/zip_builder.h"
#include "unit/core/local_file_system_ops_test_util.h"
#include "unit/filesystem/shared_extraction_fixture.h"
#include "unit/filesystem/shared_extraction_support.h"

namespace {

using opc::vkservices::TransformMode;
using opcvk_test::extractShared;
using opcvk_test::kNever;
using opcvk_test::kRestore;
using opcvk_test::readFile;
using opcvk_test::SharedExtractionTest;
using opcvk_test::snapshot;
using opcvk_test::u16;

// Large files that sit together, with small files around them: each is handed out alone and
// ahead of the small files before it, which changes who writes what and when, but neither the
// tree nor which failure is told.
class SharedExtractionLargeFilesTest : public SharedExtractionTest {
 protected:
  // Text that deflates, and bytes that do not (the archive stores them).
  static std::string text(std::size_t size, std::string const& seed) {
    std::string result;
    for (std::size_t line = 0; result.size() < size; ++line) {
      result += seed + " line " + std::to_string(line) + " of some text that repeats\n";
    }
    result.resize(size);
    return result;
  }
  static std::string noise(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string result(size, '\0');
    for (char& c : result) c = static_cast<char>(random() & 0xFF);
    return result;
  }

  // 100 small files before the large ones, which would share a batch with them; 40 small files
  // after them in their folder and 100 in the next; links and an empty folder.
  void makeLargeTree() {
    for (int i = 0; i < 100; ++i)
      addFile(u16("/a/s" + std::to_string(100 + i)), "small " + std::to_string(i));
    for (auto const& [name, content] : large_) addFile(u16(name), content, 0604);
    for (int i = 0; i < 40; ++i)
      addFile(u16("/big/m" + std::to_string(100 + i)), "after " + std::to_string(i));
    for (int i = 0; i < 100; ++i)
      addFile(u16("/c/t" + std::to_string(100 + i)), std::string(i * 7, 'c'));
    manager_->createFolder(u"/big/empty");
    manager_->createLink(u"/big/to-l3", u"/big/l3.txt");
    manager_->createLink(u"/c/up", u"../big");
  }

  // The central directory record of the item `name`, at its field `offset`, little-endian.
  static unsigned char* centralField(std::vector<unsigned char>& zip, std::string const& name,
                                     std::size_t offset) {
    auto const u16At = [&](std::size_t at) { return zip[at] | zip[at + 1] << 8; };
    for (std::size_t at = 0; at + 46 <= zip.size(); ++at) {
      if (zip[at] != 'P' || zip[at + 1] != 'K' || zip[at + 2] != 1 || zip[at + 3] != 2) continue;
      std::size_t const length = u16At(at + 28);
      if (std::string(zip.begin() + at + 46, zip.begin() + at + 46 + length) == name) {
        return &zip[at + offset];
      }
    }
    ADD_FAILURE() << "no central record for " << name;
    static unsigned char none[4];
    return none;
  }
  static std::uint32_t get32(unsigned char const* p) {
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24;
  }
  static void put32(unsigned char* p, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(value >> (8 * i));
  }
  static std::uint16_t methodOf(std::vector<unsigned char>& zip, std::string const& name) {
    unsigned char const* p = centralField(zip, name, 10);
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
  }

  // What extractAll raises, checked to be what every number of threads raises too.
  std::string sameFailureWithAnyNumberOfThreads(std::function<void()> const& plant = [] {}) {
    std::string const out = dest("out");
    auto const fresh = [&] {
      EXPECT_EQ(std::system(("rm -rf " + out + " && mkdir " + out).c_str()), 0);
      plant();
    };
    fresh();
    std::string const expected = failureOf(
        [&] { manager_->extractAll(u16(out), kRestore, TransformMode::NoTransforms, kNever); });
    for (unsigned threads : {1u, 2u, 3u}) {
      fresh();
      EXPECT_EQ(failureOf([&] { extractShared(*manager_, u16(out), threads, kRestore, kNever); }),
                expected)
          << threads << " threads";
      // What comes before the failures was written.
      EXPECT_EQ(readFile(out + "/a/s150"), "small 50");
    }
    return expected;
  }

  // The file at `path` is given a wrong CRC-32 in the archive's directory, which is told.
  void expectWrongCrcTold(std::string const& path) {
    std::string const item = "fsroot" + path;
    makeLargeTree();
    reopen([&item](std::vector<unsigned char>& zip) {
      put32(centralField(zip, item, 16), 0x12345678);
    });
    char data[11];
    std::snprintf(data, sizeof data, "0x%08X", opcvk_test::crc32Of(large_.at(path)));
    EXPECT_EQ(sameFailureWithAnyNumberOfThreads(),
              invalidItem(item, std::string("CRC-32 mismatch (the directory gives 0x12345678, "
                                            "the data ") +
                                    data + ")"));
  }

  static std::string invalidItem(std::string const& item, std::string const& problem) {
    return std::string(typeid(opc::model::InvalidPartContent).name()) + ": Invalid ZIP item \"" +
           item + "\": " + problem;
  }

  // Inflated whole, stored and read in one step, inflated as a stream, stored and read in
  // slices: the roads of the reader by size (the smallest is just large enough to go alone).
  std::map<std::string, std::string> const large_{
      {"/big/l1.txt", text(1536 * 1024, "first")},
      {"/big/l2.bin", noise(4200 * 1024, 2)},
      {"/big/l3.txt", text(5 * 1024 * 1024 + 17, "third")},
      {"/big/l4.bin", noise(1024 * 1024, 4)}};
};

TEST_F(SharedExtractionLargeFilesTest, GiveTheTreeOfExtractAllWithAnyNumberOfThreads) {
  makeLargeTree();
  reopen([](std::vector<unsigned char>& zip) {
    // Both roads of the reader are taken: deflated and stored large items.
    EXPECT_EQ(methodOf(zip, "fsroot/big/l1.txt"), 8);
    EXPECT_EQ(methodOf(zip, "fsroot/big/l2.bin"), 0);
    EXPECT_EQ(methodOf(zip, "fsroot/big/l3.txt"), 8);
    EXPECT_EQ(methodOf(zip, "fsroot/big/l4.bin"), 0);
  });
  manager_->extractAll(u16(dest("all")), kRestore, TransformMode::NoTransforms, kNever);
  auto const expected = snapshot(dest("all"));
  for (auto const& [name, content] : large_) {
    ASSERT_EQ(readFile(dest("all") + name), content) << name;
  }
  // Files, the two links, and the folders /a, /big, /big/empty and /c.
  ASSERT_EQ(expected.size(), 100u + 4 + 40 + 100 + 2 + 4);
  for (unsigned threads : {1u, 2u, 3u}) {
    for (int round = 0; round < 2; ++round) {
      std::string const out = dest("shared" + std::to_string(threads) + std::to_string(round));
      extractShared(*manager_, u16(out), threads, kRestore, kNever);
      EXPECT_EQ(snapshot(out), expected) << threads << " threads";
    }
  }
}

TEST_F(SharedExtractionLargeFilesTest, WrongCrcOfAStoredLargeItemIsTold) {
  expectWrongCrcTold("/big/l2.bin");
}

TEST_F(SharedExtractionLargeFilesTest, WrongCrcOfADeflatedLargeItemIsTold) {
  expectWrongCrcTold("/big/l3.txt");
}

TEST_F(SharedExtractionLargeFilesTest, TruncatedLargeItemIsTold) {
  makeLargeTree();
  reopen([](std::vector<unsigned char>& zip) {
    unsigned char* compressedSize = centralField(zip, "fsroot/big/l3.txt", 20);
    put32(compressedSize, get32(compressedSize) / 2);
  });
  EXPECT_EQ(
      sameFailureWithAnyNumberOfThreads(),
      invalidItem("fsroot/big/l3.txt", "its compressed data ends before the deflate stream does"));
}

TEST_F(SharedExtractionLargeFilesTest, LargeFileFailingLateWinsOverSmallFileAfterItFailingFirst) {
  makeLargeTree();
  reopen([](std::vector<unsigned char>& zip) {
    put32(centralField(zip, "fsroot/big/l3.txt", 16), 0x12345678);
  });
  // A small file after the large ones, which another thread takes and fails on at once, while
  // the large file, earlier in path order, fails only at its end.
  std::string const out = dest("out");
  std::string const told = sameFailureWithAnyNumberOfThreads([&] {
    ASSERT_EQ(::mkdir((out + "/big").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((out + "/big/m105").c_str(), 0755), 0);
  });
  EXPECT_NE(told.find("Invalid ZIP item \"fsroot/big/l3.txt\": CRC-32 mismatch"), std::string::npos)
      << told;
}

TEST_F(SharedExtractionLargeFilesTest, SmallFileFailingBeforeTheLargeOnesWins) {
  makeLargeTree();
  reopen([](std::vector<unsigned char>& zip) {
    put32(centralField(zip, "fsroot/big/l3.txt", 16), 0x12345678);
  });
  // Just before the large files in path order, which are handed out ahead of it.
  std::string const out = dest("out");
  std::string const told = sameFailureWithAnyNumberOfThreads([&] {
    ASSERT_EQ(::mkdir((out + "/a").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((out + "/a/s190").c_str(), 0755), 0);
  });
  EXPECT_EQ(told, std::string(typeid(opc::vkservices::CouldNotCreateFile).name()) +
                      ": Could not create or overwrite file: " + out + "/a/s190");
}

}  // namespace
