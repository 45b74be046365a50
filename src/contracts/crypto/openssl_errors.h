// The one translation of OpenSSL's failures into the library's messages.  Private.
#ifndef FOUNDATION_CRYPTO_OPENSSL_ERRORS_H_
#define FOUNDATION_CRYPTO_OPENSSL_ERRORS_H_

#include <string>

namespace foundation {
namespace crypto {
namespace detail {

// `what` (the operation that failed, without a final full stop) followed by the text of
// every entry in this thread's OpenSSL error queue, which it empties, so that a later
// failure does not report this one's causes:
//   "AES-256-GCM encryption failed: error:1C800066:Provider routines::cipher operation
//   failed"
// or, if the queue is empty, `what` and a full stop.  OpenSSL's texts name functions and
// reasons, never data, so no secret reaches a message through here.  Called only after a
// failure of the crypto backend, which is then loaded.
std::string withOpenSslErrors(std::string const& what);

// Empties this thread's OpenSSL error queue without reporting it, for a failure whose
// meaning is known without it (a GCM tag that does not verify).
void discardOpenSslErrors();

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_OPENSSL_ERRORS_H_
