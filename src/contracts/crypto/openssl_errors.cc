#include "openssl_errors.h"

#include "crypto_backend.h"

namespace foundation {
namespace crypto {
namespace detail {

std::string withOpenSslErrors(std::string const& what) {
  std::string const causes = cryptoBackend().takeErrors();
  return causes.empty() ? what + "." : what + ": " + causes;
}

void discardOpenSslErrors() { cryptoBackend().discardErrors(); }

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
