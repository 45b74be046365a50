// What the library's own encryptor and decryptor offer beside the whole-message interfaces:
// the message begun by their last initialize(), in pieces.
#ifndef SRC_ENCRYPTION_STREAMING_CIPHER_H_
#define SRC_ENCRYPTION_STREAMING_CIPHER_H_

#include <foundation/crypto/aes_gcm_stream_decryptor.h>
#include <foundation/crypto/aes_gcm_stream_encryptor.h>

namespace opc {
namespace vkservices {
namespace detail {

// An encryptor whose messages can also be encrypted in pieces, in bounded memory.  The
// transforms ask for it by dynamic_cast and fall back on the whole message for any other
// IEncryptor.
class StreamingEncryptor {
 public:
  StreamingEncryptor() = default;
  StreamingEncryptor(StreamingEncryptor const&) = delete;
  StreamingEncryptor& operator=(StreamingEncryptor const&) = delete;
  virtual ~StreamingEncryptor();

  // A stream encryptor under the key and the IV of the last initialize(), whose output (the
  // ciphertext of all pieces, then the tag) is exactly what encrypt() gives for the whole
  // message.  Raises foundation::crypto::utils::CouldNotEncrypt before any initialize().
  virtual foundation::crypto::AESGCMStreamEncryptor beginStream() const = 0;
};

// The same for decryption.  The stream decryptor hands out plaintext that is not yet
// authenticated: see AESGCMStreamDecryptor.
class StreamingDecryptor {
 public:
  StreamingDecryptor() = default;
  StreamingDecryptor(StreamingDecryptor const&) = delete;
  StreamingDecryptor& operator=(StreamingDecryptor const&) = delete;
  virtual ~StreamingDecryptor();

  // Raises foundation::crypto::utils::CouldNotDecrypt before any initialize().
  virtual foundation::crypto::AESGCMStreamDecryptor beginStream() const = 0;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_STREAMING_CIPHER_H_
