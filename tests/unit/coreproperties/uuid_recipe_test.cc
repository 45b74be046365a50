#include "coreproperties/uuid_recipe.h"

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/exceptions.h>
#include <foundation/crypto/i_crypto_prng.h>
#include <opc/core/exception.h>

#include "support/expect_exception.h"

namespace {

using opc::vkservices::detail::formatUUID;
using opc::vkservices::detail::makeRandomUUID;
using opc::vkservices::detail::makeVersion4UUID;
using opc::vkservices::detail::UUIDBytes;
using Bytes = std::vector<unsigned char>;

// Gives the draws in turn.
struct Draws {
  std::vector<Bytes> draws;
  std::size_t next = 0;
  Bytes operator()() { return draws.at(next++); }
};

TEST(UUIDRecipeTest, TakesTheUpperWordOfEachLittleEndianDrawLowestByteFirst) {
  // Each draw's lower four bytes are dropped; bytes 4 to 7 become the next four of the UUID.
  Draws draws{{{0xEE, 0xEE, 0xEE, 0xEE, 0x00, 0x11, 0x22, 0x33},
               {0xEE, 0xEE, 0xEE, 0xEE, 0x44, 0x55, 0x66, 0x77},
               {0xEE, 0xEE, 0xEE, 0xEE, 0x88, 0x99, 0xAA, 0xBB},
               {0xEE, 0xEE, 0xEE, 0xEE, 0xCC, 0xDD, 0xEE, 0xFF}}};
  UUIDBytes const bytes = makeVersion4UUID(std::ref(draws));
  EXPECT_EQ(draws.next, 4u);
  // Byte 6 (0x66) gets version 4: 0x46; byte 8 (0x88) gets the RFC 4122 variant: 0x88.
  EXPECT_EQ(formatUUID(bytes), "00112233-4455-4677-8899-aabbccddeeff");
}

TEST(UUIDRecipeTest, VersionAndVariantBitsAreForced) {
  Draws ones{{Bytes(8, 0xFF), Bytes(8, 0xFF), Bytes(8, 0xFF), Bytes(8, 0xFF)}};
  EXPECT_EQ(formatUUID(makeVersion4UUID(std::ref(ones))), "ffffffff-ffff-4fff-bfff-ffffffffffff");
  Draws zeros{{Bytes(8, 0), Bytes(8, 0), Bytes(8, 0), Bytes(8, 0)}};
  EXPECT_EQ(formatUUID(makeVersion4UUID(std::ref(zeros))), "00000000-0000-4000-8000-000000000000");
}

TEST(UUIDRecipeTest, FormatsSixteenBytesWithoutTouchingThem) {
  EXPECT_EQ(formatUUID(UUIDBytes{}), "00000000-0000-0000-0000-000000000000");
  UUIDBytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 17);
  EXPECT_EQ(formatUUID(bytes), "00112233-4455-6677-8899-aabbccddeeff");
}

TEST(UUIDRecipeTest, RefusesADrawOfAnotherSize) {
  Draws draws{{Bytes(8, 1), Bytes(7, 1)}};
  EXPECT_THROW_MESSAGE(makeVersion4UUID(std::ref(draws)), opc::Exception,
                       "The random generator gave 7 bytes where 8 were asked for");
}

// A generator that gives scripted bytes and notes every size asked for.
class ScriptedGenerator : public foundation::crypto::interfaces::ICryptoPRNG {
 public:
  explicit ScriptedGenerator(std::vector<Bytes> draws) : draws_(std::move(draws)) {}
  foundation::crypto::bytes generateByteArray(std::size_t size) const override {
    sizes.push_back(size);
    if (draws_.empty()) throw foundation::crypto::utils::Exception("generator exhausted");
    Bytes draw = draws_.front();
    draws_.erase(draws_.begin());
    return draw;
  }
  mutable std::vector<std::size_t> sizes;

 private:
  mutable std::vector<Bytes> draws_;
};

TEST(UUIDRecipeTest, RandomUUIDAsksTheGeneratorForEightBytesFourTimes) {
  ScriptedGenerator const generator({{0x10, 0x11, 0x12, 0x13, 0xA0, 0xA1, 0xA2, 0xA3},
                                     {0x14, 0x15, 0x16, 0x17, 0xB4, 0xB5, 0xB6, 0xB7},
                                     {0x18, 0x19, 0x1A, 0x1B, 0xC8, 0xC9, 0xCA, 0xCB},
                                     {0x1C, 0x1D, 0x1E, 0x1F, 0xDC, 0xDD, 0xDE, 0xDF}});
  EXPECT_EQ(makeRandomUUID(generator), "a0a1a2a3-b4b5-46b7-88c9-cacbdcdddedf");
  EXPECT_EQ(generator.sizes, (std::vector<std::size_t>{8, 8, 8, 8}));
}

TEST(UUIDRecipeTest, WhatTheGeneratorRaisesPassesThrough) {
  ScriptedGenerator const generator({Bytes(8, 1), Bytes(8, 2)});
  EXPECT_THROW_MESSAGE(makeRandomUUID(generator), foundation::crypto::utils::Exception,
                       "generator exhausted");
  EXPECT_EQ(generator.sizes, (std::vector<std::size_t>{8, 8, 8}));
}

TEST(UUIDRecipeTest, TheCryptoLibrarysDefaultGeneratorGivesDistinctVersion4UUIDs) {
  foundation::crypto::CryptoEngine const engine(
      std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  auto const generator = engine.createDefaultCryptoPRNG(foundation::crypto::bytes{});
  std::set<std::string> seen;
  for (int i = 0; i < 64; ++i) {
    std::string const uuid = makeRandomUUID(generator);
    ASSERT_EQ(uuid.size(), 36u);
    EXPECT_EQ(uuid[14], '4') << uuid;
    EXPECT_NE(std::string("89ab").find(uuid[19]), std::string::npos) << uuid;
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 64u);
}

}  // namespace
