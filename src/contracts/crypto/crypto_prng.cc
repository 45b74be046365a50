#include <foundation/crypto/crypto_prng.h>

#include "random_source.h"

namespace foundation {
namespace crypto {

template <class Algorithm>
CryptoPRNG<Algorithm>::CryptoPRNG() = default;

template <class Algorithm>
CryptoPRNG<Algorithm>::CryptoPRNG(bytes const& seed)
    : drbg_(seed.empty() ? nullptr : std::make_shared<detail::Drbg>(seed)) {}

template <class Algorithm>
CryptoPRNG<Algorithm>::CryptoPRNG(CryptoPRNG const& other) = default;
template <class Algorithm>
CryptoPRNG<Algorithm>& CryptoPRNG<Algorithm>::operator=(CryptoPRNG const& other) = default;
template <class Algorithm>
CryptoPRNG<Algorithm>::~CryptoPRNG() = default;

template <class Algorithm>
bytes CryptoPRNG<Algorithm>::generateByteArray(std::size_t size) const {
  bytes out(size);
  generate(out.data(), out.size());
  return out;
}

template <class Algorithm>
void CryptoPRNG<Algorithm>::generate(unsigned char* out, std::size_t size) const {
  detail::drawRandomBytes(drbg_.get(), out, size);
}

template class CryptoPRNG<utils::DefaultPRNGAlgorithm>;

}  // namespace crypto
}  // namespace foundation
