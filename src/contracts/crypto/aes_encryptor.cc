#include <foundation/crypto/aes_encryptor.h>

#include "aes_messages.h"
#include "cipher_context.h"

namespace foundation {
namespace crypto {

template <class KeySize>
AESEncryptor<KeySize>::AESEncryptor(AESKey<KeySize> const& key, bytes const& iv,
                                    utils::AESMode mode, utils::AESPaddingMode padding)
    : key_(key), iv_(iv), mode_(mode), padding_(padding) {
  detail::checkCipherArguments(mode, padding, iv.size());
}

template <class KeySize>
AESEncryptor<KeySize>::AESEncryptor(AESEncryptor const& other) = default;
template <class KeySize>
AESEncryptor<KeySize>& AESEncryptor<KeySize>::operator=(AESEncryptor const& other) = default;
template <class KeySize>
AESEncryptor<KeySize>::~AESEncryptor() = default;

template <class KeySize>
void AESEncryptor<KeySize>::encrypt(std::istream& plaintext, std::ostream& ciphertext) {
  detail::encryptStream({key_, iv_, mode_, padding_}, plaintext, ciphertext);
}

template <class KeySize>
bytes AESEncryptor<KeySize>::encrypt(bytes const& plaintext) {
  return detail::encryptMessage({key_, iv_, mode_, padding_}, plaintext);
}

template <class KeySize>
std::size_t AESEncryptor<KeySize>::getKeySize() const {
  return KeySize::kBits;
}

template class AESEncryptor<utils::AESKeySize<256>>;

}  // namespace crypto
}  // namespace foundation
