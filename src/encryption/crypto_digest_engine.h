// CryptoDigestEngine: IDigestEngine over the crypto library, HMAC-SHA-256 under one key.
#ifndef SRC_ENCRYPTION_CRYPTO_DIGEST_ENGINE_H_
#define SRC_ENCRYPTION_CRYPTO_DIGEST_ENGINE_H_

#include <cstdint>
#include <memory>
#include <string>

#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/secure_bytes.h>
#include <opc/vkservices/i_digest_engine.h>

namespace opc {
namespace vkservices {

// The digest engine that names the parts of an encrypted file system, made by
// FileSystemManager::enableEncryption over the encryption key.  Knows one algorithm,
// "HMAC-SHA256".  Its copy of the key is wiped when it goes.  One thread at a time.
class CryptoDigestEngine : public IDigestEngine {
 public:
  // Copies `key`; nothing is checked (HMAC takes keys of any length).
  explicit CryptoDigestEngine(bytes const& key);
  ~CryptoDigestEngine() override;

  // Raises std::runtime_error "Unsupported digest algorithm." unless `algorithm` is exactly
  // "HMAC-SHA256".
  void initialize(std::string const& algorithm) override;
  // Not guarded against a call before initialize().
  bytes computeDigest(std::uint8_t const* first, std::uint8_t const* last) override;

 private:
  using Engine =
      foundation::crypto::DigestEngine<foundation::crypto::utils::HMACSHA256DigestAlgorithm>;

  std::shared_ptr<foundation::crypto::cryptopp::CryptoProvider> provider_;
  foundation::crypto::SecureBytes key_;
  std::shared_ptr<Engine> engine_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_CRYPTO_DIGEST_ENGINE_H_
