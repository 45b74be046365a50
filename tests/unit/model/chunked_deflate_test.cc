// Deflating in chunks on several threads: whatever the content, its size, the chunk size,
// the level and the thread count, the joined stream inflates (with zlib, as every reader of
// the archive would) to exactly the content, its CRC-32 is the content's, and cutting costs
// almost nothing in size.  The block walker under it never reads outside what it is given.
#include "zip/chunked_deflate.h"

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>

#include "support/expect_exception.h"
#include "support/zip_builder.h"
#include "zip/deflate_join.h"
#include "zip/zip_archive.h"

namespace {

using opc::model::detail::appendStoredPiece;
using opc::model::detail::ChunkedDeflateResult;
using opc::model::detail::ChunkSource;
using opc::model::detail::DeflateBlockBounds;
using opc::model::detail::deflateInChunks;
using opc::model::detail::findDeflateBlocks;
using opc::model::detail::makeDeflatePiece;

using opc::model::PackageLimits;
using opc::model::detail::ZipArchive;

using Bytes = std::vector<unsigned char>;

Bytes randomBytes(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
  return bytes;
}

Bytes textBytes(std::size_t size, std::uint32_t seed) {
  static char const* const kWords[] = {"the ", "part ", "<w:p>",    "</w:p>\n", "archive ",
                                       "of ",  "a ",    "value=\"", "\"/>",     "relationship "};
  std::mt19937 random(seed);
  Bytes bytes;
  bytes.reserve(size + 16);
  while (bytes.size() < size) {
    char const* word = kWords[random() % 10];
    bytes.insert(bytes.end(), word, word + std::char_traits<char>::length(word));
  }
  bytes.resize(size);
  return bytes;
}

// Runs of one byte among random stretches: long matches, literals and stored blocks mixed.
Bytes mixedBytes(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes;
  while (bytes.size() < size) {
    std::size_t const run = 1 + random() % 70000;
    if (random() % 2 == 0) {
      bytes.insert(bytes.end(), run, static_cast<unsigned char>(random()));
    } else {
      for (std::size_t i = 0; i < run; ++i) bytes.push_back(static_cast<unsigned char>(random()));
    }
  }
  bytes.resize(size);
  return bytes;
}

// Inflates a raw deflate stream the way the archive's readers do: as the data of a deflated
// ZIP item, read through our reader (over zlib), which checks the size and the CRC-32.
Bytes inflateRaw(Bytes const& stream, Bytes const& content) {
  opcvk_test::ZipBuilder builder;
  builder.add("item", std::string(content.begin(), content.end())).data =
      std::string(stream.begin(), stream.end());
  auto archive =
      ZipArchive::open(opc::model::detail::openBufferSource(
                           std::make_shared<std::vector<unsigned char> const>(builder.build())),
                       PackageLimits());
  auto entry = archive->openEntry(archive->entries().at(0));
  Bytes out;
  Bytes buffer(65536);
  while (!entry->isDone()) {
    std::size_t const n = entry->read(buffer.data(), buffer.size());
    out.insert(out.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n));
  }
  DeflateBlockBounds bounds;
  EXPECT_TRUE(findDeflateBlocks(stream.data(), stream.size(), bounds));
  EXPECT_EQ((bounds.end + 7) / 8, stream.size()) << "bytes after the end of the stream";
  return out;
}

// One libdeflate stream of the whole content.
Bytes deflateWhole(Bytes const& content, int level) {
  Bytes stream;
  deflateInChunks(
      [&, done = false](unsigned char* buffer, std::size_t count) mutable -> std::size_t {
        if (done) return 0;
        std::copy_n(content.data(), std::min(count, content.size()), buffer);
        done = true;
        return std::min(count, content.size());
      },
      content.size(), level, 1,
      [&](unsigned char const* data, std::size_t n) {
        stream.insert(stream.end(), data, data + n);
      },
      std::max<std::size_t>(content.size(), 1));
  return stream;
}

ChunkSource sourceOf(Bytes const& bytes, std::size_t step = SIZE_MAX) {
  auto offset = std::make_shared<std::size_t>(0);
  return [&bytes, offset, step](unsigned char* buffer, std::size_t count) {
    std::size_t const n = std::min({count, step, bytes.size() - *offset});
    std::copy_n(bytes.data() + *offset, n, buffer);
    *offset += n;
    return n;
  };
}

