// Load and save of FileSystemManager: the manifest part, its relationship, and what the manager
// claims of the package.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "encryption/file_system_encryption.h"
#include "filesystem/block_buffer_source.h"
#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_node.h"
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

// Creates the part `name` with its package relationship of `type`, and writes its content
// with `write` straight into the part's stream.  Should `write` fail, the part and the
// relationship go again, and the deleted part's stream never gives it the half-written
// content (not even when the package closes its streams at save).
void writeNewPart(opc::model::Package& package, opc::model::PartName const& name,
                  opc::model::ContentType const& contentType, std::u16string const& type,
                  std::function<void(opc::OutputStream&)> const& write) {
  opc::model::Part part = package.createPart(name, contentType, metadataPartInfo());
  std::u16string relationshipId;
  try {
    relationshipId = package.createInternalRelationship(type, name.getURI(), u"").getID();
    opc::OutputStream& output = part.getOutputStream();
    write(output);
    output.close();
  } catch (...) {
    try {
      if (!relationshipId.empty()) package.deleteRelationship(relationshipId);
      package.deletePart(name);
    } catch (...) {
      // What the first failure says matters more than a second one.
    }
    throw;
  }
}

// The longest link target read from a part of the older form.  A real target is a path: the
// longest a file system takes is 32767 UTF-16 units, at most 98301 bytes of UTF-8.  Beyond
// that the part is not a link target, and reading it whole would only cost memory.
constexpr std::size_t kMaxLinkTargetBytes = 128 * 1024;

// Collects the bytes of a link target, refusing more than kMaxLinkTargetBytes.
class LinkTargetOutput : public opc::OutputStream {
 public:
  LinkTargetOutput(std::string& bytes, std::u16string const& path) : bytes_(bytes), path_(path) {}

  void write(unsigned char const* buffer, std::size_t count) override {
    if (count > kMaxLinkTargetBytes - bytes_.size()) {
      throw CouldNotConvertFileSystemManifest("Link target is longer than " +
                                              std::to_string(kMaxLinkTargetBytes) +
                                              " bytes for: " + opc::toUDEString(path_));
    }
    bytes_.append(reinterpret_cast<char const*>(buffer), count);
  }
  void flush() override {}
  void close() override {}

 private:
  std::string& bytes_;
  std::u16string const& path_;
};

// The target of the link at `path`, held in UTF-8 by `part`.
std::u16string readLinkTarget(opc::model::Part part, std::u16string const& path) {
  std::string bytes;
  LinkTargetOutput output(bytes, path);
  opc::StreamHelper::copyStreamToStream(part.getInputStream(), output);
  std::u16string target = opc::detail::toStringFromUTF8String(bytes, true);
  if (target.empty()) {
    throw CouldNotConvertFileSystemManifest("Could not read link target for: " +
                                            opc::toUDEString(path));
  }
  return target;
}

