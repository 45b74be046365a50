// AESEncryptionTransform and AESDecryptionTransform: AES-256-CBC for callers that keep the IV.
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/exceptions.h>
#include <opc/vkservices/aes_decryption_transform.h>
#include <opc/vkservices/aes_encryption_transform.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "unit/encryption/encryption_test_support.h"

namespace {

using opc::vkservices::AESDecryptionTransform;
using opc::vkservices::AESEncryptionTransform;
using opc::vkservices::bytes;
using opc::vkservices::CouldNotTransformContentData;
using opcvk_test::drain;
using opcvk_test::fromHex;
using opcvk_test::keyA;
using opcvk_test::keyB;
using opcvk_test::memoryRecord;
using opcvk_test::memorySource;

bytes const kIV = fromHex("00112233445566778899aabbccddeeff");

std::string cbcEncrypt(bytes const& key, bytes const& iv, std::string const& plain) {
  foundation::crypto::CryptoEngine const engine(
      std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  auto encryptor = engine.createAES256Encryptor(
      engine.createAES256Key(key), iv, foundation::crypto::utils::AESMode::CBC,
      foundation::crypto::utils::AESPaddingMode::PKCS7,
      foundation::crypto::CryptoEngine::getDefaultCryptoPRNG());
  return opcvk_test::text(encryptor.encrypt(opcvk_test::bytesOf(plain)));
}

TEST(AESTransformsTest, OutputIsTheCbcCiphertextAloneWithPadding) {
  for (std::size_t size : {0U, 1U, 15U, 16U, 17U, 100000U}) {
    std::string const plain = opcvk_test::pattern(size);
    AESEncryptionTransform source(memorySource(memoryRecord(plain, u"a/b")), keyA(), kIV);
    std::string const sealed = drain(source);
    EXPECT_EQ(sealed.size(), (size / 16 + 1) * 16) << size;
    EXPECT_EQ(sealed, cbcEncrypt(keyA(), kIV, plain)) << size;
  }
}

TEST(AESTransformsTest, RoundTripGivesBytesAndTypeBack) {
  std::string const plain = "a caller's content, with its own IV";
  AESEncryptionTransform encrypting(memorySource(memoryRecord(plain, u"text/plain;charset=utf-8")),
                                    keyA());
  EXPECT_EQ(encrypting.getContentType().toString(), u"text/plain;charset=utf-8;encryption=AES");
  std::string const sealed = drain(encrypting);
  AESDecryptionTransform decrypting(
      memorySource(memoryRecord(sealed, encrypting.getContentType().toString())), keyA(),
      encrypting.getInitializationVector());
  EXPECT_EQ(decrypting.getContentType().toString(), u"text/plain;charset=utf-8");
  EXPECT_EQ(drain(decrypting), plain);
}

TEST(AESTransformsTest, GeneratedIVIsNewPerObjectAndStableWithin) {
  AESEncryptionTransform first(memorySource(memoryRecord("x", u"a/b")), keyA());
  AESEncryptionTransform second(memorySource(memoryRecord("x", u"a/b")), keyA());
  bytes const iv = first.getInitializationVector();
  EXPECT_EQ(iv.size(), 16U);
  EXPECT_EQ(first.getInitializationVector(), iv);
  EXPECT_NE(second.getInitializationVector(), iv);
  drain(first);
  EXPECT_EQ(first.getInitializationVector(), iv);
}

TEST(AESTransformsTest, GivenIVIsReturnedUnchanged) {
  AESEncryptionTransform source(memorySource(memoryRecord("x", u"a/b")), keyA(), kIV);
  EXPECT_EQ(source.getInitializationVector(), kIV);
}

// addParameter decides: an existing parameter of that name takes the new value in its place.
TEST(AESTransformsTest, ExistingEncryptionParameterIsReplaced) {
  AESEncryptionTransform source(memorySource(memoryRecord("x", u"a/b;Encryption=other;x=1")),
                                keyA(), kIV);
  EXPECT_EQ(source.getContentType().toString(), u"a/b;encryption=AES;x=1");
}

TEST(AESTransformsTest, DecryptionRemovesOnlyEncryptionWhateverItsValue) {
  AESDecryptionTransform source(memorySource(memoryRecord("", u"a/b;x=1;encryption=zzz;iv=inline")),
                                keyA(), kIV);
  EXPECT_EQ(source.getContentType().toString(), u"a/b;x=1;iv=inline");
}

TEST(AESTransformsTest, BadPaddingFailsWithTheLibraryLine) {
  // Under another key the last block decrypts to bytes that are not PKCS#7 padding.
  std::string const sealed = cbcEncrypt(keyA(), kIV, "sixteen bytes!!!");
  AESDecryptionTransform source(memorySource(memoryRecord(sealed, u"a/b;encryption=AES")), keyB(),
                                kIV);
  testing::internal::CaptureStdout();
  EXPECT_THROW_MESSAGE(source.getInputStream(), CouldNotTransformContentData,
                       "Failure when attempting to transform data for content type:"
                       "a/b;encryption=AES");
  std::string const line = testing::internal::GetCapturedStdout();
  EXPECT_EQ(line.rfind("An error within the decryption library occurred:", 0), 0U) << line;
  EXPECT_EQ(line.back(), '\n');
}

TEST(AESTransformsTest, CiphertextNotInWholeBlocksFails) {
  AESDecryptionTransform source(memorySource(memoryRecord("17 bytes of input", u"a/b")), keyA(),
                                kIV);
  testing::internal::CaptureStdout();
  EXPECT_THROW(source.getInputStream(), CouldNotTransformContentData);
  std::string const line = testing::internal::GetCapturedStdout();
  EXPECT_EQ(line.rfind("An error within the decryption library occurred:", 0), 0U) << line;
}

TEST(AESTransformsTest, KeyOrIVOfAnotherSizeIsRefusedAtConstruction) {
  using foundation::crypto::utils::Exception;
  EXPECT_THROW(AESEncryptionTransform(memorySource(memoryRecord("", u"a/b")), bytes(16, 1), kIV),
               Exception);
  EXPECT_THROW(AESEncryptionTransform(memorySource(memoryRecord("", u"a/b")), keyA(), bytes(15, 1)),
               Exception);
  EXPECT_THROW(AESDecryptionTransform(memorySource(memoryRecord("", u"a/b")), keyA(), bytes()),
               Exception);
  EXPECT_THROW(AESDecryptionTransform(memorySource(memoryRecord("", u"a/b")), bytes(33, 1), kIV),
               Exception);
}

}  // namespace
