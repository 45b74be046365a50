// FileSystemEncryption: what a FileSystemManager needs of encryption, in one object.
#ifndef SRC_ENCRYPTION_FILE_SYSTEM_ENCRYPTION_H_
#define SRC_ENCRYPTION_FILE_SYSTEM_ENCRYPTION_H_

#include <memory>
#include <string>

#include <opc/model/part.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/i_decryptor.h>
#include <opc/vkservices/i_digest_engine.h>
#include <opc/vkservices/i_encryptor.h>
#include <opc/vkservices/iv_mode.h>

namespace opc {
namespace vkservices {

class IVGenerator;

namespace detail {

// The engines of one file system's encryption, and the three things the manager does with
// them: name a part, wrap content going into a part, wrap content coming out of one.  The
// manager decides when (Part naming, add, read, load, save); this object decides how.
//
// Holds the algorithm names ("AES256-GCM", "HMAC-SHA256"), and once enabled an IV
// generator, an encryptor and a digest engine (enableEncryption), and a decryptor
// (enableDecryption).  The transforms it makes share them.  The key is held only inside the
// engines, in the crypto library's wiped buffers.  One thread at a time, like its manager.
class FileSystemEncryption {
 public:
  FileSystemEncryption();
  FileSystemEncryption(FileSystemEncryption const&) = delete;
  FileSystemEncryption& operator=(FileSystemEncryption const&) = delete;
  ~FileSystemEncryption();

  // In this order, each replacing what was there: the IV generator of `mode` over `ivBytes`
  // (InvalidIVBytesSize leaves from here with nothing changed), the encryptor over `key`,
  // the digest engine over the same key.  A key the crypto library refuses raises its
  // exception from the encryptor, after the generator was replaced.
  void enableEncryption(bytes const& key, IVMode mode, bytes const& ivBytes);
  // The decryptor over `key`, replacing any earlier one.
  void enableDecryption(bytes const& key);

  bool isEncryptionEnabled() const { return encryptor_ != nullptr; }
  bool isDecryptionEnabled() const { return decryptor_ != nullptr; }

  // The name that stands for the percent-encoded path `encoded` in an encrypted file
  // system: "/" and the lower-case hexadecimal HMAC-SHA-256 of the UTF-16LE code units of
  // `encoded`.  Needs encryption enabled.
  std::u16string hiddenName(std::u16string const& encoded) const;

  // `source` encrypted as a part of an encrypted file system holds it.  Needs encryption
  // enabled.
  std::unique_ptr<IContentSource> encrypting(std::unique_ptr<IContentSource> source) const;

  // The plaintext of `source`, the content of `part`, under the algorithm `typeAndMode` (the
  // value of its type's "encryption" parameter).  Nothing unauthenticated is handed out:
  // large content is read twice, the second time through a new source over `part`.  Needs
  // decryption enabled.
  std::unique_ptr<IContentSource> decrypting(opc::model::Part const& part,
                                             std::unique_ptr<IContentSource> source,
                                             std::string const& typeAndMode) const;

  // As decrypting, in one pass: the read that delivers the last byte checks the tag, and
  // every read before it hands out plaintext that is not yet authenticated.  Only for a
  // caller that writes into a place it publishes once the stream is done.
  std::unique_ptr<IContentSource> decryptingForUnpublishedOutput(
      std::unique_ptr<IContentSource> source, std::string const& typeAndMode) const;

 private:
  std::string const encryptionTypeAndMode_;
  std::shared_ptr<IVGenerator> ivGenerator_;
  std::shared_ptr<IEncryptor> encryptor_;
  std::shared_ptr<IDecryptor> decryptor_;
  std::string const digestAlgorithm_;
  std::shared_ptr<IDigestEngine> digestEngine_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_FILE_SYSTEM_ENCRYPTION_H_
