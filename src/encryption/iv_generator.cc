#include "encryption/iv_generator.h"

namespace opc {
namespace vkservices {

IVGenerator::IVGenerator(std::size_t ivSize) : ivSize_(ivSize) {}

IVGenerator::~IVGenerator() = default;

}  // namespace vkservices
}  // namespace opc
