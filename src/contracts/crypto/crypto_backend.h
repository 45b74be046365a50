// CryptoBackend: the one road from libvkflcrypto to OpenSSL.
//
// libcrypto costs every process that maps it a measurable part of its start (the loader maps
// and relocates it and runs its initialisers), and most commands never encrypt, decrypt,
// digest or draw a random byte.  So libvkflcrypto does not link it: every call into OpenSSL
// lives in the companion library libvkflcrypto_openssl (openssl/), loaded the first time an
// operation needs one, and reached only through these plain interfaces.  Nothing here names
// a type of OpenSSL.
//
// The backend does the calls and nothing more: it reports failure by its results and leaves
// OpenSSL's reasons in the thread's error queue, which takeErrors() reads.  Arguments, state
// and the library's messages stay in libvkflcrypto, so that they are the same whatever the
// backend.  Nothing here throws but std::bad_alloc.
//
// Internal to the crypto library and its companion; not installed.
#ifndef FOUNDATION_CRYPTO_CRYPTO_BACKEND_H_
#define FOUNDATION_CRYPTO_CRYPTO_BACKEND_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace foundation {
namespace crypto {
namespace detail {

// Which step of setting an object up failed, so that the caller can say so.
enum class SetupStep {
  kNone,         // nothing failed
  kLoad,         // the algorithm could not be fetched
  kMakeContext,  // its context could not be made
  kSetUp,        // the context could not be given its key, IV or parameters
  kSetPadding,   // CBC only: the padding could not be set
};

// One AES-256 cipher operation (an EVP cipher context); freeing it wipes the key it holds.
class BackendCipher {
 public:
  virtual ~BackendCipher() = default;
  // At most INT_MAX bytes at once; `written` is what went to `out`.
  virtual bool update(unsigned char const* in, int size, unsigned char* out, int* written) = 0;
  virtual bool finish(unsigned char* out, int* written) = 0;
  // The GCM tag: read after an encryption ends, given before a decryption ends.
  virtual bool getTag(unsigned char* tag, std::size_t size) = 0;
  virtual bool setTag(unsigned char const* tag, std::size_t size) = 0;
};

// One HMAC computation (an EVP MAC context); freeing it wipes the key it holds.
class BackendMac {
 public:
  virtual ~BackendMac() = default;
  // A copy of the state, data fed so far included; null on failure.
  virtual std::unique_ptr<BackendMac> duplicate() const = 0;
  virtual bool update(unsigned char const* data, std::size_t size) = 0;
  // `length` is the digest's length, at most `capacity`.
  virtual bool finish(unsigned char* out, std::size_t capacity, std::size_t* length) = 0;
};

// A deterministic random bit generator of its own (an EVP random context), locked, so that
// it may be shared between threads.
class BackendRandom {
 public:
  virtual ~BackendRandom() = default;
  // At most the generator's limit per request.
  virtual bool generate(unsigned char* out, std::size_t size, unsigned strength) = 0;
};

template <class T>
struct Made {
  std::unique_ptr<T> object;  // null unless `failedAt` is kNone
  SetupStep failedAt = SetupStep::kNone;
};

// What the backend offers.  Thread-safe; lives to the end of the process.
class CryptoBackend {
 public:
  // An AES-256 cipher by OpenSSL's name ("AES-256-GCM", "AES-256-CBC") keyed with the 32
  // bytes at `key`.  `aeadIvSize`: the IV's length for an AEAD cipher, set before the IV is
  // given (0: a cipher of fixed IV length).  `padding`: -1 leaves it, 0 or 1 sets it.
  virtual Made<BackendCipher> makeCipher(char const* name, bool encrypt, unsigned char const* key,
                                         unsigned char const* iv, std::size_t aeadIvSize,
                                         int padding) const = 0;
  // HMAC over the digest of that name, keyed with the `keySize` bytes at `key` (any length,
  // 0 included; `key` is not read then).
  virtual Made<BackendMac> makeHmac(char const* digest, unsigned char const* key,
                                    std::size_t keySize) const = 0;
  // A CTR-DRBG over the cipher of that name, a child of OpenSSL's primary generator, made at
  // `strength` bits and personalised with the `size` bytes at `personalisation` (none if 0).
  virtual Made<BackendRandom> makeDrbg(char const* cipher, unsigned strength,
                                       unsigned char const* personalisation,
                                       std::size_t size) const = 0;
  // PBKDF2 over HMAC with the digest of that name into the `keySize` bytes at `key`, with no
  // lower bounds of its own on salt or rounds.  kLoad if PBKDF2 cannot be had, kSetUp if the
  // derivation fails.
  virtual SetupStep pbkdf2(char const* digest, unsigned char const* password,
                           std::size_t passwordSize, unsigned char const* salt,
                           std::size_t saltSize, std::uint64_t rounds, unsigned char* key,
                           std::size_t keySize) const = 0;
  // `size` bytes (at most INT_MAX) from OpenSSL's public generator of this thread.
  virtual bool publicRandom(unsigned char* out, int size) const = 0;
  // Whether the `size` bytes at `a` and `b` are equal, in a time that does not depend on
  // where they differ.
  virtual bool equalInConstantTime(void const* a, void const* b, std::size_t size) const = 0;
  // The text of every entry in this thread's error queue, joined by "; ", which it empties;
  // empty if there was none.
  virtual std::string takeErrors() const = 0;
  // Empties this thread's error queue.
  virtual void discardErrors() const = 0;

 protected:
  ~CryptoBackend() = default;
};

// The backend, loading the companion library on the first call.  Raises utils::Exception
// naming the library and the loader's reason if it cannot be loaded; a later call tries
// again.
CryptoBackend const& cryptoBackend();

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_CRYPTO_BACKEND_H_
