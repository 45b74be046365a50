// CoreProperties: the extended core properties of a package (what kind of package it is, for
// which product release it was written, and its unique identifier) together with the
// standard core properties of the package model.
#ifndef OPC_VKSERVICES_CORE_PROPERTIES_H_
#define OPC_VKSERVICES_CORE_PROPERTIES_H_

#include <string>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <foundation/release_info/release_info.h>
#include <opc/model/core_properties.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

class CorePropertiesManager;

// The record that a caller fills and reads through CorePropertiesManager.  It never touches a
// package: reading and writing are the manager's.
//
// Required, as isValid() tests: a content type, its friendly name, and a release whose family
// is not empty.  Everything else may be missing: the UUID (the manager makes one at the first
// save unless it is in deterministic mode) and every standard property.
//
// Every setter with a rule validates its argument and raises InvalidCorePropertyValue with the
// message given at the setter, leaving the record unchanged; the static isValid... operations
// tell the same without raising.  The standard properties (title, creator, ...) are forwarded
// to the wrapped opc::model::CoreProperties without any check.
//
// The UUID is written once: absent until setUUID or generateAndSetUUID sets it, and then
// fixed; only assigning a whole record replaces it.
//
// A plain value class: copies are independent, copying is member by member.  No locking:
// share a record between threads only for reading.
class OPCVK_EXPORT CoreProperties {
 public:
  using Keywords = std::vector<std::pair<std::u16string, std::u16string>>;

  // An empty record: no content type, no friendly name, a release whose family is empty (a
  // legacy ReleaseInfo of ""), no UUID, no standard property.  Not valid.
  CoreProperties();
  // A record of the running product's release, then setContentType(contentType),
  // setContentTypeFriendlyName(contentTypeFriendlyName) and setORVANERelease(release), in
  // this order; raises what the first of them that fails raises.
  CoreProperties(std::u16string const& contentType, std::u16string const& contentTypeFriendlyName,
                 std::u16string const& release);
  // The same, with setORVANEReleaseInfo(release) as the last step.
  CoreProperties(std::u16string const& contentType, std::u16string const& contentTypeFriendlyName,
                 foundation::release_info::ReleaseInfo const& release);
  CoreProperties(CoreProperties const& other);
  CoreProperties& operator=(CoreProperties const& other);
  ~CoreProperties();

  // --- Extended properties.

  // The media type of the package as a whole.
  std::u16string getContentType() const;
  // Raises InvalidCorePropertyValue "Content type must have the format:
  // application/vnd.veltrance.<product>.<package-type>" unless isValidContentType(value).
  void setContentType(std::u16string const& value);

  // The display name of the content type.
  std::u16string getContentTypeFriendlyName() const;
  // Raises InvalidCorePropertyValue "Content type friendly name must be a non-empty string"
  // unless isValidContentTypeFriendlyName(value); that includes a name that begins or ends
  // with white space, though the message does not say so.
  void setContentTypeFriendlyName(std::u16string const& value);

  // The release family of the release, such as u"R2026b"; empty for the empty record.
  std::u16string getORVANERelease() const;
  // Sets the release from a family alone.  The running product's family, in any case
  // (compared without regard to case), stores the running product's complete record, not a
  // legacy one; any other text stores a legacy record of that family (its characters beyond
  // ASCII as "?").  Raises InvalidCorePropertyValue "ORVANE release must have the format:
  // R<four-digit-year>(a|b)" if the family is not of that form, case included.
  void setORVANERelease(std::u16string const& value);

  // The complete release record.
  foundation::release_info::ReleaseInfo getORVANEReleaseInfo() const;
  // Raises InvalidCorePropertyValue with the release format message (see setORVANERelease)
  // unless isValidORVANEReleaseInfo(value).
  void setORVANEReleaseInfo(foundation::release_info::ReleaseInfo const& value);

  // The identifier of the package, 36 characters, if set.
  boost::optional<std::u16string> getUUID() const;
  // Checks in this order: raises InvalidCorePropertyValue "UUID must have the format:
  // hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh where h is a hexidecimal digit" unless
  // isValidUUID(value), also when a UUID is set already; then "UUID is already set. It can not
  // be overwritten" if a UUID is set and differs from `value` in any character (case
  // included).  Setting the same UUID again does nothing.
  void setUUID(std::u16string const& value);
  // Sets a new random UUID of version 4 (RFC 4122), in lower case, from the cryptographic
  // generator of the crypto library (a new generator each call).  Raises as setUUID, so that
  // on a record that has a UUID it raises "UUID is already set. It can not be overwritten";
  // an exception of the crypto library passes through unchanged.
  void generateAndSetUUID();

