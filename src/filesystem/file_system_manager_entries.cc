// Create, delete and read of FileSystemManager.  The steps of each operation keep a fixed
// order, so that it is always the same error that wins.
#include <utility>

#include <opc/core/string_conversions.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "encryption/file_system_encryption.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {

namespace {

constexpr char16_t kEncryptionParameter[] = u"encryption";
constexpr char kMustBeFile[] = "File system entry must be a file";

}  // namespace

FileSystemEntry FileSystemManager::createFile(std::u16string const& path,
                                              opc::model::ContentType const& contentType,
                                              opc::Perms::Perms_tag permissions,
                                              boost::posix_time::ptime const& lastModifiedTime) {
  ensureLoaded();
  std::u16string const key = normalizePath(path);
  throwIfAlreadyExists(key);
  return createFileInternal(key, contentType, permissions, lastModifiedTime);
}

FileSystemEntry FileSystemManager::createFolder(std::u16string const& path) {
  ensureLoaded();
  std::u16string const key = normalizePath(path);
  throwIfAlreadyExists(key);
  // A folder made by hand has neither permissions nor time; only a manifest gives them.
  FileSystemNode node = FileSystemNode::makeFolderNode(
      key, FileSystemEntry::getUnknownPermissions(), FileSystemEntry::getUnknownTime());
  tree_->addNode(node);
  markAsDirty();
  return makeEntry(node);
}

FileSystemEntry FileSystemManager::createLink(std::u16string const& path,
                                              std::u16string const& target) {
  ensureLoaded();
  std::u16string const key = normalizePath(path);
  std::u16string const text = normalizeLinkTarget(target);
  throwIfAlreadyExists(key);
  return createLinkInternal(key, text);
}

// The part is made before the node so that a path without a valid part name fails before the
// tree changes.  The part is handed back as it was made, never copied: a copy of a part's
// handle costs a copy of its name.
opc::model::Part FileSystemManager::createFilePart(std::u16string const& path,
                                                   opc::model::ContentType const& contentType,
                                                   opc::Perms::Perms_tag permissions,
                                                   boost::posix_time::ptime const& lastModifiedTime,
                                                   FileSystemNode& node) {
  // Encrypted bytes do not compress, so encrypted parts are stored.
  opc::interfaces::StandardPartInfo const info(
      isEncryptionEnabled() ? opc::interfaces::CompressionType::Stored
                            : opc::interfaces::CompressionType::DeflateContent,
      0);
  opc::model::Part created = createUniquePart(path, contentType, info);
  node = FileSystemNode::makeFileNode(path, created.getName().toString(), permissions,
                                      lastModifiedTime);
  tree_->addNode(node);
  markAsDirty();
  return created;
}

FileSystemEntry FileSystemManager::createFileInternal(
    std::u16string const& path, opc::model::ContentType const& contentType,
    opc::Perms::Perms_tag permissions, boost::posix_time::ptime const& lastModifiedTime) {
  FileSystemNode node;
  createFilePart(path, contentType, permissions, lastModifiedTime, node);
  return makeEntry(node);
}

FileSystemEntry FileSystemManager::createLinkInternal(std::u16string const& path,
                                                      std::u16string const& target) {
  FileSystemNode node = FileSystemNode::makeLinkNode(
      path, target, FileSystemEntry::getUnknownPermissions(), FileSystemEntry::getUnknownTime());
  tree_->addNode(node);
  markAsDirty();
  return makeEntry(node);
}

// An entry is a snapshot and may be stale; a stale one (or the root) must not reach the tree's
// removeNode, whose contract does not cover them.
void FileSystemManager::removeEntryNode(FileSystemEntry const& entry) {
  std::u16string const path = entry.getPathName();
  throwIfNotFound(path);
  if (!tree_->hasParentNode(path))
    throw FileSystemEntryHasNoParent("File system entry has no parent");
  tree_->removeNode(tree_->findNode(path));
}

void FileSystemManager::deleteFile(FileSystemEntry const& entry) {
  if (!entry.isFile()) throw FileSystemEntryMustBeFile(kMustBeFile);
  removeEntryNode(entry);
  markAsDirty();
  getPackage().deletePart(opc::model::PartName(entry.getContentName()));
}

void FileSystemManager::deleteLink(FileSystemEntry const& entry) {
  if (!entry.isLink()) throw FileSystemEntryMustBeLink("File system entry must be a link");
  removeEntryNode(entry);
  markAsDirty();
}

void FileSystemManager::deleteFolder(FileSystemEntry const& entry) {
  if (!entry.isFolder()) throw FileSystemEntryMustBeFolder("File system entry must be a folder");
  // The children are a copy, so that removing them does not disturb the walk.
  for (auto const& child : getChildren(entry)) {
    if (child.isFolder()) {
      deleteFolder(child);
    } else if (child.isFile()) {
      deleteFile(child);
    } else {
      deleteLink(child);
    }
  }
  removeEntryNode(entry);
  markAsDirty();
}

opc::OutputStream& FileSystemManager::getFileOutputStream(FileSystemEntry const& entry) {
  ensureLoaded();
  if (!entry.isFile()) throw FileSystemEntryMustBeFile(kMustBeFile);
  // The stream belongs to the package and outlives the part handle.
  return getPackage().getPart(opc::model::PartName(entry.getContentName())).getOutputStream();
}

std::unique_ptr<IContentSource> FileSystemManager::getFileContentSource(
    FileSystemEntry const& entry, TransformMode mode) {
  return getFileContentSourceInternal(entry, mode, Publication::Immediate);
}

std::unique_ptr<IContentSource> FileSystemManager::getFileContentSourceInternal(
    FileSystemEntry const& entry, TransformMode mode, Publication publication) {
  ensureLoaded();
  if (!entry.isFile()) throw FileSystemEntryMustBeFile(kMustBeFile);
  opc::model::Part const part = getPackage().getPart(opc::model::PartName(entry.getContentName()));
  std::unique_ptr<IContentSource> result = std::make_unique<PartContentSource>(part);
  if (mode != TransformMode::ApplyTransforms) return result;
  if (!part.getContentType().hasParameter(kEncryptionParameter)) return result;
  if (!isDecryptionEnabled()) {
    throw CouldNotDecryptContent(
        "Content is encrypted but enableDecryption() has not been called yet");
  }
  // The algorithm is the part's own, judged only when the decryptor meets it.
  std::string const typeAndMode =
      opc::toASCIIString(part.getContentType().getParameterValue(kEncryptionParameter));
  if (publication == Publication::AfterLastRead) {
    return encryption_->decryptingForUnpublishedOutput(std::move(result), typeAndMode);
  }
  return encryption_->decrypting(part, std::move(result), typeAndMode);
}

bool FileSystemManager::isEncryptedContent(FileSystemEntry const& entry) const {
  opc::model::Part const part = getPackage().getPart(opc::model::PartName(entry.getContentName()));
  return part.getContentType().hasParameter(kEncryptionParameter);
}

std::u16string FileSystemManager::getLinkTarget(FileSystemEntry const& entry) const {
  ensureLoaded();
  if (!entry.isLink()) throw FileSystemEntryMustBeLink("File system entry must be a symbolic link");
  return entry.getContentName();
}

}  // namespace vkservices
}  // namespace opc
