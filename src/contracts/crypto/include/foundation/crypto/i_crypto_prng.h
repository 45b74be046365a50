// interfaces::ICryptoPRNG: the interface of cryptographic random generators.
#ifndef FOUNDATION_CRYPTO_I_CRYPTO_PRNG_H_
#define FOUNDATION_CRYPTO_I_CRYPTO_PRNG_H_

#include <cstddef>

#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {
namespace interfaces {

// A source of cryptographically strong random bytes.
class FOUNDATION_CRYPTO_EXPORT ICryptoPRNG {
 public:
  ICryptoPRNG() = default;
  ICryptoPRNG(ICryptoPRNG const&) = default;
  ICryptoPRNG& operator=(ICryptoPRNG const&) = default;
  virtual ~ICryptoPRNG();

  // `size` fresh random bytes (none for 0).  Raises utils::Exception if the generator
  // cannot deliver, which it never papers over with weaker bytes.
  virtual bytes generateByteArray(std::size_t size) const = 0;
};

}  // namespace interfaces
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_I_CRYPTO_PRNG_H_
