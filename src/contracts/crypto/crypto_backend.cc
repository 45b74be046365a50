// Loading the crypto backend.  libvkflcrypto does not link libcrypto: the first operation that
// needs OpenSSL loads the companion library here, once for the process, and every later call
// finds it loaded.
#include "crypto_backend.h"

#include <string>

#include <foundation/crypto/exceptions.h>

#include "companion_library.h"

namespace foundation {
namespace crypto {
namespace detail {
namespace {

// The library's file name and its entry, shared with the library's build (openssl/).
constexpr char kBackendLibrary[] = VKFLCRYPTO_BACKEND_LIBRARY;
constexpr char kEntry[] = "vkflcrypto_openssl_backend";

CryptoBackend const* loadBackend() {
  opcvk_companion::CompanionEntry const loaded =
      opcvk_companion::loadCompanion(kBackendLibrary, kBackendLibrary, kEntry);
  std::string const failure =
      opcvk_companion::failureMessage(loaded, "The crypto library", kBackendLibrary, kEntry);
  if (!failure.empty()) throw utils::Exception(failure);
  using Entry = CryptoBackend const* (*)();
  return reinterpret_cast<Entry>(loaded.entry)();
}

}  // namespace

CryptoBackend const& cryptoBackend() {
  // A failed load leaves the static unset, so that a later call tries again.
  static CryptoBackend const* const backend = loadBackend();
  return *backend;
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
