#include <openssl/crypto.h>

#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

void secureWipe(void* data, std::size_t size) noexcept {
  if (data != nullptr && size != 0) OPENSSL_cleanse(data, size);
}

}  // namespace crypto
}  // namespace foundation
