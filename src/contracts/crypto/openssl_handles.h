// Owning handles for the OpenSSL objects that libvkflcrypto makes, so that every path out of
// an operation, an exception included, frees them.  Freeing a cipher or MAC context wipes
// the key material it holds.  Private to the library.
#ifndef FOUNDATION_CRYPTO_OPENSSL_HANDLES_H_
#define FOUNDATION_CRYPTO_OPENSSL_HANDLES_H_

#include <memory>

#include <openssl/evp.h>
#include <openssl/kdf.h>

namespace foundation {
namespace crypto {
namespace detail {

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

}  // namespace detail
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_OPENSSL_HANDLES_H_
