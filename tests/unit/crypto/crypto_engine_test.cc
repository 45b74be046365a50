// The engine's own operations and constants, and what its messages never hold.
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/exceptions.h>

#include "crypto_test_support.h"
#include "support/expect_exception.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::CryptoEngine;
using foundation::crypto::cryptopp::CryptoProvider;
using foundation::crypto::utils::AESMode;
using foundation::crypto::utils::AESPaddingMode;
using foundation::crypto::utils::CouldNotDecrypt;
using foundation::crypto::utils::Exception;

CryptoEngine engine() { return CryptoEngine(std::make_shared<CryptoProvider>()); }

TEST(CryptoEngineTest, ConstantsAreThoseOfTheContract) {
  EXPECT_EQ(CryptoEngine::getAESBlockSizeInBytes(), 16u);
  EXPECT_EQ(CryptoEngine::getDefaultAESPaddingMode(), AESPaddingMode::PKCS7);
  EXPECT_EQ(static_cast<int>(AESMode::GCM), 3);
  EXPECT_EQ(static_cast<int>(AESMode::CBC), 1);
  EXPECT_EQ(CryptoEngine::getDefaultPasswordWorkFactor(), 1000000);
  EXPECT_EQ(CryptoEngine::getMinimumPasswordWorkFactor(), 100000);
  EXPECT_EQ(CryptoEngine::getPasswordWorkFactorCap(), 10000000);
  EXPECT_EQ(CryptoEngine::getPasswordDerivationScheme(), 1);
}

TEST(CryptoEngineTest, RefusesANullProvider) {
  EXPECT_THROW_MESSAGE(CryptoEngine(nullptr), Exception,
                       "A crypto engine needs a provider; none was given.");
}

TEST(CryptoEngineTest, MakesA256BitKeyOfExactly32Bytes) {
  bytes const keyBytes =
      opcvk_test::fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  auto const key = engine().createAES256Key(keyBytes);
  EXPECT_EQ(bytes(key.getKeyBytes().begin(), key.getKeyBytes().end()), keyBytes);
  EXPECT_EQ(key.getKeySizeInBits(), 256u);
  for (std::size_t length : {0u, 16u, 31u, 33u, 64u}) {
    EXPECT_THROW_MESSAGE(
        engine().createAES256Key(bytes(length, 0x41)), Exception,
        "An AES-256 key has 32 bytes; the key given has " + std::to_string(length) + " bytes.");
  }
}

TEST(CryptoEngineTest, KeysAreIndependentValues) {
  auto key = engine().createAES256Key(bytes(32, 1));
  auto copy = key;
  key = engine().createAES256Key(bytes(32, 2));
  EXPECT_EQ(copy.getKeyBytes()[0], 1);
  EXPECT_EQ(key.getKeyBytes()[0], 2);
}

TEST(CryptoEngineTest, MakesEncryptorsAndDecryptorsOfBothModes) {
  CryptoEngine const crypto = engine();
  auto const key = crypto.createAES256Key(bytes(32, 0x21));
  auto const generator = CryptoEngine::getDefaultCryptoPRNG();
  bytes const plaintext = opcvk_test::bytesOf("a message of some length");
  for (AESMode mode : {AESMode::GCM, AESMode::CBC}) {
    auto encryptor = crypto.createAES256Encryptor(
        key, bytes(16, 3), mode, CryptoEngine::getDefaultAESPaddingMode(), generator);
    auto decryptor = crypto.createAES256Decryptor(
        key, bytes(16, 3), mode, CryptoEngine::getDefaultAESPaddingMode(), generator);
    bytes const output = encryptor.encrypt(plaintext);
    EXPECT_EQ(output.size(), mode == AESMode::GCM ? plaintext.size() + 16 : 32u);
    EXPECT_EQ(decryptor.decrypt(output), plaintext);
  }
}

// No message of the library may hold key bytes, raw or as hexadecimal: provoke every
// failure that has a key at hand and look.
TEST(CryptoEngineTest, NoMessageHoldsTheKey) {
  CryptoEngine const crypto = engine();
  bytes const keyBytes =
      opcvk_test::fromHex("4b4559214b4559214b4559214b4559214b4559214b4559214b4559214b455921");
  auto const key = crypto.createAES256Key(keyBytes);
  auto const generator = CryptoEngine::getDefaultCryptoPRNG();
  std::vector<std::string> messages;
  auto collect = [&messages](auto&& action) {
    try {
      action();
      messages.push_back("<nothing thrown>");
    } catch (std::exception const& e) {
      messages.push_back(e.what());
    }
  };
  collect([&] { crypto.createAES256Key(bytes(keyBytes.begin(), keyBytes.end() - 1)); });
  collect([&] {
    crypto.createAES256Decryptor(key, bytes(16, 0), AESMode::GCM, AESPaddingMode::PKCS7, generator)
        .decrypt(bytes(40, 0));
  });
  collect([&] {
    crypto.createAES256Decryptor(key, bytes(16, 0), AESMode::CBC, AESPaddingMode::PKCS7, generator)
        .decrypt(bytes(32, 0));
  });
  collect([&] {
    crypto.createAES256Encryptor(key, bytes(3, 0), AESMode::CBC, AESPaddingMode::PKCS7, generator);
  });
  collect([&] {
    crypto
        .createAES256Encryptor(key, bytes(16, 0), AESMode::CBC, AESPaddingMode::NoPadding,
                               generator)
        .encrypt(bytes(5, 0));
  });
  ASSERT_EQ(messages.size(), 5u);
  for (std::string const& message : messages) {
    EXPECT_FALSE(opcvk_test::mentions(message, keyBytes)) << message;
    EXPECT_FALSE(opcvk_test::mentions(message, bytes(keyBytes.begin(), keyBytes.begin() + 4)))
        << message;
  }
  EXPECT_EQ(messages[1],
            "The data does not authenticate under this key and IV: it was altered, or the key "
            "is wrong.");
}

}  // namespace
