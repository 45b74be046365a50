// AES-256-CBC: NIST SP 800-38A F.2.5 and F.2.6 and CAVP CBCMMT256.rsp through the no-padding
// path, and PKCS#7 padding.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/exceptions.h>

#include "crypto_test_support.h"
#include "support/expect_exception.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::utils::AESMode;
using foundation::crypto::utils::AESPaddingMode;
using foundation::crypto::utils::CouldNotDecrypt;
using foundation::crypto::utils::CouldNotEncrypt;
using foundation::crypto::utils::Exception;
using opcvk_test::fromHex;
using opcvk_test::keyFromHex;
using opcvk_test::toHex;
using Encryptor = foundation::crypto::AESEncryptor<foundation::crypto::utils::AESKeySize<256>>;
using Decryptor = foundation::crypto::AESDecryptor<foundation::crypto::utils::AESKeySize<256>>;

struct CbcVector {
  char const* name;
  char const* key;
  char const* iv;
  char const* plaintext;
  char const* ciphertext;
};

CbcVector const kVectors[] = {
    {"SP 800-38A F.2.5/F.2.6", "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "000102030405060708090a0b0c0d0e0f",
     "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e5130c81c46a35ce411e5fbc1191a0a"
     "52eff69f2445df4f9b17ad2b417be66c3710",
     "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d39f23369a9d9bacfa530e2630423"
     "1461b2eb05e2c39be9fcda6c19078c6a9d1b"},
    {"CBCMMT256 encrypt count 0",
     "6ed76d2d97c69fd1339589523931f2a6cff554b15f738f21ec72dd97a7330907",
     "851e8764776e6796aab722dbb644ace8", "6282b8c05c5c1530b97d4816ca434762",
     "6acc04142e100a65f51b97adf5172c41"},
    {"CBCMMT256 encrypt count 2",
     "fe8901fecd3ccd2ec5fdc7c7a0b50519c245b42d611a5ef9e90268d59f3edf33",
     "bd416cb3b9892228d8f1df575692e4d0",
     "8d3aa196ec3d7c9b5bb122e7fe77fb1295a6da75abe5d3a510194d3a8a4157d5c89d40619716619859da3ec9b247"
     "ced9",
     "608e82c7ab04007adb22e389a44797fed7de090c8c03ca8a2c5acd9e84df37fbc58ce8edb293e98f02b640d6d1d7"
     "2464"},
};

Encryptor encryptor(CbcVector const& vector, AESPaddingMode padding) {
  return Encryptor(keyFromHex(vector.key), fromHex(vector.iv), AESMode::CBC, padding);
}

Decryptor decryptor(CbcVector const& vector, AESPaddingMode padding) {
  return Decryptor(keyFromHex(vector.key), fromHex(vector.iv), AESMode::CBC, padding);
}

TEST(AesCbcTest, EncryptsAndDecryptsTheNistVectorsWithoutPadding) {
  for (CbcVector const& vector : kVectors) {
    EXPECT_EQ(
        toHex(encryptor(vector, AESPaddingMode::NoPadding).encrypt(fromHex(vector.plaintext))),
        vector.ciphertext)
        << vector.name;
    EXPECT_EQ(
        toHex(decryptor(vector, AESPaddingMode::NoPadding).decrypt(fromHex(vector.ciphertext))),
        vector.plaintext)
        << vector.name;
  }
}

TEST(AesCbcTest, Pkcs7AddsAWholeBlockToAWholeNumberOfBlocks) {
  CbcVector const& vector = kVectors[0];
  bytes const output = encryptor(vector, AESPaddingMode::PKCS7).encrypt(fromHex(vector.plaintext));
  ASSERT_EQ(output.size(), 80u);
  // The first 64 bytes are the unpadded ciphertext; the last block encrypts sixteen 0x10.
  EXPECT_EQ(toHex(bytes(output.begin(), output.begin() + 64)), vector.ciphertext);
  bytes const withPadding =
      fromHex(std::string(vector.plaintext) + "10101010101010101010101010101010");
  EXPECT_EQ(encryptor(vector, AESPaddingMode::NoPadding).encrypt(withPadding), output);
  EXPECT_EQ(decryptor(vector, AESPaddingMode::PKCS7).decrypt(output), fromHex(vector.plaintext));
}

