// The frame of FileSystemManager: construction, the lazy load, entries and document strings.
#include <opc/core/exception.h>
#include <opc/vkservices/file_system_manager.h>

#include "encryption/file_system_encryption.h"
#include "filesystem/extraction_session.h"
#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {

FileSystemManager::FileSystemManager(opc::model::Package& package,
                                     opc::FileSystemOpsSelector const& selector)
    : opc::model::DataManager(package, false),
      pendingV1Cleanup_(false),
      fileSystemOpsSelector_(selector),
      sourceFS_(nullptr),
      destFS_(nullptr),
      tree_(std::make_unique<FileSystemTree>()),
      manifestXml_(std::make_unique<FileSystemManifestXml>()),
      saveV1Manifest_(false),
      encryption_(std::make_unique<detail::FileSystemEncryption>()) {}

// Members go in reverse order of declaration, which is the order the manager needs: the
// engines before the tree, the manifest reader before the tree it was made for.
FileSystemManager::~FileSystemManager() = default;

std::u16string FileSystemManager::getVersion() const {
  ensureLoaded();
  return tree_->getVersion();
}

std::u16string FileSystemManager::getCreatedByPlatform() const {
  ensureLoaded();
  return tree_->getPlatform();
}

std::u16string FileSystemManager::getCreatedByEncoding() const {
  ensureLoaded();
  return tree_->getEncoding();
}

void FileSystemManager::setSaveV1Manifest(bool saveV1Manifest) { saveV1Manifest_ = saveV1Manifest; }

bool FileSystemManager::isEncryptionEnabled() const { return encryption_->isEncryptionEnabled(); }

bool FileSystemManager::isDecryptionEnabled() const { return encryption_->isDecryptionEnabled(); }

opc::FileSystemOps& FileSystemManager::getSourceFSImpl() const {
  // A null pointer here is a call out of order; a clear error beats undefined behaviour.
  if (sourceFS_ == nullptr)
    throw opc::Exception("No source file system has been chosen yet", boost::system::error_code());
  return *sourceFS_;
}

opc::FileSystemOps& FileSystemManager::getDestFSImpl() const {
  if (destFS_ == nullptr)
    throw opc::Exception("No destination file system has been chosen yet",
                         boost::system::error_code());
  return *destFS_;
}

void FileSystemManager::ensureLoaded() const {
  // Loading is part of reading: const queries load on first use, which is why the manager is
  // for one thread at a time.
  auto& self = const_cast<FileSystemManager&>(*this);
  self.load();
  if (!pendingV1Cleanup_) return;
  if (!saveV1Manifest_) self.cleanupOldPartsAndRelationships();
  pendingV1Cleanup_ = false;
}

FileSystemEntry FileSystemManager::makeEntry(FileSystemNode const& node) const {
  return FileSystemEntry(node);
}

}  // namespace vkservices
}  // namespace opc
