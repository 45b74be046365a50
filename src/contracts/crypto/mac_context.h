// One HMAC-SHA-256 computation over a MAC of the crypto backend: the code behind every digest
// of the library, at once or in pieces.  Private.
#ifndef FOUNDATION_CRYPTO_MAC_CONTEXT_H_
#define FOUNDATION_CRYPTO_MAC_CONTEXT_H_

#include <cstddef>
#include <memory>

#include <foundation/crypto/secure_bytes.h>

#include "crypto_backend.h"

namespace foundation {
namespace crypto {
namespace detail {

constexpr std::size_t kHmacSha256Size = 32;

// Failures raise utils::Exception with OpenSSL's reasons, or with the loader's if the crypto
// backend cannot be loaded.
class MacContext {
 public:
  // Keyed with the `keySize` bytes at `key` (any length, 0 included).
  MacContext(unsigned char const* key, std::size_t keySize);
  // A copy of the state of `other`, data fed so far included.
  MacContext(MacContext const& other);
  MacContext& operator=(MacContext const&) = delete;

  void update(unsigned char const* data, std::size_t size);
  // The digest of everything fed; the context cannot be fed again afterwards.
  bytes finish();

 private:
  std::unique_ptr<BackendMac> mac_;
};

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_MAC_CONTEXT_H_
