// CipherDataManager: the table of password cipher data kept in a package, and the derivation
// of keys from passwords.
#ifndef OPC_VKSERVICES_CIPHER_DATA_MANAGER_H_
#define OPC_VKSERVICES_CIPHER_DATA_MANAGER_H_

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <boost/optional.hpp>

#include <foundation/crypto/aes_key.h>
#include <foundation/crypto/algorithms.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/encryption_key_and_hash.h>
#include <opc/model/content_type.h>
#include <opc/model/data_manager.h>
#include <opc/model/package.h>
#include <opc/model/relationship_selector.h>
#include <opc/model/uri.h>
#include <opc/vkservices/cipher_entry.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

class CipherDataXmlHandler;

namespace detail {
class CipherDataManagerAccess;

// The hash of the table's keys: 64-bit FNV-1a over the source URI followed by the criteria,
// both in the user's default encoding.  The selector type takes no part: selectors that
// differ only in it share a hash value and are told apart by equality.
struct RelationshipSelectorHash {
  std::size_t operator()(opc::model::RelationshipSelector const& selector) const;
};
}  // namespace detail

// Keeps, for each encrypted thing of a package, what is needed to derive its key again from
// a password: the password hash, the salt and the initialisation vector, in a CipherEntry
// keyed by the relationship that names the thing.  The table lives in the part
// "/metadata/vkCipherData.xml" (content type
// "application/vnd.veltrance.package.cipherData+xml"), reached from the package by a
// relationship of type SchemaBase + "/package/2018/relationships/cipherData".  The manager
// stores and returns the values; it never encrypts anything itself.
//
// Loading is lazy: construction reads nothing, and every table operation first reads the
// part (once; a load that failed is tried again by the next operation).  A load failure is
// InvalidCipherData with the words of its cause: the parser's text for a document that is
// not well-formed or not valid, "XML signature: RelationshipSelector is not present." for an
// entry without its selector, "RelationshipSelector xml element missing SourceURI
// attribute." (SelectorType, SelectorValue) for a selector without an attribute,
// "XML signature: Hash is empty." (Salt, IV) for an empty value, "Cipher data in the package
// has multiple entries with the same values." for two entries under one selector, and
// "The cipher data part is larger than 4194304 bytes" for a part beyond that size.  A hash
// or IV that is not strict base64 raises foundation::crypto::utils::Exception unchanged.  The
// first load that finds the part compiles the built-in schema, and raises
// opc::model::InvalidXMLSchema "Schema could not be loaded: <parser's text>", unchanged, if
// it does not load.
// An element "NewEntry" inside an entry, which later writers may add, is accepted and not
// read; it is lost when the table is saved again.
//
// Saving belongs to the package: a change marks the manager dirty and Package::save() writes
// the part.  An empty table writes nothing, so a part already in the package keeps its old
// content.  Nothing is written by the destructor.
//
// Deriving keys from passwords
// ----------------------------
// deriveEncryptionKey and deriveDecryptionKey hand their arguments, in their order, to
// foundation::crypto::CryptoEngine, whose header is the full contract.  In short:
//  - the password is text; its Unicode NFC form in UTF-8 enters the derivation, so that a
//    password typed with composed or decomposed accents gives the same key.  It must not be
//    empty.  The salt (as UTF-8 text) and the IV together must hold at least 16 bytes; the
//    generators below make 32 characters and 16 bytes.
//  - on encryption, `a` is the work factor (PBKDF2-HMAC-SHA-256 iterations, from
//    CryptoEngine::getMinimumPasswordWorkFactor() to getPasswordWorkFactorCap(); new keys
//    should use getDefaultPasswordWorkFactor(), 1,000,000, about a quarter of a second of
//    one core) and `b` the derivation scheme (CryptoEngine::getPasswordDerivationScheme(),
//    1).
//  - the hash returned beside the key is what an entry stores.  It names the scheme and the
//    work factor, so that a package carries everything a reader needs but the password, and
//    a later default can rise without breaking older packages.  It is no secret: neither the
//    key nor a faster test of a guessed password than a whole derivation follows from it.
//  - on decryption, `a` is the largest work factor the caller accepts (0: the cap) and `b`
//    the scheme the caller requires (0: any this build knows).  A stored hash of an unknown
//    form, or one that asks for more work than `a` allows (or less than 1,000 iterations),
//    is refused before any work is done, so that a crafted package cannot make a reader
//    spin for hours.  A password that does not match the stored hash is refused with
//    exactly "Wrong password." after one derivation, by a constant-time comparison, before
//    anything has been decrypted.
// Every refusal of the crypto library reaches the caller as opc::Exception with its words.
// Keys come back in foundation::crypto::AESKey, whose buffer is wiped when it goes.
//
// Not copyable.  The package must outlive the manager.  Used by one thread at a time, like
// its package; the four key operations touch no state of the manager.
class OPCVK_EXPORT CipherDataManager : public opc::model::DataManager {
 public:
  // Ties the manager to `package` (which must be open; see DataManager) and makes the XML
  // handler and the crypto engine; reads nothing, and neither loads the XML library nor
  // compiles the part's schema: the first load that finds the part does.
  explicit CipherDataManager(opc::model::Package& package);
  ~CipherDataManager() override;

