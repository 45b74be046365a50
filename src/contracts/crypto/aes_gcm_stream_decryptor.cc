#include <foundation/crypto/aes_gcm_stream_decryptor.h>
#include <foundation/crypto/exceptions.h>

#include "cipher_context.h"

namespace foundation {
namespace crypto {

AESGCMStreamDecryptor::AESGCMStreamDecryptor(AESKey<utils::AESKeySize<256>> const& key,
                                             bytes const& iv)
    : cipher_(std::make_unique<detail::CipherContext>(
          key.getKeyBytes(), iv.data(), iv.size(), utils::AESMode::GCM,
          utils::AESPaddingMode::NoPadding, detail::Direction::Decrypt)) {}

AESGCMStreamDecryptor::AESGCMStreamDecryptor(AESGCMStreamDecryptor&& other) noexcept = default;
AESGCMStreamDecryptor& AESGCMStreamDecryptor::operator=(AESGCMStreamDecryptor&& other) noexcept =
    default;
AESGCMStreamDecryptor::~AESGCMStreamDecryptor() = default;

void AESGCMStreamDecryptor::update(unsigned char const* in, std::size_t size, unsigned char* out) {
  if (!cipher_) throw utils::CouldNotDecrypt("The AES-256-GCM decryptor was moved from.");
  cipher_->update(in, size, out);
}

void AESGCMStreamDecryptor::finish(bytes const& tag) { finish(tag.data(), tag.size()); }

void AESGCMStreamDecryptor::finish(unsigned char const* tag, std::size_t size) {
  if (!cipher_) throw utils::CouldNotDecrypt("The AES-256-GCM decryptor was moved from.");
  cipher_->setTag(tag, size);
  cipher_->finishAndVerify();
}

}  // namespace crypto
}  // namespace foundation
