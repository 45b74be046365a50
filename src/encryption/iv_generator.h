// IVGenerator: where the IV of each encrypted message of a file system comes from.
#ifndef SRC_ENCRYPTION_IV_GENERATOR_H_
#define SRC_ENCRYPTION_IV_GENERATOR_H_

#include <cstddef>

#include <opc/vkservices/bytes.h>

namespace opc {
namespace vkservices {

// Gives one IV per call.  One generator serves every message of one file system, shared by
// the manager and the transforms it makes; one thread at a time.
class IVGenerator {
 public:
  explicit IVGenerator(std::size_t ivSize);
  IVGenerator(IVGenerator const&) = delete;
  IVGenerator& operator=(IVGenerator const&) = delete;
  virtual ~IVGenerator();

  // The next IV.
  virtual bytes generate() = 0;

  // The intended IV size in bytes (16 for every generator the manager makes).
  std::size_t getIVSize() const { return ivSize_; }

 protected:
  std::size_t const ivSize_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_IV_GENERATOR_H_
