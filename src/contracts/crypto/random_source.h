// Where every random byte of the library comes from.  Private.
#ifndef FOUNDATION_CRYPTO_RANDOM_SOURCE_H_
#define FOUNDATION_CRYPTO_RANDOM_SOURCE_H_

#include <cstddef>
#include <memory>

#include <foundation/crypto/secure_bytes.h>

#include "crypto_backend.h"

namespace foundation {
namespace crypto {
namespace detail {

// A CTR-DRBG (AES-256) of its own, a child of OpenSSL's primary DRBG: its entropy comes from
// the primary (and through it from the operating system), its personalisation string is
// the caller's seed.  Locked, so that it may be shared between threads.
class Drbg {
 public:
  // Raises utils::Exception if OpenSSL cannot set it up or the crypto backend cannot be
  // loaded.
  explicit Drbg(bytes const& personalisation);
  Drbg(Drbg const&) = delete;
  Drbg& operator=(Drbg const&) = delete;

 private:
  friend void drawRandomBytes(Drbg* drbg, unsigned char* out, std::size_t size);
  std::unique_ptr<BackendRandom> generator_;
};

// Fills the `size` bytes at `out` from `drbg`, or from OpenSSL's public DRBG of this thread
// if `drbg` is null.  The one function in the library that produces random bytes.  Raises
// utils::Exception if the generator fails (it never returns weaker bytes instead), or if the
// crypto backend cannot be loaded.  Nothing is loaded for 0 bytes.
void drawRandomBytes(Drbg* drbg, unsigned char* out, std::size_t size);

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_RANDOM_SOURCE_H_
