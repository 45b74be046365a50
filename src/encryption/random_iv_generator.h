// RandomIVGenerator: IVs from a cryptographic random generator.
#ifndef SRC_ENCRYPTION_RANDOM_IV_GENERATOR_H_
#define SRC_ENCRYPTION_RANDOM_IV_GENERATOR_H_

#include <cstddef>
#include <memory>

#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/crypto_prng.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>

#include "encryption/iv_generator.h"

namespace opc {
namespace vkservices {

// Each IV is `ivSize` bytes of the crypto library's generator (OpenSSL's DRBG).  A seed is
// mixed into a generator of this object's own, never its only entropy, so that two
// generators with the same seed still give different IVs.
class RandomIVGenerator : public IVGenerator {
 public:
  // An empty `seed` means none.  Raises InvalidIVBytesSize "IV seed must be at least <N>
  // bytes when it is specified", N being ivSize / 2, for a seed that is not empty and
  // shorter; a longer seed is taken whole.
  RandomIVGenerator(std::size_t ivSize, bytes const& seed);
  ~RandomIVGenerator() override;

  bytes generate() override;

 private:
  std::shared_ptr<foundation::crypto::cryptopp::CryptoProvider> provider_;
  foundation::crypto::CryptoPRNG<foundation::crypto::utils::DefaultPRNGAlgorithm> generator_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_RANDOM_IV_GENERATOR_H_
