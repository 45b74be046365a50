#include "open_package.h"

#include <opc/core/file_system_ops_selector.h>
#include <opc/model/package_options.h>

#include "paths.h"

namespace opcvk {
namespace {

opc::model::PackageOptions optionsFor(opc::model::PackageAccess access) {
  opc::model::PackageOptions options;
  // Saving compresses the new parts, which is most of the work of a pack: a person waiting
  // for the tool wants every processor on it.
  if (access != opc::model::PackageAccess::Read) options.compressionThreads = 0;
  return options;
}

}  // namespace

OpenPackage::OpenPackage(std::string const& path, opc::model::PackageAccess access)
    : package_(opc::model::Package::open(fromArgument(path), access, optionsFor(access))),
      files_(std::make_unique<opc::vkservices::FileSystemManager>(*package_,
                                                                  opc::FileSystemOpsSelector())) {}

OpenPackage::~OpenPackage() = default;

void OpenPackage::save() { package_->save(); }

}  // namespace opcvk
