// Whole messages through AES-256 in GCM or CBC, as bytes and as streams: what AESEncryptor
// and AESDecryptor do.  Private.
#ifndef FOUNDATION_CRYPTO_AES_MESSAGES_H_
#define FOUNDATION_CRYPTO_AES_MESSAGES_H_

#include <istream>
#include <ostream>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {
namespace detail {

// The parameters of one message.
struct MessageCipher {
  AESKey<utils::AESKeySize<256>> const& key;
  bytes const& iv;
  utils::AESMode mode;
  utils::AESPaddingMode padding;
};

bytes encryptMessage(MessageCipher const& cipher, bytes const& plaintext);
bytes decryptMessage(MessageCipher const& cipher, bytes const& ciphertext);
void encryptStream(MessageCipher const& cipher, std::istream& plaintext, std::ostream& ciphertext);
void decryptStream(MessageCipher const& cipher, std::istream& ciphertext, std::ostream& plaintext);

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_AES_MESSAGES_H_
