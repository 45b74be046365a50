// EncryptionKeyAndHash: a key derived from a password, with the hash that lets it be found
// again.
#ifndef FOUNDATION_CRYPTO_ENCRYPTION_KEY_AND_HASH_H_
#define FOUNDATION_CRYPTO_ENCRYPTION_KEY_AND_HASH_H_

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// What CryptoEngine::getEncryptionKeyFromPassword gives: the AES-256 key (a secret, to use
// and never store) and the password hash to store beside the salt and IV (not a secret; see
// CryptoEngine for its form).  A value.
class FOUNDATION_CRYPTO_EXPORT EncryptionKeyAndHash {
 public:
  EncryptionKeyAndHash(AESKey<utils::AESKeySize<256>> key, bytes hash);

  AESKey<utils::AESKeySize<256>> const& getKey() const noexcept { return key_; }
  bytes const& getHash() const noexcept { return hash_; }

 private:
  AESKey<utils::AESKeySize<256>> key_;
  bytes hash_;
};

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_ENCRYPTION_KEY_AND_HASH_H_
