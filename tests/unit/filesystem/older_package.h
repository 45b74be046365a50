// Packages of the older generation, built by hand the way it wrote them: a manifest without a
// version in the older namespace, decimal file modes with their type bits, names that may
// lack the leading "/", each link's target in a part of its own, and the older manifest's
// content type and relationship.
#ifndef TESTS_UNIT_FILESYSTEM_OLDER_PACKAGE_H_
#define TESTS_UNIT_FILESYSTEM_OLDER_PACKAGE_H_

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_manifest_xml_names.h"

namespace opcvk_test {

inline std::u16string const kManifestPartName = u"/metadata/filesystemManifest.xml";
inline std::u16string const kOlderManifestPartName = u"/metadata/filesystemManifestV1.xml";

inline opc::model::ContentType manifestContentType() {
  return opc::model::ContentType(u"application/vnd.veltrance.package.filesystemManifest+xml");
}

inline opc::model::ContentType olderManifestContentType() {
  return opc::model::ContentType(u"application/vnd.veltrance.orvane.compiler.fileManifest+xml");
}

inline std::u16string manifestRelationshipType() {
  return opc::vkservices::detail::kManifestRelationshipType.str();
}

inline std::u16string olderManifestRelationshipType() {
  return opc::vkservices::detail::kManifestRelationshipTypeV1.str();
}

// One `fileEntry` of an older manifest, its attributes as written; an empty permissions or
// date text leaves the attribute out.
struct OlderEntry {
  std::string name;
  std::string type;  // "File", "SymLink" or "Folder"
  std::string content;
  std::string permissions;
  std::string date;
};

// The older manifest document of `entries`.
inline std::string olderManifestText(std::vector<OlderEntry> const& entries,
                                     std::string const& platform = "win64",
                                     std::string const& encoding = "windows-1252") {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<fileEntries xmlns=\"" +
      opc::detail::toUTF8String(opc::vkservices::detail::kManifestNamespaceV1.str()) +
      "\" platform=\"" + platform + "\" encoding=\"" + encoding + "\">\n";
  for (OlderEntry const& entry : entries) {
    text += "  <fileEntry name=\"" + entry.name + "\" content=\"" + entry.content + "\" type=\"" +
            entry.type + "\"";
    if (!entry.permissions.empty()) text += " permissions=\"" + entry.permissions + "\"";
    if (!entry.date.empty()) text += " date=\"" + entry.date + "\"";
    text += "/>\n";
  }
  return text + "</fileEntries>\n";
}

// A package of the older generation, with every knob a test bends.
struct OlderPackage {
  std::vector<OlderEntry> entries;
  // Content parts by name: file contents and link targets, each with its content type.
  std::map<std::u16string, std::pair<opc::model::ContentType, std::string>> parts;
  std::u16string manifestPart = kOlderManifestPartName;
  opc::model::ContentType manifestType = olderManifestContentType();
  std::u16string relationshipType = olderManifestRelationshipType();
  // Replaces the document made from `entries` when not empty.
  std::string manifestText;

  void addFile(std::string const& name, std::u16string const& part, std::string const& content,
               std::string const& permissions = "", std::string const& date = "") {
    entries.push_back({name, "File", opc::detail::toUTF8String(part), permissions, date});
    parts.emplace(part, std::make_pair(opc::model::ContentType(u"text/plain"), content));
  }
  void addLink(std::string const& name, std::u16string const& part, std::string const& target,
               std::string const& permissions = "", std::string const& date = "") {
    entries.push_back({name, "SymLink", opc::detail::toUTF8String(part), permissions, date});
    parts.emplace(part,
                  std::make_pair(opc::model::ContentType(u"application/octet-stream"), target));
  }
  void addFolder(std::string const& name, std::string const& permissions = "",
                 std::string const& date = "") {
    entries.push_back({name, "Folder", name, permissions, date});
  }

