// IDecryptor: what decrypts the content of an encrypted file system, one message at a time.
#ifndef OPC_VKSERVICES_I_DECRYPTOR_H_
#define OPC_VKSERVICES_I_DECRYPTOR_H_

#include <cstdint>
#include <string>

#include <opc/vkservices/bytes.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// Decrypts whole messages under a key that the implementation was made with: the inverse of
// IEncryptor.  Each message is begun by initialize() with its IV, then decrypted by one call
// of decrypt().  The interface holds no state, so its copy operations do nothing.
//
// The library's own implementation is made by FileSystemManager::enableDecryption (or
// enableEncryption) from a 32-byte key and knows one algorithm, "AES256-GCM": decrypt()
// takes the ciphertext followed by its 16-byte tag, verifies the tag before it returns
// anything, and raises on a mismatch (altered data or a wrong key).
//
// Not synchronised: one thread at a time.
class OPCVK_EXPORT IDecryptor {
 public:
  IDecryptor();
  IDecryptor(IDecryptor const& other);
  IDecryptor& operator=(IDecryptor const& other);
  virtual ~IDecryptor();

  // Begins a message in the algorithm `typeAndMode` under `iv`.  An implementation raises
  // std::runtime_error for a name it does not know (the library's: "Unsupported decryption
  // type and mode.", for anything but exactly "AES256-GCM", case included).
  virtual void initialize(std::string const& typeAndMode, bytes const& iv) = 0;

  // The plaintext of the message from `first` up to `last`, under the last initialize().
  // Must not be called before initialize().  Raises the crypto library's exceptions, in
  // GCM when the message does not authenticate.
  virtual bytes decrypt(std::uint8_t const* first, std::uint8_t const* last) = 0;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_I_DECRYPTOR_H_
