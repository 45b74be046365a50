// AESDecryptionTransform: content that AESEncryptionTransform made, decrypted again.
#ifndef OPC_VKSERVICES_AES_DECRYPTION_TRANSFORM_H_
#define OPC_VKSERVICES_AES_DECRYPTION_TRANSFORM_H_

#include <memory>

#include <opc/model/content_type.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/export.h>
#include <opc/vkservices/transform_source.h>

namespace opc {
namespace vkservices {

// Decrypts the whole content of the wrapped source with AES-256 in CBC mode, PKCS#7
// padding, under the key and IV that encrypted it.  CBC has no authentication: a wrong key
// or IV usually fails on the padding, but may also give wrong bytes, and no check is made
// here.
//
// The content type loses the parameter "encryption", whatever its value; other parameters
// stay.
//
// The whole content is read and decrypted on the first getInputStream(): peak memory is
// about twice the content.  If the crypto library fails (bad padding included), a line goes
// to standard output ("An error within the decryption library occurred:" and its message, or
// "An error during the decryption process occurred." for any other failure) and
// getInputStream() raises CouldNotTransformContentData, as TransformSource describes.
//
// One thread at a time, like any content source.
class OPCVK_EXPORT AESDecryptionTransform : public TransformSource {
 public:
  // Decrypts `source` (owned) under the 32-byte `key` and the 16-byte `iv`.  Raises
  // foundation::crypto::utils::Exception (a std::runtime_error) for a key that is not 32
  // bytes or an IV that is not 16 bytes (an empty one included).
  AESDecryptionTransform(std::unique_ptr<IContentSource> source, bytes const& key, bytes const& iv);
  ~AESDecryptionTransform() override;

  // True: the padding is only known at the end of the message.
  bool mustTransformEntireStream() override;
  bool transformContentType(opc::model::ContentType const& input,
                            opc::model::ContentType& output) override;
  bool transformData(bytes const& input, bytes& output) override;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_AES_DECRYPTION_TRANSFORM_H_
