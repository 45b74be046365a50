// IVMode: where the IVs of an encrypted file system come from.
#ifndef OPC_VKSERVICES_IV_MODE_H_
#define OPC_VKSERVICES_IV_MODE_H_

#include <cstdint>

namespace opc {
namespace vkservices {

// The IV of every encrypted message (each file's content, the manifest) is 16 bytes, stored
// in front of the ciphertext.  Only RandomIV is tested for: any other value selects
// DeterministicIV.
enum class IVMode : std::int32_t {
  // Each IV is 16 bytes from a cryptographic random generator.  The bytes given to
  // FileSystemManager::enableEncryption, if any, are a seed mixed into that generator
  // (never its only entropy); empty means no seed, else at least 8 bytes.
  RandomIV = 0,
  // Each IV is a fixed portion of 8 bytes (the first 8 of those given, at least 8 needed)
  // followed by an 8-byte counter that starts afresh at every enableEncryption, so that the
  // same content encrypted again in the same order gives the same bytes.  Under one key,
  // every run that uses the same fixed portion repeats the same IVs: only for output that
  // must be reproducible, with a fixed portion never used with that key for other content.
  DeterministicIV = 1,
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_IV_MODE_H_
