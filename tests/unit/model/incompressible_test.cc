// The guess that a small item would not shrink: random bytes are stored without a deflate,
// and whatever the guess stores, deflate would not have made smaller; text, and random bytes
// that repeat, are left to deflate.
#include "zip/incompressible.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zip/chunked_deflate.h"

namespace {

using opc::model::detail::ChunkSource;
using opc::model::detail::deflateInChunks;
using opc::model::detail::kSmallContentDeflateLevel;
using opc::model::detail::kSmallContentSize;
using opc::model::detail::looksIncompressible;

using Bytes = std::vector<unsigned char>;

Bytes randomBytes(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
  return bytes;
}

Bytes textBytes(std::size_t size, std::uint32_t seed) {
  static char const* const kWords[] = {"the ",    "package ", "holds ", "parts ", "of ",
                                       "files, ", "and ",     "names ", "with ",  "times. "};
  std::mt19937 random(seed);
  Bytes bytes;
  while (bytes.size() < size) {
    std::string const word = kWords[random() % 10];
    bytes.insert(bytes.end(), word.begin(), word.end());
  }
  bytes.resize(size);
  return bytes;
}

bool guess(Bytes const& bytes) { return looksIncompressible(bytes.data(), bytes.size()); }

// What the writers' deflate of a small item makes of `bytes`.
std::uint64_t deflatedSize(Bytes const& bytes) {
  std::size_t used = 0;
  ChunkSource const source = [&](unsigned char* buffer, std::size_t n) {
    n = std::min(n, bytes.size() - used);
    std::copy(bytes.begin() + used, bytes.begin() + used + n, buffer);
    used += n;
    return n;
  };
  return deflateInChunks(source, bytes.size(), kSmallContentDeflateLevel, 1,
                         [](unsigned char const*, std::size_t) {})
      .compressedSize;
}

TEST(IncompressibleTest, RandomBytesLookIncompressible) {
  for (std::size_t size : {256u, 700u, 1024u, 2000u, 4095u, 4096u}) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
      Bytes const bytes = randomBytes(size, seed);
      EXPECT_TRUE(guess(bytes)) << size << " bytes, seed " << seed;
    }
  }
}

TEST(IncompressibleTest, WhatLooksIncompressibleDeflateDoesNotShrink) {
  // Random bytes, random bytes with a stretch of text, text with a stretch of random bytes:
  // whenever the guess says store, deflate would not have saved a byte.
  for (std::size_t size : {64u, 100u, 300u, 1024u, 3000u, 4096u}) {
    for (std::uint32_t seed = 1; seed <= 30; ++seed) {
      Bytes bytes = randomBytes(size, seed);
      Bytes const text = textBytes(size, seed);
      std::size_t const cut = (seed * size) / 31;
      for (int shape = 0; shape < 3; ++shape) {
        if (shape == 1) std::copy(text.begin(), text.begin() + cut / 4, bytes.begin());
        if (shape == 2) std::copy(text.begin(), text.begin() + cut, bytes.begin());
        if (guess(bytes)) {
          EXPECT_GE(deflatedSize(bytes), bytes.size()) << size << " bytes, seed " << seed;
        }
      }
    }
  }
}

TEST(IncompressibleTest, TextDoesNotLookIncompressible) {
  for (std::size_t size : {64u, 1024u, 4096u}) {
    EXPECT_FALSE(guess(textBytes(size, 7))) << size;
    Bytes const text = textBytes(size, 7);
    EXPECT_LT(deflatedSize(text), text.size()) << size;
  }
}

TEST(IncompressibleTest, RandomBytesThatRepeatDoNotLookIncompressible) {
  // Even spread, but the second half repeats the first: back references halve it.
  Bytes half = randomBytes(512, 3);
  Bytes twice = half;
  twice.insert(twice.end(), half.begin(), half.end());
  EXPECT_FALSE(guess(twice));
  EXPECT_LT(deflatedSize(twice), twice.size() * 3 / 4);
  // A shorter stretch repeated several times, not aligned on four bytes.
  Bytes const piece = randomBytes(61, 4);
  Bytes repeated;
  while (repeated.size() < 2000) repeated.insert(repeated.end(), piece.begin(), piece.end());
  EXPECT_FALSE(guess(repeated));
}

TEST(IncompressibleTest, OnlySmallItemsAreGuessed) {
  EXPECT_FALSE(guess(randomBytes(kSmallContentSize + 1, 5)));
  EXPECT_FALSE(guess(randomBytes(63, 5)));
  EXPECT_FALSE(guess(Bytes()));
}

}  // namespace
