// DecryptionWithInlineIVTransform: content that EncryptionWithInlineIVTransform made, decrypted.
#ifndef SRC_ENCRYPTION_DECRYPTION_WITH_INLINE_IV_TRANSFORM_H_
#define SRC_ENCRYPTION_DECRYPTION_WITH_INLINE_IV_TRANSFORM_H_

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include <opc/core/input_stream.h>
#include <opc/core/stream_adaptors.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/i_decryptor.h>
#include <opc/vkservices/transform_source.h>

#include "encryption/gcm_decrypting_stream.h"
#include "encryption/prefixed_input_stream.h"

namespace opc {
namespace vkservices {

// Takes the IV from the front of the content (16 bytes), begins the decryptor's message with
// it and the algorithm's name, and decrypts the rest.  The content type loses the parameters
// "encryption" and "iv"; others stay.
//
// No byte is handed out that has not been authenticated.  Content of up to
// kWholeMessageLimit bytes (4 MiB) is read and decrypted whole, the tag verified before the stream
// exists.  Larger content, given the library's own decryptor and a way to read the content
// again (the second constructor), is decrypted in bounded memory in two passes: the first
// reads it all and checks the tag, handing nothing out; the second decrypts as the caller
// reads, and checks the tag again at its end, so that content that changed between the passes
// still fails (at the read that would deliver its last bytes).  Without a way to read it
// again, larger content too is decrypted whole, in memory.
//
// A failure of the decryption (a wrong key, altered or truncated content, an unknown
// algorithm name) writes "An error occurred during decryption:" and the exception's message
// (or "An error occurred during decryption." for one that is no std::runtime_error) to
// standard output, and raises CouldNotTransformContentData "Failure when attempting to
// transform data for content type:" and the wrapped type.  Failures of the wrapped source
// pass through unchanged.
//
// The decryptor is shared with the manager and the other transforms it made: two such
// transforms must not be read at the same time.  One thread at a time.
class DecryptionWithInlineIVTransform : public TransformSource {
 public:
  // How content larger than kWholeMessageLimit is authenticated.
  enum class Authentication {
    // A first pass checks the tag before the first byte goes out; see the class comment.
    BeforeFirstByte,
    // One pass: every read but the last hands out plaintext that is not yet authenticated,
    // and the read that delivers the last bytes checks the tag.  Only for a caller that
    // publishes nothing until the stream is done (extraction into a temporary file renamed
    // into place afterwards).
    AtEnd,
  };

  // Gives a new source over the same content, from its start, for the second pass.
  using Reopen = std::function<std::unique_ptr<IContentSource>()>;

  static constexpr std::size_t kWholeMessageLimit = 4 * 1024 * 1024;

  // Whole messages only.
  DecryptionWithInlineIVTransform(std::unique_ptr<IContentSource> source,
                                  std::shared_ptr<IDecryptor> decryptor,
                                  std::string const& typeAndMode);
  // Streams content larger than `wholeMessageLimit` (at least 16) as `authentication` says;
  // `reopen` is needed for BeforeFirstByte.
  DecryptionWithInlineIVTransform(std::unique_ptr<IContentSource> source,
                                  std::shared_ptr<IDecryptor> decryptor,
                                  std::string const& typeAndMode, Authentication authentication,
                                  Reopen reopen,
                                  std::size_t wholeMessageLimit = kWholeMessageLimit);
  ~DecryptionWithInlineIVTransform() override;

  opc::InputStream& getInputStream() override;

  // True: one message is the whole content, covered by one tag.
  bool mustTransformEntireStream() override;
  bool transformContentType(opc::model::ContentType const& input,
                            opc::model::ContentType& output) override;
  bool transformData(bytes const& input, bytes& output) override;

 private:
  DecryptionWithInlineIVTransform(IContentSource* wrapped, std::unique_ptr<IContentSource>&& source,
                                  std::shared_ptr<IDecryptor> decryptor,
                                  std::string const& typeAndMode, Authentication authentication,
                                  Reopen reopen, std::size_t wholeMessageLimit);

  // Reads `input` until its end or past wholeMessageLimit_ bytes.
  bytes readHead(opc::InputStream& input) const;
  // The whole message in `head`, decrypted by transformData.
  opc::InputStream& decryptWhole(bytes const& head);
  // A message larger than `head`, the rest of it still in `input`.
  opc::InputStream& decryptStreamed(bytes head, opc::InputStream& input);
  // Writes the console line of `cause` and makes the exception of a failed transform.
  CouldNotTransformContentData failure(std::exception const* cause);

  IContentSource* wrapped_;
  std::shared_ptr<IDecryptor> decryptor_;
  std::string typeAndMode_;
  std::size_t ivSize_;
  Authentication authentication_;
  Reopen reopen_;
  std::size_t wholeMessageLimit_;

  // The stream handed out, and what it reads; each declared before what reads it.
  bytes plaintext_;
  std::unique_ptr<opc::ByteArrayInAdaptor> plaintextStream_;
  std::unique_ptr<IContentSource> reopened_;
  std::unique_ptr<detail::PrefixedInputStream> rest_;
  std::unique_ptr<detail::GCMDecryptingStream> decrypting_;
  opc::InputStream* stream_ = nullptr;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_DECRYPTION_WITH_INLINE_IV_TRANSFORM_H_
