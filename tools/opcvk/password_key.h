// Keys of packages protected by a password: the cipher entry that a package keeps for its
// file system, made when the package is encrypted and read to find the key again.
#ifndef TOOLS_OPCVK_PASSWORD_KEY_H_
#define TOOLS_OPCVK_PASSWORD_KEY_H_

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/crypto_engine.h>
#include <opc/model/relationship_selector.h>
#include <opc/vkservices/cipher_data_manager.h>

#include "password_input.h"

namespace opcvk {

using Key = foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>>;

// The selector of the package's own relationship ("/") to the file-system manifest, by its
// type: the key of the cipher entry that protects the file system.
opc::model::RelationshipSelector fileSystemSelector();

// True if the package holds a cipher entry for its file system.  Loads the cipher data;
// raises InvalidCipherData as the manager does for a part it cannot read.
bool hasFileSystemEntry(opc::vkservices::CipherDataManager const& cipherData);

// A new key for `password`: a new salt and IV from the manager's generators, the derivation
// at `workFactor`, and the cipher entry of the file system recorded (replacing one that is
// there), so that the package carries all that a reader needs but the password.  Takes as
// long as the derivation.
Key newFileSystemKey(
    opc::vkservices::CipherDataManager& cipherData, Password const& password,
    int workFactor = foundation::crypto::CryptoEngine::getDefaultPasswordWorkFactor());

// The key of the file system from `password` and its cipher entry.  Raises ToolError
// "wrong password" if the password does not match, and opc::Exception with the crypto
// library's words for an entry it refuses (a stored work factor beyond its bounds, a hash of
// an unknown form), CipherEntryNotFound if there is no entry.
Key fileSystemKey(opc::vkservices::CipherDataManager const& cipherData, Password const& password);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PASSWORD_KEY_H_