// Deletes the parts of converted links, each once.  A part that a file's content or a
// manifest relationship names as well stays: a package whose manifest lets two entries share
// a part must not lose the other one's data to the conversion.
void deleteLinkParts(opc::model::Package& package, FileSystemTree const& tree,
                     std::vector<opc::model::PartName> const& linkParts,
                     std::vector<std::u16string> const& manifestRelationshipTypes) {
  std::set<opc::model::PartName> keep;
  for (FileSystemNode const& node : tree.leafNodes()) {
    if (node.getType() == FileSystemNodeType::File &&
        opc::model::PartName::isValid(node.getContentName())) {
      keep.insert(opc::model::PartName(node.getContentName()));
    }
  }
  for (std::u16string const& type : manifestRelationshipTypes) {
    for (opc::model::Relationship const& relationship : package.getRelationshipsByType(type)) {
      try {
        keep.insert(opc::model::PartName(relationship.getTargetURI()));
      } catch (opc::model::InvalidPartName const&) {
        // A target that is no part name protects no part.
      }
    }
  }
  for (opc::model::PartName const& name : linkParts) {
    // insert() also makes a part that two links share go once.
    if (keep.insert(name).second) package.deletePart(name);
  }
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
  opc::model::ContentType const contentType = part.getContentType();
  bool const encrypted = contentType.hasParameter(kEncryptionParameter);
  if (encrypted && !isDecryptionEnabled()) {
    throw CouldNotDecryptContent(
        "Manifest is encrypted but enableDecryption() has not been called yet");
  }
  // Each source reads the part from its first byte, through a stream of its own: the reader
  // that gives up on a document hands it to the parser through a second one.
  auto open = [&]() -> std::unique_ptr<IContentSource> {
    std::unique_ptr<IContentSource> source = std::make_unique<PartContentSource>(part);
    if (!encrypted) return source;
    // A wrong key fails at the first read of the stream, before the reader sees a byte.
    return encryption_->decrypting(
        part, std::move(source),
        opc::toASCIIString(contentType.getParameterValue(kEncryptionParameter)));
  };
  std::unique_ptr<IContentSource> source = open();
  std::unique_ptr<IContentSource> again;
  // The size of the document is known for a part in the clear, not through the decryption.
  std::uint64_t const size = encrypted ? 0 : part.getSize();
  manifestXml_->read(
      source->getInputStream(), *tree_,
      [&]() -> opc::InputStream& {
        again = open();
        return again->getInputStream();
      },
      size);

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
  auto& package = getPackage();
  auto relationships = package.getRelationshipsByType(getRelationshipType());
  bool const firstManifest = relationships.begin() == relationships.end();
  // The manifest of 100,000 files is tens of MiB: when it is a new part in the clear, it goes
  // straight into the part's stream, held once.  Otherwise the document is written whole
  // before the package is touched, so that a manifest that cannot be written leaves the part
  // it replaces as it was.
  if (firstManifest && !isEncryptionEnabled()) {
    writeNewPart(package, opc::model::PartName(getPartURI()), getPartContentType(),
                 getRelationshipType(),
                 [this](opc::OutputStream& output) { manifestXml_->write(*tree_, output); });
  } else {
    // The document is held once, in blocks.
    auto buffer = std::make_unique<BlockBufferSource>(getPartContentType());
    manifestXml_->write(*tree_, buffer->writer());
    std::unique_ptr<IContentSource> source = std::move(buffer);
    // The manifest is a part like the others and follows the same rule.
    if (isEncryptionEnabled()) source = encryption_->encrypting(std::move(source));
    opc::model::ContentType const contentType = source->getContentType();

    boost::optional<opc::model::Part> part;
    if (!firstManifest) {
      opc::model::PartName const name(relationships.begin()->getTargetURI());
      part = package.getPart(name);
      // A part keeps its content type for life; a manifest that changed type (encryption
      // switched on or off) needs a new part of the same name.
      if (!(part->getContentType() == contentType)) {
        package.deletePart(name);
        part = package.createPart(name, contentType, metadataPartInfo());
      }
    } else {
      part =
          package.createPart(opc::model::PartName(getPartURI()), contentType, metadataPartInfo());
      package.createInternalRelationship(getRelationshipType(), part->getName().getURI(), u"");
    }
    opc::OutputStream& output = part->getOutputStream();
    opc::StreamHelper::copyStreamToStream(source->getInputStream(), output);
    output.close();
  }

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

void FileSystemManager::doSaveV1() {
  auto& package = getPackage();
  auto relationships = package.getRelationshipsByType(getRelationshipTypeV1());
  boost::optional<opc::model::Part> part;
  if (relationships.begin() != relationships.end()) {
    // The part is rewritten whatever its type: it is the older readers' way in.
    part = package.getPart(opc::model::PartName(relationships.begin()->getTargetURI()));
  } else {
    part = package.createPart(opc::model::PartName(getPartURIV1()), getPartContentTypeV1(),
                              metadataPartInfo());
    package.createInternalRelationship(getRelationshipTypeV1(), part->getName().getURI(), u"");
  }
  // Never encrypted: older readers know nothing of encryption.
  opc::OutputStream& output = part->getOutputStream();
  manifestXml_->writeV1(*tree_, output);
  output.close();
}

void FileSystemManager::convertVersion1ToCurrentVersion() {
  auto& package = getPackage();
  std::vector<opc::model::PartName> linkParts;
  for (FileSystemNode const& node : tree_->leafNodes()) {
    FileSystemEntry const entry = makeEntry(node);
    if (!entry.isLink()) continue;
    // At this point a link's content is the name of the part that holds its target.
    opc::model::PartName const name(entry.getContentName());
    std::u16string const target = readLinkTarget(package.getPart(name), entry.getPathName());
    tree_->replaceNode(FileSystemNode::makeLinkNode(
        entry.getPathName(), target, entry.getPermissions(), entry.getLastModifiedTime()));
    linkParts.push_back(name);
  }
  // The link parts go only once every target has been read: a conversion that fails deletes
  // nothing, and a second load finds what the first one found.
  if (!package.isReadOnly()) {
    deleteLinkParts(package, *tree_, linkParts, {getRelationshipType(), getRelationshipTypeV1()});
  }
  tree_->setVersion(FileSystemTree::getCurrentVersion());
}

void FileSystemManager::cleanupOldPartsAndRelationships() {
  auto& package = getPackage();
  auto relationships = package.getRelationshipsByType(getRelationshipTypeV1());
  if (relationships.begin() == relationships.end()) return;
  // A package that cannot be written keeps its older parts; the tree works all the same.
  if (package.isReadOnly()) return;
  opc::model::Relationship const first = *relationships.begin();
  package.deletePart(opc::model::PartName(first.getTargetURI()));
  package.deleteRelationship(first.getID());
  markAsDirty();
}

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
