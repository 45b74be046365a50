// Helpers of the crypto library's tests: bytes from and to hexadecimal text, a key of a
// given byte, and the texts of a key that no message may contain.
#ifndef TESTS_UNIT_CRYPTO_CRYPTO_TEST_SUPPORT_H_
#define TESTS_UNIT_CRYPTO_CRYPTO_TEST_SUPPORT_H_

#include <cstddef>
#include <stdexcept>
#include <string>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/secure_bytes.h>

namespace opcvk_test {

using foundation::crypto::bytes;
using Key256 = foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>>;

inline bytes fromHex(std::string const& hex) {
  if (hex.size() % 2 != 0) throw std::invalid_argument("odd hex: " + hex);
  auto nibble = [](char c) -> unsigned {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    throw std::invalid_argument(std::string("not hex: ") + c);
  };
  bytes out;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    out.push_back(static_cast<unsigned char>(nibble(hex[i]) << 4 | nibble(hex[i + 1])));
  }
  return out;
}

inline std::string toHex(bytes const& data) {
  static char const digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char byte : data) {
    out += digits[byte >> 4];
    out += digits[byte & 0x0F];
  }
  return out;
}

inline Key256 keyOf(bytes const& data) {
  return Key256(foundation::crypto::SecureBytes(data.begin(), data.end()));
}

inline Key256 keyFromHex(std::string const& hex) { return keyOf(fromHex(hex)); }

inline bytes bytesOf(std::string const& text) { return bytes(text.begin(), text.end()); }

// True if `message` holds `secret` in any form a careless message would use: raw, or as
// hexadecimal in either case.
inline bool mentions(std::string const& message, bytes const& secret) {
  std::string const raw(secret.begin(), secret.end());
  std::string lower = toHex(secret);
  std::string upper = lower;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return message.find(raw) != std::string::npos || message.find(lower) != std::string::npos ||
         message.find(upper) != std::string::npos;
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_CRYPTO_CRYPTO_TEST_SUPPORT_H_
