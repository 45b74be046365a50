// interfaces::ICryptoProvider: what a CryptoEngine asks of the code that does the work.
#ifndef FOUNDATION_CRYPTO_I_CRYPTO_PROVIDER_H_
#define FOUNDATION_CRYPTO_I_CRYPTO_PROVIDER_H_

#include <string>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/crypto_prng.h>
#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/i_crypto_prng.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {
namespace interfaces {

// The primitives behind CryptoEngine.  cryptopp::CryptoProvider is the implementation over
// OpenSSL; the engine's operations of the same names describe each one.  All operations are
// const, keep no state between calls, and may run on several threads at once.
class FOUNDATION_CRYPTO_EXPORT ICryptoProvider {
 public:
  ICryptoProvider() = default;
  ICryptoProvider(ICryptoProvider const&) = default;
  ICryptoProvider& operator=(ICryptoProvider const&) = default;
  virtual ~ICryptoProvider();

  virtual AESKey<utils::AESKeySize<256>> createAES256Key(bytes const& keyBytes) const = 0;
  virtual AESEncryptor<utils::AESKeySize<256>> createAES256Encryptor(
      AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
      utils::AESPaddingMode padding, ICryptoPRNG const& generator) const = 0;
  virtual AESDecryptor<utils::AESKeySize<256>> createAES256Decryptor(
      AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
      utils::AESPaddingMode padding, ICryptoPRNG const& generator) const = 0;
  virtual DigestEngine<utils::HMACSHA256DigestAlgorithm> createHMACSHA256DigestEngine(
      bytes const& key) const = 0;
  // The same for a key that is a secret of the caller's.
  virtual DigestEngine<utils::HMACSHA256DigestAlgorithm> createHMACSHA256DigestEngine(
      SecureBytes const& key) const = 0;
  virtual CryptoPRNG<utils::DefaultPRNGAlgorithm> createDefaultCryptoPRNG(
      bytes const& seed) const = 0;

  // PBKDF2-HMAC-SHA-256 (RFC 8018) of the bytes of `password` and `salt`, `iterations`
  // rounds, `keyLength` bytes of output.  The result is secret material: the caller should
  // wipe it (secureWipe) when done.  Raises utils::Exception for fewer than 1 iteration or
  // byte, or if OpenSSL fails.  Takes as long as `iterations` says: a caller that takes the
  // count from untrusted data must bound it first.
  virtual bytes deriveKeyUsingPBKDF2(std::string const& password, std::string const& salt,
                                     int iterations, int keyLength) const = 0;
  // The same with the password and the result in wiped buffers.
  virtual SecureBytes deriveKeyUsingPBKDF2(SecureBytes const& password, bytes const& salt,
                                           int iterations, int keyLength) const = 0;
};

}  // namespace interfaces
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_I_CRYPTO_PROVIDER_H_
