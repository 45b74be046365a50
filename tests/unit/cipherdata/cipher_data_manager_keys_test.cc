// Keys from passwords through the manager: what it hands to the crypto library, and that
// every refusal of that library comes out as opc::Exception with its words.
#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/crypto_engine.h>
#include <opc/core/exception.h>
#include <opc/vkservices/cipher_data_manager.h>

#include "support/expect_exception.h"
#include "unit/cipherdata/cipher_data_test_support.h"

namespace opcvk_test {
namespace {

using foundation::crypto::CryptoEngine;

// The least work factor a new key may have: fast enough for tests.
int const kWork = CryptoEngine::getMinimumPasswordWorkFactor();
int const kScheme = CryptoEngine::getPasswordDerivationScheme();

// A stored hash of scheme 1 that asks for `workFactor` iterations.
Bytes hashAsking(std::uint32_t workFactor) {
  Bytes hash(37, 0);
  hash[0] = 1;
  for (int i = 0; i < 4; ++i) hash[1 + i] = static_cast<unsigned char>(workFactor >> (24 - 8 * i));
  return hash;
}

class CipherDataManagerKeysTest : public ::testing::Test {
 protected:
  CipherPackage cipher;
  opc::vkservices::CipherDataManager& manager = *cipher.manager;
  std::u16string const salt = manager.generateRandomSalt();
  Bytes const iv = manager.generateRandomInitVector();
};

TEST_F(CipherDataManagerKeysTest, TheSamePasswordGivesTheSameKeyBackAndTheHashNamesItsWork) {
  auto const made = manager.deriveEncryptionKey(u"correct horse", salt, iv, kWork, kScheme);
  Bytes const& hash = made.getHash();
  ASSERT_EQ(hash.size(), 37u);
  EXPECT_EQ(hash[0], 1);
  EXPECT_EQ((std::uint32_t{hash[1]} << 24 | std::uint32_t{hash[2]} << 16 |
             std::uint32_t{hash[3]} << 8 | hash[4]),
            static_cast<std::uint32_t>(kWork));
  auto const again = manager.deriveDecryptionKey(u"correct horse", salt, hash, iv, 0, 0);
  EXPECT_EQ(again.getKeyBytes(), made.getKey().getKeyBytes());
  EXPECT_EQ(again.getKeyBytes().size(), 32u);
}

TEST_F(CipherDataManagerKeysTest, KeyComesBackFromAnEntryStoredInThePackage) {
  auto const made = manager.deriveEncryptionKey(u"pw", salt, iv, kWork, kScheme);
  manager.addCipherEntry(byType(u"urn:thing"), made.getHash(), salt, iv);
  CipherPackage reader(cipher.save(), opc::model::PackageAccess::Read);
  auto const entry = reader.manager->getCipherEntry(byType(u"urn:thing"));
  auto const key = reader.manager->deriveDecryptionKey(u"pw", entry.getSalt(), entry.getHash(),
                                                       entry.getIV(), 0, 0);
  EXPECT_EQ(key.getKeyBytes(), made.getKey().getKeyBytes());
}

TEST_F(CipherDataManagerKeysTest, WrongPasswordIsAnOpcExceptionSayingSoAndNothingElse) {
  auto const made = manager.deriveEncryptionKey(u"right", salt, iv, kWork, kScheme);
  EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"wrong", salt, made.getHash(), iv, 0, 0),
                       opc::Exception, "Wrong password.");
  // Another salt or IV is another password as far as the hash can tell.
  EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"right", salt + u"0", made.getHash(), iv, 0, 0),
                       opc::Exception, "Wrong password.");
  Bytes otherIV = iv;
  otherIV[0] ^= 1;
  EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"right", salt, made.getHash(), otherIV, 0, 0),
                       opc::Exception, "Wrong password.");
}

TEST_F(CipherDataManagerKeysTest, ComposedAndDecomposedAccentsAreOnePassword) {
  auto const made = manager.deriveEncryptionKey(u"caf\u00e9", salt, iv, kWork, kScheme);
  auto const key = manager.deriveDecryptionKey(u"cafe\u0301", salt, made.getHash(), iv, 0, 0);
  EXPECT_EQ(key.getKeyBytes(), made.getKey().getKeyBytes());
}

