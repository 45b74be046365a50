#include <opc/vkservices/i_digest_engine.h>

namespace opc {
namespace vkservices {

// The interface holds no state: its special members are defined here only so that its
// virtual table and type information live once, in the library.
IDigestEngine::IDigestEngine() = default;
IDigestEngine::IDigestEngine(IDigestEngine const&) = default;
IDigestEngine& IDigestEngine::operator=(IDigestEngine const&) = default;
IDigestEngine::~IDigestEngine() = default;

}  // namespace vkservices
}  // namespace opc
