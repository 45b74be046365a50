// IEncryptor: what encrypts the content of an encrypted file system, one message at a time.
#ifndef OPC_VKSERVICES_I_ENCRYPTOR_H_
#define OPC_VKSERVICES_I_ENCRYPTOR_H_

#include <cstdint>
#include <string>

#include <opc/vkservices/bytes.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// Encrypts whole messages under a key that the implementation was made with.  Each message
// is begun by initialize() with its own IV, then encrypted by one call of encrypt().  The
// interface holds no state, so its copy operations do nothing.
//
// The library's own implementation is made by FileSystemManager::enableEncryption from a
// 32-byte key and knows one algorithm, "AES256-GCM": the output of encrypt() is the
// ciphertext, as long as the input, followed by the 16-byte authentication tag.
//
// Not synchronised: one thread at a time.
class OPCVK_EXPORT IEncryptor {
 public:
  IEncryptor();
  IEncryptor(IEncryptor const& other);
  IEncryptor& operator=(IEncryptor const& other);
  virtual ~IEncryptor();

  // Begins a message in the algorithm `typeAndMode` under `iv`, replacing whatever message
  // was begun before.  An implementation raises std::runtime_error for a name it does not
  // know (the library's: "Unsupported encryption type and mode.", for anything but exactly
  // "AES256-GCM", case included), and the crypto library's own exception for an IV that
  // the algorithm refuses.
  virtual void initialize(std::string const& typeAndMode, bytes const& iv) = 0;

  // The encryption of the bytes from `first` up to `last` (any memory; an empty range is
  // an empty message) as one message, under the last initialize().  Must not be called
  // before initialize(); calling it twice under one IV is not prevented here, and in GCM it
  // gives the key's authentication away.  Raises the crypto library's exceptions.
  virtual bytes encrypt(std::uint8_t const* first, std::uint8_t const* last) = 0;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_I_ENCRYPTOR_H_
