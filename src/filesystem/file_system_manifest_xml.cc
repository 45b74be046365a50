#include "filesystem/file_system_manifest_xml.h"

#include <string>
#include <string_view>

#include <opc/core/time_conversions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_writer.h>

#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_manifest_xml_values.h"
#include "filesystem/file_system_manifest_xml_words.h"
#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {
namespace {

using detail::kContent;
using detail::kCreatedByEncoding;
using detail::kCreatedByPlatform;
using detail::kDate;
using detail::kEncoding;
using detail::kFile;
using detail::kFileEntries;
using detail::kFileEntry;
using detail::kFolder;
using detail::kName;
using detail::kPermissions;
using detail::kPlatform;
using detail::kSymLink;
using detail::kType;
using detail::kVersion;

std::u16string_view typeWord(FileSystemNodeType type) {
  if (type == FileSystemNodeType::SymLink) return kSymLink;
  if (type == FileSystemNodeType::Folder) return kFolder;
  return kFile;
}

}  // namespace

void FileSystemManifestXml::write(FileSystemTree const& tree, opc::OutputStream& target) {
  writeForm(tree, target, false);
}

void FileSystemManifestXml::writeV1(FileSystemTree const& tree, opc::OutputStream& target) {
  writeForm(tree, target, true);
}

void FileSystemManifestXml::writeForm(FileSystemTree const& tree, opc::OutputStream& target,
                                      bool isV1) {
  std::u16string const ns =
      isV1 ? detail::kManifestNamespaceV1.str() : detail::kManifestNamespace.str();
  try {
    opc::model::XmlStreamWriter out(target);
    out.startDocument();
    out.startElement(ns, kFileEntries);
    if (isV1) {
      out.attribute(kPlatform, tree.getPlatform());
      out.attribute(kEncoding, tree.getEncoding());
    } else {
      out.attribute(kCreatedByPlatform, tree.getPlatform());
      out.attribute(kCreatedByEncoding, tree.getEncoding());
      out.attribute(kVersion, tree.getVersion());
    }
    tree.visitLeaves([&](FileSystemTree::LeafView const& leaf) {
      out.startElement(ns, kFileEntry);
      out.attribute(kName, leaf.getPathName());
      bool const isFolder = leaf.getType() == FileSystemNodeType::Folder;
      // The current form leaves a folder's content empty: readers never look at it.
      out.attribute(kContent, isFolder && !isV1 ? std::u16string_view() : leaf.getContentName());
      out.attribute(kType, typeWord(leaf.getType()));
      if (auto const permissions = leaf.getPermissions()) {
        out.attribute(kPermissions, isV1 ? detail::printPermissionsV1(*permissions)
                                         : detail::printPermissions(*permissions));
      }
      if (auto const time = leaf.getLastModifiedTime()) {
        std::u16string const date = opc::convertTimeToString(*time);
        if (!date.empty()) out.attribute(kDate, date);
      }
      out.endElement();
    });
    out.endElement();
    out.endDocument();
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
