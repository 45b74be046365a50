// Part readers that the caller owns: found by name in any ASCII case without keeping anything
// in the package, told apart from names that are no part, and read from several threads at
// once, every byte checked, from a package in a file (read by position) and in memory.
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/part_reader.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using opcvk_test::readAll;

struct Sample {
  std::u16string name;
  std::string bytes;
  CompressionType compression;
};

// Parts of every road of the reader: stored, deflated small enough to inflate whole (below and
// above the reader's buffers), and deflated large enough to stream; each with its own bytes.
std::vector<Sample> samples() {
  std::vector<Sample> result;
  std::size_t const sizes[] = {0, 1, 700, 70'000, 300'000};
  for (std::size_t i = 0; i < 60; ++i) {
    std::size_t const size = sizes[i % 5];
    CompressionType const compression =
        i % 3 == 0 ? CompressionType::Stored : CompressionType::DeflateContent;
    result.push_back({u"/dir" + opcvk_test::u16(std::to_string(i % 7)) + u"/part" +
                          opcvk_test::u16(std::to_string(i)) + u".txt",
                      opcvk_test::numberedLines(size, "part " + std::to_string(i) + " line ",
                                                97 + static_cast<unsigned>(i), "\n"),
                      compression});
  }
  result.push_back({u"/streamed.bin",
                    opcvk_test::numberedLines((std::size_t{4} << 20) + 4097, "s", 100'003, ";"),
                    CompressionType::DeflateContent});
  return result;
}

std::vector<unsigned char> packageOf(std::vector<Sample> const& parts) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  for (Sample const& sample : parts) {
    Part part = package->createPart(PartName(sample.name), ContentType(u"text/plain"),
                                    StandardPartInfo(sample.compression, 0));
    opcvk_test::writeAll(part.getOutputStream(), sample.bytes);
  }
  package->save();
  return package->getBuffer();
}

std::string readWhole(PartReader& reader, std::size_t block) {
  std::string result;
  std::vector<unsigned char> buffer(block);
  reader.open();
  while (!reader.isDone()) {
    std::size_t const n = reader.read(buffer.data(), buffer.size());
    result.append(reinterpret_cast<char const*>(buffer.data()), n);
  }
  reader.close();
  return result;
}

// Every thread reads every part (starting at a different one, with a different block size),
// several rounds, and counts the parts whose bytes differ.
void expectThreadsReadEveryByte(Package const& package, std::vector<Sample> const& parts) {
  constexpr unsigned kThreads = 4;
  std::vector<std::size_t> mismatches(kThreads, 0);
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::size_t const block = std::size_t{1000} << (3 * t);
      for (unsigned round = 0; round < 3; ++round) {
        for (std::size_t k = 0; k < parts.size(); ++k) {
          Sample const& sample = parts[(k + t * 17) % parts.size()];
          std::unique_ptr<PartReader> reader = package.openPartReader(sample.name);
          if (readWhole(*reader, block) != sample.bytes) ++mismatches[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (unsigned t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0u) << "thread " << t;
}

TEST(PackagePartReaderTest, ThreadsReadEveryPartOfAPackageFileAtOnce) {
  std::vector<Sample> const parts = samples();
  opcvk_test::TempDir dir;
  opcvk_test::writeFile(dir / "p.zip", packageOf(parts));
  auto package = Package::open(opcvk_test::u16(dir / "p.zip"), PackageAccess::Read);
  expectThreadsReadEveryByte(*package, parts);
}

TEST(PackagePartReaderTest, ThreadsReadEveryPartOfAPackageInMemoryAtOnce) {
  std::vector<Sample> const parts = samples();
  auto package = Package::openBuffer(packageOf(parts), PackageAccess::Read);
  expectThreadsReadEveryByte(*package, parts);
}

TEST(PackagePartReaderTest, FindsAPartInAnyCaseWithItsTypeAndSize) {
  auto package = Package::openBuffer(
      packageOf({{u"/Docs/Read%20Me.txt", "read me", CompressionType::DeflateContent}}),
      PackageAccess::Read);
  std::unique_ptr<PartReader> reader = package->openPartReader(u"/docs/READ%20ME.TXT");
  EXPECT_EQ(reader->getContentType().toString(), u"text/plain");
  EXPECT_EQ(reader->getSize(), 7u);
  EXPECT_EQ(readAll(*reader), "read me");
  EXPECT_TRUE(reader->isDone());
}

TEST(PackagePartReaderTest, ReadersOfOnePartAreIndependent) {
  auto package = Package::openBuffer(packageOf({{u"/a.txt", "abcdef", CompressionType::Stored}}),
                                     PackageAccess::Read);
  std::unique_ptr<PartReader> first = package->openPartReader(u"/a.txt");
  std::unique_ptr<PartReader> second = package->openPartReader(u"/a.txt");
  unsigned char three[3];
  ASSERT_EQ(first->read(three, 3), 3u);
  EXPECT_EQ(readAll(*second), "abcdef");
  EXPECT_EQ(readAll(*first), "def");
  // The package's own stream is untouched by either.
  EXPECT_EQ(readAll(package->getPart(PartName(u"/a.txt")).getInputStream()), "abcdef");
}

TEST(PackagePartReaderTest, AClosedReaderGivesNothingMore) {
  auto package = Package::openBuffer(
      packageOf({{u"/a.txt", "abcdef", CompressionType::DeflateContent}}), PackageAccess::Read);
  std::unique_ptr<PartReader> reader = package->openPartReader(u"/a.txt");
  reader->close();
  EXPECT_TRUE(reader->isDone());
  unsigned char byte;
  EXPECT_EQ(reader->read(&byte, 1), 0u);
}

TEST(PackagePartReaderTest, TellsAMissingPartAsGetPartDoes) {
  auto package = Package::openBuffer(packageOf({{u"/a.txt", "a", CompressionType::Stored}}),
                                     PackageAccess::Read);
  EXPECT_THROW_MESSAGE(package->openPartReader(u"/b.txt"), PartNotFound,
                       "No part \"/b.txt\" in the package (in memory)");
  EXPECT_THROW_MESSAGE(package->getPart(PartName(u"/b.txt")), PartNotFound,
                       "No part \"/b.txt\" in the package (in memory)");
}

TEST(PackagePartReaderTest, ChecksATextThatNamesNoPart) {
  auto package = Package::openBuffer(packageOf({{u"/a.txt", "a", CompressionType::Stored}}),
                                     PackageAccess::Read);
  std::string expected;
  try {
    PartName const invalid(u"/a.txt/");
  } catch (InvalidPartName const& e) {
    expected = e.what();
  }
  ASSERT_FALSE(expected.empty());
  EXPECT_THROW_MESSAGE(package->openPartReader(u"/a.txt/"), InvalidPartName, expected);
}

TEST(PackagePartReaderTest, ReadsTheCurrentContentOfAPackageOpenForModify) {
  auto package = Package::openBuffer(packageOf({{u"/a.txt", "old", CompressionType::Stored}}),
                                     PackageAccess::Modify);
  opcvk_test::writeAll(package->getPart(PartName(u"/a.txt")).getOutputStream(), "new");
  EXPECT_EQ(readAll(*package->openPartReader(u"/A.TXT")), "new");
}

}  // namespace
}  // namespace model
}  // namespace opc
