#include <opc/vkservices/cipher_entry.h>

namespace opc {
namespace vkservices {

CipherEntry::CipherEntry(opc::model::RelationshipSelector const& relationshipSelector,
                         std::vector<unsigned char> const& hash, std::u16string const& salt,
                         std::vector<unsigned char> const& iv)
    : relationshipSelector_(relationshipSelector), hash_(hash), salt_(salt), iv_(iv) {}

CipherEntry::CipherEntry(CipherEntry const& other) = default;

CipherEntry& CipherEntry::operator=(CipherEntry const& other) = default;

CipherEntry::~CipherEntry() = default;

opc::model::RelationshipSelector CipherEntry::getRelationshipSelector() const {
  return relationshipSelector_;
}

std::vector<unsigned char> CipherEntry::getHash() const { return hash_; }

std::u16string CipherEntry::getSalt() const { return salt_; }

std::vector<unsigned char> CipherEntry::getIV() const { return iv_; }

}  // namespace vkservices
}  // namespace opc
