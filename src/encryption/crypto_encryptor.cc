#include "encryption/crypto_encryptor.h"

#include <stdexcept>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/exceptions.h>

namespace opc {
namespace vkservices {

namespace {

constexpr char kAlgorithm[] = "AES256-GCM";

}  // namespace

// The engine is made for this moment only: it keeps nothing but the provider.
CryptoEncryptor::CryptoEncryptor(bytes const& key)
    : provider_(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>()),
      key_(foundation::crypto::CryptoEngine(provider_).createAES256Key(key)) {}

CryptoEncryptor::~CryptoEncryptor() = default;

void CryptoEncryptor::initialize(std::string const& typeAndMode, bytes const& iv) {
  // Exactly the name, case included: a content type written by another hand with another
  // spelling names another algorithm as far as this library knows.
  if (typeAndMode != kAlgorithm) throw std::runtime_error("Unsupported encryption type and mode.");
  foundation::crypto::CryptoEngine const engine(provider_);
  engine_ = std::make_shared<Engine>(
      engine.createAES256Encryptor(key_, iv, foundation::crypto::utils::AESMode::GCM,
                                   foundation::crypto::CryptoEngine::getDefaultAESPaddingMode(),
                                   foundation::crypto::CryptoEngine::getDefaultCryptoPRNG()));
  iv_ = iv;
}

bytes CryptoEncryptor::encrypt(std::uint8_t const* first, std::uint8_t const* last) {
  return engine_->encrypt(bytes(first, last));
}

foundation::crypto::AESGCMStreamEncryptor CryptoEncryptor::beginStream() const {
  if (!engine_) throw foundation::crypto::utils::CouldNotEncrypt("No message has been begun.");
  return foundation::crypto::AESGCMStreamEncryptor(key_, iv_);
}

}  // namespace vkservices
}  // namespace opc
