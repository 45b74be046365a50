// Add from disk of FileSystemManager: files and links of a real file system, or the bytes of
// any content source, copied into the package file system.  Real paths go to the source file
// system as given; only package paths are normalised.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "encryption/file_system_encryption.h"
#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {

FileSystemEntry FileSystemManager::addFile(std::u16string const& sourceFileName,
                                           std::u16string const& path, TransformMode mode) {
  ensureLoaded();
  std::u16string const key = normalizePath(path);
  // A taken path is refused before the source is touched, so that its error wins over any
  // error of the source.
  throwIfAlreadyExists(key);

  sourceFS_ = &fileSystemOpsSelector_.getForPath(sourceFileName);
  opc::FileSystemOps& fileSystem = getSourceFSImpl();
  std::unique_ptr<IContentSource> source =
      std::make_unique<FileContentSource>(sourceFileName, fileSystem);
  if (mode == TransformMode::ApplyTransforms && source->getContentType() == getTextContentType()) {
    source = std::make_unique<UDEToUTF8Transform>(std::move(source));
  }

  boost::system::error_code code;
  opc::Perms::Perms_tag const permissions = fileSystem.getPermissions(sourceFileName, code);
  if (code) throw CouldNotGetPermissions("Could not get permissions: " + code.message(), code);
  boost::posix_time::ptime const time = fileSystem.getLastModifiedTime(sourceFileName, code);
  if (code) {
    throw CouldNotGetLastModifiedTime("Could not get last modified time: " + code.message(), code);
  }
  return addFileInternal(std::move(source), key, permissions, time);
}

FileSystemEntry FileSystemManager::addFile(std::unique_ptr<IContentSource> source,
                                           std::u16string const& path,
                                           opc::Perms::Perms_tag permissions,
                                           boost::posix_time::ptime time) {
  ensureLoaded();
  std::u16string const key = normalizePath(path);
  throwIfAlreadyExists(key);
  return addFileInternal(std::move(source), key, permissions, time);
}

void FileSystemManager::addAll(std::u16string const& sourceRoot, TransformMode mode) {
  ensureLoaded();
  std::u16string const root = normalizeFileName(sourceRoot);
  sourceFS_ = &fileSystemOpsSelector_.getForPath(root);

  // The whole listing is taken before anything is added; its order becomes the order of the
  // children in the tree.
  std::vector<std::u16string> fullPaths;
  boost::system::error_code code;
  getSourceFSImpl().getFiles(root, fullPaths, true, code);
  if (code) {
    throw CouldNotGetSourceFilesAndLinks(
        "Could not get source files and links at source root: " + code.message(), code);
  }
  for (auto const& fullPath : fullPaths) {
    addFileOrLink(root, fullPath, FileSystemEntry::getRootName() + makeRelativePath(root, fullPath),
                  mode);
  }
}

void FileSystemManager::addList(std::u16string const& sourceRoot,
                                std::vector<std::u16string> const& list, TransformMode mode) {
  ensureLoaded();
  std::u16string const root = normalizeFileName(sourceRoot);
  sourceFS_ = &fileSystemOpsSelector_.getForPath(root);
  for (auto const& item : list) {
    std::u16string const packagePath = normalizePath(item);
    // The package path begins with "/", which serves as the separator; a root that ends with
    // one gives a doubled separator, which the file system reads as one.
    addFileOrLink(root, root + packagePath, packagePath, mode);
  }
}

// The tree learns of the file before the copy starts, so that a failed copy leaves a node and
// a part with what was written: nothing here is undone.
FileSystemEntry FileSystemManager::addFileInternal(std::unique_ptr<IContentSource> source,
                                                   std::u16string const& path,
                                                   opc::Perms::Perms_tag permissions,
                                                   boost::posix_time::ptime time) {
  // The transform's own type is what gives the part its parameters.  The content is
  // encrypted as it is copied, in pieces.
  if (isEncryptionEnabled()) source = encryption_->encrypting(std::move(source));
  // The source hands over a copy of its own (a value type, independent of the source): no
  // round trip through the text form, which costs a print and a parse per file.
  opc::model::ContentType const contentType = source->getContentType();
  // The stream comes from the part just made, so that its name is not checked again.
  FileSystemNode node;
  opc::model::Part part = createFilePart(path, contentType, permissions, time, node);
  opc::OutputStream& output = part.getOutputStream();
  opc::StreamHelper::copyStreamToStream(source->getInputStream(), output);
  // Closing commits the bytes to the part now, so that the file reads back at once and a
  // large add does not keep every file's content pending until the package is saved.  A
  // failed copy leaves the stream open, and the package commits what was written when it is
  // saved.
  output.close();
  source.reset();
  return makeEntry(node);
}

// Files come before links in the test, so that nothing that is both is taken for a link; a
// link is never followed.  Everything else, folders included, is passed over in silence.
void FileSystemManager::addFileOrLink(std::u16string const& root, std::u16string const& fullPath,
                                      std::u16string const& packagePath, TransformMode mode) {
  opc::FileSystemOps& fileSystem = getSourceFSImpl();
  if (fileSystem.isFile(fullPath)) {
    addFile(fullPath, packagePath, mode);
  } else if (fileSystem.isSymlink(fullPath)) {
    std::u16string target = fileSystem.getLinkTarget(fullPath);
    // An absolute target only works in the package if it is made a package path; a relative
    // one already works there and stays as it is.
    if (fileSystem.isAbsolutePath(target))
      target = FileSystemEntry::getRootName() + makeRelativePath(root, target);
    createLink(packagePath, target);
  }
}

// By text alone and case-sensitive: "/data2/x" lies under "/data" and gives "2/x".  The two
// strings must use the same separators, since `fullPath` is taken as the file system gave it.
std::u16string FileSystemManager::makeRelativePath(std::u16string const& root,
                                                   std::u16string const& fullPath) const {
  if (fullPath.compare(0, root.size(), root) != 0) {
    throw CouldNotMakeRelativeToSourceRoot(
        "Could not make source file name relative to source root");
  }
  std::u16string result = fullPath.substr(root.size());
  std::u16string const rootName = FileSystemEntry::getRootName();
  if (result.compare(0, rootName.size(), rootName) == 0) result.erase(0, rootName.size());
  return result;
}

}  // namespace vkservices
}  // namespace opc
