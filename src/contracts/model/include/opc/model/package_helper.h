// opc::model::PackageHelper: the standard core properties of a package, and the removal of
// package relationships together with their target parts.
#ifndef OPC_MODEL_PACKAGE_HELPER_H_
#define OPC_MODEL_PACKAGE_HELPER_H_

#include <string>

#include <opc/model/core_properties.h>
#include <opc/model/export.h>
#include <opc/model/uri.h>

namespace opc {
namespace model {

class Package;

// Static operations over a package that callers share.  They hold no state; each is safe
// from several threads on different packages, and like the package itself one thread at a
// time on one package.
class OPC_MODEL_EXPORT PackageHelper {
 public:
  PackageHelper() = delete;

  // The core properties of the package: the part that the first package relationship of
  // getCorePropertiesRelationshipType() targets, or failing that the first one of the older
  // type "http://schemas.openxmlformats.org/officedocument/2006/relationships/metadata/
  // core-properties" that earlier writers used.  An empty CoreProperties if there is none.
  //
  // Throws InvalidPackage if that relationship is External, PartNotFound if its target part
  // does not exist, InvalidPartContent if the part's content type is not
  // "application/vnd.openxmlformats-package.core-properties+xml" or its content is not valid
  // (see CorePropertiesXml::read).
  static CoreProperties getCoreProperties(Package const& package);

  // Writes `properties` as the whole content of the core properties part, found as by
  // getCoreProperties.  If there is none, creates getCorePropertiesURI() (Deflate, metadata)
  // with the core properties content type and a package relationship of
  // getCorePropertiesRelationshipType() to it with an id the model chooses; an existing part
  // of that name with that content type but no relationship is reused.  A relationship whose
  // target part is missing gets the part created at its target.  Nothing is saved: that is
  // Package::save()'s.
  //
  // Throws PackageNotWritable for a package open for Read, InvalidPackage for an External
  // core properties relationship, InvalidPartContent if the part to be written exists with
  // another content type (it is left untouched) or as CorePropertiesXml::write does, and
  // passes the model's errors unchanged.  What was created before a failure stays.
  static void createOrUpdateCoreProperties(Package& package, CoreProperties const& properties);

  // "/docProps/core.xml", the name of a new core properties part.
  static URI getCorePropertiesURI();

  // "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties".
  static std::u16string getCorePropertiesRelationshipType();

  // Deletes every package relationship of `type` and, for each Internal one, the part it
  // targets when that part exists (a missing target is no error, nor are two relationships
  // to one part).  Parts are deleted with their own relationships; other relationships that
  // target them stay, as the conventions allow.  Throws PackageNotWritable for a package
  // open for Read, before anything is changed.
  static void deleteRelationshipsAndTargets(Package& package, std::u16string const& type);
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_HELPER_H_