  // Writes all of it into `package`, which must be writable.
  void writeInto(opc::model::Package& package) const {
    opc::interfaces::StandardPartInfo const info(opc::interfaces::CompressionType::DeflateMetadata,
                                                 0);
    for (auto const& [name, typeAndBytes] : parts) {
      opc::model::Part part =
          package.createPart(opc::model::PartName(name), typeAndBytes.first, info);
      write(part, typeAndBytes.second);
    }
    opc::model::Part manifest =
        package.createPart(opc::model::PartName(manifestPart), manifestType, info);
    write(manifest, manifestText.empty() ? olderManifestText(entries) : manifestText);
    package.createInternalRelationship(relationshipType, manifest.getName().getURI(), u"");
  }

  // The archive.
  std::vector<unsigned char> build() const {
    auto package = opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create);
    writeInto(*package);
    package->save();
    return package->getBuffer();
  }

 private:
  static void write(opc::model::Part& part, std::string const& bytes) {
    opc::OutputStream& output = part.getOutputStream();
    output.write(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
    output.close();
  }
};

// What the older generation typically wrote: a text file with a name that lacks its "/", an
// executable in a folder, a link to the text, an empty folder, and real file modes.
//   /docs/a.txt     file, 0100644 = 33188, dated
//   /bin/run        file, 0100755 = 33261
//   /docs/current   link to "a.txt" (part /fsroot/docs/current), 0120777 = 41471
//   /bin/up         link to "../docs" (part /links/up), no mode
//   /empty          folder, 040750 = 16872
inline OlderPackage typicalOlderPackage() {
  OlderPackage older;
  older.addFile("docs/a.txt", u"/fsroot/docs/a.txt", "alpha\n", "33188", "2021-03-04T05:06:07Z");
  older.addFile("/bin/run", u"/fsroot/bin/run", "#!/bin/sh\n", "33261");
  older.addLink("/docs/current", u"/fsroot/docs/current", "a.txt", "41471");
  older.addLink("/bin/up", u"/links/up", "../docs");
  older.addFolder("/empty", "16872", "2020-01-02T03:04:05Z");
  return older;
}

// The stored bytes of the file at `path`.
inline std::string storedContent(opc::vkservices::FileSystemManager& manager,
                                 std::u16string const& path) {
  auto source = manager.getFileContentSource(manager.getEntry(path),
                                             opc::vkservices::TransformMode::NoTransforms);
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(source->getInputStream(), out);
  return out.str();
}

// Every entry of the typical older package, as it reads after conversion.
inline void expectTypicalEntries(opc::vkservices::FileSystemManager& manager) {
  EXPECT_EQ(manager.getVersion(), u"2.0");
  EXPECT_EQ(manager.getCreatedByPlatform(), u"win64");
  EXPECT_EQ(manager.getCreatedByEncoding(), u"windows-1252");

  opc::vkservices::FileSystemEntry const text = manager.getEntry(u"/docs/a.txt");
  EXPECT_TRUE(text.isFile());
  EXPECT_EQ(text.getPermissions(), opc::Perms::Perms_tag(0644));
  EXPECT_EQ(text.getLastModifiedTime(),
            boost::posix_time::ptime(boost::gregorian::date(2021, 3, 4),
                                     boost::posix_time::time_duration(5, 6, 7)));
  EXPECT_EQ(storedContent(manager, u"/docs/a.txt"), "alpha\n");
  EXPECT_EQ(manager.getEntry(u"/bin/run").getPermissions(), opc::Perms::Perms_tag(0755));
  EXPECT_EQ(storedContent(manager, u"/bin/run"), "#!/bin/sh\n");

  opc::vkservices::FileSystemEntry const current = manager.getEntry(u"/docs/current");
  EXPECT_TRUE(current.isLink());
  EXPECT_EQ(manager.getLinkTarget(current), u"a.txt");
  EXPECT_EQ(current.getPermissions(), opc::Perms::Perms_tag(0777));
  opc::vkservices::FileSystemEntry const up = manager.getEntry(u"/bin/up");
  EXPECT_EQ(manager.getLinkTarget(up), u"../docs");
  EXPECT_EQ(up.getPermissions(), opc::vkservices::FileSystemEntry::getUnknownPermissions());

  opc::vkservices::FileSystemEntry const empty = manager.getEntry(u"/empty");
  EXPECT_TRUE(empty.isFolder());
  EXPECT_EQ(empty.getPermissions(), opc::Perms::Perms_tag(0750));
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_OLDER_PACKAGE_H_
