// The failures of the crypto library.
#ifndef FOUNDATION_CRYPTO_EXCEPTIONS_H_
#define FOUNDATION_CRYPTO_EXCEPTIONS_H_

#include <stdexcept>
#include <string>

#include <foundation/crypto/export.h>

namespace foundation {
namespace crypto {
namespace utils {

// The base of every failure that this library raises, and itself the failure of bad
// arguments: a key of the wrong length, an IV that the mode refuses, an unknown mode,
// malformed base64, a password or stored hash that key derivation refuses, a wrong
// password.  It derives from std::runtime_error, so that a caller that catches
// std::runtime_error takes it in.  No message of this library ever holds key bytes,
// passwords or derived material; where OpenSSL reported the failure, the text of its error
// queue ends the message.
class FOUNDATION_CRYPTO_EXPORT Exception : public std::runtime_error {
 public:
  explicit Exception(std::string const& message);
  ~Exception() override;
};

// Encryption failed: OpenSSL refused an operation, a stream could not be read or written,
// or (in CBC without padding) the input is not a whole number of blocks.
class FOUNDATION_CRYPTO_EXPORT CouldNotEncrypt : public Exception {
 public:
  explicit CouldNotEncrypt(std::string const& message);
  ~CouldNotEncrypt() override;
};

// Decryption failed: in GCM the data is not authentic (altered ciphertext, IV or tag, a
// wrong key, input shorter than a tag); in CBC the padding is bad (which a wrong key
// usually causes); OpenSSL refused an operation; a stream could not be read or written.
class FOUNDATION_CRYPTO_EXPORT CouldNotDecrypt : public Exception {
 public:
  explicit CouldNotDecrypt(std::string const& message);
  ~CouldNotDecrypt() override;
};

}  // namespace utils
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_EXCEPTIONS_H_
