// EncryptionWithInlineIVTransform: content encrypted as one message, its IV in front.
#ifndef SRC_ENCRYPTION_ENCRYPTION_WITH_INLINE_IV_TRANSFORM_H_
#define SRC_ENCRYPTION_ENCRYPTION_WITH_INLINE_IV_TRANSFORM_H_

#include <exception>
#include <memory>
#include <string>

#include <opc/core/input_stream.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/i_encryptor.h>
#include <opc/vkservices/transform_source.h>

#include "encryption/gcm_encrypting_stream.h"
#include "encryption/iv_generator.h"

namespace opc {
namespace vkservices {

// What a file system stores for an encrypted file or manifest: the IV (16 bytes, a fresh one
// per message), then what the encryptor gives for the whole content (in GCM the ciphertext
// and the 16-byte tag).  No header, no version, no length.  The content type gains the
// parameter "encryption" with the algorithm's name, then "iv" with the value "inline".
//
// The IV is drawn, and the encryptor's initialize() called, once per message, on the first
// getInputStream(); getContentType() draws nothing.  With the library's own encryptor the
// content is encrypted as it is read, in memory bounded by the reader's buffer, into exactly
// the bytes of the whole-message form; any other IEncryptor gets the whole content at once.
//
// A failure of the encryption (an unknown algorithm name included) writes "An error occurred
// during encryption:" and the exception's message (or "An error occurred during encryption."
// for one that is no std::runtime_error) to standard output, and raises
// CouldNotTransformContentData "Failure when attempting to transform data for content type:"
// and the wrapped type, from getInputStream() or, when streaming, from the read that met it.
// Failures of the wrapped source pass through unchanged.
//
// The encryptor and the generator are shared with the manager and the other transforms it
// made: two such transforms must not be read at the same time.  One thread at a time.
class EncryptionWithInlineIVTransform : public TransformSource {
 public:
  EncryptionWithInlineIVTransform(std::unique_ptr<IContentSource> source,
                                  std::shared_ptr<IEncryptor> encryptor,
                                  std::string const& typeAndMode,
                                  std::shared_ptr<IVGenerator> ivGenerator);
  ~EncryptionWithInlineIVTransform() override;

  opc::InputStream& getInputStream() override;

  // True: one message is the whole content, so that one tag covers it.
  bool mustTransformEntireStream() override;
  bool transformContentType(opc::model::ContentType const& input,
                            opc::model::ContentType& output) override;
  bool transformData(bytes const& input, bytes& output) override;

 private:
  EncryptionWithInlineIVTransform(IContentSource* wrapped, std::unique_ptr<IContentSource>&& source,
                                  std::shared_ptr<IEncryptor> encryptor,
                                  std::string const& typeAndMode,
                                  std::shared_ptr<IVGenerator> ivGenerator);

  // Writes the console line of `cause` and makes the exception of a failed transform.
  CouldNotTransformContentData failure(std::exception const* cause);

  // The source that the base owns, read directly when streaming.
  IContentSource* wrapped_;
  std::shared_ptr<IEncryptor> encryptor_;
  std::string typeAndMode_;
  std::shared_ptr<IVGenerator> ivGenerator_;
  std::unique_ptr<detail::GCMEncryptingStream> stream_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_ENCRYPTION_WITH_INLINE_IV_TRANSFORM_H_
