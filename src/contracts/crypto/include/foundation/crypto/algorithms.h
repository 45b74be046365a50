// The algorithm choices of the crypto library: key sizes, AES modes and paddings, and the
// tags that name the digest and generator algorithms in templates.
#ifndef FOUNDATION_CRYPTO_ALGORITHMS_H_
#define FOUNDATION_CRYPTO_ALGORITHMS_H_

#include <cstddef>

#include <foundation/crypto/export.h>

namespace foundation {
namespace crypto {
namespace utils {

// An AES key size in bits, as a type.  Only AESKeySize<256> has an implementation.  These
// tags are exported like the templates they instantiate, which would be hidden otherwise.
template <std::size_t Bits>
struct FOUNDATION_CRYPTO_EXPORT AESKeySize {
  static constexpr std::size_t kBits = Bits;
  static constexpr std::size_t kBytes = Bits / 8;
};

// The block cipher mode of an AES encryptor or decryptor.  The numbers are part of the
// contract: callers pass them as plain values.
enum class AESMode : int {
  // AES-256-CBC: an IV of exactly 16 bytes, the padding of AESPaddingMode, no
  // authentication.  The output is the ciphertext alone.
  CBC = 1,
  // AES-256-GCM: an IV of 1 to 128 bytes (16 in every package of this family; 12 is GCM's
  // fast path), no additional authenticated data, and a 16-byte authentication tag
  // appended after the ciphertext.  Padding does not apply.  Decryption verifies the tag
  // and never returns bytes that it did not authenticate.
  GCM = 3,
};

// The padding of CBC.  GCM ignores it.
enum class AESPaddingMode : int {
  // The input must be a whole number of 16-byte blocks; the output is the same length.
  NoPadding = 0,
  // PKCS#7: 1 to 16 bytes, each holding their count, always added (an empty input gives
  // one block) and checked on decryption.  The library's default.
  PKCS7 = 1,
};

// HMAC-SHA-256, as the algorithm of DigestEngine: 32-byte digests.
struct FOUNDATION_CRYPTO_EXPORT HMACSHA256DigestAlgorithm {
  static constexpr std::size_t kDigestSize = 32;
  static constexpr char const* kName = "HMAC-SHA256";
};

// The default cryptographic generator, as the algorithm of CryptoPRNG: OpenSSL's DRBG
// (CTR-DRBG over AES-256, seeded from the operating system).
struct FOUNDATION_CRYPTO_EXPORT DefaultPRNGAlgorithm {
  static constexpr char const* kName = "CTR-DRBG(AES-256)";
};

}  // namespace utils
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_ALGORITHMS_H_
