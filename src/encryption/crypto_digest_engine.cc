#include "encryption/crypto_digest_engine.h"

#include <stdexcept>

namespace opc {
namespace vkservices {

namespace {

constexpr char kAlgorithm[] = "HMAC-SHA256";

}  // namespace

// The key is held in a buffer that is wiped when released, not in a plain copy.
CryptoDigestEngine::CryptoDigestEngine(bytes const& key)
    : provider_(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>()),
      key_(key.begin(), key.end()) {}

CryptoDigestEngine::~CryptoDigestEngine() = default;

void CryptoDigestEngine::initialize(std::string const& algorithm) {
  if (algorithm != kAlgorithm) throw std::runtime_error("Unsupported digest algorithm.");
  engine_ = std::make_shared<Engine>(provider_->createHMACSHA256DigestEngine(key_));
}

bytes CryptoDigestEngine::computeDigest(std::uint8_t const* first, std::uint8_t const* last) {
  return engine_->computeDigest(bytes(first, last));
}

}  // namespace vkservices
}  // namespace opc
