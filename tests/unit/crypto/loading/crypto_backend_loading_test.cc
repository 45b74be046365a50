// The crypto library loads its OpenSSL backend only when an operation needs OpenSSL, gives the
// same answers through it, and tells a failure to load it.  The cases run in the order written
// when the program runs them together: those that must not load it come first.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/aes_gcm_stream_encryptor.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/encoding.h>
#include <foundation/crypto/exceptions.h>

#include "support/expect_exception.h"
#include "support/process_maps.h"
#include "support/temp_dir.h"
#include "unit/crypto/crypto_test_support.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::CryptoEngine;
using foundation::crypto::SecureBytes;
using foundation::crypto::cryptopp::CryptoProvider;
using foundation::crypto::utils::AESMode;
using foundation::crypto::utils::AESPaddingMode;
using opcvk_test::bytesOf;
using opcvk_test::fromHex;
using opcvk_test::isMapped;
using opcvk_test::keyFromHex;
using opcvk_test::rerunWithLibraryCopies;
using opcvk_test::toHex;
using Encryptor = foundation::crypto::AESEncryptor<foundation::crypto::utils::AESKeySize<256>>;
using Decryptor = foundation::crypto::AESDecryptor<foundation::crypto::utils::AESKeySize<256>>;

bool backendLoaded() { return isMapped("libvkflcrypto_openssl") || isMapped("/libcrypto.so"); }

// The child of LoadFailureNamesTheLibraryAndTheLoadersReason, started as this program with
// the variable set, runs before any test: where the backend cannot be found, it asks for
// random bytes and for an encryption, writes each failure's type and message as a line of
// the file that the variable names, and ends.
constexpr char kChildVariable[] = "OPCVK_TEST_CRYPTO_LOAD_FAILURE_OUT";

template <class Action>
void describeFailure(std::ostream& out, Action&& action) {
  try {
    action();
    out << "no failure\n";
  } catch (foundation::crypto::utils::CouldNotEncrypt const& e) {
    out << "CouldNotEncrypt: " << e.what() << "\n";
  } catch (foundation::crypto::utils::Exception const& e) {
    out << "Exception: " << e.what() << "\n";
  }
}

int runAsChild() {
  char const* out = std::getenv(kChildVariable);
  if (out == nullptr) return 0;
  {
    std::ofstream text(out);
    describeFailure(text, [] { CryptoEngine::getDefaultCryptoPRNG().generateByteArray(16); });
    describeFailure(text, [] {
      Encryptor encryptor(keyFromHex(std::string(64, '0')), bytes(12), AESMode::GCM,
                          AESPaddingMode::NoPadding);
      encryptor.encrypt(bytesOf("x"));
    });
  }
  std::_Exit(0);
}

int const kRunAsChild = runAsChild();

TEST(CryptoBackendLoadingTest, ValuesArgumentsAndEncodingsNeedNoBackend) {
  ASSERT_FALSE(backendLoaded());
  CryptoEngine const engine(std::make_shared<CryptoProvider>());
  auto const key = engine.createAES256Key(bytes(32, 7));
  // Made, not used: an encryptor checks its arguments and keeps the key.
  Encryptor const encryptor(key, bytes(12), AESMode::GCM, AESPaddingMode::NoPadding);
  EXPECT_THROW(Decryptor(key, bytes(15), AESMode::CBC, AESPaddingMode::PKCS7),
               foundation::crypto::utils::Exception);
  // The process's generator, made and not drawn from; a generator asked for nothing.
  auto const generator = engine.createDefaultCryptoPRNG(bytes());
  EXPECT_TRUE(generator.generateByteArray(0).empty());
  EXPECT_EQ(foundation::crypto::utils::hexEncode(bytes{0xAB, 0x01}), u"ab01");
  EXPECT_EQ(foundation::crypto::utils::base64Decode(u"AQI="), (bytes{1, 2}));
  // The password's checks come before any derivation.
  EXPECT_THROW(engine.getEncryptionKeyFromPassword(u"", u"salt", bytes(16), 100000, 1),
               foundation::crypto::utils::Exception);
  EXPECT_FALSE(backendLoaded());
}

TEST(CryptoBackendLoadingTest, WipingSecretsNeedsNoBackend) {
  ASSERT_FALSE(backendLoaded());
  {
    SecureBytes secret(64, 0x5A);
    secret.resize(1000, 0x5A);  // wiped on the way, and again when it goes
    foundation::crypto::secureWipe(secret.data(), secret.size());
    EXPECT_EQ(secret, SecureBytes(1000, 0));
  }
  EXPECT_FALSE(backendLoaded());
}

