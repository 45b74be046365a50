#include "mac_context.h"

#include <utility>

#include <foundation/crypto/exceptions.h>

#include "openssl_errors.h"

namespace foundation {
namespace crypto {
namespace detail {

MacContext::MacContext(unsigned char const* key, std::size_t keySize) {
  Made<BackendMac> made = cryptoBackend().makeHmac("SHA256", key, keySize);
  switch (made.failedAt) {
    case SetupStep::kNone:
      break;
    case SetupStep::kLoad:
      throw utils::Exception(withOpenSslErrors("Cannot load HMAC"));
    case SetupStep::kMakeContext:
      throw utils::Exception(withOpenSslErrors("Cannot make an HMAC context"));
    case SetupStep::kSetUp:
    case SetupStep::kSetPadding:
      throw utils::Exception(withOpenSslErrors("Cannot key HMAC-SHA-256"));
  }
  mac_ = std::move(made.object);
}

MacContext::MacContext(MacContext const& other) : mac_(other.mac_->duplicate()) {
  if (!mac_) throw utils::Exception(withOpenSslErrors("Cannot copy an HMAC context"));
}

void MacContext::update(unsigned char const* data, std::size_t size) {
  if (size == 0) return;
  if (!mac_->update(data, size)) {
    throw utils::Exception(withOpenSslErrors("HMAC-SHA-256 failed"));
  }
}

bytes MacContext::finish() {
  bytes digest(kHmacSha256Size);
  std::size_t length = 0;
  if (!mac_->finish(digest.data(), digest.size(), &length) || length != kHmacSha256Size) {
    throw utils::Exception(withOpenSslErrors("HMAC-SHA-256 failed at the end"));
  }
  return digest;
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