struct Deflated {
  Bytes stream;
  ChunkedDeflateResult result;
};

Deflated deflate(Bytes const& content, int level, unsigned threads, std::size_t chunkSize,
                 std::size_t step = SIZE_MAX) {
  Deflated d;
  d.result = deflateInChunks(
      sourceOf(content, step), content.size(), level, threads,
      [&](unsigned char const* data, std::size_t n) {
        d.stream.insert(d.stream.end(), data, data + n);
      },
      chunkSize);
  return d;
}

void expectRoundTrip(Bytes const& content, int level, unsigned threads, std::size_t chunkSize,
                     std::size_t step = SIZE_MAX) {
  Deflated const d = deflate(content, level, threads, chunkSize, step);
  EXPECT_EQ(d.result.compressedSize, d.stream.size());
  EXPECT_EQ(d.result.crc, opcvk_test::crc32Of(std::string(content.begin(), content.end())));
  EXPECT_TRUE(inflateRaw(d.stream, content) == content)
      << "size " << content.size() << ", level " << level << ", threads " << threads << ", chunk "
      << chunkSize;
}

TEST(ChunkedDeflateTest, SizesAroundChunkBoundariesInflateToTheContent) {
  std::size_t const chunk = 4096;
  for (std::size_t size : {std::size_t{0}, std::size_t{1}, chunk - 1, chunk, chunk + 1, 2 * chunk,
                           3 * chunk + 17, 10 * chunk - 1}) {
    for (unsigned threads : {1u, 2u, 3u}) {
      expectRoundTrip(textBytes(size, 1), 6, threads, chunk);
      expectRoundTrip(randomBytes(size, 2), 6, threads, chunk);
    }
  }
}

TEST(ChunkedDeflateTest, FullSizeChunksOfEveryKindInflateToTheContent) {
  std::size_t const chunk = std::size_t{1} << 20;
  expectRoundTrip(textBytes(3 * chunk + 12345, 3), 6, 2, chunk);
  expectRoundTrip(randomBytes(2 * chunk + 1, 4), 6, 2, chunk);
  expectRoundTrip(mixedBytes(4 * chunk, 5), 6, 3, chunk);
  expectRoundTrip(Bytes(3 * chunk, 0), 6, 2, chunk);
}

TEST(ChunkedDeflateTest, SourcesThatGiveFewBytesAtATimeAreGathered) {
  expectRoundTrip(textBytes(50000, 6), 6, 2, 8192, 7);
}

TEST(ChunkedDeflateTest, RandomizedContentSizesChunksLevelsAndThreads) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 120; ++round) {
    std::size_t const size = random() % 200000;
    std::size_t const chunk = 1 + random() % 40000;
    int const level = 1 + static_cast<int>(random() % 12);
    unsigned const threads = 1 + random() % 4;
    std::uint32_t const seed = random();
    Bytes content;
    switch (random() % 3) {
      case 0:
        content = textBytes(size, seed);
        break;
      case 1:
        content = randomBytes(size, seed);
        break;
      default:
        content = mixedBytes(size, seed);
        break;
    }
    expectRoundTrip(content, level, threads, chunk);
    if (HasFailure()) break;
  }
}

TEST(ChunkedDeflateTest, CuttingTextIntoMebibyteChunksCostsLessThanHalfAPercent) {
  Bytes const content = textBytes(std::size_t{8} << 20, 7);
  Bytes const single = deflateWhole(content, 6);
  Deflated const chunked = deflate(content, 6, 2, std::size_t{1} << 20);
  EXPECT_LT(static_cast<double>(chunked.stream.size()), static_cast<double>(single.size()) * 1.005);
}

TEST(ChunkedDeflateTest, ASourceThatEndsEarlyFailsNamingTheSizes) {
  Bytes const content = textBytes(10000, 8);
  for (unsigned threads : {1u, 3u}) {
    EXPECT_THROW_MESSAGE(
        deflateInChunks(
            sourceOf(content), 20000, 6, threads, [](unsigned char const*, std::size_t) {}, 4096),
        opc::Exception, "its content ends after 10000 bytes, before the 20000 declared");
  }
}

