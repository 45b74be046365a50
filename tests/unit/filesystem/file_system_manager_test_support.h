// Shared by the FileSystemManager tests: a manager over a package in memory, and the way to
// save that package and read it again.
#ifndef TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_MANAGER_TEST_SUPPORT_H_
#define TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_MANAGER_TEST_SUPPORT_H_

#include <memory>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/perms.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/vkservices/file_system_manager.h>

namespace opc {
namespace vkservices {
namespace detail {

// Reaches the manager's private steps that a test checks on their own: part naming and what
// the manager claims of its package.
class FileSystemManagerAccess {
 public:
  static opc::model::PartName makeUniquePartName(FileSystemManager const& manager,
                                                 std::u16string const& path) {
    return manager.makeUniquePartName(path);
  }
  static std::vector<std::u16string> managedPartNames(FileSystemManager const& manager) {
    return manager.doGetManagedPartNames();
  }
  static std::vector<std::u16string> managedRelationshipTypes(FileSystemManager const& manager) {
    return manager.doGetManagedRelationshipTypes();
  }
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

namespace opcvk_test {

inline opc::model::ContentType textType() { return opc::model::ContentType(u"text/plain"); }

inline opc::Perms::Perms_tag perms(unsigned value) {
  return static_cast<opc::Perms::Perms_tag>(value);
}

inline opc::Perms::Perms_tag unknownPerms() { return perms(65535); }

inline boost::posix_time::ptime noTime() {
  return boost::posix_time::ptime(boost::posix_time::not_a_date_time);
}

// A package in memory and a manager over it.  The package is declared first so that it
// outlives the manager.
struct ManagedPackage {
  explicit ManagedPackage(std::vector<unsigned char> archive = {},
                          opc::model::PackageAccess access = opc::model::PackageAccess::Create)
      : package(opc::model::Package::openBuffer(std::move(archive), access)),
        manager(std::make_unique<opc::vkservices::FileSystemManager>(
            *package, opc::FileSystemOpsSelector())) {}

  // Saves the package and returns the archive.
  std::vector<unsigned char> save() {
    package->save();
    return package->getBuffer();
  }

  std::unique_ptr<opc::model::Package> package;
  std::unique_ptr<opc::vkservices::FileSystemManager> manager;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_MANAGER_TEST_SUPPORT_H_
