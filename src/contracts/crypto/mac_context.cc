#include "mac_context.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <foundation/crypto/exceptions.h>

#include "openssl_errors.h"

namespace foundation {
namespace crypto {
namespace detail {

MacContext::MacContext(unsigned char const* key, std::size_t keySize) {
  MacHandle const mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
  if (!mac) throw utils::Exception(withOpenSslErrors("Cannot load HMAC"));
  context_.reset(EVP_MAC_CTX_new(mac.get()));
  if (!context_) throw utils::Exception(withOpenSslErrors("Cannot make an HMAC context"));
  char digest[] = "SHA256";
  OSSL_PARAM const params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                               OSSL_PARAM_END};
  // A null key would mean "the key of the previous message", which an empty key is not.
  static unsigned char const kEmptyKey = 0;
  if (EVP_MAC_init(context_.get(), keySize == 0 ? &kEmptyKey : key, keySize, params) != 1) {
    throw utils::Exception(withOpenSslErrors("Cannot key HMAC-SHA-256"));
  }
}

MacContext::MacContext(MacContext const& other) : context_(EVP_MAC_CTX_dup(other.context_.get())) {
  if (!context_) throw utils::Exception(withOpenSslErrors("Cannot copy an HMAC context"));
}

void MacContext::update(unsigned char const* data, std::size_t size) {
  if (size == 0) return;
  if (EVP_MAC_update(context_.get(), data, size) != 1) {
    throw utils::Exception(withOpenSslErrors("HMAC-SHA-256 failed"));
  }
}

bytes MacContext::finish() {
  bytes digest(kHmacSha256Size);
  std::size_t length = 0;
  if (EVP_MAC_final(context_.get(), digest.data(), &length, digest.size()) != 1 ||
      length != kHmacSha256Size) {
    throw utils::Exception(withOpenSslErrors("HMAC-SHA-256 failed at the end"));
  }
  return digest;
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
