// DeterministicIVGenerator: IVs of a fixed portion and a counter, the same in every run.
#ifndef SRC_ENCRYPTION_DETERMINISTIC_IV_GENERATOR_H_
#define SRC_ENCRYPTION_DETERMINISTIC_IV_GENERATOR_H_

#include <cstddef>
#include <cstdint>

#include "encryption/iv_generator.h"

namespace opc {
namespace vkservices {

// The deterministic construction of NIST SP 800-38D: each IV is a fixed portion of 8 bytes
// followed by an 8-byte invocation field, the state of a 64-bit Galois LFSR (polynomial
// x^64 + x^63 + x^61 + x^60 + 1, feedback 0xD800000000000000, period 2^64 - 1) written least
// significant byte first.  The state starts at 1 with every generator, so the IVs begin
// F 01 00 00 00 00 00 00 00, then F 00 00 00 00 00 00 00 D8, then F ... 6C, then F ... 36.
//
// The IV is always 16 bytes, whatever ivSize says.  The state is never stored anywhere: two
// generators with the same fixed portion give the same IVs, and under one key that repeats
// them, which GCM forbids unless the messages are the same too.  There is no check for
// exhaustion of the 2^64 - 1 states.
class DeterministicIVGenerator : public IVGenerator {
 public:
  // Raises InvalidIVBytesSize "IV fixed portion must be at least <N> bytes", N being
  // ivSize / 2, for a shorter `fixedPortion` (an empty one included).  Longer input is cut
  // after its 8th byte; shorter input (possible only for an ivSize under 16) is padded with
  // zero bytes.
  DeterministicIVGenerator(std::size_t ivSize, bytes const& fixedPortion);
  ~DeterministicIVGenerator() override;

  bytes generate() override;

 private:
  static constexpr std::size_t kFixedPortionSize = 8;

  bytes fixedPortion_;
  std::uint64_t state_;
  std::uint64_t const initialState_;
  std::uint64_t const feedback_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_DETERMINISTIC_IV_GENERATOR_H_
