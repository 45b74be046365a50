// AESEncryptor: whole-message AES encryption in GCM or CBC.
#ifndef FOUNDATION_CRYPTO_AES_ENCRYPTOR_H_
#define FOUNDATION_CRYPTO_AES_ENCRYPTOR_H_

#include <cstddef>
#include <istream>
#include <ostream>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/i_encryptor.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// Encrypts messages under one key, IV, mode and padding, all fixed at construction.  Each
// `encrypt` starts from a fresh cipher state, so two calls with the same plaintext give the
// same output: give every message its own IV (in GCM a repeated IV under one key gives the
// key's authentication away).  Output:
//   - utils::AESMode::GCM: the ciphertext (as long as the plaintext), then the 16-byte tag;
//     the same bytes as AESGCMStreamEncryptor gives, which does the work.
//   - utils::AESMode::CBC: the ciphertext, padded as the padding mode says.
// A value: copies are independent and hold their own copy of the key.  One object may be
// used from one thread at a time; distinct objects from any threads.  Made by
// CryptoEngine::createAES256Encryptor; only AESEncryptor<utils::AESKeySize<256>> exists.
template <class KeySize>
class FOUNDATION_CRYPTO_EXPORT AESEncryptor : public IEncryptor {
 public:
  // Raises utils::Exception for a mode or padding that is not an enumerator, a CBC IV that
  // is not 16 bytes, or a GCM IV that is empty or longer than 128 bytes; the message gives
  // the length it got and the one it wanted.
  AESEncryptor(AESKey<KeySize> const& key, bytes const& iv, utils::AESMode mode,
               utils::AESPaddingMode padding);
  AESEncryptor(AESEncryptor const& other);
  AESEncryptor& operator=(AESEncryptor const& other);
  ~AESEncryptor() override;

  void encrypt(std::istream& plaintext, std::ostream& ciphertext) override;
  bytes encrypt(bytes const& plaintext) override;
  // 256.
  std::size_t getKeySize() const override;

 private:
  AESKey<KeySize> key_;
  bytes iv_;
  utils::AESMode mode_;
  utils::AESPaddingMode padding_;
};

extern template class AESEncryptor<utils::AESKeySize<256>>;

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_AES_ENCRYPTOR_H_
