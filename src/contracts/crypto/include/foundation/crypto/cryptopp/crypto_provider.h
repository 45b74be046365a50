// cryptopp::CryptoProvider: the primitives of the crypto library, over OpenSSL 3.
#ifndef FOUNDATION_CRYPTO_CRYPTOPP_CRYPTO_PROVIDER_H_
#define FOUNDATION_CRYPTO_CRYPTOPP_CRYPTO_PROVIDER_H_

#include <string>

#include <foundation/crypto/export.h>
#include <foundation/crypto/i_crypto_provider.h>

namespace foundation {
namespace crypto {
namespace cryptopp {

// The provider that every CryptoEngine of this library is normally made over.  Stateless:
// any number may exist, and one may be shared by any number of engines and threads.  Every
// primitive comes from OpenSSL's libcrypto (EVP): AES-256 in GCM and CBC, HMAC-SHA-256,
// PBKDF2 and the DRBG.
class FOUNDATION_CRYPTO_EXPORT CryptoProvider : public interfaces::ICryptoProvider {
 public:
  CryptoProvider();
  ~CryptoProvider() override;

  AESKey<utils::AESKeySize<256>> createAES256Key(bytes const& keyBytes) const override;
  AESEncryptor<utils::AESKeySize<256>> createAES256Encryptor(
      AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
      utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& generator) const override;
  AESDecryptor<utils::AESKeySize<256>> createAES256Decryptor(
      AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
      utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& generator) const override;
  DigestEngine<utils::HMACSHA256DigestAlgorithm> createHMACSHA256DigestEngine(
      bytes const& key) const override;
  DigestEngine<utils::HMACSHA256DigestAlgorithm> createHMACSHA256DigestEngine(
      SecureBytes const& key) const override;
  CryptoPRNG<utils::DefaultPRNGAlgorithm> createDefaultCryptoPRNG(bytes const& seed) const override;
  bytes deriveKeyUsingPBKDF2(std::string const& password, std::string const& salt, int iterations,
                             int keyLength) const override;
  SecureBytes deriveKeyUsingPBKDF2(SecureBytes const& password, bytes const& salt, int iterations,
                                   int keyLength) const override;
};

}  // namespace cryptopp
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_CRYPTOPP_CRYPTO_PROVIDER_H_
