// AESEncryptionTransform: any content encrypted with AES-256-CBC under a caller's key and IV.
#ifndef OPC_VKSERVICES_AES_ENCRYPTION_TRANSFORM_H_
#define OPC_VKSERVICES_AES_ENCRYPTION_TRANSFORM_H_

#include <memory>

#include <opc/model/content_type.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/export.h>
#include <opc/vkservices/transform_source.h>

namespace opc {
namespace vkservices {

// Encrypts the whole content of the wrapped source with AES-256 in CBC mode, PKCS#7
// padding, under the key and IV given.  The output is the ciphertext alone (a whole number
// of 16-byte blocks, one more than the plaintext fills), with no IV, length or header: the
// caller keeps the IV (getInitializationVector) and gives it to AESDecryptionTransform.
// CBC has no authentication: nothing here detects altered ciphertext.  For what a package
// file system stores, the library uses its own format instead (FileSystemManager::
// enableEncryption); the two are not interchangeable.
//
// The content type gains the parameter "encryption" with the value "AES" (replacing one of
// that name, as ContentType::addParameter does).
//
// The whole content is read and encrypted on the first getInputStream(): peak memory is
// about twice the content.  If the crypto library fails, a line goes to standard output
// ("An error within the encryption library occurred:" and its message, or "An error during
// the encryption process occurred." for any other failure) and getInputStream() raises
// CouldNotTransformContentData, as TransformSource describes.
//
// The key lives only inside the crypto library's encryptor, wiped when this source goes.
// One thread at a time, like any content source.
class OPCVK_EXPORT AESEncryptionTransform : public TransformSource {
 public:
  // Encrypts `source` (owned) under the 32-byte `key` and the 16-byte `iv`.  An empty `iv`
  // asks for 16 random bytes from a cryptographic generator made for this object.  Raises
  // foundation::crypto::utils::Exception (a std::runtime_error) for a key that is not 32
  // bytes or an IV that is not 16 bytes, naming the lengths and never the bytes.
  AESEncryptionTransform(std::unique_ptr<IContentSource> source, bytes const& key, bytes const& iv);
  // As above with a random IV.
  AESEncryptionTransform(std::unique_ptr<IContentSource> source, bytes const& key);
  ~AESEncryptionTransform() override;

  // The IV in use, given or generated: the same 16 bytes on every call, from construction on.
  bytes getInitializationVector() const;

  // True: CBC with padding encrypts the message as a whole.
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

#endif  // OPC_VKSERVICES_AES_ENCRYPTION_TRANSFORM_H_
