// How a random UUID is made from the crypto library's generator, and how sixteen bytes are
// written as a UUID.  Internal to the core properties subsystem; the generator is a parameter so
// that the recipe can be tested with known draws.
#ifndef SRC_COREPROPERTIES_UUID_RECIPE_H_
#define SRC_COREPROPERTIES_UUID_RECIPE_H_

#include <array>
#include <functional>
#include <string>
#include <vector>

#include <foundation/crypto/i_crypto_prng.h>

namespace opc {
namespace vkservices {
namespace detail {

using UUIDBytes = std::array<unsigned char, 16>;

// Sixteen bytes from four draws of eight bytes each: every draw is read as a little-endian
// 64-bit number whose upper 32 bits are the next word, and the word's bytes fill the next
// four bytes of the result, lowest first.  Then the version (byte 6: 0100xxxx, version 4)
// and the variant (byte 8: 10xxxxxx, RFC 4122) are set.  Raises opc::Exception if a draw does
// not give exactly eight bytes; whatever `drawEight` raises passes through.
UUIDBytes makeVersion4UUID(std::function<std::vector<unsigned char>()> const& drawEight);

// The bytes as two lower-case hexadecimal digits each (ASCII), high nibble first, with "-" behind
// bytes 3, 5, 7 and 9: 36 characters.
std::string formatUUID(UUIDBytes const& bytes);

// A version 4 UUID, formatted, from four draws of `generator.generateByteArray(8)`.  What the
// generator raises passes through.
std::string makeRandomUUID(foundation::crypto::interfaces::ICryptoPRNG const& generator);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_UUID_RECIPE_H_
