// CryptoEngine: the derivation of keys from passwords (the scheme is described in
// crypto_engine.h).
#include <cstddef>
#include <cstdint>
#include <string>

#include <fl/i18n/charset.h>
#include <fl/i18n/normalization.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/encryption_key_and_hash.h>
#include <foundation/crypto/exceptions.h>

#include "crypto_backend.h"

namespace foundation {
namespace crypto {
namespace {

constexpr int kScheme = 1;
constexpr int kDefaultWorkFactor = 1000000;
constexpr int kMinimumWorkFactor = 100000;
constexpr int kWorkFactorCap = 10000000;
// Below this no stored work factor is believed: it would make guessing cheap.
constexpr std::uint32_t kReaderFloor = 1000;
constexpr std::size_t kMinimumSaltSize = 16;
constexpr int kMasterSize = 32;
constexpr std::size_t kVerifierSize = 32;
// Scheme, work factor, verifier.
constexpr std::size_t kHashSize = 1 + 4 + kVerifierSize;
constexpr char kKeyLabel[] = "opcvk key v1";
constexpr char kVerifierLabel[] = "opcvk password verifier v1";

// P: the UTF-8 bytes of the NFC form of the password, in a wiped buffer.
SecureBytes passwordBytes(std::u16string const& password) {
  if (password.empty()) throw utils::Exception("The password is empty.");
  std::u16string normal;
  try {
    normal = fl::i18n::normalizeNfc(password);
  } catch (fl::i18n::I18nError const& e) {
    throw utils::Exception(std::string("The password is not valid text. ") + e.what() + ".");
  }
  // The two plain strings on the way are wiped by hand: each is written once, at its final
  // size, so no other copy of them was left behind by a reallocation.
  std::string utf8 = fl::i18n::ustring_to_utf8(normal);
  secureWipe(&normal[0], normal.size() * sizeof(char16_t));
  SecureBytes out(utf8.begin(), utf8.end());
  secureWipe(&utf8[0], utf8.size());
  return out;
}

// S: the UTF-8 bytes of the salt followed by the IV.
bytes saltBytes(std::u16string const& salt, bytes const& iv) {
  std::string const utf8 = fl::i18n::ustring_to_utf8(salt);
  bytes out(utf8.begin(), utf8.end());
  out.insert(out.end(), iv.begin(), iv.end());
  return out;
}

bytes labelBytes(char const* label) {
  return bytes(label, label + std::char_traits<char>::length(label));
}

struct Derived {
  SecureBytes key;
  bytes verifier;
};

// The expensive part: PBKDF2, then the key and the verifier from the master.
Derived derive(interfaces::ICryptoProvider const& provider, SecureBytes const& password,
               bytes const& salt, int workFactor) {
  SecureBytes const master = provider.deriveKeyUsingPBKDF2(password, salt, workFactor, kMasterSize);
  auto const hmac = provider.createHMACSHA256DigestEngine(master);
  bytes plainKey = hmac.computeDigest(labelBytes(kKeyLabel));
  Derived derived{SecureBytes(plainKey.begin(), plainKey.end()),
                  hmac.computeDigest(labelBytes(kVerifierLabel))};
  secureWipe(plainKey.data(), plainKey.size());
  return derived;
}

std::string iterations(std::uint64_t count) { return std::to_string(count) + " iterations"; }

}  // namespace

int CryptoEngine::getDefaultPasswordWorkFactor() { return kDefaultWorkFactor; }
int CryptoEngine::getMinimumPasswordWorkFactor() { return kMinimumWorkFactor; }
int CryptoEngine::getPasswordWorkFactorCap() { return kWorkFactorCap; }
int CryptoEngine::getPasswordDerivationScheme() { return kScheme; }

EncryptionKeyAndHash CryptoEngine::getEncryptionKeyFromPassword(std::u16string const& password,
                                                                std::u16string const& salt,
                                                                bytes const& iv, int a,
                                                                int b) const {
  if (b != kScheme) {
    throw utils::Exception("Key derivation scheme " + std::to_string(b) +
                           " is not known; this build knows scheme " + std::to_string(kScheme) +
                           ".");
  }
  if (a < kMinimumWorkFactor || a > kWorkFactorCap) {
    throw utils::Exception("The work factor must be from " + std::to_string(kMinimumWorkFactor) +
                           " to " + iterations(kWorkFactorCap) + "; " + std::to_string(a) +
                           " was given.");
  }
  bytes const saltAndIv = saltBytes(salt, iv);
  if (saltAndIv.size() < kMinimumSaltSize) {
    throw utils::Exception("The salt and IV together must have at least 16 bytes; they have " +
                           std::to_string(saltAndIv.size()) + ".");
  }
  Derived const derived = derive(*provider_, passwordBytes(password), saltAndIv, a);
  bytes hash;
  hash.reserve(kHashSize);
  hash.push_back(static_cast<unsigned char>(kScheme));
  for (int shift = 24; shift >= 0; shift -= 8) {
    hash.push_back(static_cast<unsigned char>(static_cast<std::uint32_t>(a) >> shift));
  }
  hash.insert(hash.end(), derived.verifier.begin(), derived.verifier.end());
  return EncryptionKeyAndHash(AESKey<utils::AESKeySize<256>>(derived.key), hash);
}

AESKey<utils::AESKeySize<256>> CryptoEngine::getDecryptionKeyFromPassword(
    std::u16string const& password, std::u16string const& salt, bytes const& hash, bytes const& iv,
    int a, int b) const {
  if (hash.size() != kHashSize || hash[0] != kScheme) {
    throw utils::Exception("The stored password hash is not of a known form.");
  }
  if (b != 0 && b != hash[0]) {
    throw utils::Exception("The stored password hash uses key derivation scheme " +
                           std::to_string(hash[0]) + ", not the required scheme " +
                           std::to_string(b) + ".");
  }
  std::uint32_t workFactor = 0;
  for (std::size_t i = 1; i <= 4; ++i) workFactor = (workFactor << 8) | hash[i];
  auto const ceiling = static_cast<std::uint32_t>(a > 0 ? a : kWorkFactorCap);
  if (workFactor > ceiling) {
    throw utils::Exception("The stored password hash asks for a work factor of " +
                           iterations(workFactor) + ", above the ceiling of " +
                           iterations(ceiling) + ".");
  }
  if (workFactor < kReaderFloor) {
    throw utils::Exception("The stored password hash asks for a work factor of " +
                           iterations(workFactor) + ", below the floor of " +
                           iterations(kReaderFloor) + ".");
  }
  Derived const derived = derive(*provider_, passwordBytes(password), saltBytes(salt, iv),
                                 static_cast<int>(workFactor));
  if (!detail::cryptoBackend().equalInConstantTime(derived.verifier.data(), hash.data() + 5,
                                                   kVerifierSize)) {
    throw utils::Exception("Wrong password.");
  }
  return AESKey<utils::AESKeySize<256>>(derived.key);
}

}  // namespace crypto
}  // namespace foundation
