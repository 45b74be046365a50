#include "encryption/file_system_encryption.h"

#include <utility>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/encoding.h>

#include "encryption/crypto_decryptor.h"
#include "encryption/crypto_digest_engine.h"
#include "encryption/crypto_encryptor.h"
#include "encryption/decryption_with_inline_iv_transform.h"
#include "encryption/deterministic_iv_generator.h"
#include "encryption/encryption_with_inline_iv_transform.h"
#include "encryption/random_iv_generator.h"

namespace opc {
namespace vkservices {
namespace detail {

FileSystemEncryption::FileSystemEncryption()
    : encryptionTypeAndMode_("AES256-GCM"), digestAlgorithm_("HMAC-SHA256") {}

FileSystemEncryption::~FileSystemEncryption() = default;

void FileSystemEncryption::enableEncryption(bytes const& key, IVMode mode, bytes const& ivBytes) {
  std::size_t const ivSize = foundation::crypto::CryptoEngine::getAESBlockSizeInBytes();
  if (mode == IVMode::RandomIV) {
    ivGenerator_ = std::make_shared<RandomIVGenerator>(ivSize, ivBytes);
  } else {
    ivGenerator_ = std::make_shared<DeterministicIVGenerator>(ivSize, ivBytes);
  }
  encryptor_ = std::make_shared<CryptoEncryptor>(key);
  // The same bytes key the names: one key is all a reader needs.
  auto digestEngine = std::make_shared<CryptoDigestEngine>(key);
  digestEngine->initialize(digestAlgorithm_);
  digestEngine_ = std::move(digestEngine);
}

void FileSystemEncryption::enableDecryption(bytes const& key) {
  decryptor_ = std::make_shared<CryptoDecryptor>(key);
}

std::u16string FileSystemEncryption::hiddenName(std::u16string const& encoded) const {
  // The code units in little-endian order, whatever the machine's order, so that every
  // implementation names the same path alike.
  bytes units;
  units.reserve(encoded.size() * 2);
  for (char16_t const unit : encoded) {
    units.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    units.push_back(static_cast<std::uint8_t>(unit >> 8));
  }
  bytes const digest = digestEngine_->computeDigest(units.data(), units.data() + units.size());
  return u"/" + foundation::crypto::utils::hexEncode(digest);
}

std::unique_ptr<IContentSource> FileSystemEncryption::encrypting(
    std::unique_ptr<IContentSource> source) const {
  return std::make_unique<EncryptionWithInlineIVTransform>(std::move(source), encryptor_,
                                                           encryptionTypeAndMode_, ivGenerator_);
}

std::unique_ptr<IContentSource> FileSystemEncryption::decrypting(
    opc::model::Part const& part, std::unique_ptr<IContentSource> source,
    std::string const& typeAndMode) const {
  // The part handle names the part: a part made again under the same name in between is
  // read the second time, and fails there, since it is no longer what was authenticated.
  auto reopen = [part]() -> std::unique_ptr<IContentSource> {
    return std::make_unique<PartContentSource>(part);
  };
  return std::make_unique<DecryptionWithInlineIVTransform>(
      std::move(source), decryptor_, typeAndMode,
      DecryptionWithInlineIVTransform::Authentication::BeforeFirstByte, std::move(reopen));
}

std::unique_ptr<IContentSource> FileSystemEncryption::decryptingForUnpublishedOutput(
    std::unique_ptr<IContentSource> source, std::string const& typeAndMode) const {
  return std::make_unique<DecryptionWithInlineIVTransform>(
      std::move(source), decryptor_, typeAndMode,
      DecryptionWithInlineIVTransform::Authentication::AtEnd,
      DecryptionWithInlineIVTransform::Reopen());
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
