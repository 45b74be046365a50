// Byte buffers of the crypto library: `bytes` for data, `SecureBytes` for secrets.
#ifndef FOUNDATION_CRYPTO_SECURE_BYTES_H_
#define FOUNDATION_CRYPTO_SECURE_BYTES_H_

#include <cstddef>
#include <memory>
#include <vector>

#include <foundation/crypto/export.h>

namespace foundation {
namespace crypto {

// Keys, IVs, digests, plaintext and ciphertext at the library's interfaces.  A `bytes`
// that holds a secret (a key handed out, a derived key) is the caller's to wipe.
using bytes = std::vector<unsigned char>;

// Overwrites `size` bytes at `data` with zeros in a way that the compiler cannot drop as a
// dead store (the C library's explicit_bzero).  Needs nothing of OpenSSL.  `data` may be null
// when `size` is 0.
FOUNDATION_CRYPTO_EXPORT void secureWipe(void* data, std::size_t size) noexcept;

// An allocator that wipes memory before handing it back to `Upstream`, so that a container
// over it leaves no copy of its contents behind: not when it is destroyed, not when it grows
// and moves to a larger block, not when it is shrunk to fit.  Elements that a container
// merely stops using (clear, resize to less) stay in its block until the block is released.
// Stateless if `Upstream` is; all allocators over equal upstreams compare equal.
template <class T, class Upstream = std::allocator<T>>
class FOUNDATION_CRYPTO_EXPORT SecureAllocator {
 public:
  using value_type = T;
  template <class U>
  struct rebind {
    using other =
        SecureAllocator<U, typename std::allocator_traits<Upstream>::template rebind_alloc<U>>;
  };

  SecureAllocator() noexcept = default;
  explicit SecureAllocator(Upstream const& upstream) noexcept : upstream_(upstream) {}
  template <class U, class OtherUpstream>
  SecureAllocator(SecureAllocator<U, OtherUpstream> const& other) noexcept  // NOLINT
      : upstream_(other.upstream()) {}

  T* allocate(std::size_t count) {
    return std::allocator_traits<Upstream>::allocate(upstream_, count);
  }
  void deallocate(T* pointer, std::size_t count) noexcept {
    secureWipe(pointer, count * sizeof(T));
    std::allocator_traits<Upstream>::deallocate(upstream_, pointer, count);
  }

  Upstream const& upstream() const noexcept { return upstream_; }

  template <class U, class OtherUpstream>
  bool operator==(SecureAllocator<U, OtherUpstream> const& other) const noexcept {
    return upstream_ == other.upstream();
  }
  template <class U, class OtherUpstream>
  bool operator!=(SecureAllocator<U, OtherUpstream> const& other) const noexcept {
    return !(*this == other);
  }

 private:
  Upstream upstream_;
};

// The buffer of keys, derived material and every intermediate secret: wiped on release and
// on reallocation.  Not interchangeable with `bytes` (the allocator differs); copy between
// them with the iterator constructors, and wipe a `bytes` copy of a secret yourself.
using SecureBytes = std::vector<unsigned char, SecureAllocator<unsigned char>>;

}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_SECURE_BYTES_H_
