#include "encryption/transform_failures.h"

#include <iostream>

#include <opc/core/string_conversions.h>

namespace opc {
namespace vkservices {
namespace detail {

void writeFailureLine(char const* withMessage, char const* withoutMessage,
                      std::exception const* cause) {
  if (cause != nullptr) {
    std::cout << withMessage << cause->what() << std::endl;
  } else {
    std::cout << withoutMessage << std::endl;
  }
}

CouldNotTransformContentData transformDataFailure(IContentSource& wrapped) {
  return CouldNotTransformContentData(
      "Failure when attempting to transform data for content type:" +
      opc::toASCIIString(wrapped.getContentType().toString()));
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
