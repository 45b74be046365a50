#include "open_package.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <opc/core/file_system_ops_selector.h>
#include <opc/model/package_options.h>

#include "manifests.h"
#include "paths.h"

namespace opcvk {

// The file system manager with the one thing the tool needs beyond its public operations: to
// have its manifests written at the next save although nothing in the tree changed.
class ToolFileSystem : public opc::vkservices::FileSystemManager {
 public:
  using FileSystemManager::FileSystemManager;

  void markManifestsForSave() {
    // Loaded first: a manager marked while unloaded would write its empty tree.
    getVersion();
    markAsDirty();
  }
};

namespace {

opc::model::PackageOptions optionsFor(opc::model::PackageAccess access,
                                      SaveSettings const& settings) {
  opc::model::PackageOptions options;
  // Saving compresses the new parts, which is most of the work of a pack: a person waiting
  // for the tool wants every processor on it, unless told otherwise.
  if (access != opc::model::PackageAccess::Read) {
    options.compressionThreads = settings.compressionThreads;
    options.reproducibleTime = settings.reproducibleTime;
  }
  double const milliseconds = std::ceil(settings.waitSeconds * 1000);
  options.lockWaitMilliseconds = milliseconds >= 1e18
                                     ? opc::model::PackageOptions::kWaitForever
                                     : static_cast<std::uint64_t>(std::max(milliseconds, 0.0));
  return options;
}

}  // namespace

OpenPackage::OpenPackage(std::string const& path, opc::model::PackageAccess access,
                         ManifestForms forms, SaveSettings const& settings)
    : package_(opc::model::Package::open(fromArgument(path), access, optionsFor(access, settings))),
      files_(std::make_unique<ToolFileSystem>(*package_, opc::FileSystemOpsSelector())),
      forms_(forms) {
  // Before anything loads: the first load decides what becomes of an older manifest.
  files_->setSaveV1Manifest(access != opc::model::PackageAccess::Read &&
                            forms == ManifestForms::CurrentAndV1);
}

OpenPackage::~OpenPackage() = default;

opc::vkservices::FileSystemManager& OpenPackage::files() { return *files_; }

opc::vkservices::CorePropertiesManager& OpenPackage::properties(
    opc::vkservices::CorePropertiesManager::DeterministicMode mode) {
  if (!properties_) {
    properties_ = std::make_unique<opc::vkservices::CorePropertiesManager>(*package_, mode);
  }
  return *properties_;
}

opc::vkservices::CipherDataManager& OpenPackage::cipherData() {
  if (!cipherData_) cipherData_ = std::make_unique<opc::vkservices::CipherDataManager>(*package_);
  return *cipherData_;
}

void OpenPackage::save() {
  settleManifests();
  package_->save();
}

void OpenPackage::settleManifests() {
  HeldManifests const held = heldManifests(*package_);
  // With the older manifest kept, a package converted at load has lost its link parts
  // without its manager being marked; a package read in the older form through the current
  // relationship has too.  Writing the manifests makes the package whole again, and writes
  // the older manifest where it is wanted.
  if (forms_ == ManifestForms::CurrentAndV1 || held.v1 || held.readInOlderForm) {
    files_->markManifestsForSave();
  }
  // An older manifest beside the current one was not read, and is not written: it goes,
  // rather than go on naming what the package held before this command.
  if (forms_ == ManifestForms::Current && held.current && held.v1) {
    removeOlderManifest(*package_);
  }
}

}  // namespace opcvk
