// GCMEncryptingStream: a plaintext stream read as one encrypted message, IV in front.
#ifndef SRC_ENCRYPTION_GCM_ENCRYPTING_STREAM_H_
#define SRC_ENCRYPTION_GCM_ENCRYPTING_STREAM_H_

#include <cstddef>

#include <foundation/crypto/aes_gcm_stream_encryptor.h>
#include <opc/core/input_stream.h>
#include <opc/vkservices/bytes.h>

#include "encryption/cipher_failure.h"

namespace opc {
namespace vkservices {
namespace detail {

// Delivers `iv`, then the ciphertext of everything `plaintext` gives, then the 16-byte tag:
// byte for byte what the whole-message encryption of the same plaintext under the same key
// and IV gives, with the IV in front, in memory bounded by the reader's buffer (each read
// encrypts in place what the plaintext put into it).
//
// A failure of the cipher goes through `failure`; failures of `plaintext` pass unchanged.
// `plaintext` is not owned and must outlive this stream; open() and close() pass to it.
class GCMEncryptingStream : public opc::InputStream {
 public:
  GCMEncryptingStream(opc::InputStream& plaintext, bytes iv,
                      foundation::crypto::AESGCMStreamEncryptor cipher, CipherFailure failure);
  ~GCMEncryptingStream() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  // Ends the message: the tag is ready to be read.
  void finish();

  opc::InputStream& plaintext_;
  bytes iv_;
  std::size_t ivRead_ = 0;
  foundation::crypto::AESGCMStreamEncryptor cipher_;
  CipherFailure failure_;
  bytes tag_;
  bool finished_ = false;
  std::size_t tagRead_ = 0;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_GCM_ENCRYPTING_STREAM_H_
