// The incremental AES-256-GCM classes: the same bytes as the whole-message form for any
// cutting of the message, and the same refusals.
#include <cstddef>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/aes_gcm_stream_decryptor.h>
#include <foundation/crypto/aes_gcm_stream_encryptor.h>
#include <foundation/crypto/exceptions.h>

#include "crypto_test_support.h"
#include "support/expect_exception.h"

namespace {

using foundation::crypto::AESGCMStreamDecryptor;
using foundation::crypto::AESGCMStreamEncryptor;
using foundation::crypto::bytes;
using foundation::crypto::utils::AESMode;
using foundation::crypto::utils::AESPaddingMode;
using foundation::crypto::utils::CouldNotDecrypt;
using foundation::crypto::utils::CouldNotEncrypt;
using foundation::crypto::utils::Exception;
using opcvk_test::Key256;
using Encryptor = foundation::crypto::AESEncryptor<foundation::crypto::utils::AESKeySize<256>>;
using Decryptor = foundation::crypto::AESDecryptor<foundation::crypto::utils::AESKeySize<256>>;

constexpr std::size_t kMiB = std::size_t{1} << 20;

bytes randomBytes(std::mt19937& random, std::size_t size) {
  bytes out(size);
  for (unsigned char& byte : out) byte = static_cast<unsigned char>(random());
  return out;
}

Key256 testKey() { return opcvk_test::keyOf(bytes(32, 0x6B)); }
bytes testIv() { return opcvk_test::fromHex("f0e1d2c3b4a5968778695a4b3c2d1e0f"); }

// The message cut into pieces of the given sizes in turn (the last piece takes the rest).
std::vector<std::size_t> cuts(std::size_t total, std::vector<std::size_t> const& pattern) {
  std::vector<std::size_t> pieces;
  std::size_t done = 0;
  for (std::size_t i = 0; done < total; ++i) {
    std::size_t const piece = std::min(pattern[i % pattern.size()], total - done);
    pieces.push_back(piece);
    done += piece;
  }
  return pieces;
}

bytes streamEncrypt(bytes const& plaintext, std::vector<std::size_t> const& pieces) {
  AESGCMStreamEncryptor encryptor(testKey(), testIv());
  bytes out(plaintext.size());
  std::size_t done = 0;
  for (std::size_t piece : pieces) {
    encryptor.update(plaintext.data() + done, piece, out.data() + done);
    done += piece;
  }
  encryptor.update(nullptr, 0, nullptr);
  bytes const tag = encryptor.finish();
  out.insert(out.end(), tag.begin(), tag.end());
  return out;
}

bytes streamDecrypt(bytes const& sealed, std::vector<std::size_t> const& pieces) {
  AESGCMStreamDecryptor decryptor(testKey(), testIv());
  std::size_t const length = sealed.size() - 16;
  bytes out(length);
  std::size_t done = 0;
  for (std::size_t piece : pieces) {
    decryptor.update(sealed.data() + done, piece, out.data() + done);
    done += piece;
  }
  decryptor.finish(bytes(sealed.end() - 16, sealed.end()));
  return out;
}

TEST(AesGcmStreamTest, AnyCuttingGivesTheBytesOfTheWholeMessage) {
  std::mt19937 random(20240611);
  std::vector<std::vector<std::size_t>> const patterns = {
      {1}, {15}, {16}, {17}, {4096}, {kMiB + 1}, {0, 7, 0, 4096, 1, 16}, {3, 17, 15, 1000}};
  for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{15}, std::size_t{16},
                           std::size_t{17}, std::size_t{4096}, kMiB + 1}) {
    bytes const plaintext = randomBytes(random, size);
    Encryptor whole(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
    bytes const expected = whole.encrypt(plaintext);
    for (auto const& pattern : patterns) {
      // Long patterns of tiny pieces over a MiB would make the test slow for nothing.
      if (size > 5000 && pattern.front() < 16) continue;
      std::vector<std::size_t> const pieces = cuts(size, pattern);
      EXPECT_EQ(streamEncrypt(plaintext, pieces), expected) << size << " by " << pattern[0];
      EXPECT_EQ(streamDecrypt(expected, pieces), plaintext) << size << " by " << pattern[0];
    }
    // Random cuttings, empty pieces included.
    for (int round = 0; round < 3; ++round) {
      std::vector<std::size_t> pieces;
      for (std::size_t done = 0; done < size;) {
        std::size_t const piece =
            std::min<std::size_t>(random() % (size < 64 ? 8 : size / 4 + 1), size - done);
        pieces.push_back(piece);
        done += piece;
      }
      EXPECT_EQ(streamEncrypt(plaintext, pieces), expected) << size << " randomly";
      EXPECT_EQ(streamDecrypt(expected, pieces), plaintext) << size << " randomly";
    }
  }
}

