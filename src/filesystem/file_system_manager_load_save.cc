// Load and save of FileSystemManager: the manifest part, its relationship, and what the manager
// claims of the package.
#include <exception>
#include <sstream>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {

namespace {

// The parameter of a content type that marks an encrypted part.
constexpr char16_t kEncryptionParameter[] = u"encryption";

// Metadata parts are compressed as metadata, and their size is not known in advance.
opc::interfaces::StandardPartInfo metadataPartInfo() {
  return opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0);
}

}  // namespace

void FileSystemManager::doLoad() {
  // The former tree goes first, so that nothing of it survives a load that fails half way.
  tree_ = std::make_unique<FileSystemTree>();
  pendingV1Cleanup_ = false;

  auto& package = getPackage();
  auto relationships = package.getRelationshipsByType(getRelationshipType());
  // The current manifest wins; the older one is read only when there is no current one.
  if (relationships.begin() == relationships.end()) {
    relationships = package.getRelationshipsByType(getRelationshipTypeV1());
  }
  if (relationships.begin() == relationships.end()) return;

  opc::model::Part part =
      package.getPart(opc::model::PartName(relationships.begin()->getTargetURI()));
  std::unique_ptr<IContentSource> source = std::make_unique<PartContentSource>(part);
  opc::model::ContentType const contentType = source->getContentType();
  if (contentType.hasParameter(kEncryptionParameter)) {
    if (!isDecryptionEnabled()) {
      throw CouldNotDecryptContent(
          "Manifest is encrypted but enableDecryption() has not been called yet");
    }
    // A decryptor is only ever set together with the decrypting transform that reads the
    // manifest; neither exists in this build, so this point is not reached.
    throw CouldNotDecryptContent("Decryption of the manifest is not available in this build");
  }
  manifestXml_->read(source->getInputStream(), *tree_);

  // The relationship only finds the part; the part's type says which form it holds.
  if (contentType == getPartContentTypeV1()) {
    try {
      convertVersion1ToCurrentVersion();
    } catch (std::exception const& e) {
      throw CouldNotConvertFileSystemManifest(
          std::string("Error converting from V1 manifest to current format: ") + e.what());
    } catch (...) {
      throw CouldNotConvertFileSystemManifest(
          "Unknown error converting from V1 manifest to current format.");
    }
    pendingV1Cleanup_ = true;
  }
}

void FileSystemManager::doSave() {
  // All XML work is done before the package is touched, so that a manifest that cannot be
  // written leaves the package as it was.
  std::ostringstream text;
  {
    opc::StdOStreamAdaptor target(text);
    manifestXml_->write(*tree_, target);
  }
  std::istringstream input(text.str());
  std::unique_ptr<IContentSource> source =
      std::make_unique<StreamContentSource>(input, getPartContentType());
  if (isEncryptionEnabled()) {
    // An encryptor is only ever set together with the encrypting transform; neither exists
    // in this build, so this point is not reached.
    throw opc::Exception("Encryption of the manifest is not available in this build",
                         boost::system::error_code());
  }
  opc::model::ContentType const contentType = source->getContentType();

  auto& package = getPackage();
  auto relationships = package.getRelationshipsByType(getRelationshipType());
  boost::optional<opc::model::Part> part;
  if (relationships.begin() != relationships.end()) {
    opc::model::PartName const name(relationships.begin()->getTargetURI());
    part = package.getPart(name);
    // A part keeps its content type for life; a manifest that changed type (encryption
    // switched on or off) needs a new part of the same name.
    if (!(part->getContentType() == contentType)) {
      package.deletePart(name);
      part = package.createPart(name, contentType, metadataPartInfo());
    }
  } else {
    part = package.createPart(opc::model::PartName(getPartURI()), contentType, metadataPartInfo());
    package.createInternalRelationship(getRelationshipType(), part->getName().getURI(), u"");
  }
  opc::OutputStream& output = part->getOutputStream();
  opc::StreamHelper::copyStreamToStream(source->getInputStream(), output);
  output.close();

  if (saveV1Manifest_) doSaveV1();
}

std::vector<std::u16string> FileSystemManager::doGetManagedPartNames() const {
  std::vector<std::u16string> names{getPartURI().toString()};
  if (saveV1Manifest_) names.push_back(getPartURIV1().toString());
  for (auto const& entry : getAllLeafs()) {
    if (entry.isFile()) names.push_back(entry.getContentName());
  }
  return names;
}

std::vector<std::u16string> FileSystemManager::doGetManagedRelationshipTypes() const {
  std::vector<std::u16string> types{getRelationshipType()};
  if (saveV1Manifest_) types.push_back(getRelationshipTypeV1());
  return types;
}

// The older form of the manifest is kept up by a later piece of work.  Until then a manager
// asked to write it writes the current form only, and leaves an older part as it was.
void FileSystemManager::doSaveV1() {}

// Links of the older form keep their targets in parts of their own; turning them into the
// current form is a later piece of work.  Until then such a manifest is refused rather than
// read with part names where link targets belong.
void FileSystemManager::convertVersion1ToCurrentVersion() {
  for (auto const& node : tree_->leafNodes()) {
    if (node.getType() == FileSystemNodeType::SymLink) {
      throw opc::Exception("Links of this manifest form cannot be converted yet: " +
                               opc::toUDEString(node.getPathName()),
                           boost::system::error_code());
    }
  }
  tree_->setVersion(FileSystemTree::getCurrentVersion());
}

// Removing the parts of an older manifest after a conversion is a later piece of work; until
// then they stay in the package untouched, which loses nothing.
void FileSystemManager::cleanupOldPartsAndRelationships() {}

opc::model::URI FileSystemManager::getPartURI() {
  return opc::model::URI(u"/metadata/filesystemManifest.xml");
}

opc::model::URI FileSystemManager::getPartURIV1() {
  return opc::model::URI(u"/metadata/filesystemManifestV1.xml");
}

opc::model::ContentType FileSystemManager::getPartContentType() {
  return opc::model::ContentType(u"application/vnd.veltrance.package.filesystemManifest+xml");
}

opc::model::ContentType FileSystemManager::getPartContentTypeV1() {
  return opc::model::ContentType(u"application/vnd.veltrance.orvane.compiler.fileManifest+xml");
}

std::u16string FileSystemManager::getRelationshipType() {
  return detail::kManifestRelationshipType.str();
}

std::u16string FileSystemManager::getRelationshipTypeV1() {
  return detail::kManifestRelationshipTypeV1.str();
}

}  // namespace vkservices
}  // namespace opc
