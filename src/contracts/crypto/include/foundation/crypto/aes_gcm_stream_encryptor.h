// AESGCMStreamEncryptor: AES-256-GCM encryption of one message in pieces.
#ifndef FOUNDATION_CRYPTO_AES_GCM_STREAM_ENCRYPTOR_H_
#define FOUNDATION_CRYPTO_AES_GCM_STREAM_ENCRYPTOR_H_

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

// Encrypts one message of any size in memory bounded by the caller's pieces: feed the
// plaintext to `update` in pieces of any sizes, then `finish` gives the 16-byte tag.  The
// ciphertext of all pieces followed by the tag is exactly what AESEncryptor in GCM gives for
// the whole message under the same key and IV, however the message was cut.  No additional
// authenticated data.  GCM takes at most 2^36 - 32 bytes (64 GiB) under one IV; OpenSSL
// refuses more and `update` raises.
//
// Not copyable (a copy would invite the reuse of an IV); movable, after which the source
// may only be destroyed or assigned to.  One thread at a time.
class FOUNDATION_CRYPTO_EXPORT AESGCMStreamEncryptor {
 public:
  static constexpr std::size_t kTagSize = 16;

  // Raises utils::Exception for an IV that is empty or longer than 128 bytes, and
  // utils::CouldNotEncrypt if OpenSSL cannot set the cipher up.  Keeps no reference to its
  // arguments; the key is held inside OpenSSL's cipher state, which OpenSSL wipes.
  AESGCMStreamEncryptor(AESKey<utils::AESKeySize<256>> const& key, bytes const& iv);
  AESGCMStreamEncryptor(AESGCMStreamEncryptor&& other) noexcept;
  AESGCMStreamEncryptor& operator=(AESGCMStreamEncryptor&& other) noexcept;
  AESGCMStreamEncryptor(AESGCMStreamEncryptor const&) = delete;
  AESGCMStreamEncryptor& operator=(AESGCMStreamEncryptor const&) = delete;
  ~AESGCMStreamEncryptor();

  // Encrypts the `size` bytes at `in` into the `size` bytes at `out`.  `out` may be `in`
  // (in place) but must not overlap it otherwise.  Any size, 0 included (then both pointers
  // may be null).  Raises utils::CouldNotEncrypt after `finish`, after a failure, or if
  // OpenSSL refuses (a message past GCM's limit).
  void update(unsigned char const* in, std::size_t size, unsigned char* out);

  // Ends the message and returns its 16-byte tag.  The object is finished afterwards.
  // Raises utils::CouldNotEncrypt if it was finished already or OpenSSL fails.
  bytes finish();

 private:
  std::unique_ptr<detail::CipherContext> cipher_;
};

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_AES_GCM_STREAM_ENCRYPTOR_H_
