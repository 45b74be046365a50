#include <utility>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/exceptions.h>

#include "cipher_context.h"

namespace foundation {
namespace crypto {

CryptoEngine::CryptoEngine(std::shared_ptr<interfaces::ICryptoProvider> provider)
    : provider_(std::move(provider)) {
  if (!provider_) throw utils::Exception("A crypto engine needs a provider; none was given.");
}

CryptoEngine::CryptoEngine(CryptoEngine const& other) = default;
CryptoEngine& CryptoEngine::operator=(CryptoEngine const& other) = default;
CryptoEngine::~CryptoEngine() = default;

AESKey<utils::AESKeySize<256>> CryptoEngine::createAES256Key(bytes const& keyBytes) const {
  return provider_->createAES256Key(keyBytes);
}

AESEncryptor<utils::AESKeySize<256>> CryptoEngine::createAES256Encryptor(
    AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
    utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& generator) const {
  return provider_->createAES256Encryptor(key, iv, mode, padding, generator);
}

AESDecryptor<utils::AESKeySize<256>> CryptoEngine::createAES256Decryptor(
    AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
    utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& generator) const {
  return provider_->createAES256Decryptor(key, iv, mode, padding, generator);
}

DigestEngine<utils::HMACSHA256DigestAlgorithm> CryptoEngine::createHMACSHA256DigestEngine(
    bytes const& key) const {
  return provider_->createHMACSHA256DigestEngine(key);
}

CryptoPRNG<utils::DefaultPRNGAlgorithm> CryptoEngine::createDefaultCryptoPRNG(
    bytes const& seed) const {
  return provider_->createDefaultCryptoPRNG(seed);
}

CryptoPRNG<utils::DefaultPRNGAlgorithm> CryptoEngine::getDefaultCryptoPRNG() {
  return CryptoPRNG<utils::DefaultPRNGAlgorithm>();
}

utils::AESPaddingMode CryptoEngine::getDefaultAESPaddingMode() {
  return utils::AESPaddingMode::PKCS7;
}

std::size_t CryptoEngine::getAESBlockSizeInBytes() { return detail::kAesBlockSize; }

std::shared_ptr<interfaces::ICryptoProvider> const& CryptoEngine::getProvider() const noexcept {
  return provider_;
}

}  // namespace crypto
}  // namespace foundation
