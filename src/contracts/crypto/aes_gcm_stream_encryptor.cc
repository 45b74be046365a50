#include <foundation/crypto/aes_gcm_stream_encryptor.h>
#include <foundation/crypto/exceptions.h>

#include "cipher_context.h"

namespace foundation {
namespace crypto {

AESGCMStreamEncryptor::AESGCMStreamEncryptor(AESKey<utils::AESKeySize<256>> const& key,
                                             bytes const& iv)
    : cipher_(std::make_unique<detail::CipherContext>(
          key.getKeyBytes(), iv.data(), iv.size(), utils::AESMode::GCM,
          utils::AESPaddingMode::NoPadding, detail::Direction::Encrypt)) {}

AESGCMStreamEncryptor::AESGCMStreamEncryptor(AESGCMStreamEncryptor&& other) noexcept = default;
AESGCMStreamEncryptor& AESGCMStreamEncryptor::operator=(AESGCMStreamEncryptor&& other) noexcept =
    default;
AESGCMStreamEncryptor::~AESGCMStreamEncryptor() = default;

void AESGCMStreamEncryptor::update(unsigned char const* in, std::size_t size, unsigned char* out) {
  if (!cipher_) throw utils::CouldNotEncrypt("The AES-256-GCM encryptor was moved from.");
  cipher_->update(in, size, out);
}

bytes AESGCMStreamEncryptor::finish() {
  if (!cipher_) throw utils::CouldNotEncrypt("The AES-256-GCM encryptor was moved from.");
  unsigned char none[detail::kAesBlockSize];
  cipher_->finish(none);
  return cipher_->getTag();
}

}  // namespace crypto
}  // namespace foundation
