// SHA-256 for the interoperability peer, which prints a digest of every part so that two
// implementations can be compared without either trusting the other's hashing.
#ifndef TESTS_INTEGRATION_INTEROP_SHA256_H_
#define TESTS_INTEGRATION_INTEROP_SHA256_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace opcvk_interop {

// FIPS 180-4 SHA-256, fed piece by piece.
class Sha256 {
 public:
  Sha256();
  void update(unsigned char const* data, std::size_t size);
  // The digest as 64 lower-case hexadecimal digits.  The object is spent afterwards.
  std::string hexDigest();

 private:
  void block(unsigned char const* data);

  std::array<std::uint32_t, 8> state_;
  std::array<unsigned char, 64> buffer_;
  std::size_t buffered_ = 0;
  std::uint64_t length_ = 0;
};

}  // namespace opcvk_interop

#endif  // TESTS_INTEGRATION_INTEROP_SHA256_H_
