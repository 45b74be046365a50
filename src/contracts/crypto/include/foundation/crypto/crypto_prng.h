// CryptoPRNG: the library's cryptographic random generator.
#ifndef FOUNDATION_CRYPTO_CRYPTO_PRNG_H_
#define FOUNDATION_CRYPTO_CRYPTO_PRNG_H_

#include <cstddef>
#include <memory>

#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/i_crypto_prng.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

namespace detail {
class Drbg;
}

// Random bytes from OpenSSL's deterministic random bit generators (NIST SP 800-90A
// CTR-DRBG over AES-256), which OpenSSL seeds from the operating system and reseeds on its
// own schedule and after fork.  Two kinds:
//   - the process's generator (default constructor, CryptoEngine::getDefaultCryptoPRNG):
//     OpenSSL's public DRBG, one per thread;
//   - a generator of its own (constructed with a seed, CryptoEngine::createDefaultCryptoPRNG
//     with a seed): a DRBG that draws its entropy from OpenSSL's primary DRBG and takes the
//     seed as personalisation string, so that the seed is mixed into its state but never its
//     only entropy: two generators with the same seed give different bytes.
// Copies share the generator they were made with; a generator of its own is locked, so
// copies may be used from several threads at once, as may the process's.
template <class Algorithm>
class FOUNDATION_CRYPTO_EXPORT CryptoPRNG : public interfaces::ICryptoPRNG {
 public:
  // The process's generator.
  CryptoPRNG();
  // A generator of its own, personalised with `seed` (any length; empty means no seed, and
  // gives the process's generator).  Raises utils::Exception if OpenSSL cannot set it up.
  explicit CryptoPRNG(bytes const& seed);
  CryptoPRNG(CryptoPRNG const& other);
  CryptoPRNG& operator=(CryptoPRNG const& other);
  ~CryptoPRNG() override;

  bytes generateByteArray(std::size_t size) const override;
  // Fills the `size` bytes at `out` with random bytes.  Raises utils::Exception.
  void generate(unsigned char* out, std::size_t size) const;

 private:
  // Null for the process's generator.
  std::shared_ptr<detail::Drbg> drbg_;
};

extern template class CryptoPRNG<utils::DefaultPRNGAlgorithm>;

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_CRYPTO_PRNG_H_
