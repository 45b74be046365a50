// A package opened from the command line together with the manager of its file system.
#ifndef TOOLS_OPCVK_OPEN_PACKAGE_H_
#define TOOLS_OPCVK_OPEN_PACKAGE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <opc/model/package.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/core_properties_manager.h>
#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

// Which manifests a package holds after a command that writes it.
enum class ManifestForms {
  // The current manifest alone: a package of the older generation is upgraded, and an
  // older manifest kept beside the current one is removed.
  Current,
  // The current manifest and the older (V1) one beside it, both written from the same tree,
  // for readers of the older generation.
  CurrentAndV1,
};

// The choice of the --v1-manifest flag that every command that writes has.
inline ManifestForms manifestForms(bool v1Manifest) {
  return v1Manifest ? ManifestForms::CurrentAndV1 : ManifestForms::Current;
}

class ToolFileSystem;

// How a package that is written is saved.
struct SaveSettings {
  // Threads that compress new parts; 0 is one per processor.
  unsigned compressionThreads = 0;
  // When set, the package is saved reproducibly with this ZIP item time (seconds since
  // 1970-01-01 UTC): see opc::model::PackageOptions::reproducibleTime.
  std::optional<std::int64_t> reproducibleTime;
  // How long a writer waits for another writer of the same package to close it (--wait);
  // 0 gives up at once.
  double waitSeconds = 0;
};

// The settings of a command whose only choice about saving is how long it waits.
inline SaveSettings waitingUpTo(double seconds) {
  SaveSettings settings;
  settings.waitSeconds = seconds;
  return settings;
}

// Opens the package at `path` (an argument in the locale's encoding) for `access` and puts a
// FileSystemManager over it, and a CorePropertiesManager when first asked for.  The managers
// go before the package, as they must.  Nothing is written unless save() is called.  A writer
// waits up to `settings.waitSeconds` for another writer of the same package to close it.
// Failures are the model's exceptions (CouldNotOpenPackage, InvalidPackage, PackageLocked and
// the like), passed on unchanged.
//
// A package of the older generation opened for Read is converted in memory when its file
// system is first used, and reads as a current one.  Opened to be written, it is left as
// `forms` says by save(), whatever the command did to it.
class OpenPackage {
 public:
  OpenPackage(std::string const& path, opc::model::PackageAccess access,
              ManifestForms forms = ManifestForms::Current,
              SaveSettings const& settings = SaveSettings());
  OpenPackage(OpenPackage const&) = delete;
  OpenPackage& operator=(OpenPackage const&) = delete;
  ~OpenPackage();

  opc::model::Package& package() { return *package_; }
  opc::vkservices::FileSystemManager& files();
  // The manager of the extended core properties, made on the first call with `mode`; later
  // calls return the same manager whatever they pass.
  opc::vkservices::CorePropertiesManager& properties(
      opc::vkservices::CorePropertiesManager::DeterministicMode mode =
          opc::vkservices::CorePropertiesManager::NotDeterministic);
  // The package's table of password cipher data, made on first use; what it records is
  // written by save().
  opc::vkservices::CipherDataManager& cipherData();
  // The manifests that save() leaves in the package.
  ManifestForms forms() const { return forms_; }

  // Writes the package (the model writes beside it and renames, so a failure leaves the file
  // as it was), with the manifests that the forms given at opening ask for.  A package that
  // holds an older manifest, or is to hold one, has its file system loaded and its manifests
  // written even when the command changed nothing in it: loading such a package converts it
  // and may delete the parts of its links, which only the manifests written now account for.
  void save();

 private:
  void settleManifests();

  // Declared in this order so that the managers are destroyed first.
  std::unique_ptr<opc::model::Package> package_;
  std::unique_ptr<ToolFileSystem> files_;
  std::unique_ptr<opc::vkservices::CorePropertiesManager> properties_;
  std::unique_ptr<opc::vkservices::CipherDataManager> cipherData_;
  ManifestForms forms_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_OPEN_PACKAGE_H_
