#include "encryption/crypto_decryptor.h"

#include <stdexcept>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/exceptions.h>

namespace opc {
namespace vkservices {

namespace {

constexpr char kAlgorithm[] = "AES256-GCM";

}  // namespace

CryptoDecryptor::CryptoDecryptor(bytes const& key)
    : provider_(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>()),
      key_(foundation::crypto::CryptoEngine(provider_).createAES256Key(key)) {}

CryptoDecryptor::~CryptoDecryptor() = default;

void CryptoDecryptor::initialize(std::string const& typeAndMode, bytes const& iv) {
  // The name comes from a part's content type, which anyone may have written: only the
  // exact name of the one algorithm is taken.
  if (typeAndMode != kAlgorithm) throw std::runtime_error("Unsupported decryption type and mode.");
  foundation::crypto::CryptoEngine const engine(provider_);
  engine_ = std::make_shared<Engine>(
      engine.createAES256Decryptor(key_, iv, foundation::crypto::utils::AESMode::GCM,
                                   foundation::crypto::CryptoEngine::getDefaultAESPaddingMode(),
                                   foundation::crypto::CryptoEngine::getDefaultCryptoPRNG()));
  iv_ = iv;
}

bytes CryptoDecryptor::decrypt(std::uint8_t const* first, std::uint8_t const* last) {
  return engine_->decrypt(bytes(first, last));
}

foundation::crypto::AESGCMStreamDecryptor CryptoDecryptor::beginStream() const {
  if (!engine_) throw foundation::crypto::utils::CouldNotDecrypt("No message has been begun.");
  return foundation::crypto::AESGCMStreamDecryptor(key_, iv_);
}

}  // namespace vkservices
}  // namespace opc