TEST(AesCbcTest, Pkcs7OfEmptyInputIsOneBlock) {
  CbcVector const& vector = kVectors[0];
  bytes const output = encryptor(vector, AESPaddingMode::PKCS7).encrypt(bytes{});
  EXPECT_EQ(output, encryptor(vector, AESPaddingMode::NoPadding).encrypt(bytes(16, 0x10)));
  EXPECT_EQ(decryptor(vector, AESPaddingMode::PKCS7).decrypt(output), bytes{});
}

TEST(AesCbcTest, Pkcs7RoundTripsEveryLengthAroundABlock) {
  CbcVector const& vector = kVectors[1];
  for (std::size_t length = 0; length <= 48; ++length) {
    bytes const plaintext(length, static_cast<unsigned char>(length));
    bytes const output = encryptor(vector, AESPaddingMode::PKCS7).encrypt(plaintext);
    EXPECT_EQ(output.size(), (length / 16 + 1) * 16) << length;
    EXPECT_EQ(decryptor(vector, AESPaddingMode::PKCS7).decrypt(output), plaintext) << length;
  }
}

TEST(AesCbcTest, BadPaddingIsRefused) {
  CbcVector const& vector = kVectors[1];
  // Blocks whose decryption ends in 0x00, in 0x11 (more than a block) and in 02 03.
  for (char const* last : {"00", "11", "0302"}) {
    bytes block(16, 0x02);
    bytes const tail = fromHex(last);
    std::copy(tail.begin(), tail.end(), block.end() - static_cast<std::ptrdiff_t>(tail.size()));
    bytes const output = encryptor(vector, AESPaddingMode::NoPadding).encrypt(block);
    try {
      decryptor(vector, AESPaddingMode::PKCS7).decrypt(output);
      ADD_FAILURE() << "padding ending in " << last << " was accepted";
    } catch (CouldNotDecrypt const& e) {
      EXPECT_EQ(std::string(e.what()).rfind("AES-256-CBC decryption failed at the end of the "
                                            "message: error:",
                                            0),
                0u)
          << e.what();
    }
  }
}

TEST(AesCbcTest, WithoutPaddingOnlyWholeBlocksAreTaken) {
  CbcVector const& vector = kVectors[1];
  EXPECT_THROW_MESSAGE(encryptor(vector, AESPaddingMode::NoPadding).encrypt(bytes(17, 0)),
                       CouldNotEncrypt,
                       "AES-256-CBC without padding needs a whole number of 16-byte blocks; the "
                       "data has 17 bytes.");
  EXPECT_THROW(decryptor(vector, AESPaddingMode::NoPadding).decrypt(bytes(15, 0)), CouldNotDecrypt);
  EXPECT_THROW(decryptor(vector, AESPaddingMode::PKCS7).decrypt(bytes{}), CouldNotDecrypt);
}

TEST(AesCbcTest, RefusesAnIvThatIsNotSixteenBytes) {
  for (std::size_t length : {0u, 12u, 15u, 17u, 32u}) {
    EXPECT_THROW_MESSAGE(Encryptor(keyFromHex(kVectors[0].key), bytes(length, 1), AESMode::CBC,
                                   AESPaddingMode::PKCS7),
                         Exception,
                         "AES-256-CBC needs an IV of 16 bytes; the IV given has " +
                             std::to_string(length) + " bytes.");
    EXPECT_THROW(Decryptor(keyFromHex(kVectors[0].key), bytes(length, 1), AESMode::CBC,
                           AESPaddingMode::PKCS7),
                 Exception);
  }
}

TEST(AesCbcTest, TheStreamFormsMatchTheWholeMessage) {
  CbcVector const& vector = kVectors[2];
  for (std::size_t length : {0u, 1u, 16u, 65535u, 65536u, 65537u, 140000u}) {
    std::string const plaintext(length, 'p');
    Encryptor sealer = encryptor(vector, AESPaddingMode::PKCS7);
    std::istringstream in(plaintext);
    std::ostringstream out;
    sealer.encrypt(in, out);
    bytes const whole = sealer.encrypt(bytes(plaintext.begin(), plaintext.end()));
    EXPECT_EQ(out.str(), std::string(whole.begin(), whole.end())) << length;
    Decryptor opener = decryptor(vector, AESPaddingMode::PKCS7);
    std::istringstream sealedIn(out.str());
    std::ostringstream plainOut;
    opener.decrypt(sealedIn, plainOut);
    EXPECT_EQ(plainOut.str(), plaintext) << length;
  }
}

}  // namespace
