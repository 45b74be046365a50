#include <cstdint>
#include <string>

#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/exceptions.h>

#include "crypto_backend.h"
#include "openssl_errors.h"

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
  SecureBytes key(static_cast<std::size_t>(keyLength));
  switch (detail::cryptoBackend().pbkdf2("SHA256", password, passwordSize, salt, saltSize,
                                         static_cast<std::uint64_t>(iterations), key.data(),
                                         key.size())) {
    case detail::SetupStep::kNone:
      break;
    case detail::SetupStep::kLoad:
    case detail::SetupStep::kMakeContext:
      throw utils::Exception(detail::withOpenSslErrors("Cannot load PBKDF2"));
    case detail::SetupStep::kSetUp:
    case detail::SetupStep::kSetPadding:
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
