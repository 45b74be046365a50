#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>

#include "crypto_test_support.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::CryptoEngine;
using foundation::crypto::cryptopp::CryptoProvider;

CryptoEngine engine() { return CryptoEngine(std::make_shared<CryptoProvider>()); }

// Random bytes are not all equal; a run of 32 equal bytes from a working generator has a
// chance of 2^-248.
bool looksRandom(bytes const& data) {
  return std::set<unsigned char>(data.begin(), data.end()).size() > 1;
}

TEST(CryptoPrngTest, GivesAsManyBytesAsAskedFor) {
  for (std::size_t size : {0u, 1u, 16u, 1000u, 65536u, 65537u, 300000u}) {
    EXPECT_EQ(CryptoEngine::getDefaultCryptoPRNG().generateByteArray(size).size(), size);
    EXPECT_EQ(engine().createDefaultCryptoPRNG(bytes(8, 1)).generateByteArray(size).size(), size);
  }
}

TEST(CryptoPrngTest, TwoDrawsDiffer) {
  auto const shared = CryptoEngine::getDefaultCryptoPRNG();
  bytes const first = shared.generateByteArray(32);
  EXPECT_TRUE(looksRandom(first));
  EXPECT_NE(shared.generateByteArray(32), first);
  auto const own = engine().createDefaultCryptoPRNG(bytes(16, 9));
  bytes const ownFirst = own.generateByteArray(32);
  EXPECT_TRUE(looksRandom(ownFirst));
  EXPECT_NE(own.generateByteArray(32), ownFirst);
}

TEST(CryptoPrngTest, TheSeedIsNeverTheOnlyEntropy) {
  bytes const seed = opcvk_test::fromHex("00112233445566778899aabbccddeeff");
  auto const a = engine().createDefaultCryptoPRNG(seed);
  auto const b = engine().createDefaultCryptoPRNG(seed);
  EXPECT_NE(a.generateByteArray(32), b.generateByteArray(32));
  auto const c = engine().createDefaultCryptoPRNG(bytes{1, 2, 3, 4, 5, 6, 7, 8});
  EXPECT_NE(c.generateByteArray(32), a.generateByteArray(32));
}

TEST(CryptoPrngTest, AnEmptySeedGivesAWorkingGenerator) {
  auto const generator = engine().createDefaultCryptoPRNG(bytes{});
  bytes const first = generator.generateByteArray(16);
  EXPECT_TRUE(looksRandom(first));
  EXPECT_NE(generator.generateByteArray(16), first);
}

TEST(CryptoPrngTest, CopiesShareTheGeneratorAcrossThreads) {
  auto const generator = engine().createDefaultCryptoPRNG(bytes(32, 0x77));
  std::vector<bytes> draws(4);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < draws.size(); ++i) {
    threads.emplace_back([copy = generator, &draws, i] {
      for (int round = 0; round < 50; ++round) draws[i] = copy.generateByteArray(64);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<bytes>(draws.begin(), draws.end()).size(), draws.size());
}

TEST(CryptoPrngTest, FillsABuffer) {
  unsigned char buffer[48] = {};
  CryptoEngine::getDefaultCryptoPRNG().generate(buffer, sizeof buffer);
  EXPECT_TRUE(looksRandom(bytes(buffer, buffer + sizeof buffer)));
}

}  // namespace
