// Export macro of the crypto library (libvkflcrypto).
#ifndef FOUNDATION_CRYPTO_EXPORT_H_
#define FOUNDATION_CRYPTO_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define FOUNDATION_CRYPTO_EXPORT __attribute__((visibility("default")))
#else
#define FOUNDATION_CRYPTO_EXPORT
#endif

#endif  // FOUNDATION_CRYPTO_EXPORT_H_