  // When the package was created, from the standard properties.
  boost::optional<boost::posix_time::ptime> getCreatedTime() const;
  // Raises InvalidCorePropertyValue "Created time is not a valid value" unless
  // isValidTime(value).
  void setCreatedTime(boost::posix_time::ptime value);
  // When the package was last modified, from the standard properties.
  boost::optional<boost::posix_time::ptime> getLastModifiedTime() const;
  // Raises InvalidCorePropertyValue "Modified time is not a valid value" unless
  // isValidTime(value).
  void setLastModifiedTime(boost::posix_time::ptime value);

  // True if the content type, its friendly name and the release family are all non-empty.
  // Tests emptiness only, not the forms the setters check.
  bool isValid() const;

  // The wrapped standard properties, all of them (also those without a forward below).  The
  // reference is valid as long as the record.  Only the const form is public: call it on a
  // const record (std::as_const) from outside; the writable form is the manager's.
  opc::model::CoreProperties const& opcProps() const;

  // --- Standard properties, forwarded unchecked to the wrapped record.  A getter gives
  // nothing for a property never set.

  boost::optional<std::u16string> getCategory() const;
  void setCategory(std::u16string const& value);
  // The model's creator.
  boost::optional<std::u16string> getCreatedBy() const;
  void setCreatedBy(std::u16string const& value);
  boost::optional<std::u16string> getDescription() const;
  void setDescription(std::u16string const& value);
  // Pairs of (keyword, language); see opc::model::CoreProperties.
  boost::optional<Keywords> getKeywords() const;
  void setKeywords(Keywords const& value);
  boost::optional<std::u16string> getLastModifiedBy() const;
  void setLastModifiedBy(std::u16string const& value);
  boost::optional<std::u16string> getRevision() const;
  void setRevision(std::u16string const& value);
  boost::optional<std::u16string> getTitle() const;
  void setTitle(std::u16string const& value);
  boost::optional<std::u16string> getVersion() const;
  void setVersion(std::u16string const& value);

  // --- Rules and constants.  None of them raises, except that the checks by regular
  // expression (isValidContentType, isValidORVANERelease, isValidORVANEReleaseInfo,
  // isValidUUID, and the setters that use them) load the library that matches them on their
  // first call and raise opc::Exception naming it and the loader's reason if it cannot be
  // loaded.

  // True if `value` parses as a content type whose type is exactly "application" (case
  // included) and whose subtype matches ^vnd\.veltrance\.[\w-]+\.[\w-]+$ (parameters are
  // allowed).  False for text that does not parse.
  static bool isValidContentType(std::u16string const& value);
  // True if `value` is not empty and neither its first nor its last character is white space
  // (opc::hasWhitespace); white space inside is allowed.
  static bool isValidContentTypeFriendlyName(std::u16string const& value);
  // True if `value` is "R", four digits and "a" or "b", exactly in that case.
  static bool isValidORVANERelease(std::u16string const& value);
  // isValidORVANERelease of the record's release family.
  static bool isValidORVANEReleaseInfo(foundation::release_info::ReleaseInfo const& value);
  // False for not_a_date_time and the two infinities, true for every real time.
  static bool isValidTime(boost::posix_time::ptime value);
  // True if `value` is 8-4-4-4-12 hexadecimal digits, of either case, joined by "-".  The
  // version and variant digits are not examined, so that the nil UUID passes.
  static bool isValidUUID(std::u16string const& value);
  // u"00000000-0000-0000-0000-000000000000".
  static std::u16string getNilUUID();
  // The running product's release family.
  static std::u16string getCurrentORVANERelease();
  // The running product's release record.
  static foundation::release_info::ReleaseInfo getCurrentORVANEReleaseInfo();
  // Now, in UTC.
  static boost::posix_time::ptime getCurrentTime();
  // A legacy record of the family `value` (its characters beyond ASCII as "?"), unchecked.
  static foundation::release_info::ReleaseInfo makeLegacyORVANEReleaseInfo(
      std::u16string const& value);

 private:
  friend class CorePropertiesManager;

  // The writable standard properties, for the manager, which reads them from the package.
  opc::model::CoreProperties& opcProps();

  std::u16string contentType_;
  std::u16string contentTypeFriendlyName_;
  foundation::release_info::ReleaseInfo releaseInfo_;
  boost::optional<std::u16string> uuid_;
  opc::model::CoreProperties opcProps_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_CORE_PROPERTIES_H_
