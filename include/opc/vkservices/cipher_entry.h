// CipherEntry: what a package keeps so that the key of one encrypted thing can be derived
// again from its password.
#ifndef OPC_VKSERVICES_CIPHER_ENTRY_H_
#define OPC_VKSERVICES_CIPHER_ENTRY_H_

#include <string>
#include <vector>

#include <opc/model/relationship_selector.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// One row of the table that CipherDataManager keeps: the relationship that names the
// encrypted thing, and the password hash, salt and initialisation vector from which its key
// is derived again (CipherDataManager::deriveDecryptionKey).  None of the three is a secret:
// they are stored in the package as they are, and the password is never among them.
//
// A value: it owns copies of what it was made with, every getter returns a new copy, and an
// entry changes only by assignment.  Copies are independent; const operations of one entry
// may run on several threads at once.  Nothing is checked here: CipherDataManager refuses
// empty values when an entry is added.
class OPCVK_EXPORT CipherEntry {
 public:
  // Copies the four values.  Raises only std::bad_alloc.
  CipherEntry(opc::model::RelationshipSelector const& relationshipSelector,
              std::vector<unsigned char> const& hash, std::u16string const& salt,
              std::vector<unsigned char> const& iv);
  CipherEntry(CipherEntry const& other);
  CipherEntry& operator=(CipherEntry const& other);
  ~CipherEntry();

  // The relationship this entry belongs to: the table's key.
  opc::model::RelationshipSelector getRelationshipSelector() const;
  // The stored password hash, as the key derivation gave it.
  std::vector<unsigned char> getHash() const;
  // The salt, as text (CipherDataManager::generateRandomSalt makes 32 hexadecimal digits).
  std::u16string getSalt() const;
  // The initialisation vector (CipherDataManager::generateRandomInitVector makes 16 bytes).
  std::vector<unsigned char> getIV() const;

 private:
  opc::model::RelationshipSelector relationshipSelector_;
  std::vector<unsigned char> hash_;
  std::u16string salt_;
  std::vector<unsigned char> iv_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_CIPHER_ENTRY_H_
