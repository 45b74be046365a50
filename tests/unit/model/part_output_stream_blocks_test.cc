// Content of more than a MiB is held in blocks while its stream is open: it reads back exactly,
// whether it stays in memory, crosses the package's memory budget or the spool threshold, and
// its memory is counted and given back as for small content.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>

#include "package/package_state.h"
#include "package/part_streams.h"
#include "package/shared_spool.h"
#include "support/temp_dir.h"

namespace opc {
namespace model {
namespace detail {
namespace {

using interfaces::CompressionType;

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
constexpr std::uint64_t kThreshold = 8 * kMiB;
// Not a divisor of a block: writes straddle the blocks' ends.
constexpr std::size_t kPiece = 100003;

// Bytes that differ from seed to seed and from place to place.
std::vector<unsigned char> contentOf(std::size_t seed, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  std::minstd_rand generator(static_cast<std::minstd_rand::result_type>(seed + 1));
  std::generate(bytes.begin(), bytes.end(),
                [&generator] { return static_cast<unsigned char>(generator() >> 7); });
  return bytes;
}

std::vector<unsigned char> readAll(PartContent const& content, std::size_t chunk) {
  std::vector<unsigned char> bytes;
  std::unique_ptr<ContentReader> reader = content.openReader();
  std::vector<unsigned char> buffer(chunk);
  while (std::size_t const n = reader->read(buffer.data(), buffer.size())) {
    bytes.insert(bytes.end(), buffer.data(), buffer.data() + n);
  }
  EXPECT_TRUE(reader->isDone());
  return bytes;
}

std::shared_ptr<PartRecord> newRecord() {
  return std::make_shared<PartRecord>(PartName(u"/large.bin"),
                                      ContentType(u"application/octet-stream"),
                                      CompressionType::DeflateContent);
}

void writeInPieces(PartOutputStream& out, std::vector<unsigned char> const& bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
    out.write(bytes.data() + at, std::min(kPiece, bytes.size() - at));
  }
}

class PartOutputStreamBlocksTest : public ::testing::Test {
 protected:
  opcvk_test::TempDir dir_;
  std::u16string folder() const { return opc::toString(dir_.path()); }
};

TEST_F(PartOutputStreamBlocksTest, LargeContentWithoutBudgetReadsBackExactly) {
  std::vector<unsigned char> const bytes = contentOf(1, 3 * kMiB + 12345);
  auto record = newRecord();
  PartOutputStream out(record, kThreshold, folder());
  writeInPieces(out, bytes);
  out.close();
  ASSERT_TRUE(record->content);
  EXPECT_EQ(record->content->size(), bytes.size());
  EXPECT_EQ(readAll(*record->content, 3000), bytes);
  // A read larger than a block crosses blocks in one call.
  EXPECT_EQ(readAll(*record->content, 2 * kMiB + 7), bytes);
}

TEST_F(PartOutputStreamBlocksTest, ContentOfExactlyOneBlockAndOneByteMoreReadBack) {
  for (std::size_t const size : {std::size_t{kMiB}, std::size_t{kMiB + 1}, 2 * std::size_t{kMiB}}) {
    std::vector<unsigned char> const bytes = contentOf(size, size);
    auto record = newRecord();
    PartOutputStream out(record, kThreshold, folder());
    writeInPieces(out, bytes);
    out.close();
    ASSERT_TRUE(record->content) << size;
    EXPECT_EQ(record->content->size(), size);
    EXPECT_EQ(readAll(*record->content, 4096), bytes) << size;
  }
}

TEST_F(PartOutputStreamBlocksTest, LargeContentCountsAgainstTheBudgetUntilItGoes) {
  auto spool = std::make_shared<SharedSpool>(64 * kMiB, folder());
  std::vector<unsigned char> const bytes = contentOf(2, 5 * kMiB + 3);
  auto record = newRecord();
  {
    PartOutputStream out(record, kThreshold, folder(), spool);
    writeInPieces(out, bytes);
    EXPECT_EQ(spool->reserved(), bytes.size());
    out.close();
  }
  EXPECT_EQ(spool->reserved(), bytes.size());
  EXPECT_EQ(spool->fileSize(), 0u);
  EXPECT_EQ(readAll(*record->content, 3000), bytes);
  record->content.reset();
  EXPECT_EQ(spool->reserved(), 0u);
}

TEST_F(PartOutputStreamBlocksTest, LargeContentPastTheBudgetMovesToTheSharedFileWhole) {
  auto spool = std::make_shared<SharedSpool>(2 * kMiB + 500, folder());
  std::vector<unsigned char> const bytes = contentOf(3, 4 * kMiB + 77);
  auto record = newRecord();
  PartOutputStream out(record, kThreshold, folder(), spool);
  writeInPieces(out, bytes);
  // What the stream held in memory went to the file with the rest.
  EXPECT_EQ(spool->reserved(), 0u);
  out.close();
  EXPECT_EQ(spool->fileSize(), bytes.size());
  EXPECT_EQ(record->content->size(), bytes.size());
  EXPECT_EQ(readAll(*record->content, 3000), bytes);
}

TEST_F(PartOutputStreamBlocksTest, LargeContentPastTheThresholdMovesToItsOwnFileWhole) {
  auto spool = std::make_shared<SharedSpool>(64 * kMiB, folder());
  std::vector<unsigned char> const bytes = contentOf(4, 3 * kMiB + 5);
  auto record = newRecord();
  PartOutputStream out(record, 2 * kMiB + 1, folder(), spool);
  writeInPieces(out, bytes);
  EXPECT_EQ(spool->reserved(), 0u);
  out.close();
  EXPECT_EQ(spool->fileSize(), 0u);
  EXPECT_EQ(record->content->size(), bytes.size());
  EXPECT_EQ(readAll(*record->content, 3000), bytes);
}

TEST_F(PartOutputStreamBlocksTest, LargeStreamDroppedUnclosedGivesItsMemoryBack) {
  auto spool = std::make_shared<SharedSpool>(64 * kMiB, folder());
  auto record = newRecord();
  {
    PartOutputStream out(record, kThreshold, folder(), spool);
    writeInPieces(out, contentOf(5, 3 * kMiB));
    EXPECT_EQ(spool->reserved(), 3 * kMiB);
  }
  EXPECT_EQ(spool->reserved(), 0u);
  EXPECT_FALSE(record->content);
}

}  // namespace
}  // namespace detail
}  // namespace model
}  // namespace opc
