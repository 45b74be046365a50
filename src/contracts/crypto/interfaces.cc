#include <foundation/crypto/i_crypto_prng.h>
#include <foundation/crypto/i_crypto_provider.h>

namespace foundation {
namespace crypto {
namespace interfaces {

ICryptoPRNG::~ICryptoPRNG() = default;
ICryptoProvider::~ICryptoProvider() = default;

}  // namespace interfaces
}  // namespace crypto
}  // namespace foundation
