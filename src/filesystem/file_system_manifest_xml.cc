#include "filesystem/file_system_manifest_xml.h"

#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>
#include <opc/model/uri.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_manifest_xml_values.h"
#include "filesystem/file_system_node.h"
#include "filesystem/manifest_schemas.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::XercesHelper;

// The parser owns every document it made until resetDocumentPool; a manifest is large, so
// its document is released as soon as the reading ends, however it ends.
class DocumentPoolReset {
 public:
  explicit DocumentPoolReset(xercesc::DOMLSParser& parser) : parser_(parser) {}
  DocumentPoolReset(DocumentPoolReset const&) = delete;
  DocumentPoolReset& operator=(DocumentPoolReset const&) = delete;
  ~DocumentPoolReset() {
    try {
      parser_.resetDocumentPool();
    } catch (...) {
      // Releasing memory does not fail in practice, and a destructor must not throw.
    }
  }

 private:
  xercesc::DOMLSParser& parser_;
};

// The value of an attribute, or "" if it is missing: an optional attribute that is missing
// and one that is empty mean the same here.
std::u16string attribute(xercesc::DOMElement const* element, opc::model::XercesString const& name) {
  std::u16string value;
  XercesHelper::getElementAttribute(element, name, value);
  return value;
}

}  // namespace

FileSystemManifestXml::FileSystemManifestXml()
    : guard_(),
      parser_(XercesHelper::createParser()),
      serializer_(),
      namespace_(detail::kManifestNamespace.str()),
      fileEntriesElement_(u"fileEntries"),
      fileEntryElement_(u"fileEntry"),
      nameAttribute_(u"name"),
      contentAttribute_(u"content"),
      typeAttribute_(u"type"),
      dateAttribute_(u"date"),
      permissionsAttribute_(u"permissions"),
      createdByPlatformAttribute_(u"createdByPlatform"),
      createdByEncodingAttribute_(u"createdByEncoding"),
      versionAttribute_(u"version"),
      namespaceV1_(detail::kManifestNamespaceV1.str()),
      platformAttribute_(u"platform"),
      encodingAttribute_(u"encoding"),
      fileType_(u"File"),
      symLinkType_(u"SymLink"),
      folderType_(u"Folder"),
      versionV1_(u"1.0") {
  // Grammars are compiled here, once, and found by namespace in the cache at every read.
  parser_->getDomConfig()->setParameter(xercesc::XMLUni::fgXercesUseCachedGrammarInParse, true);
  detail::loadManifestGrammar(parser_.get(), detail::manifestSchemaText(),
                              detail::kManifestSchemaId);
  detail::loadManifestGrammar(parser_.get(), detail::manifestSchemaTextV1(),
                              detail::kManifestSchemaIdV1);
  serializer_ = XercesHelper::createPrettyPrintingWriter();
}

FileSystemManifestXml::~FileSystemManifestXml() {
  serializer_.reset();
  parser_.reset();
}

