#include <foundation/crypto/i_decryptor.h>
#include <foundation/crypto/i_encryptor.h>

namespace foundation {
namespace crypto {

IEncryptor::~IEncryptor() = default;
IDecryptor::~IDecryptor() = default;

bytes encrypt(bytes const& plaintext, IEncryptor& encryptor) {
  return encryptor.encrypt(plaintext);
}

bytes decrypt(bytes const& ciphertext, IDecryptor& decryptor) {
  return decryptor.decrypt(ciphertext);
}

}  // namespace crypto
}  // namespace foundation
