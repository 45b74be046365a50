// The IV generators: the deterministic sequence's first IVs are test vectors.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <opc/vkservices/errors.h>

#include "encryption/deterministic_iv_generator.h"
#include "encryption/random_iv_generator.h"
#include "support/expect_exception.h"
#include "unit/encryption/encryption_test_support.h"

namespace {

using opc::vkservices::bytes;
using opc::vkservices::DeterministicIVGenerator;
using opc::vkservices::InvalidIVBytesSize;
using opc::vkservices::RandomIVGenerator;
using opcvk_test::fromHex;
using opcvk_test::toHex;

TEST(DeterministicIVGeneratorTest, FirstIVsAreTheFixedPortionAndTheLfsrStates) {
  DeterministicIVGenerator generator(16, fromHex("f0f1f2f3f4f5f6f7"));
  EXPECT_EQ(toHex(generator.generate()), "f0f1f2f3f4f5f6f70100000000000000");
  EXPECT_EQ(toHex(generator.generate()), "f0f1f2f3f4f5f6f700000000000000d8");
  EXPECT_EQ(toHex(generator.generate()), "f0f1f2f3f4f5f6f7000000000000006c");
  EXPECT_EQ(toHex(generator.generate()), "f0f1f2f3f4f5f6f70000000000000036");
  EXPECT_EQ(toHex(generator.generate()), "f0f1f2f3f4f5f6f7000000000000001b");
  EXPECT_EQ(toHex(generator.generate()), "f0f1f2f3f4f5f6f7000000000000800d");
}

// Once the bit fed back reaches the bottom, the feedback comes in again: states 64 to 67.
TEST(DeterministicIVGeneratorTest, FeedbackComesInWheneverTheLowBitIsSet) {
  DeterministicIVGenerator generator(16, bytes(8, 0));
  for (int i = 0; i < 63; ++i) generator.generate();
  EXPECT_EQ(toHex(generator.generate()), "0000000000000000030000000000005a");
  EXPECT_EQ(toHex(generator.generate()), "000000000000000001000000000000f5");
  EXPECT_EQ(toHex(generator.generate()), "000000000000000000000000000080a2");
  EXPECT_EQ(toHex(generator.generate()), "00000000000000000000000000004051");
}

TEST(DeterministicIVGeneratorTest, EveryGeneratorStartsAfresh) {
  DeterministicIVGenerator first(16, fromHex("0102030405060708"));
  DeterministicIVGenerator second(16, fromHex("0102030405060708"));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(first.generate(), second.generate());
}

TEST(DeterministicIVGeneratorTest, OnlyTheFirstEightBytesOfTheFixedPortionCount) {
  DeterministicIVGenerator eight(16, fromHex("a1a2a3a4a5a6a7a8"));
  DeterministicIVGenerator twenty(16, fromHex("a1a2a3a4a5a6a7a8ffffffffffffffffffffffff"));
  for (int i = 0; i < 5; ++i) {
    bytes const iv = twenty.generate();
    EXPECT_EQ(iv.size(), 16U);
    EXPECT_EQ(eight.generate(), iv);
  }
}

TEST(DeterministicIVGeneratorTest, SevenBytesOrNoneAreRefused) {
  EXPECT_THROW_MESSAGE(DeterministicIVGenerator(16, bytes(7, 1)), InvalidIVBytesSize,
                       "IV fixed portion must be at least 8 bytes");
  EXPECT_THROW_MESSAGE(DeterministicIVGenerator(16, bytes()), InvalidIVBytesSize,
                       "IV fixed portion must be at least 8 bytes");
}

// The number in the message is half the IV size; a shorter fixed portion is padded to 8 and
// the IV stays 16 bytes.
TEST(DeterministicIVGeneratorTest, SmallerIVSizeAsksForHalfAndPadsWithZeros) {
  EXPECT_THROW_MESSAGE(DeterministicIVGenerator(8, bytes(3, 1)), InvalidIVBytesSize,
                       "IV fixed portion must be at least 4 bytes");
  DeterministicIVGenerator generator(8, fromHex("01020304"));
  EXPECT_EQ(toHex(generator.generate()), "01020304000000000100000000000000");
}

TEST(RandomIVGeneratorTest, GivesIVsOfTheSizeAskedThatDiffer) {
  RandomIVGenerator generator(16, bytes());
  std::set<bytes> seen;
  for (int i = 0; i < 100; ++i) {
    bytes const iv = generator.generate();
    EXPECT_EQ(iv.size(), 16U);
    seen.insert(iv);
  }
  EXPECT_EQ(seen.size(), 100U);
}

// A seed is mixed in, never the only entropy: the same seed does not give the same IVs.
TEST(RandomIVGeneratorTest, SeedOfAnyLengthFromEightIsTakenAndNeverDecides) {
  for (std::size_t size : {8U, 9U, 16U, 100U, 1000U}) {
    RandomIVGenerator first(16, bytes(size, 7));
    RandomIVGenerator second(16, bytes(size, 7));
    EXPECT_NE(first.generate(), second.generate()) << size;
  }
}

TEST(RandomIVGeneratorTest, ShortSeedIsRefusedButNoneIsAllowed) {
  EXPECT_THROW_MESSAGE(RandomIVGenerator(16, bytes(7, 1)), InvalidIVBytesSize,
                       "IV seed must be at least 8 bytes when it is specified");
  EXPECT_THROW_MESSAGE(RandomIVGenerator(16, bytes(1, 1)), InvalidIVBytesSize,
                       "IV seed must be at least 8 bytes when it is specified");
  EXPECT_NO_THROW(RandomIVGenerator(16, bytes()));
}

}  // namespace
