#include <foundation/crypto/aes_decryptor.h>

#include "aes_messages.h"
#include "cipher_context.h"

namespace foundation {
namespace crypto {

template <class KeySize>
AESDecryptor<KeySize>::AESDecryptor(AESKey<KeySize> const& key, bytes const& iv,
                                    utils::AESMode mode, utils::AESPaddingMode padding)
    : key_(key), iv_(iv), mode_(mode), padding_(padding) {
  detail::checkCipherArguments(mode, padding, iv.size());
}

template <class KeySize>
AESDecryptor<KeySize>::AESDecryptor(AESDecryptor const& other) = default;
template <class KeySize>
AESDecryptor<KeySize>& AESDecryptor<KeySize>::operator=(AESDecryptor const& other) = default;
template <class KeySize>
AESDecryptor<KeySize>::~AESDecryptor() = default;

template <class KeySize>
void AESDecryptor<KeySize>::decrypt(std::istream& ciphertext, std::ostream& plaintext) {
  detail::decryptStream({key_, iv_, mode_, padding_}, ciphertext, plaintext);
}

template <class KeySize>
bytes AESDecryptor<KeySize>::decrypt(bytes const& ciphertext) {
  return detail::decryptMessage({key_, iv_, mode_, padding_}, ciphertext);
}

template <class KeySize>
std::size_t AESDecryptor<KeySize>::getKeySize() const {
  return KeySize::kBits;
}

template class AESDecryptor<utils::AESKeySize<256>>;

}  // namespace crypto
}  // namespace foundation
