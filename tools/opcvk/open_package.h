// A package opened from the command line together with the manager of its file system.
#ifndef TOOLS_OPCVK_OPEN_PACKAGE_H_
#define TOOLS_OPCVK_OPEN_PACKAGE_H_

#include <memory>
#include <string>

#include <opc/model/package.h>
#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

// Opens the package at `path` (an argument in the locale's encoding) for `access` and puts a
// FileSystemManager over it.  The manager goes before the package, as it must.  Nothing is
// written unless save() is called.  Failures are the model's exceptions (CouldNotOpenPackage,
// InvalidPackage and the like), passed on unchanged.
class OpenPackage {
 public:
  OpenPackage(std::string const& path, opc::model::PackageAccess access);
  OpenPackage(OpenPackage const&) = delete;
  OpenPackage& operator=(OpenPackage const&) = delete;
  ~OpenPackage();

  opc::model::Package& package() { return *package_; }
  opc::vkservices::FileSystemManager& files() { return *files_; }

  // Writes the package (the model writes beside it and renames, so a failure leaves the file
  // as it was).
  void save();

 private:
  // Declared in this order so that the manager is destroyed first.
  std::unique_ptr<opc::model::Package> package_;
  std::unique_ptr<opc::vkservices::FileSystemManager> files_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_OPEN_PACKAGE_H_
