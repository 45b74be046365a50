// IDigestEngine: the keyed digest that names the parts of an encrypted file system.
#ifndef OPC_VKSERVICES_I_DIGEST_ENGINE_H_
#define OPC_VKSERVICES_I_DIGEST_ENGINE_H_

#include <cstdint>
#include <string>

#include <opc/vkservices/bytes.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// Computes digests under a key that the implementation was made with.  The interface holds
// no state, so its copy operations do nothing.
//
// The library's own implementation is made by FileSystemManager::enableEncryption from the
// same 32 bytes as the encryption key and knows one algorithm, "HMAC-SHA256".
//
// Not synchronised: one thread at a time.
class OPCVK_EXPORT IDigestEngine {
 public:
  IDigestEngine();
  IDigestEngine(IDigestEngine const& other);
  IDigestEngine& operator=(IDigestEngine const& other);
  virtual ~IDigestEngine();

  // Chooses the algorithm.  An implementation raises std::runtime_error for a name it does
  // not know (the library's: "Unsupported digest algorithm.", for anything but exactly
  // "HMAC-SHA256").
  virtual void initialize(std::string const& algorithm) = 0;

  // The digest of the bytes from `first` up to `last` (any memory).  Must not be called
  // before initialize().  Raises the crypto library's exceptions.
  virtual bytes computeDigest(std::uint8_t const* first, std::uint8_t const* last) = 0;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_I_DIGEST_ENGINE_H_
