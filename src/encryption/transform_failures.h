// The console lines and the exception of a transform that failed, shared by the encrypting and
// decrypting transforms.
#ifndef SRC_ENCRYPTION_TRANSFORM_FAILURES_H_
#define SRC_ENCRYPTION_TRANSFORM_FAILURES_H_

#include <exception>

#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/errors.h>

namespace opc {
namespace vkservices {
namespace detail {

// Writes one line to standard output: `withMessage` directly followed by the message of
// `cause`, or `withoutMessage` when there is no cause to tell (an exception that is no
// std::runtime_error).  This and the charset detector's remarks are the library's only
// console output.
void writeFailureLine(char const* withMessage, char const* withoutMessage,
                      std::exception const* cause);

// The exception of a transform whose data could not be transformed, as TransformSource
// raises it: "Failure when attempting to transform data for content type:" directly
// followed by the type of `wrapped`, the source the transform wraps.
CouldNotTransformContentData transformDataFailure(IContentSource& wrapped);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_TRANSFORM_FAILURES_H_
