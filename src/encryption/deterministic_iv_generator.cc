#include "encryption/deterministic_iv_generator.h"

#include <string>

#include <opc/vkservices/errors.h>

namespace opc {
namespace vkservices {

DeterministicIVGenerator::DeterministicIVGenerator(std::size_t ivSize, bytes const& fixedPortion)
    : IVGenerator(ivSize), state_(0), initialState_(1), feedback_(0xD800000000000000ULL) {
  // Unlike a seed, the fixed portion is the whole of what tells one generator's IVs from
  // another's: it may not be left out.
  if (fixedPortion.size() < ivSize_ / 2) {
    throw InvalidIVBytesSize("IV fixed portion must be at least " + std::to_string(ivSize_ / 2) +
                             " bytes");
  }
  fixedPortion_ = fixedPortion;
  fixedPortion_.resize(kFixedPortionSize, 0);
  state_ = initialState_;
}

DeterministicIVGenerator::~DeterministicIVGenerator() = default;

bytes DeterministicIVGenerator::generate() {
  bytes iv = fixedPortion_;
  for (std::size_t i = 0; i < sizeof(state_); ++i) {
    iv.push_back(static_cast<std::uint8_t>(state_ >> (8 * i)));
  }
  std::uint64_t const bit = state_ & 1U;
  state_ >>= 1;
  if (bit != 0) state_ ^= feedback_;
  return iv;
}

}  // namespace vkservices
}  // namespace opc
