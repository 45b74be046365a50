// IDecryptor: the interface of the library's decryptors, and the one-message helper.
#ifndef FOUNDATION_CRYPTO_I_DECRYPTOR_H_
#define FOUNDATION_CRYPTO_I_DECRYPTOR_H_

#include <cstddef>
#include <istream>
#include <ostream>

#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// Something that decrypts whole messages under a key and IV that it was made with.  Each
// call of a `decrypt` is one message, decrypted from a fresh cipher state.
class FOUNDATION_CRYPTO_EXPORT IDecryptor {
 public:
  IDecryptor() = default;
  IDecryptor(IDecryptor const&) = default;
  IDecryptor& operator=(IDecryptor const&) = default;
  virtual ~IDecryptor();

  // Decrypts everything that `ciphertext` holds until its end and writes the plaintext to
  // `plaintext`, in pieces, with bounded memory.  The plaintext is written before the whole
  // message is checked: if this raises utils::CouldNotDecrypt (a failed authentication tag
  // or padding, a failed stream), what was written is not authentic and must be discarded.
  virtual void decrypt(std::istream& ciphertext, std::ostream& plaintext) = 0;
  // The plaintext of the message `ciphertext`, returned only once the whole message is
  // authenticated (GCM) or its padding checked (CBC).  Raises utils::CouldNotDecrypt.
  virtual bytes decrypt(bytes const& ciphertext) = 0;
  // The size of the key in bits.
  virtual std::size_t getKeySize() const = 0;
};

// Runs the whole message `ciphertext` through `decryptor`: decryptor.decrypt(ciphertext).
FOUNDATION_CRYPTO_EXPORT bytes decrypt(bytes const& ciphertext, IDecryptor& decryptor);

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_I_DECRYPTOR_H_
