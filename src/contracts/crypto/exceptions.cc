#include <foundation/crypto/exceptions.h>

namespace foundation {
namespace crypto {
namespace utils {

Exception::Exception(std::string const& message) : std::runtime_error(message) {}
Exception::~Exception() = default;

CouldNotEncrypt::CouldNotEncrypt(std::string const& message) : Exception(message) {}
CouldNotEncrypt::~CouldNotEncrypt() = default;

CouldNotDecrypt::CouldNotDecrypt(std::string const& message) : Exception(message) {}
CouldNotDecrypt::~CouldNotDecrypt() = default;

}  // namespace utils
}  // namespace crypto
}  // namespace foundation
