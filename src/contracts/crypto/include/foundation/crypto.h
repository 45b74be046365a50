// The whole public interface of the crypto library (libvkflcrypto).
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
