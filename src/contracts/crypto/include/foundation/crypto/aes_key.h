// AESKey: the key of an AES encryptor or decryptor.
#ifndef FOUNDATION_CRYPTO_AES_KEY_H_
#define FOUNDATION_CRYPTO_AES_KEY_H_

#include <cstddef>

#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// A raw AES key of KeySize::kBits bits, held in a buffer that is wiped when the key is
// destroyed or overwritten.  Made by CryptoEngine::createAES256Key, by key derivation, or
// directly.  A value: copies are independent (each wiped on its own).  Thread-safe for
// concurrent reads.  Only AESKey<utils::AESKeySize<256>> is implemented.
template <class KeySize>
class FOUNDATION_CRYPTO_EXPORT AESKey {
 public:
  // Takes the key bytes.  Raises utils::Exception if there are not exactly KeySize::kBytes
  // of them; the message gives both lengths and never the bytes.
  explicit AESKey(SecureBytes keyBytes);
  AESKey(AESKey const& other);
  AESKey(AESKey&& other) noexcept;
  AESKey& operator=(AESKey const& other);
  AESKey& operator=(AESKey&& other) noexcept;
  virtual ~AESKey();

  // The key bytes, valid as long as this key is neither destroyed nor assigned to.  A
  // caller that copies them into a `bytes` (to hand the key to an interface that takes
  // `bytes`) owns a secret and should wipe it with secureWipe when done.
  SecureBytes const& getKeyBytes() const noexcept;

  // The key size in bits (256).
  static constexpr std::size_t getKeySizeInBits() noexcept { return KeySize::kBits; }

 private:
  SecureBytes key_;
};

extern template class AESKey<utils::AESKeySize<256>>;

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_AES_KEY_H_
