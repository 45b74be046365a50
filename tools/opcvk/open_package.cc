#include "open_package.h"

#include <opc/core/file_system_ops_selector.h>

#include "paths.h"

namespace opcvk {

OpenPackage::OpenPackage(std::string const& path, opc::model::PackageAccess access)
    : package_(opc::model::Package::open(fromArgument(path), access)),
      files_(std::make_unique<opc::vkservices::FileSystemManager>(*package_,
                                                                  opc::FileSystemOpsSelector())) {}

OpenPackage::~OpenPackage() = default;

void OpenPackage::save() { package_->save(); }

}  // namespace opcvk
