// CryptoEncryptor: IEncryptor over the crypto library, AES-256-GCM under one key.
#ifndef SRC_ENCRYPTION_CRYPTO_ENCRYPTOR_H_
#define SRC_ENCRYPTION_CRYPTO_ENCRYPTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <opc/vkservices/i_encryptor.h>

#include "encryption/streaming_cipher.h"

namespace opc {
namespace vkservices {

// The encryptor of an encrypted file system, made by FileSystemManager::enableEncryption and
// shared with the transforms it makes.  Knows one algorithm, "AES256-GCM" (the crypto
// library's mode 3): a message is its ciphertext followed by the 16-byte tag.
//
// The key lives in the crypto library's AESKey, wiped when this object goes.  Two states:
// made (holding the key), and initialised (holding an engine for the IV of the last
// initialize()).  One thread at a time.
class CryptoEncryptor : public IEncryptor, public detail::StreamingEncryptor {
 public:
  // Raises foundation::crypto::utils::Exception if `key` is not 32 bytes (the message gives
  // the lengths, never the bytes).
  explicit CryptoEncryptor(bytes const& key);
  ~CryptoEncryptor() override;

  // Raises std::runtime_error "Unsupported encryption type and mode." unless `typeAndMode`
  // is exactly "AES256-GCM"; the crypto library's exception for an IV GCM refuses.
  void initialize(std::string const& typeAndMode, bytes const& iv) override;
  // Not guarded against a call before initialize(): callers always initialise first.
  bytes encrypt(std::uint8_t const* first, std::uint8_t const* last) override;

  foundation::crypto::AESGCMStreamEncryptor beginStream() const override;

 private:
  using Key = foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>>;
  using Engine = foundation::crypto::AESEncryptor<foundation::crypto::utils::AESKeySize<256>>;

  std::shared_ptr<foundation::crypto::cryptopp::CryptoProvider> provider_;
  Key key_;
  std::shared_ptr<Engine> engine_;
  // The IV of the last initialize(), for beginStream().
  bytes iv_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_CRYPTO_ENCRYPTOR_H_
