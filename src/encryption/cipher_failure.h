// How a failure of the cipher in the middle of a stream becomes the failure of its transform.
#ifndef SRC_ENCRYPTION_CIPHER_FAILURE_H_
#define SRC_ENCRYPTION_CIPHER_FAILURE_H_

#include <exception>
#include <functional>

#include <opc/vkservices/errors.h>

namespace opc {
namespace vkservices {
namespace detail {

// Called with the exception that the cipher raised (null for one that is no
// std::runtime_error); writes the transform's console line and gives back the exception for
// the caller to throw.  Failures of the stream that is read pass by it, unchanged.
using CipherFailure = std::function<CouldNotTransformContentData(std::exception const*)>;

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_CIPHER_FAILURE_H_