TEST(CryptoBackendLoadingTest, LoadFailureNamesTheLibraryAndTheLoadersReason) {
  // libvkflcrypto copied alone (with the library it links) into a folder that the loader
  // searches first: the backend is neither beside it nor anywhere the loader looks.
  opcvk_test::TempDir folder;
  std::filesystem::path const where(folder.path());
  std::string const out = (where / "messages.txt").string();
  ASSERT_EQ("", rerunWithLibraryCopies(where.string(), {"libvkflcrypto.so.", "libvki18n.so."},
                                       kChildVariable, out));
  std::ifstream text(out);
  std::stringstream messages;
  messages << text.rdbuf();
  std::string const reason =
      "The crypto library libvkflcrypto_openssl.so.1 could not be loaded: "
      "libvkflcrypto_openssl.so.1: cannot open shared object file: No such file or directory\n";
  EXPECT_EQ("Exception: " + reason + "CouldNotEncrypt: " + reason, messages.str());
  EXPECT_FALSE(backendLoaded());
}

TEST(CryptoBackendLoadingTest, EncryptionLoadsTheBackendAndGivesTheKnownAnswer) {
  ASSERT_FALSE(backendLoaded());
  // The GCM paper's test case 14: a zero key, IV and block.
  Encryptor encryptor(keyFromHex(std::string(64, '0')), bytes(12), AESMode::GCM,
                      AESPaddingMode::NoPadding);
  EXPECT_EQ(toHex(encryptor.encrypt(bytes(16))),
            "cea7403d4d606b6e074ec5d3baf39d18d0d1c8a799996bf0265b98b5d48ab919");
  EXPECT_TRUE(isMapped("libvkflcrypto_openssl"));
  EXPECT_TRUE(isMapped("/libcrypto.so"));
}

TEST(CryptoBackendLoadingTest, EveryOperationGivesTheKnownAnswerThroughTheBackend) {
  // SP 800-38A, F.2.5 and F.2.6: CBC-AES256, first block.
  bytes const cbcKey = fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  bytes const iv = fromHex("000102030405060708090a0b0c0d0e0f");
  Encryptor cbc(opcvk_test::keyOf(cbcKey), iv, AESMode::CBC, AESPaddingMode::NoPadding);
  EXPECT_EQ(toHex(cbc.encrypt(fromHex("6bc1bee22e409f96e93d7e117393172a"))),
            "f58c4c04d6e5f1ba779eabfb5f7bfbd6");
  Decryptor cbcBack(opcvk_test::keyOf(cbcKey), iv, AESMode::CBC, AESPaddingMode::NoPadding);
  EXPECT_EQ(toHex(cbcBack.decrypt(fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd6"))),
            "6bc1bee22e409f96e93d7e117393172a");
  // RFC 4231, test case 2.
  CryptoProvider const provider;
  EXPECT_EQ(toHex(provider.createHMACSHA256DigestEngine(bytesOf("Jefe"))
                      .computeDigest(bytesOf("what do ya want for nothing?"))),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  // RFC 7914, section 11: PBKDF2-HMAC-SHA-256.
  EXPECT_EQ(toHex(provider.deriveKeyUsingPBKDF2("passwd", "salt", 1, 64)),
            "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc49ca9cccf179b64599"
            "1664b39d77ef317c71b845b1e30bd509112041d3a19783");
  // Random bytes, from the process's generator and from a seeded one.
  EXPECT_EQ(CryptoEngine::getDefaultCryptoPRNG().generateByteArray(70000).size(), 70000u);
  EXPECT_NE(provider.createDefaultCryptoPRNG(bytesOf("seed")).generateByteArray(32), bytes(32));
}

TEST(CryptoBackendLoadingTest, FailuresStillCarryOpenSslsReasonsAndTheContractsMessages) {
  Decryptor gcm(keyFromHex(std::string(64, '0')), bytes(12), AESMode::GCM,
                AESPaddingMode::NoPadding);
  EXPECT_THROW_MESSAGE(gcm.decrypt(bytes(32)), foundation::crypto::utils::CouldNotDecrypt,
                       "The data does not authenticate under this key and IV: it was altered, or "
                       "the key is wrong.");
  Decryptor cbc(keyFromHex(std::string(64, '0')), bytes(16), AESMode::CBC, AESPaddingMode::PKCS7);
  try {
    cbc.decrypt(bytes(16));
    ADD_FAILURE() << "bad padding was accepted";
  } catch (foundation::crypto::utils::CouldNotDecrypt const& e) {
    EXPECT_EQ(
        std::string(e.what()).rfind("AES-256-CBC decryption failed at the end of the message: "
                                    "error:",
                                    0),
        0u)
        << e.what();
  }
}

}  // namespace
