// Keys from passwords: PBKDF2-HMAC-SHA-256 against RFC 7914, section 11, and derivation
// scheme 1 against vectors computed independently by password_vectors.py (Python's hashlib
// and hmac).  Derivations cost real time, so work factors are the least each case needs.
#include <cstdint>
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
using foundation::crypto::SecureBytes;
using foundation::crypto::cryptopp::CryptoProvider;
using foundation::crypto::utils::Exception;
using opcvk_test::fromHex;
using opcvk_test::toHex;

// The inputs of password_vectors.py.
std::u16string const kPassword = u"P\u00e4ssw\u00f6rd \U0001F511";
std::u16string const kPasswordNfd = u"Pa\u0308sswo\u0308rd \U0001F511";
std::u16string const kSalt = u"00112233445566778899aabbccddeeff";
bytes const kIv = fromHex("000102030405060708090a0b0c0d0e0f");
char const kKey100000[] = "c16fcfe36ff1baa81e9e0328d58bf780aee28fe6b9e3bb58a0d67e7d429ded4b";
char const kHash100000[] =
    "01000186a0ce3642680f01b18e9b504c802902661fe10dd74a4d88997480d088c5ed12c7ce";
char const kKey1000[] = "bf0f770211a2c9ff5caf1c367d0f40d95f9f8c8fbde16bc139962bad8ea586c7";
char const kHash1000[] =
    "01000003e868b589010715233cab9439a25e4e877352b2dc184d0b34845be9c35e00d777a3";

CryptoEngine engine() { return CryptoEngine(std::make_shared<CryptoProvider>()); }

std::string keyHex(
    foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>> const& key) {
  return toHex(bytes(key.getKeyBytes().begin(), key.getKeyBytes().end()));
}

// A stored hash of scheme 1 with another work factor (its verifier is then wrong, which the
// bound checks must not need to find out).
bytes hashWithWorkFactor(std::uint32_t workFactor) {
  bytes hash = fromHex(kHash1000);
  for (int i = 0; i < 4; ++i) hash[1 + i] = static_cast<unsigned char>(workFactor >> (24 - 8 * i));
  return hash;
}

TEST(Pbkdf2Test, MatchesRfc7914) {
  CryptoProvider const provider;
  EXPECT_EQ(toHex(provider.deriveKeyUsingPBKDF2("passwd", "salt", 1, 64)),
            "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc49ca9cccf179b64599"
            "1664b39d77ef317c71b845b1e30bd509112041d3a19783");
  EXPECT_EQ(toHex(provider.deriveKeyUsingPBKDF2("Password", "NaCl", 80000, 64)),
            "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56a1d425a1225833549a"
            "db841b51c9b3176a272bdebba1d078478f62b397f33c8d");
}

TEST(Pbkdf2Test, TheSecureFormGivesTheSameBytes) {
  CryptoProvider const provider;
  SecureBytes const key = provider.deriveKeyUsingPBKDF2(SecureBytes{'p', 'a', 's', 's', 'w', 'd'},
                                                        opcvk_test::bytesOf("salt"), 1, 64);
  EXPECT_EQ(toHex(bytes(key.begin(), key.end())).substr(0, 16), "55ac046e56e3089f");
  EXPECT_EQ(provider.deriveKeyUsingPBKDF2("", "", 1, 32).size(), 32u);
}

TEST(Pbkdf2Test, RefusesNoIterationsOrNoOutput) {
  CryptoProvider const provider;
  EXPECT_THROW_MESSAGE(provider.deriveKeyUsingPBKDF2("p", "s", 0, 32), Exception,
                       "PBKDF2 needs at least 1 iteration; 0 were asked for.");
  EXPECT_THROW_MESSAGE(provider.deriveKeyUsingPBKDF2("p", "s", 1, -1), Exception,
                       "PBKDF2 needs a key length of at least 1 byte; -1 were asked for.");
}

TEST(PasswordDerivationTest, EncryptionMatchesTheIndependentVector) {
  auto const result = engine().getEncryptionKeyFromPassword(kPassword, kSalt, kIv, 100000, 1);
  EXPECT_EQ(keyHex(result.getKey()), kKey100000);
  EXPECT_EQ(toHex(result.getHash()), kHash100000);
}