  // Adds an entry under `relationshipSelector`.  Loads first.  Raises opc::Exception, with
  // the table unchanged, "Input password hash is empty.", "Input salt is empty." or "Input
  // IV is empty." (checked in this order); for a selector already in the table,
  // opc::Exception "Unable to create cipher entry. Unable to create cipher entry. This is
  // likely because the relationshipSelector is already present." (the prefix is doubled);
  // for any other failure while inserting, opc::Exception "Unable to create cipher entry. "
  // followed by its text.  Marks the manager dirty.
  void addCipherEntry(opc::model::RelationshipSelector const& relationshipSelector,
                      std::vector<unsigned char> const& hash, std::u16string const& salt,
                      std::vector<unsigned char> const& iv);

  // Removes the entry of `relationshipSelector`.  Loads first.  Raises CipherEntryNotFound
  // "No cipher data found for the given RelationshipSelector." if there is none.  Marks the
  // manager dirty.  Removing the last entry leaves the part in the package as it was.
  void deleteCipherEntry(opc::model::RelationshipSelector const& relationshipSelector);

  // A copy of the entry of `relationshipSelector`.  Loads first.  Raises
  // CipherEntryNotFound "No cipher data found for the given RelationshipSelector." if there
  // is none.
  CipherEntry getCipherEntry(opc::model::RelationshipSelector const& relationshipSelector) const;

  // Whether the table holds an entry for `relationshipSelector`.  Loads first; a package
  // without a cipher data part gives false.  Selectors are equal when source, type and
  // criteria all are.
  bool hasCipherEntry(opc::model::RelationshipSelector const& relationshipSelector) const;

  // A new key for `password`, and the hash to store beside `salt` and `iv` (see above): `a`
  // the work factor, `b` the scheme.  Takes as long as `a` iterations of HMAC-SHA-256.
  // Raises opc::Exception with the crypto library's words, before any work, for a scheme
  // it does not know, a work factor outside its bounds, a salt and IV of fewer than 16
  // bytes, or a password that is empty or not text.
  foundation::crypto::EncryptionKeyAndHash deriveEncryptionKey(std::u16string const& password,
                                                               std::u16string const& salt,
                                                               std::vector<unsigned char> const& iv,
                                                               int a, int b) const;

  // The key of `password` again, from the `salt`, stored `hash` and `iv` of an entry: `a`
  // the largest work factor accepted (0: the cap), `b` the scheme required (0: any).  Raises
  // opc::Exception with the crypto library's words: before any work for a hash of an
  // unknown form or scheme, a work factor beyond the bounds, or a password that is empty or
  // not text; "Wrong password." after the derivation if the password does not match.
  foundation::crypto::AESKey<foundation::crypto::utils::AESKeySize<256>> deriveDecryptionKey(
      std::u16string const& password, std::u16string const& salt,
      std::vector<unsigned char> const& hash, std::vector<unsigned char> const& iv, int a,
      int b) const;

  // A new random salt: 16 bytes from the process's cryptographic generator, as 32 lower-case
  // hexadecimal digits.  Raises foundation::crypto::utils::Exception if the generator fails.
  std::u16string generateRandomSalt() const;

  // A new random initialisation vector of 16 bytes from the process's cryptographic
  // generator.  Raises foundation::crypto::utils::Exception if the generator fails.
  std::vector<unsigned char> generateRandomInitVector() const;

 private:
  friend class detail::CipherDataManagerAccess;

  // Reads the part, if the package has one, into the table, which it replaces.
  void doLoad() override;
  // Writes the table into its part, making the part and its relationship if needed; an
  // empty table writes nothing.
  void doSave() override;
  // Loads; then the part's name, or nothing for an empty table.
  std::vector<std::u16string> doGetManagedPartNames() const override;
  // Loads; then the relationship type, or nothing for an empty table.
  std::vector<std::u16string> doGetManagedRelationshipTypes() const override;

  void ensureLoaded() const;

  static opc::model::URI getPartURI();
  static opc::model::ContentType getPartContentType();
  static std::u16string getRelationshipType();

  using Table = std::unordered_map<opc::model::RelationshipSelector, CipherEntry,
                                   detail::RelationshipSelectorHash>;

  Table entries_;
  boost::optional<foundation::crypto::CryptoEngine> cryptoEngine_;
  std::unique_ptr<CipherDataXmlHandler> xmlHandler_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_CIPHER_DATA_MANAGER_H_
