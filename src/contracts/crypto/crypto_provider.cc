#include <cstdint>
#include <string>

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/exceptions.h>

#include "openssl_errors.h"
#include "openssl_handles.h"

namespace foundation {
namespace crypto {
namespace cryptopp {
namespace {

// PBKDF2-HMAC-SHA-256 of the given bytes into a wiped buffer: the one road of every
// password derivation.
SecureBytes pbkdf2(unsigned char const* password, std::size_t passwordSize,
                   unsigned char const* salt, std::size_t saltSize, int iterations, int keyLength) {
  if (iterations < 1) {
    throw utils::Exception("PBKDF2 needs at least 1 iteration; " + std::to_string(iterations) +
                           " were asked for.");
  }
  if (keyLength < 1) {
    throw utils::Exception("PBKDF2 needs a key length of at least 1 byte; " +
                           std::to_string(keyLength) + " were asked for.");
  }
  detail::KdfHandle const kdf(EVP_KDF_fetch(nullptr, "PBKDF2", nullptr));
  detail::KdfContextHandle const context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
  if (!context) throw utils::Exception(detail::withOpenSslErrors("Cannot load PBKDF2"));
  // OpenSSL's parameters do not take pointers to const, though these are only read.  An
  // empty buffer is passed as a valid pointer of length 0.
  static unsigned char const kNone = 0;
  auto* const passwordData = const_cast<unsigned char*>(passwordSize == 0 ? &kNone : password);
  auto* const saltData = const_cast<unsigned char*>(saltSize == 0 ? &kNone : salt);
  char digest[] = "SHA256";
  auto rounds = static_cast<std::uint64_t>(iterations);
  // The lower bounds of SP 800-132 (16 bytes of salt, 1,000 rounds) are OpenSSL's to check
  // only in FIPS mode; the bounds of this library are the engine's, and the primitive takes
  // what RFC 8018 allows.
  int noLowerBounds = 1;
  OSSL_PARAM const params[] = {
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, passwordData, passwordSize),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, saltData, saltSize),
      OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &rounds),
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
      OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &noLowerBounds),
      OSSL_PARAM_END};
  SecureBytes key(static_cast<std::size_t>(keyLength));
  if (EVP_KDF_derive(context.get(), key.data(), key.size(), params) != 1) {
    throw utils::Exception(detail::withOpenSslErrors("PBKDF2-HMAC-SHA-256 failed"));
  }
  return key;
}

}  // namespace

CryptoProvider::CryptoProvider() = default;
CryptoProvider::~CryptoProvider() = default;

AESKey<utils::AESKeySize<256>> CryptoProvider::createAES256Key(bytes const& keyBytes) const {
  return AESKey<utils::AESKeySize<256>>(SecureBytes(keyBytes.begin(), keyBytes.end()));
}

AESEncryptor<utils::AESKeySize<256>> CryptoProvider::createAES256Encryptor(
    AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
    utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& /*generator*/) const {
  return AESEncryptor<utils::AESKeySize<256>>(key, iv, mode, padding);
}

AESDecryptor<utils::AESKeySize<256>> CryptoProvider::createAES256Decryptor(
    AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
    utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& /*generator*/) const {
  return AESDecryptor<utils::AESKeySize<256>>(key, iv, mode, padding);
}

DigestEngine<utils::HMACSHA256DigestAlgorithm> CryptoProvider::createHMACSHA256DigestEngine(
    bytes const& key) const {
  return DigestEngine<utils::HMACSHA256DigestAlgorithm>(key.data(), key.size());
}

DigestEngine<utils::HMACSHA256DigestAlgorithm> CryptoProvider::createHMACSHA256DigestEngine(
    SecureBytes const& key) const {
  return DigestEngine<utils::HMACSHA256DigestAlgorithm>(key);
}

CryptoPRNG<utils::DefaultPRNGAlgorithm> CryptoProvider::createDefaultCryptoPRNG(
    bytes const& seed) const {
  return CryptoPRNG<utils::DefaultPRNGAlgorithm>(seed);
}

bytes CryptoProvider::deriveKeyUsingPBKDF2(std::string const& password, std::string const& salt,
                                           int iterations, int keyLength) const {
  SecureBytes const key = pbkdf2(
      reinterpret_cast<unsigned char const*>(password.data()), password.size(),
      reinterpret_cast<unsigned char const*>(salt.data()), salt.size(), iterations, keyLength);
  return bytes(key.begin(), key.end());
}

SecureBytes CryptoProvider::deriveKeyUsingPBKDF2(SecureBytes const& password, bytes const& salt,
                                                 int iterations, int keyLength) const {
  return pbkdf2(password.data(), password.size(), salt.data(), salt.size(), iterations, keyLength);
}

}  // namespace cryptopp
}  // namespace crypto
}  // namespace foundation
