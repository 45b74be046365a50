#include "password_key.h"

#include <cstring>
#include <string>

#include <opc/core/exception.h>
#include <opc/model/uri.h>
#include <opc/vkservices/cipher_entry.h>
#include <opc/vkservices/schema_base.h>

#include "tool_error.h"

namespace opcvk {
namespace {

using foundation::crypto::CryptoEngine;

// The one refusal of a derivation that says the password is wrong, in the crypto library's
// documented words.
constexpr char kWrongPassword[] = "Wrong password.";

}  // namespace

opc::model::RelationshipSelector fileSystemSelector() {
  return opc::model::RelationshipSelector(opc::model::URI(u"/"),
                                          opc::model::RelationshipSelectorType::ByType,
                                          std::u16string(opc::vkservices::SchemaBase) +
                                              u"/package/2013/relationships/filesystemManifest");
}

bool hasFileSystemEntry(opc::vkservices::CipherDataManager const& cipherData) {
  return cipherData.hasCipherEntry(fileSystemSelector());
}

Key newFileSystemKey(opc::vkservices::CipherDataManager& cipherData, Password const& password,
                     int workFactor) {
  std::u16string const salt = cipherData.generateRandomSalt();
  std::vector<unsigned char> const iv = cipherData.generateRandomInitVector();
  PasswordText const text(password);
  auto const made = cipherData.deriveEncryptionKey(text.text(), salt, iv, workFactor,
                                                   CryptoEngine::getPasswordDerivationScheme());
  opc::model::RelationshipSelector const selector = fileSystemSelector();
  if (cipherData.hasCipherEntry(selector)) cipherData.deleteCipherEntry(selector);
  cipherData.addCipherEntry(selector, made.getHash(), salt, iv);
  return made.getKey();
}

Key fileSystemKey(opc::vkservices::CipherDataManager const& cipherData, Password const& password) {
  opc::vkservices::CipherEntry const entry = cipherData.getCipherEntry(fileSystemSelector());
  PasswordText const text(password);
  try {
    // Any work factor up to the crypto library's cap, and any scheme it knows: the package
    // says which.
    return cipherData.deriveDecryptionKey(text.text(), entry.getSalt(), entry.getHash(),
                                          entry.getIV(), 0, 0);
  } catch (opc::Exception const& e) {
    if (std::strcmp(e.what(), kWrongPassword) == 0) throw ToolError("wrong password");
    throw;
  }
}

}  // namespace opcvk
