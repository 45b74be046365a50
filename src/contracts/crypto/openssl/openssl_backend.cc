// The crypto backend over OpenSSL 3's libcrypto: the library that libvkflcrypto loads the
// first time an operation needs OpenSSL.  Only the EVP interfaces are used (deprecated calls
// do not compile).  Each function is one OpenSSL call or the few that make one object; what
// the results mean, and the messages, are libvkflcrypto's.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <climits>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include "crypto_backend.h"

namespace foundation {
namespace crypto {
namespace detail {
namespace {

// Owning handles, so that every path out of a set-up frees what it made.  Freeing a cipher
// or MAC context wipes the key material it holds.
template <class T, void (*Free)(T*)>
struct OpenSslFreer {
  void operator()(T* object) const { Free(object); }
};

template <class T, void (*Free)(T*)>
using OpenSslHandle = std::unique_ptr<T, OpenSslFreer<T, Free>>;

using CipherHandle = OpenSslHandle<EVP_CIPHER, EVP_CIPHER_free>;
using CipherContextHandle = OpenSslHandle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using MacHandle = OpenSslHandle<EVP_MAC, EVP_MAC_free>;
using MacContextHandle = OpenSslHandle<EVP_MAC_CTX, EVP_MAC_CTX_free>;
using KdfHandle = OpenSslHandle<EVP_KDF, EVP_KDF_free>;
using KdfContextHandle = OpenSslHandle<EVP_KDF_CTX, EVP_KDF_CTX_free>;
using RandHandle = OpenSslHandle<EVP_RAND, EVP_RAND_free>;
using RandContextHandle = OpenSslHandle<EVP_RAND_CTX, EVP_RAND_CTX_free>;

// OpenSSL's parameters do not take pointers to const, though these are only read.  An empty
// buffer is passed as a valid pointer of length 0.
unsigned char* readOnly(unsigned char const* data, std::size_t size) {
  static unsigned char const kNone = 0;
  return const_cast<unsigned char*>(size == 0 ? &kNone : data);
}

class OpenSslCipher : public BackendCipher {
 public:
  explicit OpenSslCipher(CipherContextHandle context) : context_(std::move(context)) {}

  bool update(unsigned char const* in, int size, unsigned char* out, int* written) override {
    return EVP_CipherUpdate(context_.get(), out, written, in, size) == 1;
  }

  bool finish(unsigned char* out, int* written) override {
    return EVP_CipherFinal_ex(context_.get(), out, written) == 1;
  }

  bool getTag(unsigned char* tag, std::size_t size) override {
    OSSL_PARAM params[] = {OSSL_PARAM_construct_octet_string(OSSL_CIPHER_PARAM_AEAD_TAG, tag, size),
                           OSSL_PARAM_END};
    return EVP_CIPHER_CTX_get_params(context_.get(), params) == 1;
  }

  bool setTag(unsigned char const* tag, std::size_t size) override {
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_octet_string(OSSL_CIPHER_PARAM_AEAD_TAG, readOnly(tag, size), size),
        OSSL_PARAM_END};
    return EVP_CIPHER_CTX_set_params(context_.get(), params) == 1;
  }

 private:
  CipherContextHandle context_;
};

class OpenSslMac : public BackendMac {
 public:
  explicit OpenSslMac(MacContextHandle context) : context_(std::move(context)) {}

  std::unique_ptr<BackendMac> duplicate() const override {
    MacContextHandle copy(EVP_MAC_CTX_dup(context_.get()));
    if (!copy) return nullptr;
    return std::make_unique<OpenSslMac>(std::move(copy));
  }

  bool update(unsigned char const* data, std::size_t size) override {
    return EVP_MAC_update(context_.get(), data, size) == 1;
  }

  bool finish(unsigned char* out, std::size_t capacity, std::size_t* length) override {
    return EVP_MAC_final(context_.get(), out, length, capacity) == 1;
  }

 private:
  MacContextHandle context_;
};

class OpenSslRandom : public BackendRandom {
 public:
  explicit OpenSslRandom(RandContextHandle context) : context_(std::move(context)) {}

  bool generate(unsigned char* out, std::size_t size, unsigned strength) override {
    return EVP_RAND_generate(context_.get(), out, size, strength, 0, nullptr, 0) == 1;
  }

 private:
  RandContextHandle context_;
};

class OpenSslBackend final : public CryptoBackend {
 public:
  Made<BackendCipher> makeCipher(char const* name, bool encrypt, unsigned char const* key,
                                 unsigned char const* iv, std::size_t aeadIvSize,
                                 int padding) const override {
    Made<BackendCipher> made;
    CipherHandle const cipher(EVP_CIPHER_fetch(nullptr, name, nullptr));
    if (!cipher) return failed(made, SetupStep::kLoad);
    CipherContextHandle context(EVP_CIPHER_CTX_new());
    if (!context) return failed(made, SetupStep::kMakeContext);
    int const encrypting = encrypt ? 1 : 0;
    // The IV length must be set before the IV is given: OpenSSL copies as many IV bytes as
    // the length in force says, 12 for GCM until told otherwise.
    std::size_t ivLength = aeadIvSize;
    OSSL_PARAM const ivParams[] = {
        OSSL_PARAM_construct_size_t(OSSL_CIPHER_PARAM_AEAD_IVLEN, &ivLength), OSSL_PARAM_END};
    if (EVP_CipherInit_ex2(context.get(), cipher.get(), nullptr, nullptr, encrypting,
                           aeadIvSize != 0 ? ivParams : nullptr) != 1 ||
        EVP_CipherInit_ex2(context.get(), nullptr, key, iv, encrypting, nullptr) != 1) {
      return failed(made, SetupStep::kSetUp);
    }
    if (padding >= 0 && EVP_CIPHER_CTX_set_padding(context.get(), padding) != 1) {
      return failed(made, SetupStep::kSetPadding);
    }
    made.object = std::make_unique<OpenSslCipher>(std::move(context));
    return made;
  }

