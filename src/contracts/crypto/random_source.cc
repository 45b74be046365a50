#include "random_source.h"

#include <utility>

#include <foundation/crypto/exceptions.h>

#include "openssl_errors.h"

namespace foundation {
namespace crypto {
namespace detail {
namespace {

// The security strength asked of a generator, in bits: that of AES-256.
constexpr unsigned int kStrength = 256;
// A DRBG answers at most 64 KiB per request (CTR-DRBG's limit); the public generator takes an
// int.
constexpr std::size_t kRequest = std::size_t{1} << 16;

}  // namespace

Drbg::Drbg(bytes const& personalisation) {
  Made<BackendRandom> made = cryptoBackend().makeDrbg(
      "AES-256-CTR", kStrength, personalisation.data(), personalisation.size());
  switch (made.failedAt) {
    case SetupStep::kNone:
      break;
    case SetupStep::kLoad:
      throw utils::Exception(withOpenSslErrors("Cannot load CTR-DRBG"));
    case SetupStep::kMakeContext:
      throw utils::Exception(withOpenSslErrors("Cannot make a random generator"));
    case SetupStep::kSetUp:
    case SetupStep::kSetPadding:
      throw utils::Exception(withOpenSslErrors("Cannot set up a random generator"));
  }
  generator_ = std::move(made.object);
}

void drawRandomBytes(Drbg* drbg, unsigned char* out, std::size_t size) {
  if (size == 0) return;
  CryptoBackend const& backend = cryptoBackend();
  for (std::size_t done = 0; done < size;) {
    std::size_t const piece = size - done < kRequest ? size - done : kRequest;
    bool const drawn = drbg == nullptr ? backend.publicRandom(out + done, static_cast<int>(piece))
                                       : drbg->generator_->generate(out + done, piece, kStrength);
    if (!drawn) {
      throw utils::Exception(withOpenSslErrors("The random generator failed"));
    }
    done += piece;
  }
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
