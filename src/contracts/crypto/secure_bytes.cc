#include <string.h>

#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

void secureWipe(void* data, std::size_t size) noexcept {
  // The C library's wipe, which the compiler may not drop as a dead store: a key is wiped
  // without loading the crypto backend, which a program that only ever held one never needs.
  if (data != nullptr && size != 0) explicit_bzero(data, size);
}

}  // namespace crypto
}  // namespace foundation
