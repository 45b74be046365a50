// DigestEngine: keyed digests (HMAC-SHA-256), at once or in pieces.
#ifndef FOUNDATION_CRYPTO_DIGEST_ENGINE_H_
#define FOUNDATION_CRYPTO_DIGEST_ENGINE_H_

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <string>

#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {

namespace detail {
class MacContext;
}

// Computes digests under the key it was made with.  Two ways, which share one
// implementation and give the same digest for the same data:
//   - at once: `computeDigest` of a buffer or a whole stream, which leaves the running
//     digest alone;
//   - in pieces: `addData` as often as needed, then `computeDigestFinal`, which returns the
//     digest of everything added since the last final (or construction) and starts over.
// The key lives only inside OpenSSL's keyed state (wiped when released).  Copies carry the
// running digest along and are independent afterwards; a moved-from engine may only be
// destroyed or assigned to.  One object per thread at a time
// (its const operations included); distinct objects from any threads.  Made by
// CryptoEngine::createHMACSHA256DigestEngine; only DigestEngine<HMACSHA256DigestAlgorithm>
// exists.
template <class Algorithm>
class FOUNDATION_CRYPTO_EXPORT DigestEngine {
 public:
  // Any key length, empty included (HMAC allows it).  Raises utils::Exception if OpenSSL
  // cannot set up the keyed state.
  DigestEngine(std::uint8_t const* key, std::size_t keySize);
  explicit DigestEngine(SecureBytes const& key);
  DigestEngine(DigestEngine const& other);
  DigestEngine(DigestEngine&& other) noexcept;
  DigestEngine& operator=(DigestEngine const& other);
  DigestEngine& operator=(DigestEngine&& other) noexcept;
  virtual ~DigestEngine();

  // The digest of `data` (getDigestSize() bytes).  Raises utils::Exception if OpenSSL fails.
  bytes computeDigest(bytes const& data) const;
  // The digest of everything `data` holds until its end, read in pieces.  Raises
  // utils::Exception if the stream fails before its end or OpenSSL fails.
  bytes computeDigest(std::istream& data) const;

  // Adds data to the running digest.  `data` may be null when `size` is 0.
  void addData(bytes const& data);
  void addData(std::uint8_t const* data, std::size_t size);
  // The digest of all data added since the last call (or construction); the running digest
  // starts over empty.
  bytes computeDigestFinal();

  // "HMAC-SHA256".
  std::string getDigestName() const;
  // 32.
  std::size_t getDigestSize() const;
  // The running state; its type is private to this library.
  detail::MacContext& getImpl();

 private:
  // The state right after keying, never fed, duplicated for every digest at once.
  std::unique_ptr<detail::MacContext> keyed_;
  // The running digest of addData.
  std::unique_ptr<detail::MacContext> running_;
};

extern template class DigestEngine<utils::HMACSHA256DigestAlgorithm>;

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_DIGEST_ENGINE_H_
