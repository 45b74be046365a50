// The whole public interface of the crypto library (libvkflcrypto).
//
// The library does its cryptography through OpenSSL, in a private backend library
// (libvkflcrypto_openssl.so.1, installed beside libvkflcrypto) that it loads the first time an
// operation needs it: a cipher that runs, a digest, a key derivation, random bytes, a password
// check.  Making values, checking arguments, the text encodings and secureWipe never load it.
// If it cannot be loaded, the operation that needed it raises utils::Exception (a cipher
// raises utils::CouldNotEncrypt or utils::CouldNotDecrypt after its direction) with the text
//   The crypto library libvkflcrypto_openssl.so.1 could not be loaded: <the loader's reason>
// and a later operation tries again.
#ifndef FOUNDATION_CRYPTO_H_
#define FOUNDATION_CRYPTO_H_

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/aes_gcm_stream_decryptor.h>
#include <foundation/crypto/aes_gcm_stream_encryptor.h>
#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/crypto_prng.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/encoding.h>
#include <foundation/crypto/encryption_key_and_hash.h>
#include <foundation/crypto/exceptions.h>
#include <foundation/crypto/i_crypto_prng.h>
#include <foundation/crypto/i_crypto_provider.h>
#include <foundation/crypto/i_decryptor.h>
#include <foundation/crypto/i_encryptor.h>
#include <foundation/crypto/secure_bytes.h>

#endif  // FOUNDATION_CRYPTO_H_
