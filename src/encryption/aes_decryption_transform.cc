#include <utility>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/exceptions.h>
#include <opc/vkservices/aes_decryption_transform.h>

#include "encryption/transform_failures.h"

namespace opc {
namespace vkservices {

namespace {

using Key256 = foundation::crypto::utils::AESKeySize<256>;

constexpr auto kMode = foundation::crypto::utils::AESMode::CBC;

}  // namespace

struct AESDecryptionTransform::Impl {
  foundation::crypto::AESDecryptor<Key256> decryptor;
};

// The IV is passed on as given, an empty one included: the crypto library judges it.
AESDecryptionTransform::AESDecryptionTransform(std::unique_ptr<IContentSource> source,
                                               bytes const& key, bytes const& iv)
    : TransformSource(std::move(source)) {
  auto const provider = std::make_shared<foundation::crypto::cryptopp::CryptoProvider>();
  foundation::crypto::CryptoEngine const engine(provider);
  auto const aesKey = engine.createAES256Key(key);
  auto const& generator = foundation::crypto::CryptoEngine::getDefaultCryptoPRNG();
  auto const padding = foundation::crypto::CryptoEngine::getDefaultAESPaddingMode();
  impl_ = std::make_shared<Impl>(
      Impl{engine.createAES256Decryptor(aesKey, iv, kMode, padding, generator)});
}

AESDecryptionTransform::~AESDecryptionTransform() = default;

bool AESDecryptionTransform::mustTransformEntireStream() { return true; }

bool AESDecryptionTransform::transformContentType(opc::model::ContentType const& input,
                                                  opc::model::ContentType& output) {
  output = input;
  output.removeParameter(u"encryption");
  return true;
}

bool AESDecryptionTransform::transformData(bytes const& input, bytes& output) {
  try {
    output = foundation::crypto::decrypt(input, impl_->decryptor);
    return true;
  } catch (foundation::crypto::utils::CouldNotDecrypt const& e) {
    detail::writeFailureLine("An error within the decryption library occurred:", "", &e);
    return false;
  } catch (...) {
    detail::writeFailureLine("", "An error during the decryption process occurred.", nullptr);
    return false;
  }
}

}  // namespace vkservices
}  // namespace opc
