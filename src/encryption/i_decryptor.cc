#include <opc/vkservices/i_decryptor.h>

namespace opc {
namespace vkservices {

// The interface holds no state: its special members are defined here only so that its
// virtual table and type information live once, in the library.
IDecryptor::IDecryptor() = default;
IDecryptor::IDecryptor(IDecryptor const&) = default;
IDecryptor& IDecryptor::operator=(IDecryptor const&) = default;
IDecryptor::~IDecryptor() = default;

}  // namespace vkservices
}  // namespace opc