TEST(AesGcmStreamTest, WorksInPlace) {
  std::mt19937 random(7);
  bytes const plaintext = randomBytes(random, 1000);
  bytes buffer = plaintext;
  AESGCMStreamEncryptor encryptor(testKey(), testIv());
  encryptor.update(buffer.data(), 300, buffer.data());
  encryptor.update(buffer.data() + 300, 700, buffer.data() + 300);
  bytes const tag = encryptor.finish();
  Encryptor whole(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
  bytes expected = whole.encrypt(plaintext);
  EXPECT_EQ(bytes(expected.end() - 16, expected.end()), tag);
  expected.resize(1000);
  EXPECT_EQ(buffer, expected);
  AESGCMStreamDecryptor decryptor(testKey(), testIv());
  decryptor.update(buffer.data(), buffer.size(), buffer.data());
  decryptor.finish(tag);
  EXPECT_EQ(buffer, plaintext);
}

TEST(AesGcmStreamTest, TheDecryptorRefusesAnAlteredMessageAtFinish) {
  std::mt19937 random(11);
  bytes const plaintext = randomBytes(random, 5000);
  Encryptor whole(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
  bytes const sealed = whole.encrypt(plaintext);
  for (std::size_t position : {std::size_t{0}, std::size_t{2500}, std::size_t{4999},
                               std::size_t{5000}, std::size_t{5015}}) {
    bytes altered = sealed;
    altered[position] ^= 0x80;
    EXPECT_THROW_MESSAGE(streamDecrypt(altered, {1024}), CouldNotDecrypt,
                         "The data does not authenticate under this key and IV: it was "
                         "altered, or the key is wrong.")
        << position;
  }
}

TEST(AesGcmStreamTest, RefusesATagOfTheWrongSize) {
  AESGCMStreamDecryptor decryptor(testKey(), testIv());
  EXPECT_THROW_MESSAGE(decryptor.finish(bytes(12, 0)), CouldNotDecrypt,
                       "An AES-256-GCM authentication tag has 16 bytes; the tag given has 12 "
                       "bytes.");
}

TEST(AesGcmStreamTest, NothingGoesOnAfterTheEnd) {
  AESGCMStreamEncryptor encryptor(testKey(), testIv());
  unsigned char byte = 1;
  encryptor.update(&byte, 1, &byte);
  encryptor.finish();
  EXPECT_THROW_MESSAGE(encryptor.update(&byte, 1, &byte), CouldNotEncrypt,
                       "AES-256-GCM encryption cannot update after the end of the message.");
  EXPECT_THROW_MESSAGE(encryptor.finish(), CouldNotEncrypt,
                       "AES-256-GCM encryption cannot finish after the end of the message.");

  AESGCMStreamDecryptor decryptor(testKey(), testIv());
  EXPECT_THROW(decryptor.finish(bytes(16, 0)), CouldNotDecrypt);
  EXPECT_THROW_MESSAGE(decryptor.update(&byte, 1, &byte), CouldNotDecrypt,
                       "AES-256-GCM decryption cannot update after a failure.");
}

TEST(AesGcmStreamTest, AMovedFromObjectRaisesInsteadOfCrashing) {
  AESGCMStreamEncryptor encryptor(testKey(), testIv());
  AESGCMStreamEncryptor moved = std::move(encryptor);
  EXPECT_THROW_MESSAGE(encryptor.finish(), CouldNotEncrypt,  // NOLINT(bugprone-use-after-move)
                       "The AES-256-GCM encryptor was moved from.");
  EXPECT_EQ(moved.finish().size(), 16u);
}

TEST(AesGcmStreamTest, RefusesABadIv) {
  EXPECT_THROW_MESSAGE(AESGCMStreamEncryptor(testKey(), bytes{}), Exception,
                       "AES-256-GCM needs an IV of 1 to 128 bytes; the IV given has 0 bytes.");
  EXPECT_THROW_MESSAGE(AESGCMStreamDecryptor(testKey(), bytes(200, 0)), Exception,
                       "AES-256-GCM needs an IV of 1 to 128 bytes; the IV given has 200 bytes.");
}

TEST(AesGcmStreamTest, TheStreamFormsMatchTheWholeMessage) {
  std::mt19937 random(3);
  for (std::size_t size : {std::size_t{0}, std::size_t{15}, std::size_t{65536},
                           std::size_t{65536 + 16}, std::size_t{200001}}) {
    bytes const plaintext = randomBytes(random, size);
    Encryptor encryptor(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
    std::istringstream in(std::string(plaintext.begin(), plaintext.end()));
    std::ostringstream out;
    encryptor.encrypt(in, out);
    std::string const sealed = out.str();
    EXPECT_EQ(bytes(sealed.begin(), sealed.end()), encryptor.encrypt(plaintext)) << size;

    Decryptor decryptor(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
    std::istringstream sealedIn(sealed);
    std::ostringstream plainOut;
    decryptor.decrypt(sealedIn, plainOut);
    EXPECT_EQ(plainOut.str(), std::string(plaintext.begin(), plaintext.end())) << size;
  }
}

TEST(AesGcmStreamTest, TheStreamDecryptorRefusesShortOrAlteredInput) {
  Decryptor decryptor(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
  std::istringstream shortIn(std::string(15, 'x'));
  std::ostringstream out;
  EXPECT_THROW_MESSAGE(decryptor.decrypt(shortIn, out), CouldNotDecrypt,
                       "The data ends before its 16-byte authentication tag.");
  Encryptor encryptor(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
  bytes sealed = encryptor.encrypt(bytes(70000, 0x11));
  sealed[69999] ^= 1;
  std::istringstream alteredIn(std::string(sealed.begin(), sealed.end()));
  EXPECT_THROW(decryptor.decrypt(alteredIn, out), CouldNotDecrypt);
}

TEST(AesGcmStreamTest, AFailingOutputStreamIsReported) {
  Encryptor encryptor(testKey(), testIv(), AESMode::GCM, AESPaddingMode::PKCS7);
  std::istringstream in("some plaintext");
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  EXPECT_THROW_MESSAGE(encryptor.encrypt(in, out), CouldNotEncrypt,
                       "Cannot write the ciphertext to its stream.");
}

}  // namespace