  Made<BackendMac> makeHmac(char const* digest, unsigned char const* key,
                            std::size_t keySize) const override {
    Made<BackendMac> made;
    MacHandle const mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    if (!mac) return failed(made, SetupStep::kLoad);
    MacContextHandle context(EVP_MAC_CTX_new(mac.get()));
    if (!context) return failed(made, SetupStep::kMakeContext);
    OSSL_PARAM const params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, const_cast<char*>(digest), 0),
        OSSL_PARAM_END};
    // A null key would mean "the key of the previous message", which an empty key is not.
    if (EVP_MAC_init(context.get(), readOnly(key, keySize), keySize, params) != 1) {
      return failed(made, SetupStep::kSetUp);
    }
    made.object = std::make_unique<OpenSslMac>(std::move(context));
    return made;
  }

  Made<BackendRandom> makeDrbg(char const* cipher, unsigned strength,
                               unsigned char const* personalisation,
                               std::size_t size) const override {
    Made<BackendRandom> made;
    RandHandle const algorithm(EVP_RAND_fetch(nullptr, "CTR-DRBG", nullptr));
    if (!algorithm) return failed(made, SetupStep::kLoad);
    // The child of the primary DRBG draws its entropy from it, which reseeds from the
    // operating system on its own schedule and after a fork.
    RandContextHandle context(EVP_RAND_CTX_new(algorithm.get(), RAND_get0_primary(nullptr)));
    if (!context) return failed(made, SetupStep::kMakeContext);
    OSSL_PARAM const params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_DRBG_PARAM_CIPHER, const_cast<char*>(cipher), 0),
        OSSL_PARAM_END};
    if (EVP_RAND_CTX_set_params(context.get(), params) != 1 ||
        EVP_RAND_enable_locking(context.get()) != 1 ||
        EVP_RAND_instantiate(context.get(), strength, 0, size == 0 ? nullptr : personalisation,
                             size, nullptr) != 1) {
      return failed(made, SetupStep::kSetUp);
    }
    made.object = std::make_unique<OpenSslRandom>(std::move(context));
    return made;
  }

  SetupStep pbkdf2(char const* digest, unsigned char const* password, std::size_t passwordSize,
                   unsigned char const* salt, std::size_t saltSize, std::uint64_t rounds,
                   unsigned char* key, std::size_t keySize) const override {
    KdfHandle const kdf(EVP_KDF_fetch(nullptr, "PBKDF2", nullptr));
    KdfContextHandle const context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
    if (!context) return SetupStep::kLoad;
    // The lower bounds of SP 800-132 (16 bytes of salt, 1,000 rounds) are OpenSSL's to check
    // only in FIPS mode; the bounds of this library are the engine's, and the primitive takes
    // what RFC 8018 allows.
    int noLowerBounds = 1;
    OSSL_PARAM const params[] = {
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, readOnly(password, passwordSize),
                                          passwordSize),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, readOnly(salt, saltSize), saltSize),
        OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &rounds),
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>(digest), 0),
        OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &noLowerBounds),
        OSSL_PARAM_END};
    if (EVP_KDF_derive(context.get(), key, keySize, params) != 1) return SetupStep::kSetUp;
    return SetupStep::kNone;
  }

  bool publicRandom(unsigned char* out, int size) const override {
    return RAND_bytes(out, size) == 1;
  }

  bool equalInConstantTime(void const* a, void const* b, std::size_t size) const override {
    return CRYPTO_memcmp(a, b, size) == 0;
  }

  std::string takeErrors() const override {
    std::string causes;
    for (unsigned long code = ERR_get_error(); code != 0; code = ERR_get_error()) {
      char text[256];
      ERR_error_string_n(code, text, sizeof text);
      causes += causes.empty() ? "" : "; ";
      causes += text;
    }
    return causes;
  }

  void discardErrors() const override { ERR_clear_error(); }

 private:
  template <class T>
  static Made<T> failed(Made<T>& made, SetupStep step) {
    made.object.reset();
    made.failedAt = step;
    return std::move(made);
  }
};

}  // namespace
}  // namespace detail
}  // namespace crypto
}  // namespace foundation

// The library's one exported symbol, looked up by name by libvkflcrypto.
extern "C" __attribute__((visibility("default"))) foundation::crypto::detail::CryptoBackend const*
vkflcrypto_openssl_backend() {
  // Never destroyed: a caller may still be using it while the process exits.
  static auto const* const backend = new foundation::crypto::detail::OpenSslBackend();
  return backend;
}
