#include <string>
#include <utility>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/exceptions.h>

namespace foundation {
namespace crypto {

template <class KeySize>
AESKey<KeySize>::AESKey(SecureBytes keyBytes) : key_(std::move(keyBytes)) {
  if (key_.size() != KeySize::kBytes) {
    throw utils::Exception("An AES-" + std::to_string(KeySize::kBits) + " key has " +
                           std::to_string(KeySize::kBytes) + " bytes; the key given has " +
                           std::to_string(key_.size()) + " bytes.");
  }
}

template <class KeySize>
AESKey<KeySize>::AESKey(AESKey const& other) = default;
template <class KeySize>
AESKey<KeySize>::AESKey(AESKey&& other) noexcept = default;
template <class KeySize>
AESKey<KeySize>& AESKey<KeySize>::operator=(AESKey const& other) = default;
template <class KeySize>
AESKey<KeySize>& AESKey<KeySize>::operator=(AESKey&& other) noexcept = default;
template <class KeySize>
AESKey<KeySize>::~AESKey() = default;

template <class KeySize>
SecureBytes const& AESKey<KeySize>::getKeyBytes() const noexcept {
  return key_;
}

template class AESKey<utils::AESKeySize<256>>;

}  // namespace crypto
}  // namespace foundation
