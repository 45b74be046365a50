// One AES-256 cipher operation in GCM or CBC over a cipher of the crypto backend: the code
// that every encryptor and decryptor of the library runs.  Private.
#ifndef FOUNDATION_CRYPTO_CIPHER_CONTEXT_H_
#define FOUNDATION_CRYPTO_CIPHER_CONTEXT_H_

#include <cstddef>
#include <memory>
#include <string>

#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/secure_bytes.h>

#include "crypto_backend.h"

namespace foundation {
namespace crypto {
namespace detail {

constexpr std::size_t kAesBlockSize = 16;
constexpr std::size_t kGcmTagSize = 16;
// OpenSSL's GCM takes IVs of 1 to 128 bytes.
constexpr std::size_t kGcmMaxIvSize = 128;

enum class Direction { Encrypt, Decrypt };

// Raises utils::Exception unless `mode` and `padding` are enumerators and an IV of `ivSize`
// bytes suits `mode`.  Messages give the size wanted and the size given.
void checkCipherArguments(utils::AESMode mode, utils::AESPaddingMode padding, std::size_t ivSize);

// Failures raise utils::CouldNotEncrypt or utils::CouldNotDecrypt after the direction, with
// OpenSSL's reasons.  After a failure or `finish`, every further call raises.
class CipherContext {
 public:
  // Raises utils::Exception for bad arguments (checkCipherArguments); the key must be 32
  // bytes (an AESKey's).  Loads the crypto backend if it is not loaded yet, and raises
  // utils::CouldNotEncrypt or utils::CouldNotDecrypt, after the direction, with the loader's
  // message if it cannot be loaded.
  CipherContext(SecureBytes const& key, unsigned char const* iv, std::size_t ivSize,
                utils::AESMode mode, utils::AESPaddingMode padding, Direction direction);
  CipherContext(CipherContext const&) = delete;
  CipherContext& operator=(CipherContext const&) = delete;

  // Runs `size` bytes from `in` through the cipher into `out` and returns how many bytes it
  // wrote.  GCM writes exactly `size`; CBC writes whole blocks and keeps the rest (and, when
  // decrypting with padding, the last block) for later, so `out` needs room for `size` + 16.
  std::size_t update(unsigned char const* in, std::size_t size, unsigned char* out);

  // Ends the message.  Writes what CBC still holds into `out` (room for 16 bytes) and
  // returns its length; GCM writes nothing.  Raises on bad CBC padding (decrypting), on a
  // CBC message that is no whole number of blocks without padding, and in GCM when
  // decrypting before setTag.
  std::size_t finish(unsigned char* out);

  // GCM, encrypting, after finish: the 16-byte tag.
  bytes getTag();
  // GCM, decrypting, before finish: the tag that finish must verify.  Raises
  // utils::CouldNotDecrypt unless `size` is 16.
  void setTag(unsigned char const* tag, std::size_t size);
  // GCM, decrypting: finish with the tag verified.  Raises utils::CouldNotDecrypt if the
  // data is not authentic.
  void finishAndVerify();

 private:
  [[noreturn]] void fail(std::string const& what);
  void ensureUsable(char const* operation) const;
  std::string describe() const;

  std::unique_ptr<BackendCipher> cipher_;
  utils::AESMode mode_;
  Direction direction_;
  bool tagSet_ = false;
  bool finished_ = false;
  bool failed_ = false;
};

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_CIPHER_CONTEXT_H_
