#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/encoding.h>
#include <foundation/crypto/exceptions.h>

#include "crypto_test_support.h"
#include "support/expect_exception.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::utils::base64Decode;
using foundation::crypto::utils::base64Encode;
using foundation::crypto::utils::Exception;
using foundation::crypto::utils::hexEncode;
using opcvk_test::bytesOf;

TEST(HexEncodeTest, WritesTwoLowerCaseDigitsPerByteHighNibbleFirst) {
  EXPECT_EQ(hexEncode(bytes{}), u"");
  EXPECT_EQ(hexEncode(bytes{0x00}), u"00");
  EXPECT_EQ(hexEncode(bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFF}),
            u"0123456789abcdefff");
  EXPECT_EQ(hexEncode(bytes{0xF0, 0x0F}), u"f00f");
}

TEST(HexEncodeTest, EveryByteValueRoundTrips) {
  bytes all;
  for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
  std::u16string const text = hexEncode(all);
  ASSERT_EQ(text.size(), 512u);
  std::string narrow(text.begin(), text.end());
  EXPECT_EQ(opcvk_test::fromHex(narrow), all);
  EXPECT_EQ(narrow.find_first_not_of("0123456789abcdef"), std::string::npos);
}

// RFC 4648, section 10.
struct Base64Vector {
  char const* data;
  char16_t const* text;
};
Base64Vector const kRfc4648[] = {{"", u""},
                                 {"f", u"Zg=="},
                                 {"fo", u"Zm8="},
                                 {"foo", u"Zm9v"},
                                 {"foob", u"Zm9vYg=="},
                                 {"fooba", u"Zm9vYmE="},
                                 {"foobar", u"Zm9vYmFy"}};

TEST(Base64Test, EncodesTheVectorsOfRfc4648) {
  for (Base64Vector const& vector : kRfc4648) {
    EXPECT_EQ(base64Encode(bytesOf(vector.data)), vector.text) << vector.data;
  }
}

TEST(Base64Test, DecodesTheVectorsOfRfc4648) {
  for (Base64Vector const& vector : kRfc4648) {
    EXPECT_EQ(base64Decode(vector.text), bytesOf(vector.data)) << vector.data;
  }
}

TEST(Base64Test, UsesPlusAndSlashAndRoundTripsEveryByte) {
  EXPECT_EQ(base64Encode(bytes{0xFB, 0xFF, 0xBF}), u"+/+/");
  bytes all;
  for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
  for (std::size_t length = 0; length <= all.size(); length += 37) {
    bytes const data(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(base64Decode(base64Encode(data)), data) << length;
  }
}

TEST(Base64Test, RefusesALengthThatIsNotAMultipleOfFour) {
  EXPECT_THROW_MESSAGE(base64Decode(u"Zg="), Exception,
                       "Invalid base64 text: its length 3 is not a multiple of 4.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm9vY"), Exception,
                       "Invalid base64 text: its length 5 is not a multiple of 4.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Z"), Exception,
                       "Invalid base64 text: its length 1 is not a multiple of 4.");
}

TEST(Base64Test, RefusesCharactersOutsideTheAlphabetWhiteSpaceIncluded) {
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm9v Yg="), Exception,
                       "Invalid base64 text: the character U+0020 at position 4 is not allowed "
                       "there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm9v\nYg=="), Exception,
                       "Invalid base64 text: its length 9 is not a multiple of 4.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm9\nYg=="), Exception,
                       "Invalid base64 text: the character U+000A at position 3 is not allowed "
                       "there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm-v"), Exception,
                       "Invalid base64 text: the character '-' at position 2 is not allowed "
                       "there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm_v"), Exception,
                       "Invalid base64 text: the character '_' at position 2 is not allowed "
                       "there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm9\u00e9"), Exception,
                       "Invalid base64 text: the character U+00E9 at position 3 is not allowed "
                       "there.");
  EXPECT_THROW_MESSAGE(base64Decode(std::u16string(u"Zm9\0", 4)), Exception,
                       "Invalid base64 text: the character U+0000 at position 3 is not allowed "
                       "there.");
}

TEST(Base64Test, RefusesPaddingAnywhereButTheEnd) {
  EXPECT_THROW_MESSAGE(base64Decode(u"Zg==Zm8="), Exception,
                       "Invalid base64 text: padding '=' at position 2 is not allowed there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Z=8="), Exception,
                       "Invalid base64 text: padding '=' at position 1 is not allowed there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Z==="), Exception,
                       "Invalid base64 text: padding '=' at position 1 is not allowed there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"===="), Exception,
                       "Invalid base64 text: padding '=' at position 0 is not allowed there.");
  EXPECT_THROW_MESSAGE(base64Decode(u"Zm=v"), Exception,
                       "Invalid base64 text: padding '=' at position 2 is not allowed there.");
}

TEST(Base64Test, RefusesBitsThatThePaddingLeavesUnused) {
  EXPECT_EQ(base64Decode(u"QQ=="), bytes{'A'});
  EXPECT_THROW_MESSAGE(base64Decode(u"QR=="), Exception,
                       "Invalid base64 text: the bits left over before the padding are not "
                       "zero.");
  EXPECT_EQ(base64Decode(u"QUE="), bytesOf("AA"));
  EXPECT_THROW_MESSAGE(base64Decode(u"QUF="), Exception,
                       "Invalid base64 text: the bits left over before the padding are not "
                       "zero.");
}

TEST(Base64Test, RefusesUnpaddedText) {
  EXPECT_THROW_MESSAGE(base64Decode(u"Zg"), Exception,
                       "Invalid base64 text: its length 2 is not a multiple of 4.");
}

}  // namespace
