#include "encryption/streaming_cipher.h"

namespace opc {
namespace vkservices {
namespace detail {

StreamingEncryptor::~StreamingEncryptor() = default;

StreamingDecryptor::~StreamingDecryptor() = default;

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
