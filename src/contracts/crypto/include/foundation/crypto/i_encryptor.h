// IEncryptor: the interface of the library's encryptors, and the one-message helper.
#ifndef FOUNDATION_CRYPTO_I_ENCRYPTOR_H_
#define FOUNDATION_CRYPTO_I_ENCRYPTOR_H_

#include <cstddef>
#include <istream>
#include <ostream>

#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// Something that encrypts whole messages under a key and IV that it was made with.  Each
// call of an `encrypt` is one message, encrypted from a fresh cipher state; nothing stops a
// caller from encrypting two messages under the same IV, which GCM must never do.
class FOUNDATION_CRYPTO_EXPORT IEncryptor {
 public:
  IEncryptor() = default;
  IEncryptor(IEncryptor const&) = default;
  IEncryptor& operator=(IEncryptor const&) = default;
  virtual ~IEncryptor();

  // Encrypts everything that `plaintext` holds until its end and writes the result to
  // `ciphertext`, in pieces, with bounded memory.  Raises utils::CouldNotEncrypt if a
  // stream fails or the cipher refuses; what was written by then is no complete message.
  virtual void encrypt(std::istream& plaintext, std::ostream& ciphertext) = 0;
  // The encryption of `plaintext` as one message.  Raises utils::CouldNotEncrypt.
  virtual bytes encrypt(bytes const& plaintext) = 0;
  // The size of the key in bits.
  virtual std::size_t getKeySize() const = 0;
};

// Runs the whole message `plaintext` through `encryptor`: encryptor.encrypt(plaintext).
FOUNDATION_CRYPTO_EXPORT bytes encrypt(bytes const& plaintext, IEncryptor& encryptor);

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_I_ENCRYPTOR_H_
