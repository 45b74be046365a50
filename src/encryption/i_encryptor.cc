#include <opc/vkservices/i_encryptor.h>

namespace opc {
namespace vkservices {

// The interface holds no state: its special members are defined here only so that its
// virtual table and type information live once, in the library.
IEncryptor::IEncryptor() = default;
IEncryptor::IEncryptor(IEncryptor const&) = default;
IEncryptor& IEncryptor::operator=(IEncryptor const&) = default;
IEncryptor::~IEncryptor() = default;

}  // namespace vkservices
}  // namespace opc