TEST(ChunkedDeflateTest, WhatTheSourceOrSinkThrowsComesThroughWithThreadsJoined) {
  Bytes const content = textBytes(100000, 9);
  int calls = 0;
  ChunkSource const failing = [&](unsigned char* buffer, std::size_t count) -> std::size_t {
    if (++calls == 5) throw std::runtime_error("disk gone");
    std::fill_n(buffer, count, 'a');
    return count;
  };
  EXPECT_THROW_MESSAGE(
      deflateInChunks(
          failing, content.size(), 6, 2, [](unsigned char const*, std::size_t) {}, 4096),
      std::runtime_error, "disk gone");
  int pieces = 0;
  EXPECT_THROW_MESSAGE(deflateInChunks(
                           sourceOf(content), content.size(), 6, 3,
                           [&](unsigned char const*, std::size_t) {
                             if (++pieces == 2) throw std::runtime_error("full");
                           },
                           4096),
                       std::runtime_error, "full");
}

TEST(DeflateJoinTest, PiecesOfSeparateStreamsFollowedByAStreamInflateToTheirContents) {
  Bytes joined;
  Bytes expected;
  std::vector<Bytes> const parts = {textBytes(1000, 10), randomBytes(300, 11), Bytes(),
                                    mixedBytes(200000, 12), textBytes(1, 13)};
  for (int level : {1, 6, 12}) {
    joined.clear();
    expected.clear();
    for (std::size_t i = 0; i < parts.size(); ++i) {
      Bytes stream = deflateWhole(parts[i], level);
      ASSERT_GT(stream.size(), 0u);
      if (i + 1 < parts.size()) {
        ASSERT_TRUE(makeDeflatePiece(stream));
      }
      joined.insert(joined.end(), stream.begin(), stream.end());
      expected.insert(expected.end(), parts[i].begin(), parts[i].end());
    }
    EXPECT_TRUE(inflateRaw(joined, expected) == expected) << "level " << level;
  }
}

TEST(DeflateJoinTest, StoredPiecesJoinLikeCompressedOnes) {
  Bytes const first = randomBytes(150000, 14);
  Bytes joined;
  appendStoredPiece(first.data(), first.size(), joined);
  unsigned char const finalEmpty[2] = {0x03, 0x00};
  joined.insert(joined.end(), finalEmpty, finalEmpty + 2);
  EXPECT_TRUE(inflateRaw(joined, first) == first);
}

TEST(DeflateJoinTest, TheEndFoundIsWhereZlibStops) {
  Bytes const content = mixedBytes(300000, 15);
  Bytes const stream = deflateWhole(content, 6);
  DeflateBlockBounds bounds;
  ASSERT_TRUE(findDeflateBlocks(stream.data(), stream.size(), bounds));
  EXPECT_EQ((bounds.end + 7) / 8, stream.size());
  EXPECT_LT(bounds.lastBlockStart, bounds.end);
  EXPECT_NE(stream[bounds.lastBlockStart / 8] & (1u << (bounds.lastBlockStart % 8)), 0u);
}

TEST(DeflateJoinTest, TruncatedOrDamagedStreamsAreRefusedWithoutReadingOutside) {
  Bytes const content = textBytes(100000, 16);
  Bytes const stream = deflateWhole(content, 6);
  DeflateBlockBounds bounds;
  for (std::size_t size = 0; size < stream.size(); size += 1 + size / 3) {
    // An exact copy, so that the sanitizers see any read past its end.
    Bytes const truncated(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(findDeflateBlocks(truncated.data(), truncated.size(), bounds)) << size;
  }
  Bytes unchanged = Bytes{0xFF, 0xFF, 0xFF};
  EXPECT_FALSE(makeDeflatePiece(unchanged));  // reserved block type
  EXPECT_TRUE(unchanged == (Bytes{0xFF, 0xFF, 0xFF}));
  std::mt19937 random(17);
  for (int round = 0; round < 2000; ++round) {
    Bytes noise = randomBytes(random() % 64, random());
    if (round % 2 == 0 && !stream.empty()) {
      noise = stream;
      for (int flips = 0; flips < 4; ++flips)
        noise[random() % noise.size()] ^= 1u << (random() % 8);
    }
    findDeflateBlocks(noise.data(), noise.size(), bounds);  // any answer, but no crash
  }
}

}  // namespace