TEST(PasswordDerivationTest, AnNfdPasswordGivesTheKeyOfItsNfcForm) {
  ASSERT_NE(kPassword, kPasswordNfd);
  auto const key =
      engine().getDecryptionKeyFromPassword(kPasswordNfd, kSalt, fromHex(kHash1000), kIv, 0, 0);
  EXPECT_EQ(keyHex(key), kKey1000);
  EXPECT_EQ(keyHex(engine().getDecryptionKeyFromPassword(kPassword, kSalt, fromHex(kHash1000), kIv,
                                                         0, 1)),
            kKey1000);
}

TEST(PasswordDerivationTest, DecryptionGivesBackTheEncryptionKey) {
  CryptoEngine const crypto = engine();
  auto const made = crypto.getEncryptionKeyFromPassword(u"correct horse", kSalt, kIv, 100000, 1);
  auto const found =
      crypto.getDecryptionKeyFromPassword(u"correct horse", kSalt, made.getHash(), kIv, 100000, 1);
  EXPECT_EQ(found.getKeyBytes(), made.getKey().getKeyBytes());
}

TEST(PasswordDerivationTest, AWrongPasswordSaltOrIvIsToldAsAWrongPasswordOnly) {
  CryptoEngine const crypto = engine();
  bytes const hash = fromHex(kHash1000);
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(u"P\u00e4ssw\u00f6rd", kSalt, hash, kIv, 0, 0), Exception,
      "Wrong password.");
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(u"p\u00e4ssw\u00f6rd \U0001F511", kSalt, hash, kIv, 0, 0),
      Exception, "Wrong password.");
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(
                           kPassword, u"00112233445566778899aabbccddeefe", hash, kIv, 0, 0),
                       Exception, "Wrong password.");
  bytes otherIv = kIv;
  otherIv[15] ^= 1;
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(kPassword, kSalt, hash, otherIv, 0, 0),
                       Exception, "Wrong password.");
  bytes alteredVerifier = hash;
  alteredVerifier[36] ^= 1;
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(kPassword, kSalt, alteredVerifier, kIv, 0, 0), Exception,
      "Wrong password.");
}

TEST(PasswordDerivationTest, EncryptionRefusesBadArgumentsBeforeAnyWork) {
  CryptoEngine const crypto = engine();
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(kPassword, kSalt, kIv, 600000, 2),
                       Exception,
                       "Key derivation scheme 2 is not known; this build knows scheme 1.");
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(kPassword, kSalt, kIv, 600000, 0),
                       Exception,
                       "Key derivation scheme 0 is not known; this build knows scheme 1.");
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(kPassword, kSalt, kIv, 99999, 1),
                       Exception,
                       "The work factor must be from 100000 to 10000000 iterations; 99999 was "
                       "given.");
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(kPassword, kSalt, kIv, 10000001, 1),
                       Exception,
                       "The work factor must be from 100000 to 10000000 iterations; 10000001 was "
                       "given.");
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(kPassword, kSalt, kIv, -5, 1), Exception,
                       "The work factor must be from 100000 to 10000000 iterations; -5 was "
                       "given.");
  EXPECT_THROW_MESSAGE(
      crypto.getEncryptionKeyFromPassword(kPassword, u"0123456789", bytes(5, 0), 100000, 1),
      Exception, "The salt and IV together must have at least 16 bytes; they have 15.");
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(u"", kSalt, kIv, 100000, 1), Exception,
                       "The password is empty.");
  EXPECT_THROW_MESSAGE(crypto.getEncryptionKeyFromPassword(u"ab\xD800"
                                                           "c",
                                                           kSalt, kIv, 100000, 1),
                       Exception,
                       "The password is not valid text. Text with an unpaired surrogate has no "
                       "normal form.");
}

TEST(PasswordDerivationTest, TheCapItselfPassesTheBoundCheck) {
  // 100000 itself is accepted (EncryptionMatchesTheIndependentVector).  The cap is too: the
  // password check, which comes after the bounds, is what refuses here, so the ten million
  // iterations are never paid for.
  EXPECT_THROW_MESSAGE(engine().getEncryptionKeyFromPassword(u"", kSalt, kIv, 10000000, 1),
                       Exception, "The password is empty.");
}