void FileSystemManifestXml::read(opc::InputStream& source, FileSystemTree& tree) {
  DocumentPoolReset const reset(*parser_);
  xercesc::DOMDocument const* document = nullptr;
  try {
    document = XercesHelper::readDocumentFromStream(parser_.get(), source, true, std::u16string(),
                                                    std::u16string());
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
  xercesc::DOMElement const* root = document->getDocumentElement();

  std::u16string version;
  if (!XercesHelper::getElementAttribute(root, versionAttribute_, version)) {
    version = versionV1_;
  }
  tree.setVersion(version);
  // The version alone tells the two forms apart, not the namespace: a reader of the current
  // form then also reads later versions.
  bool const isV1 = tree.getVersion() == versionV1_;
  tree.setPlatform(attribute(root, isV1 ? platformAttribute_ : createdByPlatformAttribute_));
  tree.setEncoding(attribute(root, isV1 ? encodingAttribute_ : createdByEncodingAttribute_));

  char16_t const slash = opc::model::URI::getSlash();
  for (xercesc::DOMElement const* entry : XercesHelper::getElements(root, fileEntryElement_)) {
    std::u16string name = attribute(entry, nameAttribute_);
    // The older form wrote names relative to the root at times.  Its schema allows an empty
    // name, which has no first character: at() raises std::out_of_range for it.
    if (isV1 && name.at(0) != slash) {
      name.insert(name.begin(), slash);
    }
    std::u16string const content = attribute(entry, contentAttribute_);
    std::u16string const type = attribute(entry, typeAttribute_);
    opc::Perms::Perms_tag const permissions =
        detail::readPermissions(attribute(entry, permissionsAttribute_), isV1);
    boost::posix_time::ptime const date = detail::readDate(attribute(entry, dateAttribute_));

    if (type == fileType_) {
      tree.addNode(FileSystemNode::makeFileNode(name, content, permissions, date));
    } else if (type == symLinkType_) {
      tree.addNode(FileSystemNode::makeLinkNode(name, content, permissions, date));
    } else if (type == folderType_) {
      // A folder's content name is its own path; what the document says is not used.
      tree.addNode(FileSystemNode::makeFolderNode(name, permissions, date));
    } else {
      // Both schemas restrict the type to the three words; this guards a schema change.
      throw opc::model::InvalidPartContent("Unknown type of file system entry: " +
                                           opc::toASCIIString(type));
    }
  }
}

void FileSystemManifestXml::write(FileSystemTree const& tree, opc::OutputStream& target) {
  writeForm(tree, target, false);
}

void FileSystemManifestXml::writeV1(FileSystemTree const& tree, opc::OutputStream& target) {
  writeForm(tree, target, true);
}

void FileSystemManifestXml::writeForm(FileSystemTree const& tree, opc::OutputStream& target,
                                      bool isV1) {
  opc::model::XercesString const& ns = isV1 ? namespaceV1_ : namespace_;
  try {
    auto const document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    xercesc::DOMElement* root =
        XercesHelper::appendElementNS(document.get(), ns, fileEntriesElement_);
    if (isV1) {
      XercesHelper::setElementAttribute(root, platformAttribute_, tree.getPlatform());
      XercesHelper::setElementAttribute(root, encodingAttribute_, tree.getEncoding());
    } else {
      XercesHelper::setElementAttribute(root, createdByPlatformAttribute_, tree.getPlatform());
      XercesHelper::setElementAttribute(root, createdByEncodingAttribute_, tree.getEncoding());
      XercesHelper::setElementAttribute(root, versionAttribute_, tree.getVersion());
    }

    std::u16string const none;
    for (FileSystemNode const& node : tree.leafNodes()) {
      xercesc::DOMElement* entry = XercesHelper::appendElementNS(root, ns, fileEntryElement_);
      XercesHelper::setElementAttribute(entry, nameAttribute_, node.getPathName());
      bool const isFolder = node.getType() == FileSystemNodeType::Folder;
      // The current form leaves a folder's content empty: readers never look at it.
      XercesHelper::setElementAttribute(entry, contentAttribute_,
                                        isFolder && !isV1 ? none : node.getContentName());
      std::u16string const* type = &fileType_;
      if (node.getType() == FileSystemNodeType::SymLink) type = &symLinkType_;
      if (isFolder) type = &folderType_;
      XercesHelper::setElementAttribute(entry, typeAttribute_, *type);
      if (node.getPermissions()) {
        opc::Perms::Perms_tag const permissions = *node.getPermissions();
        XercesHelper::setElementAttribute(
            entry, permissionsAttribute_,
            isV1 ? detail::printPermissionsV1(permissions) : detail::printPermissions(permissions));
      }
      if (node.getLastModifiedTime()) {
        std::u16string const date = opc::convertTimeToString(*node.getLastModifiedTime());
        if (!date.empty()) {
          XercesHelper::setElementAttribute(entry, dateAttribute_, date);
        }
      }
    }
    XercesHelper::writeDocumentToStream(serializer_.get(), document.get(), target);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
