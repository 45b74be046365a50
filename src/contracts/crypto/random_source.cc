#include "random_source.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <foundation/crypto/exceptions.h>

#include "openssl_errors.h"

namespace foundation {
namespace crypto {
namespace detail {
namespace {

// The security strength asked of a generator, in bits: that of AES-256.
constexpr unsigned int kStrength = 256;
// A DRBG answers at most 64 KiB per request (CTR-DRBG's limit); RAND_bytes takes an int.
constexpr std::size_t kRequest = std::size_t{1} << 16;

}  // namespace

Drbg::Drbg(bytes const& personalisation) {
  RandHandle const algorithm(EVP_RAND_fetch(nullptr, "CTR-DRBG", nullptr));
  if (!algorithm) throw utils::Exception(withOpenSslErrors("Cannot load CTR-DRBG"));
  // The child of the primary DRBG draws its entropy from it, which reseeds from the
  // operating system on its own schedule and after a fork.
  context_.reset(EVP_RAND_CTX_new(algorithm.get(), RAND_get0_primary(nullptr)));
  if (!context_) throw utils::Exception(withOpenSslErrors("Cannot make a random generator"));
  char cipher[] = "AES-256-CTR";
  OSSL_PARAM const params[] = {OSSL_PARAM_construct_utf8_string(OSSL_DRBG_PARAM_CIPHER, cipher, 0),
                               OSSL_PARAM_END};
  if (EVP_RAND_CTX_set_params(context_.get(), params) != 1 ||
      EVP_RAND_enable_locking(context_.get()) != 1 ||
      EVP_RAND_instantiate(context_.get(), kStrength, 0,
                           personalisation.empty() ? nullptr : personalisation.data(),
                           personalisation.size(), nullptr) != 1) {
    throw utils::Exception(withOpenSslErrors("Cannot set up a random generator"));
  }
}

void drawRandomBytes(Drbg* drbg, unsigned char* out, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    std::size_t const piece = size - done < kRequest ? size - done : kRequest;
    int const result = drbg == nullptr ? RAND_bytes(out + done, static_cast<int>(piece))
                                       : EVP_RAND_generate(drbg->context_.get(), out + done, piece,
                                                           kStrength, 0, nullptr, 0);
    if (result != 1) {
      throw utils::Exception(withOpenSslErrors("The random generator failed"));
    }
    done += piece;
  }
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
