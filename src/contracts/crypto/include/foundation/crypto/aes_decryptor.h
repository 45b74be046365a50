// AESDecryptor: whole-message AES decryption in GCM or CBC.
#ifndef FOUNDATION_CRYPTO_AES_DECRYPTOR_H_
#define FOUNDATION_CRYPTO_AES_DECRYPTOR_H_

#include <cstddef>
#include <istream>
#include <ostream>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/i_decryptor.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// Decrypts messages that AESEncryptor made under the same key, IV, mode and padding.
//   - utils::AESMode::GCM: the input is the ciphertext followed by the 16-byte tag.  The
//     tag is verified (by OpenSSL, in constant time) before `decrypt(bytes)` returns
//     anything; a mismatch (altered ciphertext, IV or tag, a wrong key) and input shorter
//     than a tag raise utils::CouldNotDecrypt, and the plaintext decrypted so far is wiped.
//     AESGCMStreamDecryptor does the work.
//   - utils::AESMode::CBC: there is no authentication.  Bad padding raises
//     utils::CouldNotDecrypt; a wrong key or IV may also give wrong bytes.
// A value: copies are independent.  One object per thread at a time.  Made by
// CryptoEngine::createAES256Decryptor; only AESDecryptor<utils::AESKeySize<256>> exists.
template <class KeySize>
class FOUNDATION_CRYPTO_EXPORT AESDecryptor : public IDecryptor {
 public:
  // Raises utils::Exception on the same arguments as AESEncryptor's constructor.
  AESDecryptor(AESKey<KeySize> const& key, bytes const& iv, utils::AESMode mode,
               utils::AESPaddingMode padding);
  AESDecryptor(AESDecryptor const& other);
  AESDecryptor& operator=(AESDecryptor const& other);
  ~AESDecryptor() override;

  void decrypt(std::istream& ciphertext, std::ostream& plaintext) override;
  bytes decrypt(bytes const& ciphertext) override;
  // 256.
  std::size_t getKeySize() const override;

 private:
  AESKey<KeySize> key_;
  bytes iv_;
  utils::AESMode mode_;
  utils::AESPaddingMode padding_;
};

extern template class AESDecryptor<utils::AESKeySize<256>>;

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_AES_DECRYPTOR_H_
