#include "encryption/random_iv_generator.h"

#include <string>

#include <foundation/crypto/crypto_engine.h>
#include <opc/vkservices/errors.h>

namespace opc {
namespace vkservices {

RandomIVGenerator::RandomIVGenerator(std::size_t ivSize, bytes const& seed)
    : IVGenerator(ivSize),
      provider_(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>()),
      generator_(foundation::crypto::CryptoEngine(provider_).createDefaultCryptoPRNG(seed)) {
  // A short seed adds next to nothing to the generator; one that is given must count.
  if (!seed.empty() && seed.size() < ivSize_ / 2) {
    throw InvalidIVBytesSize("IV seed must be at least " + std::to_string(ivSize_ / 2) +
                             " bytes when it is specified");
  }
}

RandomIVGenerator::~RandomIVGenerator() = default;

bytes RandomIVGenerator::generate() { return generator_.generateByteArray(ivSize_); }

}  // namespace vkservices
}  // namespace opc
