// Owning handles for the OpenSSL objects that libvkflcrypto makes, so that every path out of
// an operation, an exception included, frees them.  Private to the library.
#ifndef FOUNDATION_CRYPTO_OPENSSL_HANDLES_H_
#define FOUNDATION_CRYPTO_OPENSSL_HANDLES_H_

#include <memory>

#include <openssl/evp.h>
#include <openssl/kdf.h>

namespace foundation {
namespace crypto {
namespace detail {

struct CipherFreer {
  void operator()(EVP_CIPHER* cipher) const { EVP_CIPHER_free(cipher); }
};
using CipherHandle = std::unique_ptr<EVP_CIPHER, CipherFreer>;

// Freeing a cipher context wipes the key schedule it holds.
struct CipherContextFreer {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContextHandle = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFreer>;

struct MacFreer {
  void operator()(EVP_MAC* mac) const { EVP_MAC_free(mac); }
};
using MacHandle = std::unique_ptr<EVP_MAC, MacFreer>;

// Freeing a MAC context wipes the keyed state it holds.
struct MacContextFreer {
  void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
};
using MacContextHandle = std::unique_ptr<EVP_MAC_CTX, MacContextFreer>;

struct KdfFreer {
  void operator()(EVP_KDF* kdf) const { EVP_KDF_free(kdf); }
};
using KdfHandle = std::unique_ptr<EVP_KDF, KdfFreer>;

struct KdfContextFreer {
  void operator()(EVP_KDF_CTX* context) const { EVP_KDF_CTX_free(context); }
};
using KdfContextHandle = std::unique_ptr<EVP_KDF_CTX, KdfContextFreer>;

struct RandFreer {
  void operator()(EVP_RAND* rand) const { EVP_RAND_free(rand); }
};
using RandHandle = std::unique_ptr<EVP_RAND, RandFreer>;

struct RandContextFreer {
  void operator()(EVP_RAND_CTX* context) const { EVP_RAND_CTX_free(context); }
};
using RandContextHandle = std::unique_ptr<EVP_RAND_CTX, RandContextFreer>;

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_OPENSSL_HANDLES_H_
