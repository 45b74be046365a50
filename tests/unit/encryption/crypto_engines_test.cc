// CryptoEncryptor, CryptoDecryptor and CryptoDigestEngine: the library's engines by name.
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/exceptions.h>

#include "encryption/crypto_decryptor.h"
#include "encryption/crypto_digest_engine.h"
#include "encryption/crypto_encryptor.h"
#include "support/expect_exception.h"
#include "unit/encryption/encryption_test_support.h"

namespace {

using opc::vkservices::bytes;
using opc::vkservices::CryptoDecryptor;
using opc::vkservices::CryptoDigestEngine;
using opc::vkservices::CryptoEncryptor;
using opcvk_test::bytesOf;
using opcvk_test::fromHex;
using opcvk_test::keyA;
using opcvk_test::keyB;
using opcvk_test::text;

bytes const kIV = fromHex("000102030405060708090a0b0c0d0e0f");
bytes const kOtherIV = fromHex("0f0e0d0c0b0a09080706050403020100");

bytes encryptWith(CryptoEncryptor& encryptor, std::string const& plain) {
  return encryptor.encrypt(reinterpret_cast<std::uint8_t const*>(plain.data()),
                           reinterpret_cast<std::uint8_t const*>(plain.data()) + plain.size());
}

bytes decryptWith(CryptoDecryptor& decryptor, bytes const& sealed) {
  return decryptor.decrypt(sealed.data(), sealed.data() + sealed.size());
}

class UnsupportedNameTest : public ::testing::TestWithParam<std::string> {};

TEST_P(UnsupportedNameTest, EncryptorRefusesWithItsMessage) {
  CryptoEncryptor encryptor(keyA());
  EXPECT_THROW_MESSAGE(encryptor.initialize(GetParam(), kIV), std::runtime_error,
                       "Unsupported encryption type and mode.");
}

TEST_P(UnsupportedNameTest, DecryptorRefusesWithItsMessage) {
  CryptoDecryptor decryptor(keyA());
  EXPECT_THROW_MESSAGE(decryptor.initialize(GetParam(), kIV), std::runtime_error,
                       "Unsupported decryption type and mode.");
}

INSTANTIATE_TEST_SUITE_P(OtherCapitalsSizesAndModes, UnsupportedNameTest,
                         ::testing::Values("aes256-gcm", "AES256-gcm", "Aes256-Gcm", "AES128-GCM",
                                           "AES192-GCM", "AES256-CBC", "AES256-GCM ", " AES256-GCM",
                                           "AES256GCM", "AES-256-GCM", "HMAC-SHA256", ""));

TEST(CryptoEnginesTest, DigestEngineRefusesAnyOtherAlgorithm) {
  for (std::string const name :
       {"hmac-sha256", "HMAC-SHA-256", "HMAC-SHA512", "SHA256", "HMAC-SHA256 ", "AES256-GCM", ""}) {
    CryptoDigestEngine engine(keyA());
    EXPECT_THROW_MESSAGE(engine.initialize(name), std::runtime_error,
                         "Unsupported digest algorithm.")
        << name;
  }
}

TEST(CryptoEnginesTest, EncryptorGivesCiphertextThenTagAsTheCryptoLibraryDoes) {
  CryptoEncryptor encryptor(keyA());
  encryptor.initialize("AES256-GCM", kIV);
  std::string const plain = "the content of a file";
  bytes const sealed = encryptWith(encryptor, plain);
  ASSERT_EQ(sealed.size(), plain.size() + 16);
  EXPECT_EQ(text(kIV) + text(sealed), opcvk_test::inlineIVMessage(keyA(), kIV, plain));
}

TEST(CryptoEnginesTest, EmptyRangeGivesTheTagAlone) {
  CryptoEncryptor encryptor(keyA());
  encryptor.initialize("AES256-GCM", kIV);
  bytes const sealed = encryptor.encrypt(nullptr, nullptr);
  EXPECT_EQ(sealed.size(), 16U);
  CryptoDecryptor decryptor(keyA());
  decryptor.initialize("AES256-GCM", kIV);
  EXPECT_TRUE(decryptWith(decryptor, sealed).empty());
}

TEST(CryptoEnginesTest, DecryptorRoundTripsAndRefusesAnotherKeyOrIV) {
  CryptoEncryptor encryptor(keyA());
  encryptor.initialize("AES256-GCM", kIV);
  bytes const sealed = encryptWith(encryptor, "secret words");

  CryptoDecryptor right(keyA());
  right.initialize("AES256-GCM", kIV);
  EXPECT_EQ(text(decryptWith(right, sealed)), "secret words");

  CryptoDecryptor wrongKey(keyB());
  wrongKey.initialize("AES256-GCM", kIV);
  EXPECT_THROW(decryptWith(wrongKey, sealed), foundation::crypto::utils::CouldNotDecrypt);

  CryptoDecryptor wrongIV(keyA());
  wrongIV.initialize("AES256-GCM", kOtherIV);
  EXPECT_THROW(decryptWith(wrongIV, sealed), foundation::crypto::utils::CouldNotDecrypt);
}

TEST(CryptoEnginesTest, EachInitializeStartsAFreshMessage) {
  CryptoEncryptor encryptor(keyA());
  encryptor.initialize("AES256-GCM", kIV);
  bytes const first = encryptWith(encryptor, "same plaintext");
  // A second message under the same IV is not prevented here: it gives the same bytes.
  EXPECT_EQ(encryptWith(encryptor, "same plaintext"), first);
  encryptor.initialize("AES256-GCM", kOtherIV);
  EXPECT_NE(encryptWith(encryptor, "same plaintext"), first);
  encryptor.initialize("AES256-GCM", kIV);
  EXPECT_EQ(encryptWith(encryptor, "same plaintext"), first);
}

TEST(CryptoEnginesTest, StreamOfTheLastMessageGivesTheSameBytes) {
  CryptoEncryptor encryptor(keyA());
  EXPECT_THROW_MESSAGE(encryptor.beginStream(), foundation::crypto::utils::CouldNotEncrypt,
                       "No message has been begun.");
  encryptor.initialize("AES256-GCM", kIV);
  std::string const plain = opcvk_test::pattern(1000);
  bytes const whole = encryptWith(encryptor, plain);
  auto stream = encryptor.beginStream();
  bytes pieces(plain.begin(), plain.end());
  stream.update(pieces.data(), 333, pieces.data());
  stream.update(pieces.data() + 333, pieces.size() - 333, pieces.data() + 333);
  bytes const tag = stream.finish();
  pieces.insert(pieces.end(), tag.begin(), tag.end());
  EXPECT_EQ(pieces, whole);

  CryptoDecryptor decryptor(keyA());
  EXPECT_THROW_MESSAGE(decryptor.beginStream(), foundation::crypto::utils::CouldNotDecrypt,
                       "No message has been begun.");
  decryptor.initialize("AES256-GCM", kIV);
  auto back = decryptor.beginStream();
  bytes plainBack(whole.begin(), whole.end() - 16);
  back.update(plainBack.data(), plainBack.size(), plainBack.data());
  back.finish(bytes(whole.end() - 16, whole.end()));
  EXPECT_EQ(text(plainBack), plain);
}

TEST(CryptoEnginesTest, KeyOfAnotherLengthIsRefusedByTheCryptoLibrary) {
  EXPECT_THROW(CryptoEncryptor(bytes(31, 1)), foundation::crypto::utils::Exception);
  EXPECT_THROW(CryptoDecryptor(bytes(33, 1)), foundation::crypto::utils::Exception);
  EXPECT_THROW(CryptoEncryptor{bytes{}}, foundation::crypto::utils::Exception);
}

// RFC 4231, test cases 1 and 2.
TEST(CryptoEnginesTest, DigestIsHmacSha256) {
  CryptoDigestEngine first(fromHex("0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b"));
  first.initialize("HMAC-SHA256");
  std::string const hiThere = "Hi There";
  bytes const data = bytesOf(hiThere);
  EXPECT_EQ(opcvk_test::toHex(first.computeDigest(data.data(), data.data() + data.size())),
            "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");

  CryptoDigestEngine second(bytesOf("Jefe"));
  second.initialize("HMAC-SHA256");
  bytes const question = bytesOf("what do ya want for nothing?");
  EXPECT_EQ(
      opcvk_test::toHex(second.computeDigest(question.data(), question.data() + question.size())),
      "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  // Digests do not disturb each other.
  EXPECT_EQ(
      opcvk_test::toHex(second.computeDigest(question.data(), question.data() + question.size())),
      "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

}  // namespace