TEST(PasswordDerivationTest, DecryptionRefusesAHashOfUnknownForm) {
  CryptoEngine const crypto = engine();
  bytes const hash = fromHex(kHash1000);
  char const kUnknown[] = "The stored password hash is not of a known form.";
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(kPassword, kSalt, bytes{}, kIv, 0, 0),
                       Exception, kUnknown);
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(
                           kPassword, kSalt, bytes(hash.begin(), hash.end() - 1), kIv, 0, 0),
                       Exception, kUnknown);
  bytes longer = hash;
  longer.push_back(0);
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(kPassword, kSalt, longer, kIv, 0, 0),
                       Exception, kUnknown);
  for (char const* scheme : {"00", "02", "ff"}) {
    bytes const other = fromHex(scheme + std::string(kHash1000).substr(2));
    EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(kPassword, kSalt, other, kIv, 0, 0),
                         Exception, kUnknown);
  }
}

TEST(PasswordDerivationTest, DecryptionHonoursTheRequiredScheme) {
  EXPECT_THROW_MESSAGE(
      engine().getDecryptionKeyFromPassword(kPassword, kSalt, fromHex(kHash1000), kIv, 0, 2),
      Exception,
      "The stored password hash uses key derivation scheme 1, not the required "
      "scheme 2.");
}

TEST(PasswordDerivationTest, DecryptionBoundsTheStoredWorkFactorBeforeAnyWork) {
  CryptoEngine const crypto = engine();
  // A crafted hash asking for four billion iterations would take hours: refused at once.
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(
                           kPassword, kSalt, hashWithWorkFactor(0xFFFFFFFF), kIv, 0, 0),
                       Exception,
                       "The stored password hash asks for a work factor of 4294967295 "
                       "iterations, above the ceiling of 10000000 iterations.");
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(
                           kPassword, kSalt, hashWithWorkFactor(10000001), kIv, -1, 0),
                       Exception,
                       "The stored password hash asks for a work factor of 10000001 "
                       "iterations, above the ceiling of 10000000 iterations.");
  EXPECT_THROW_MESSAGE(crypto.getDecryptionKeyFromPassword(
                           kPassword, kSalt, hashWithWorkFactor(600001), kIv, 600000, 0),
                       Exception,
                       "The stored password hash asks for a work factor of 600001 iterations, "
                       "above the ceiling of 600000 iterations.");
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(kPassword, kSalt, hashWithWorkFactor(999), kIv, 0, 0),
      Exception,
      "The stored password hash asks for a work factor of 999 iterations, "
      "below the floor of 1000 iterations.");
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(kPassword, kSalt, hashWithWorkFactor(0), kIv, 0, 0),
      Exception,
      "The stored password hash asks for a work factor of 0 iterations, below "
      "the floor of 1000 iterations.");
  // A ceiling of exactly the stored factor is enough.
  EXPECT_EQ(keyHex(crypto.getDecryptionKeyFromPassword(kPassword, kSalt, fromHex(kHash1000), kIv,
                                                       1000, 1)),
            kKey1000);
}

TEST(PasswordDerivationTest, DecryptionRefusesAnEmptyOrBrokenPassword) {
  CryptoEngine const crypto = engine();
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(u"", kSalt, fromHex(kHash1000), kIv, 0, 0), Exception,
      "The password is empty.");
  EXPECT_THROW_MESSAGE(
      crypto.getDecryptionKeyFromPassword(u"\xDC00", kSalt, fromHex(kHash1000), kIv, 0, 0),
      Exception,
      "The password is not valid text. Text with an unpaired surrogate has no "
      "normal form.");
}

TEST(PasswordDerivationTest, NoMessageHoldsThePasswordOrTheKey) {
  CryptoEngine const crypto = engine();
  std::u16string const password = u"SECRETPASSWORD\xD800";
  try {
    crypto.getDecryptionKeyFromPassword(password, kSalt, fromHex(kHash1000), kIv, 0, 0);
    FAIL() << "an unpaired surrogate was accepted";
  } catch (Exception const& e) {
    EXPECT_EQ(std::string(e.what()).find("SECRET"), std::string::npos) << e.what();
  }
  try {
    crypto.getDecryptionKeyFromPassword(u"SECRETPASSWORD", kSalt, fromHex(kHash1000), kIv, 0, 0);
    FAIL() << "a wrong password was accepted";
  } catch (Exception const& e) {
    EXPECT_FALSE(opcvk_test::mentions(e.what(), fromHex(kKey1000))) << e.what();
    EXPECT_EQ(std::string(e.what()), "Wrong password.");
  }
}

}  // namespace
