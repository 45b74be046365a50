#include "coreproperties/uuid_recipe.h"

#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>

#include "support/expect_exception.h"

namespace {

using opc::vkservices::detail::formatUUID;
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

}  // namespace
