// AESGCMStreamDecryptor: AES-256-GCM decryption of one message in pieces.
#ifndef FOUNDATION_CRYPTO_AES_GCM_STREAM_DECRYPTOR_H_
#define FOUNDATION_CRYPTO_AES_GCM_STREAM_DECRYPTOR_H_

#include <cstddef>
#include <memory>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

namespace detail {
class CipherContext;
}

// Decrypts one message made by AESGCMStreamEncryptor or AESEncryptor in GCM: feed the
// ciphertext (without its tag) to `update` in pieces of any sizes, then `finish(tag)`
// verifies the whole message.
//
// WARNING: `update` hands out plaintext that is NOT yet authenticated.  Until `finish`
// returns, it may be the decryption of altered or forged data, or garbage under a wrong key.
// A caller must not release any of it (write it where a user or another program can see
// it, act on it) before `finish` succeeded; the usual way is two passes: a first that
// decrypts to nowhere and calls `finish` to check the tag, then a second, with a new
// object, whose plaintext is released as it comes and which checks the tag again at its
// end (the data may change between the passes); or decrypt into a temporary place that is
// published only once `finish` succeeded.
//
// Not copyable; movable, after which the source may only be destroyed or assigned to.  One
// thread at a time.
class FOUNDATION_CRYPTO_EXPORT AESGCMStreamDecryptor {
 public:
  static constexpr std::size_t kTagSize = 16;

  // Raises utils::Exception for an IV that is empty or longer than 128 bytes, and
  // utils::CouldNotDecrypt if OpenSSL cannot set the cipher up.
  AESGCMStreamDecryptor(AESKey<utils::AESKeySize<256>> const& key, bytes const& iv);
  AESGCMStreamDecryptor(AESGCMStreamDecryptor&& other) noexcept;
  AESGCMStreamDecryptor& operator=(AESGCMStreamDecryptor&& other) noexcept;
  AESGCMStreamDecryptor(AESGCMStreamDecryptor const&) = delete;
  AESGCMStreamDecryptor& operator=(AESGCMStreamDecryptor const&) = delete;
  ~AESGCMStreamDecryptor();

  // Decrypts the `size` bytes at `in` into the `size` bytes at `out` (unauthenticated: see
  // above).  `out` may be `in` but must not overlap it otherwise.  Any size, 0 included.
  // Raises utils::CouldNotDecrypt after `finish`, after a failure, or if OpenSSL refuses.
  void update(unsigned char const* in, std::size_t size, unsigned char* out);

  // Verifies the message against `tag` (constant-time comparison inside OpenSSL).  Returns
  // if everything given to `update` is authentic under this key and IV; raises
  // utils::CouldNotDecrypt if it is not, if `tag` does not have 16 bytes, or if the object
  // was finished already.  The object is finished afterwards either way.
  void finish(bytes const& tag);
  void finish(unsigned char const* tag, std::size_t size);

 private:
  std::unique_ptr<detail::CipherContext> cipher_;
};

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_AES_GCM_STREAM_DECRYPTOR_H_
