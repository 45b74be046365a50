// The encryption switchboard of FileSystemManager: switching encryption and decryption on,
// telling an encrypted package from a plain one, and converting a plain one.  How content and
// names are encrypted is the business of detail::FileSystemEncryption.
#include <memory>
#include <string>

#include <boost/optional.hpp>

#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "encryption/file_system_encryption.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {

namespace {

constexpr char16_t kEncryptionParameter[] = u"encryption";

}  // namespace

void FileSystemManager::enableEncryption(bytes const& key, IVMode mode, bytes const& ivBytes) {
  auto& package = getPackage();
  if (package.isReadOnly()) {
    throw CannotEnableEncryption(
        "Cannot enable encryption unless package is open for Create or Modify");
  }
  encryption_->enableEncryption(key, mode, ivBytes);
  // A new package has nothing to convert or to check.
  if (package.isCreateOnly()) return;

  if (isNonEncrypted()) {
    convertToEncrypted();
  } else if (isEncrypted()) {
    encryption_->enableDecryption(key);
    // The whole key check: the manifest is decrypted, and GCM does not authenticate it under
    // another key.  No hash of the key is kept anywhere.
    try {
      ensureLoaded();
    } catch (opc::Exception const&) {
      throw CannotEnableEncryption(
          "Encryption key most likely does not match the key used to originally encrypt the "
          "package");
    }
  }
}

void FileSystemManager::enableDecryption(bytes const& key) {
  if (!getPackage().isReadOnly()) {
    throw CannotEnableDecryption("Cannot enable decryption unless package is open for Read");
  }
  encryption_->enableDecryption(key);
}

bool FileSystemManager::isEncrypted() const {
  boost::optional<opc::model::ContentType> const type = getManifestContentType();
  return type && type->hasParameter(kEncryptionParameter);
}

bool FileSystemManager::isNonEncrypted() const {
  boost::optional<opc::model::ContentType> const type = getManifestContentType();
  return type && !type->hasParameter(kEncryptionParameter);
}

boost::optional<opc::model::ContentType> FileSystemManager::getManifestContentType() const {
  auto& package = getPackage();
  auto const relationships = package.getRelationshipsByType(getRelationshipType());
  if (relationships.begin() == relationships.end()) return boost::none;
  return package.getPart(opc::model::PartName(relationships.begin()->getTargetURI()))
      .getContentType();
}

// Each file goes from its plain part into a new encrypted part, and only once the new part
// holds all of it does the plain part go: a file whose plain content cannot be read to its
// end (a bad CRC, a missing part) is left as it was, never lost.  The bytes pass as a
// stream, and the new part's content waits in the package's spool until the save.
void FileSystemManager::convertToEncrypted() {
  try {
    auto& package = getPackage();
    for (FileSystemEntry const& entry : getAllLeafs()) {
      if (!entry.isFile()) continue;
      opc::model::PartName const plainName(entry.getContentName());
      std::unique_ptr<IContentSource> source =
          encryption_->encrypting(getFileContentSource(entry, TransformMode::NoTransforms));
      opc::model::ContentType const contentType(source->getContentType().toString());
      opc::model::PartName const name = makeUniquePartName(entry.getPathName());
      opc::model::Part part = package.createPart(
          name, contentType,
          opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::Stored, 0));
      try {
        opc::OutputStream& output = part.getOutputStream();
        opc::StreamHelper::copyStreamToStream(source->getInputStream(), output);
        output.close();
      } catch (...) {
        package.deletePart(name);
        throw;
      }
      source.reset();
      package.deletePart(plainName);
      tree_->replaceNode(FileSystemNode::makeFileNode(entry.getPathName(), name.toString(),
                                                      entry.getPermissions(),
                                                      entry.getLastModifiedTime()));
      markAsDirty();
    }
    markAsDirty();
  } catch (opc::Exception const&) {
    throw CannotEnableEncryption(
        "Could not successfully change from a non-encrypted file system to an encrypted "
        "file-system");
  }
}

}  // namespace vkservices
}  // namespace opc
