#include <utility>

#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/exceptions.h>
#include <opc/vkservices/aes_encryption_transform.h>

#include "encryption/transform_failures.h"

namespace opc {
namespace vkservices {

namespace {

using Key256 = foundation::crypto::utils::AESKeySize<256>;

// CBC, not the GCM of a file system's own content: the two formats are not interchangeable.
constexpr auto kMode = foundation::crypto::utils::AESMode::CBC;

}  // namespace

struct AESEncryptionTransform::Impl {
  foundation::crypto::AESEncryptor<Key256> encryptor;
  bytes initializationVector;
};

AESEncryptionTransform::AESEncryptionTransform(std::unique_ptr<IContentSource> source,
                                               bytes const& key, bytes const& iv)
    : TransformSource(std::move(source)) {
  // Provider and engine live for the constructor only; the key stays inside the encryptor.
  auto const provider = std::make_shared<foundation::crypto::cryptopp::CryptoProvider>();
  foundation::crypto::CryptoEngine const engine(provider);
  bytes initializationVector = iv;
  if (initializationVector.empty()) {
    // A generator of its own for this one purpose.
    initializationVector = engine.createDefaultCryptoPRNG(bytes()).generateByteArray(
        foundation::crypto::CryptoEngine::getAESBlockSizeInBytes());
  }
  auto const aesKey = engine.createAES256Key(key);
  auto const& generator = foundation::crypto::CryptoEngine::getDefaultCryptoPRNG();
  auto const padding = foundation::crypto::CryptoEngine::getDefaultAESPaddingMode();
  auto encryptor =
      engine.createAES256Encryptor(aesKey, initializationVector, kMode, padding, generator);
  impl_ = std::make_shared<Impl>(Impl{std::move(encryptor), std::move(initializationVector)});
}

AESEncryptionTransform::AESEncryptionTransform(std::unique_ptr<IContentSource> source,
                                               bytes const& key)
    : AESEncryptionTransform(std::move(source), key, bytes()) {}

AESEncryptionTransform::~AESEncryptionTransform() = default;

bytes AESEncryptionTransform::getInitializationVector() const {
  return impl_->initializationVector;
}

bool AESEncryptionTransform::mustTransformEntireStream() { return true; }

bool AESEncryptionTransform::transformContentType(opc::model::ContentType const& input,
                                                  opc::model::ContentType& output) {
  output = input;
  output.addParameter(u"encryption", u"AES");
  return true;
}

bool AESEncryptionTransform::transformData(bytes const& input, bytes& output) {
  try {
    output = foundation::crypto::encrypt(input, impl_->encryptor);
    return true;
  } catch (foundation::crypto::utils::CouldNotEncrypt const& e) {
    detail::writeFailureLine("An error within the encryption library occurred:", "", &e);
    return false;
  } catch (...) {
    detail::writeFailureLine("", "An error during the encryption process occurred.", nullptr);
    return false;
  }
}

}  // namespace vkservices
}  // namespace opc
