// bytes: the buffers of transforms, keys, IVs and digests.
#ifndef OPC_VKSERVICES_BYTES_H_
#define OPC_VKSERVICES_BYTES_H_

#include <cstdint>
#include <vector>

namespace opc {
namespace vkservices {

// A run of bytes.  The same type as the crypto library's foundation::crypto::bytes, so that
// keys and IVs pass between the two without a copy.  A `bytes` that holds a key is the
// caller's to wipe when done with it.
using bytes = std::vector<std::uint8_t>;

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_BYTES_H_
