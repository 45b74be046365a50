// GCMDecryptingStream: one encrypted message read as plaintext, its tag checked at the end.
#ifndef SRC_ENCRYPTION_GCM_DECRYPTING_STREAM_H_
#define SRC_ENCRYPTION_GCM_DECRYPTING_STREAM_H_

#include <cstddef>

#include <foundation/crypto/aes_gcm_stream_decryptor.h>
#include <opc/core/input_stream.h>
#include <opc/vkservices/bytes.h>

#include "encryption/cipher_failure.h"
#include "encryption/gcm_message_reader.h"

namespace opc {
namespace vkservices {
namespace detail {

// Decrypts, as it is read, the message that `input` holds: `expectedIV` in front (unless it
// is empty, for an input whose IV was taken off already), then the ciphertext, then the
// 16-byte tag.  The tag is verified by the read that delivers the last plaintext, before
// that read returns; isDone() is true only after it verified.  An IV other than
// `expectedIV`, an input that ends before its IV or tag, and a tag that does not verify are
// failures of the cipher, raised through `failure`; failures of `input` pass unchanged.
//
// WARNING: every read but the last hands out plaintext that is not yet authenticated.  Use
// it only where that cannot harm: after the whole message was authenticated by a first pass
// (the check at the end then catches a message that changed between the passes), or into a
// place that is published only once the stream is done.
//
// `input` is not owned and must outlive this stream; open() and close() pass to it.  Memory:
// one piece of GCMMessageReader.
class GCMDecryptingStream : public opc::InputStream {
 public:
  GCMDecryptingStream(opc::InputStream& input, bytes expectedIV,
                      foundation::crypto::AESGCMStreamDecryptor cipher, CipherFailure failure);
  ~GCMDecryptingStream() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

  // Reads `input` to its end through `cipher` and verifies the tag, handing nothing out:
  // the first pass.  `input` holds no IV.  Raises as the stream does.
  static void authenticate(opc::InputStream& input,
                           foundation::crypto::AESGCMStreamDecryptor& cipher,
                           CipherFailure const& failure);

 private:
  // Takes the IV off and compares it.
  void checkIV();
  // Verifies the tag.
  static void finish(GCMMessageReader const& reader,
                     foundation::crypto::AESGCMStreamDecryptor& cipher,
                     CipherFailure const& failure);

  GCMMessageReader reader_;
  bytes expectedIV_;
  bool ivChecked_;
  foundation::crypto::AESGCMStreamDecryptor cipher_;
  CipherFailure failure_;
  bool finished_ = false;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_GCM_DECRYPTING_STREAM_H_
