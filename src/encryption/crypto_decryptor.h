// CryptoDecryptor: IDecryptor over the crypto library, AES-256-GCM under one key.
#ifndef SRC_ENCRYPTION_CRYPTO_DECRYPTOR_H_
#define SRC_ENCRYPTION_CRYPTO_DECRYPTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <opc/vkservices/i_decryptor.h>

#include "encryption/streaming_cipher.h"

namespace opc {
namespace vkservices {

// The decryptor of an encrypted file system, made by FileSystemManager::enableDecryption or
// enableEncryption and shared with the transforms it makes.  Knows one algorithm,
// "AES256-GCM": decrypt() verifies the tag before it returns anything and raises
// foundation::crypto::utils::CouldNotDecrypt on a mismatch, which is how a wrong key shows.
//
// The key lives in the crypto library's AESKey, wiped when this object goes.  One thread at
// a time.
class CryptoDecryptor : public IDecryptor, public detail::StreamingDecryptor {
 public:
  // Raises foundation::crypto::utils::Exception if `key` is not 32 bytes.
  explicit CryptoDecryptor(bytes const& key);
  ~CryptoDecryptor() override;

  // Raises std::runtime_error "Unsupported decryption type and mode." unless `typeAndMode`
  // is exactly "AES256-GCM"; the crypto library's exception for an IV GCM refuses.
  void initialize(std::string const& typeAndMode, bytes const& iv) override;
  // Not guarded against a call before initialize().
  bytes decrypt(std::uint8_t const* first, std::uint8_t const* last) override;

  foundation::crypto::AESGCMStreamDecryptor beginStream() const override;

 private:
  using Key = foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>>;
  using Engine = foundation::crypto::AESDecryptor<foundation::crypto::utils::AESKeySize<256>>;

  std::shared_ptr<foundation::crypto::cryptopp::CryptoProvider> provider_;
  Key key_;
  std::shared_ptr<Engine> engine_;
  bytes iv_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_CRYPTO_DECRYPTOR_H_
