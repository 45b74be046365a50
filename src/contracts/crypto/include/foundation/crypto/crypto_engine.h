// CryptoEngine: the front of the crypto library.
#ifndef FOUNDATION_CRYPTO_CRYPTO_ENGINE_H_
#define FOUNDATION_CRYPTO_CRYPTO_ENGINE_H_

#include <cstddef>
#include <memory>
#include <string>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/crypto_prng.h>
#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/encryption_key_and_hash.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/i_crypto_prng.h>
#include <foundation/crypto/i_crypto_provider.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

// Makes keys, encryptors, decryptors, digest engines and generators over a provider, and
// derives keys from passwords.  Cheap to copy (copies share the provider).  Every operation
// is const and keeps no state, so one engine may serve several threads at once.
//
// Deriving a key from a password
// ------------------------------
// getEncryptionKeyFromPassword(password, salt, iv, a, b) and
// getDecryptionKeyFromPassword(password, salt, hash, iv, a, b) implement derivation scheme 1:
//
//   P      = UTF-8 of the Unicode NFC normalisation of `password`.  The same password typed
//            on systems that compose accents differently ("e" + U+0301 or U+00E9) gives the
//            same key.  An empty password, or one holding an unpaired surrogate (no text),
//            is refused.
//   S      = UTF-8 of `salt` (as it stands, not normalised; an unpaired surrogate becomes
//            U+FFFD), followed by the bytes of `iv`.
//   c      = the work factor: the number of PBKDF2 iterations.
//   master = PBKDF2-HMAC-SHA-256(P, S, c), 32 bytes.
//   key    = HMAC-SHA-256(master, the ASCII text "opcvk key v1"), the AES-256 key.
//   verify = HMAC-SHA-256(master, the ASCII text "opcvk password verifier v1").
//   hash   = 37 bytes: the scheme (1), c as four bytes big-endian, then `verify`.
//
// The hash is what a package stores beside the salt and IV.  It is self-describing, so that
// each package carries its own work factor and a later default can rise without breaking
// older packages.  It is not a secret: the key cannot be computed from it (key and verifier
// are independent outputs of a one-way function of the master), and testing a guessed
// password against it costs a full derivation, as testing it against the encrypted data
// does.  Every intermediate secret (P, master, key) lives in a wiped buffer.
//
// A wrong password is found before anything is decrypted: the verifier is derived again and
// compared with the stored one in constant time (CRYPTO_memcmp); a mismatch raises
// utils::Exception with exactly "Wrong password." and no other hint.
//
// A reader bounds the work before doing any: a stored work factor is accepted only from
// 1,000 to the caller's ceiling (by default getPasswordWorkFactorCap(), 10,000,000, a
// derivation of some seconds), so that a crafted package cannot make it spin for hours.
class FOUNDATION_CRYPTO_EXPORT CryptoEngine {
 public:
  // Raises utils::Exception if `provider` is null.
  explicit CryptoEngine(std::shared_ptr<interfaces::ICryptoProvider> provider);
  CryptoEngine(CryptoEngine const& other);
  CryptoEngine& operator=(CryptoEngine const& other);
  virtual ~CryptoEngine();

  // An AES-256 key of `keyBytes`, which must be exactly 32 bytes: other lengths raise
  // utils::Exception with both lengths in the message (never the bytes).
  AESKey<utils::AESKeySize<256>> createAES256Key(bytes const& keyBytes) const;

  // An encryptor (decryptor) under `key` and `iv` in `mode`: see AESEncryptor and
  // AESDecryptor for the modes, the IV each accepts, and what is raised.  `padding` applies
  // to CBC.  `generator` is not drawn from: the IV is always the caller's.
  AESEncryptor<utils::AESKeySize<256>> createAES256Encryptor(
      AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
      utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& generator) const;
  AESDecryptor<utils::AESKeySize<256>> createAES256Decryptor(
      AESKey<utils::AESKeySize<256>> const& key, bytes const& iv, utils::AESMode mode,
      utils::AESPaddingMode padding, interfaces::ICryptoPRNG const& generator) const;

  // HMAC-SHA-256 under `key` (any length).
  DigestEngine<utils::HMACSHA256DigestAlgorithm> createHMACSHA256DigestEngine(
      bytes const& key) const;

  // A generator personalised with `seed` (mixed in, never the only entropy), or the
  // process's generator for an empty seed.  See CryptoPRNG.
  CryptoPRNG<utils::DefaultPRNGAlgorithm> createDefaultCryptoPRNG(bytes const& seed) const;

  // The process's generator (OpenSSL's public DRBG).
  static CryptoPRNG<utils::DefaultPRNGAlgorithm> getDefaultCryptoPRNG();
  // utils::AESPaddingMode::PKCS7.
  static utils::AESPaddingMode getDefaultAESPaddingMode();
  // 16.
  static std::size_t getAESBlockSizeInBytes();

  // The work factor (PBKDF2 iterations) that a new password key should use: 1,000,000, above
  // the current guidance of 600,000 for PBKDF2-HMAC-SHA-256, so that a derivation costs about
  // a quarter of a second of one core of a current server with SHA extensions
  // (bench/crypto_bench measures it).
  static int getDefaultPasswordWorkFactor();
  // The least work factor getEncryptionKeyFromPassword accepts: 100,000.
  static int getMinimumPasswordWorkFactor();
  // The most a reader accepts by default, and the most getEncryptionKeyFromPassword
  // accepts: 10,000,000.
  static int getPasswordWorkFactorCap();
  // The derivation scheme described above: 1.
  static int getPasswordDerivationScheme();

  // Derives a new key from `password` for encryption: scheme `b`, work factor `a` (see the
  // class comment).  `salt` and `iv` are the caller's, random and new for every key (a
  // CipherDataManager makes them with its generators); together they must hold at least 16
  // bytes.  Returns the key and the hash to store.  Raises utils::Exception, before any
  // derivation work, if `b` is not 1, `a` is below getMinimumPasswordWorkFactor() or above
  // getPasswordWorkFactorCap(), the salt and IV are too short, or the password is empty or
  // not text; and if OpenSSL fails.  Takes as long as `a` iterations of HMAC-SHA-256.
  EncryptionKeyAndHash getEncryptionKeyFromPassword(std::u16string const& password,
                                                    std::u16string const& salt, bytes const& iv,
                                                    int a, int b) const;

  // Derives the key of `password` again, from the `salt`, `iv` and stored `hash` that
  // getEncryptionKeyFromPassword gave.  The hash says the scheme and work factor.  `a` is
  // the largest work factor the caller accepts (0 or less: getPasswordWorkFactorCap());
  // `b` the scheme the caller requires (0: any that this build knows).  Raises
  // utils::Exception, before any derivation work:
  //   - "The stored password hash is not of a known form." for a hash that is not 37 bytes
  //     or names an unknown scheme;
  //   - a message naming both schemes if `b` is given and the hash uses another;
  //   - a message giving the stored work factor and the bound if the factor is above the
  //     ceiling or below 1,000;
  //   - a message saying why, if the password is empty or not text;
  // then, after the derivation, "Wrong password." if the password does not match.
  AESKey<utils::AESKeySize<256>> getDecryptionKeyFromPassword(std::u16string const& password,
                                                              std::u16string const& salt,
                                                              bytes const& hash, bytes const& iv,
                                                              int a, int b) const;

  // The provider this engine works over.
  std::shared_ptr<interfaces::ICryptoProvider> const& getProvider() const noexcept;

 private:
  std::shared_ptr<interfaces::ICryptoProvider> provider_;
};

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_CRYPTO_ENGINE_H_
