// CorePropertiesManager: keeps a package's extended core properties in its metadata parts.
#ifndef OPC_VKSERVICES_CORE_PROPERTIES_MANAGER_H_
#define OPC_VKSERVICES_CORE_PROPERTIES_MANAGER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <opc/model/content_type.h>
#include <opc/model/data_manager.h>
#include <opc/model/package.h>
#include <opc/model/uri.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

class CorePropertiesXmlHandler;
class ExtensionXmlHandler;
class ReleaseInfoXmlHandler;

namespace detail {
class CorePropertiesManagerAccess;
}  // namespace detail

// The data manager of a package's extended core properties.  The record lives in three
// metadata parts, each reached by a package relationship of its own type (SchemaBase + the
// path given):
//
//   core          "/metadata/vkcoreProperties.xml", "/package/2012/relationships/coreProperties":
//                 content type, friendly name, release family
//   extension     "/metadata/vkcorePropertiesExtension.xml",
//                 "/package/2014/relationships/corePropertiesExtension": the UUID
//   release-info  "/metadata/vkcorePropertiesReleaseInfo.xml",
//                 "/package/2019/relationships/corePropertiesReleaseInfo": the complete release
//
// and the standard properties in the package model's own core properties part.  Reading
// finds each part by the first relationship of its type (the names above are those of new
// parts); a missing part is skipped.  The order of reading carries meaning: the core part
// sets the release from its family alone, and the release-info part, if there is one, then
// puts the complete record in its place, so that a package without it reads as a legacy
// release.
//
// Loading is lazy: construction reads nothing; getCoreProperties loads once.  Saving belongs
// to the package: setCoreProperties marks the manager dirty, and Package::save() writes the
// parts, always in the order core, extension, release-info, then the standard part.  The
// destructor writes nothing.
//
// Deterministic mode is for packages that must come out byte for byte the same from the same
// input: in it the manager never makes a UUID or stamps a created time, and setCoreProperties
// refuses a record that carries a created time, a modified time or a UUID.  Values read from
// the package stay and are written back in either mode.
//
// The package must outlive the manager.  One thread at a time, const operations included,
// since they load.
class OPCVK_EXPORT CorePropertiesManager : public opc::model::DataManager {
 public:
  // A 32-bit enumeration.  Only Deterministic (1) makes setCoreProperties refuse, and only
  // NotDeterministic (0) makes a save generate a UUID and a created time: a value cast from
  // another number does neither.
  enum DeterministicMode : std::int32_t { NotDeterministic = 0, Deterministic = 1 };

  // Registers with `package` (which must be open, else opc::model::InvalidPackageState) with
  // an empty record (not valid) and the mode fixed for the manager's life.  Reads nothing,
  // and neither loads the XML library nor compiles the core part's schema: the first load
  // whose core part needs the XML parser does (a part of the plain form this library writes
  // is read without it).
  CorePropertiesManager(opc::model::Package& package, DeterministicMode mode);
  // Writes nothing.
  ~CorePropertiesManager() override;

  // A copy of the record, after loading it once.  A package without any of the parts gives
  // the empty record.  Loading raises InvalidCoreProperties with the text of whatever failed
  // (any opc::Exception: a part that is not well-formed or not valid, a value its setter
  // refuses, a missing part, the model's errors), and the next call tries again; values read
  // before the failure stay in the record.  The first load whose core part needs the XML
  // parser compiles the part's built-in schema, and raises opc::model::InvalidXMLSchema
  // "Schema could not be loaded: <parser's text>" unchanged if it does not load.
  CoreProperties getCoreProperties() const;

  // Replaces the record and marks the manager dirty.  Does not load: on a package with
  // properties, call getCoreProperties first, or the first later call that loads reads the
  // package's values into this record.  A UUID in `properties` replaces the current one; if
  // `properties` has none, the current UUID is kept.  In Deterministic mode, raises
  // NondeterministicCoreProperties and changes nothing if `properties` has, checked in this
  // order, a created time ("The createdTime core property should not be set while in
  // deterministic mode."), a last modified time ("The lastModfiedTime core property should
  // not be set while in deterministic mode.") or a UUID ("The UUID core property should not
  // be set while in deterministic mode.").
  void setCoreProperties(CoreProperties const& properties);

 private:
  friend class detail::CorePropertiesManagerAccess;

  // DataManager::load, for const operations.
  void load() const;

  // Reads the three parts, then the standard properties, into the record; raises as
  // getCoreProperties says.
  void doLoad() override;
  // Writes the record.  Raises InvalidCoreProperties "Not all required core properties are
  // set" before touching the package if the record is not valid.  Not in deterministic mode,
  // a record without UUID gets one first, and a record without created time gets the
  // current time when the core part is made.  A legacy release removes the release-info
  // part and its relationship (unless the package is open for Read).  Errors of the writers
  // and the model pass unchanged; parts written until then stay written.
  void doSave() override;
  // The standard core properties part, then the core, extension and release-info parts.
  std::vector<std::u16string> doGetManagedPartNames() const override;
  // The relationship types of the same four parts, in the same order.
  std::vector<std::u16string> doGetManagedRelationshipTypes() const override;

  static opc::model::URI getPartURI();
  static opc::model::ContentType getPartContentType();
  static std::u16string getRelationshipType();
  static opc::model::URI getExtensionPartURI();
  static opc::model::ContentType getExtensionPartContentType();
  static std::u16string getExtensionRelationshipType();
  static opc::model::URI getReleaseInfoPartURI();
  static opc::model::ContentType getReleaseInfoPartContentType();
  static std::u16string getReleaseInfoRelationshipType();

  CoreProperties properties_;
  std::unique_ptr<CorePropertiesXmlHandler> coreHandler_;
  std::unique_ptr<ExtensionXmlHandler> extensionHandler_;
  std::unique_ptr<ReleaseInfoXmlHandler> releaseInfoHandler_;
  DeterministicMode mode_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_CORE_PROPERTIES_MANAGER_H_
