#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include <boost/system/error_code.hpp>

#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/encoding.h>
#include <foundation/crypto/exceptions.h>
#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/errors.h>

#include "cipherdata/cipher_data_names.h"
#include "cipherdata/cipher_data_xml_handler.h"

namespace opc {
namespace vkservices {
namespace {

constexpr std::uint64_t kFnvOffsetBasis = 0xcbf29ce484222325ULL;
constexpr std::uint64_t kFnvPrime = 0x100000001b3ULL;
// A new table is made for a few entries: a package rarely holds more than one.
constexpr std::size_t kInitialBuckets = 8;

std::uint64_t fnv1a(std::uint64_t hash, std::string const& text) {
  for (char const c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= kFnvPrime;
  }
  return hash;
}

opc::Exception failure(std::string const& message) {
  return opc::Exception(message, boost::system::error_code());
}

}  // namespace

std::size_t detail::RelationshipSelectorHash::operator()(
    opc::model::RelationshipSelector const& selector) const {
  std::uint64_t hash = fnv1a(kFnvOffsetBasis, opc::toUDEString(selector.getSourceURI().toString()));
  hash = fnv1a(hash, opc::toUDEString(selector.getSelectionCriteria()));
  return static_cast<std::size_t>(hash);
}

CipherDataManager::CipherDataManager(opc::model::Package& package)
    : DataManager(package, false),
      entries_(kInitialBuckets),
      cryptoEngine_(),
      xmlHandler_(std::make_unique<CipherDataXmlHandler>()) {
  entries_.max_load_factor(1.0f);
  cryptoEngine_.emplace(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
}

CipherDataManager::~CipherDataManager() = default;

void CipherDataManager::addCipherEntry(opc::model::RelationshipSelector const& relationshipSelector,
                                       std::vector<unsigned char> const& hash,
                                       std::u16string const& salt,
                                       std::vector<unsigned char> const& iv) {
  ensureLoaded();
  if (hash.empty()) throw failure("Input password hash is empty.");
  if (salt.empty()) throw failure("Input salt is empty.");
  if (iv.empty()) throw failure("Input IV is empty.");
  try {
    bool const inserted =
        entries_.try_emplace(relationshipSelector, relationshipSelector, hash, salt, iv).second;
    if (!inserted) {
      throw InvalidCipherData(
          "Unable to create cipher entry. This is likely because the relationshipSelector is "
          "already present.");
    }
  } catch (std::exception const& e) {
    // The duplicate passes through here too, which doubles the prefix of its message: callers
    // of the product family match that text, so it stays.
    throw failure(std::string("Unable to create cipher entry. ") + e.what());
  }
  markAsDirty();
}

void CipherDataManager::deleteCipherEntry(
    opc::model::RelationshipSelector const& relationshipSelector) {
  ensureLoaded();
  auto const found = entries_.find(relationshipSelector);
  if (found == entries_.end()) {
    throw CipherEntryNotFound("No cipher data found for the given RelationshipSelector.");
  }
  entries_.erase(found);
  markAsDirty();
}

CipherEntry CipherDataManager::getCipherEntry(
    opc::model::RelationshipSelector const& relationshipSelector) const {
  ensureLoaded();
  auto const found = entries_.find(relationshipSelector);
  if (found == entries_.end()) {
    throw CipherEntryNotFound("No cipher data found for the given RelationshipSelector.");
  }
  return found->second;
}

bool CipherDataManager::hasCipherEntry(
    opc::model::RelationshipSelector const& relationshipSelector) const {
  ensureLoaded();
  return entries_.find(relationshipSelector) != entries_.end();
}

foundation::crypto::EncryptionKeyAndHash CipherDataManager::deriveEncryptionKey(
    std::u16string const& password, std::u16string const& salt,
    std::vector<unsigned char> const& iv, int a, int b) const {
  try {
    return cryptoEngine_->getEncryptionKeyFromPassword(password, salt, iv, a, b);
  } catch (foundation::crypto::utils::Exception const& e) {
    throw failure(e.what());
  }
}

foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>>
CipherDataManager::deriveDecryptionKey(std::u16string const& password, std::u16string const& salt,
                                       std::vector<unsigned char> const& hash,
                                       std::vector<unsigned char> const& iv, int a, int b) const {
  try {
    return cryptoEngine_->getDecryptionKeyFromPassword(password, salt, hash, iv, a, b);
  } catch (foundation::crypto::utils::Exception const& e) {
    throw failure(e.what());
  }
}

std::u16string CipherDataManager::generateRandomSalt() const {
  return foundation::crypto::utils::hexEncode(generateRandomInitVector());
}

std::vector<unsigned char> CipherDataManager::generateRandomInitVector() const {
  // A generator of the call's own over the process's, dropped when the call ends.
  return cryptoEngine_->createDefaultCryptoPRNG(std::vector<unsigned char>())
      .generateByteArray(foundation::crypto::CryptoEngine::getAESBlockSizeInBytes());
}

std::vector<std::u16string> CipherDataManager::doGetManagedPartNames() const {
  ensureLoaded();
  if (entries_.empty()) return {};
  return {getPartURI().toString()};
}

std::vector<std::u16string> CipherDataManager::doGetManagedRelationshipTypes() const {
  ensureLoaded();
  if (entries_.empty()) return {};
  return {getRelationshipType()};
}

void CipherDataManager::ensureLoaded() const {
  // Loading is part of reading: const queries load on first use, which is why the manager is
  // for one thread at a time.
  const_cast<CipherDataManager&>(*this).load();
}

opc::model::URI CipherDataManager::getPartURI() {
  return opc::model::URI(detail::kCipherDataPartName);
}

opc::model::ContentType CipherDataManager::getPartContentType() {
  return opc::model::ContentType(detail::kCipherDataContentType);
}

std::u16string CipherDataManager::getRelationshipType() {
  return detail::cipherDataRelationshipType();
}

}  // namespace vkservices
}  // namespace opc
