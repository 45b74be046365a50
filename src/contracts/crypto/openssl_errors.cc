#include "openssl_errors.h"

#include <openssl/err.h>

namespace foundation {
namespace crypto {
namespace detail {

std::string withOpenSslErrors(std::string const& what) {
  std::string causes;
  for (unsigned long code = ERR_get_error(); code != 0; code = ERR_get_error()) {
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    causes += causes.empty() ? "" : "; ";
    causes += text;
  }
  return causes.empty() ? what + "." : what + ": " + causes;
}

void discardOpenSslErrors() { ERR_clear_error(); }

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