TEST_F(CipherDataManagerKeysTest, CraftedHashAskingForHugeWorkIsRefusedBeforeAnyWork) {
  EXPECT_THROW_MESSAGE(
      manager.deriveDecryptionKey(u"pw", salt, hashAsking(0xFFFFFFFFu), iv, 0, 0), opc::Exception,
      "The stored password hash asks for a work factor of 4294967295 iterations, above the "
      "ceiling of 10000000 iterations.");
  EXPECT_THROW_MESSAGE(
      manager.deriveDecryptionKey(u"pw", salt, hashAsking(2000000), iv, 1500000, 0), opc::Exception,
      "The stored password hash asks for a work factor of 2000000 iterations, above the ceiling "
      "of 1500000 iterations.");
  EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"pw", salt, hashAsking(999), iv, 0, 0),
                       opc::Exception,
                       "The stored password hash asks for a work factor of 999 iterations, below "
                       "the floor of 1000 iterations.");
}

TEST_F(CipherDataManagerKeysTest, StoredHashOfAnotherFormOrSchemeIsRefused) {
  Bytes shortHash = hashAsking(100000);
  shortHash.pop_back();
  Bytes otherScheme = hashAsking(100000);
  otherScheme[0] = 2;
  for (Bytes const& hash : {shortHash, otherScheme, Bytes{}}) {
    EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"pw", salt, hash, iv, 0, 0), opc::Exception,
                         "The stored password hash is not of a known form.");
  }
  EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"pw", salt, hashAsking(100000), iv, 0, 7),
                       opc::Exception,
                       "The stored password hash uses key derivation scheme 1, not the required "
                       "scheme 7.");
}

TEST_F(CipherDataManagerKeysTest, RefusalsOfANewKeyComeOutAsOpcException) {
  EXPECT_THROW_MESSAGE(manager.deriveEncryptionKey(u"pw", salt, iv, kWork, 2), opc::Exception,
                       "Key derivation scheme 2 is not known; this build knows scheme 1.");
  EXPECT_THROW_MESSAGE(manager.deriveEncryptionKey(u"pw", salt, iv, 99999, kScheme), opc::Exception,
                       "The work factor must be from 100000 to 10000000 iterations; 99999 was "
                       "given.");
  EXPECT_THROW_MESSAGE(manager.deriveEncryptionKey(u"pw", salt, iv, 10000001, kScheme),
                       opc::Exception,
                       "The work factor must be from 100000 to 10000000 iterations; 10000001 was "
                       "given.");
  EXPECT_THROW_MESSAGE(manager.deriveEncryptionKey(u"", salt, iv, kWork, kScheme), opc::Exception,
                       "The password is empty.");
  EXPECT_THROW_MESSAGE(manager.deriveEncryptionKey(u"pw", u"short", {1, 2}, kWork, kScheme),
                       opc::Exception,
                       "The salt and IV together must have at least 16 bytes; they have 7.");
  EXPECT_THROW_MESSAGE(manager.deriveDecryptionKey(u"", salt, hashAsking(100000), iv, 0, 0),
                       opc::Exception, "The password is empty.");
}

TEST_F(CipherDataManagerKeysTest, KeyOperationsNeitherLoadNorTouchTheTable) {
  CipherPackage broken(packageWithCipherPart(cipherDocument(cipherEntryXml(""))),
                       opc::model::PackageAccess::Read);
  auto const made = broken.manager->deriveEncryptionKey(u"pw", salt, iv, kWork, kScheme);
  EXPECT_NO_THROW(broken.manager->deriveDecryptionKey(u"pw", salt, made.getHash(), iv, 0, 0));
  EXPECT_EQ(broken.manager->generateRandomSalt().size(), 32u);
}

TEST_F(CipherDataManagerKeysTest, SaltsAreNewHexTextsOf32CharactersAndIVsAreNew16Bytes) {
  std::set<std::u16string> salts;
  std::set<Bytes> ivs;
  for (int i = 0; i < 16; ++i) {
    std::u16string const s = manager.generateRandomSalt();
    ASSERT_EQ(s.size(), 32u);
    EXPECT_EQ(s.find_first_not_of(u"0123456789abcdef"), std::u16string::npos);
    salts.insert(s);
    Bytes const v = manager.generateRandomInitVector();
    ASSERT_EQ(v.size(), 16u);
    ivs.insert(v);
  }
  EXPECT_EQ(salts.size(), 16u);
  EXPECT_EQ(ivs.size(), 16u);
}

}  // namespace
}  // namespace opcvk_test
