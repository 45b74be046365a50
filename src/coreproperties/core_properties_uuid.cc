// CoreProperties::generateAndSetUUID, apart from the record's other members because it alone
// needs the crypto library.
#include <memory>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/core_properties.h>

#include "coreproperties/uuid_recipe.h"

namespace opc {
namespace vkservices {

void CoreProperties::generateAndSetUUID() {
  // A generator of its own for each UUID, from the crypto library's default: nothing is kept
  // between calls, so that records on several threads share no state.
  foundation::crypto::CryptoEngine const engine(
      std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  auto const generator = engine.createDefaultCryptoPRNG(foundation::crypto::bytes{});
  setUUID(opc::toString(detail::makeRandomUUID(generator), true));
}

}  // namespace vkservices
}  // namespace opc
