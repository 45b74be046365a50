#include <sstream>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/input_stream.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>
#include <opc/model/exceptions.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "support/expect_exception.h"
#include "support/file_system_entry_access.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemTree;
using opc::vkservices::detail::FileSystemEntryAccess;
using opc::vkservices::detail::FileSystemManagerAccess;
using opcvk_test::ManagedPackage;
using opcvk_test::noTime;
using opcvk_test::textType;
using opcvk_test::unknownPerms;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::u16string>;

std::u16string const kManifestPart = u"/metadata/filesystemManifest.xml";
std::u16string const kManifestV1Part = u"/metadata/filesystemManifestV1.xml";
ContentType const kManifestType(u"application/vnd.veltrance.package.filesystemManifest+xml");
ContentType const kManifestV1Type(u"application/vnd.veltrance.orvane.compiler.fileManifest+xml");

std::u16string relationshipType() {
  return opc::vkservices::detail::kManifestRelationshipType.str();
}
std::u16string relationshipTypeV1() {
  return opc::vkservices::detail::kManifestRelationshipTypeV1.str();
}

std::string readAll(opc::InputStream& input) {
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(input, out);
  return out.str();
}

void writeText(opc::OutputStream& output, std::string const& text) {
  output.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  output.close();
}

// Adds a part of `type` holding `text`, reached from the package by a relationship of
// `relationship`.
void addMetadataPart(Package& package, std::u16string const& name, ContentType const& type,
                     std::u16string const& relationship, std::string const& text) {
  opc::model::Part part = package.createPart(
      PartName(name), type,
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
  writeText(part.getOutputStream(), text);
  package.createInternalRelationship(relationship, part.getName().getURI(), u"");
}

std::string manifestText(FileSystemTree const& tree, bool v1) {
  opc::vkservices::FileSystemManifestXml xml;
  std::ostringstream out;
  opc::StdOStreamAdaptor target(out);
  if (v1) {
    xml.writeV1(tree, target);
  } else {
    xml.write(tree, target);
  }
  return out.str();
}

TEST(FileSystemManagerLoadSaveTest, PackageWithoutManifestLoadsEmptyAndFirstSaveCreatesIt) {
  ManagedPackage p;
  EXPECT_EQ(p.manager->getVersion(), u"2.0");
  p.manager->createFolder(u"/a");
  Bytes const bytes = p.save();

  auto reopened = Package::openBuffer(bytes, PackageAccess::Read);
  auto relationships = reopened->getRelationshipsByType(relationshipType());
  ASSERT_EQ(relationships.size(), 1u);
  EXPECT_EQ(PartName(relationships.begin()->getTargetURI()).toString(), kManifestPart);
  EXPECT_EQ(relationships.begin()->getID().empty(), false);  // the model gives it an identifier
  opc::model::Part part = reopened->getPart(PartName(kManifestPart));
  EXPECT_EQ(part.getContentType(), kManifestType);
  EXPECT_EQ(part.getCompressionType(), opc::interfaces::CompressionType::DeflateMetadata);
}

TEST(FileSystemManagerLoadSaveTest, ConstructionReadsNothing) {
  // A manifest that does not parse fails at the first operation, not at construction.
  ManagedPackage p;
  addMetadataPart(*p.package, kManifestPart, kManifestType, relationshipType(), "not xml");
  FileSystemManager manager(*p.package, opc::FileSystemOpsSelector());
  EXPECT_THROW(manager.getRoot(), opc::model::InvalidPartContent);
  // The failed load is tried again by the next operation.
  EXPECT_THROW(manager.hasEntry(u"/"), opc::model::InvalidPartContent);
}

TEST(FileSystemManagerLoadSaveTest, EncryptedManifestFailsAtFirstOperationWithoutDecryptor) {
  ManagedPackage p;
  addMetadataPart(*p.package, kManifestPart,
                  ContentType(kManifestType.toString() + u";encryption=AES256-GCM;iv=inline"),
                  relationshipType(), "ciphertext");
  FileSystemManager manager(*p.package, opc::FileSystemOpsSelector());
  EXPECT_THROW_MESSAGE(manager.getVersion(), opc::vkservices::CouldNotDecryptContent,
                       "Manifest is encrypted but enableDecryption() has not been called yet");
}

TEST(FileSystemManagerLoadSaveTest, SaveThenReadGivesTheSameEntriesContentAndTargets) {
  ManagedPackage p;
  boost::posix_time::ptime const time(boost::gregorian::date(2021, 6, 7),
                                      boost::posix_time::minutes(8));
  struct File {
    std::u16string path;
    std::string content;
  };
  std::vector<File> const files = {
      {u"/a/b.txt", "hello"}, {u"/a/c d+e@f.bin", std::string("\0\1\2", 3)}, {u"/top", ""}};
  for (auto const& f : files) {
    FileSystemEntry const e =
        p.manager->createFile(f.path, textType(), opcvk_test::perms(0640), time);
    writeText(p.manager->getFileOutputStream(e), f.content);
  }
  p.manager->createLink(u"/a/link", u"..\\top");
  p.manager->createFolder(u"/empty");
  auto const before = p.manager->getAllLeafs();
  Bytes const bytes = p.save();

  auto reopened = Package::openBuffer(bytes, PackageAccess::Read);
  FileSystemManager manager(*reopened, opc::FileSystemOpsSelector());
  auto const after = manager.getAllLeafs();
  ASSERT_EQ(after.size(), before.size());
  auto b = before.begin();
  for (auto const& entry : after) {
    EXPECT_EQ(entry, *b);
    EXPECT_EQ(FileSystemEntryAccess::contentName(entry), FileSystemEntryAccess::contentName(*b));
    ++b;
  }
  for (auto const& f : files) {
    auto source = manager.getFileContentSource(manager.getEntry(f.path),
                                               opc::vkservices::TransformMode::ApplyTransforms);
    EXPECT_EQ(readAll(source->getInputStream()), f.content);
    EXPECT_EQ(source->getContentType(), textType());
  }
  EXPECT_EQ(manager.getLinkTarget(manager.getEntry(u"/a/link")), u"../top");
  EXPECT_EQ(manager.getEntry(u"/a").getPermissions(), FileSystemEntry::getUnknownPermissions());
}

TEST(FileSystemManagerLoadSaveTest, SecondSaveReusesThePartAndTheRelationship) {
  ManagedPackage p;
  p.manager->createFolder(u"/one");
  Bytes const first = p.save();
  ManagedPackage q(first, PackageAccess::Modify);
  q.manager->createFolder(u"/two");
  Bytes const second = q.save();

  auto reopened = Package::openBuffer(second, PackageAccess::Read);
  EXPECT_EQ(reopened->getRelationshipsByType(relationshipType()).size(), 1u);
  FileSystemManager manager(*reopened, opc::FileSystemOpsSelector());
  EXPECT_TRUE(manager.hasEntry(u"/one"));
  EXPECT_TRUE(manager.hasEntry(u"/two"));
}

TEST(FileSystemManagerLoadSaveTest, ManifestIsFoundThroughItsRelationshipAndRewrittenThere) {
  FileSystemTree tree;
  tree.addNode(FileSystemNode::makeFolderNode(u"/elsewhere", unknownPerms(), noTime()));
  ManagedPackage p;
  // A part of another type is read all the same, and made again with the right type on save.
  addMetadataPart(*p.package, u"/other/manifest.xml", ContentType(u"application/xml"),
                  relationshipType(), manifestText(tree, false));
  EXPECT_TRUE(p.manager->hasEntry(u"/elsewhere"));
  p.manager->createFolder(u"/added");
  Bytes const bytes = p.save();

  auto reopened = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_FALSE(reopened->hasPart(PartName(kManifestPart)));
  EXPECT_EQ(reopened->getPart(PartName(u"/other/manifest.xml")).getContentType(), kManifestType);
  EXPECT_EQ(reopened->getRelationshipsByType(relationshipType()).size(), 1u);
  FileSystemManager manager(*reopened, opc::FileSystemOpsSelector());
  EXPECT_TRUE(manager.hasEntry(u"/elsewhere"));
  EXPECT_TRUE(manager.hasEntry(u"/added"));
  // What the manager claims are the constant names, wherever the relationship points.
  EXPECT_EQ(FileSystemManagerAccess::managedPartNames(manager).front(), kManifestPart);
}

TEST(FileSystemManagerLoadSaveTest, PackageWithBothManifestsIsReadFromTheCurrentOne) {
  FileSystemTree current;
  current.addNode(FileSystemNode::makeFolderNode(u"/current", unknownPerms(), noTime()));
  FileSystemTree old;
  old.addNode(FileSystemNode::makeFolderNode(u"/old", unknownPerms(), noTime()));
  ManagedPackage p;
  addMetadataPart(*p.package, kManifestV1Part, kManifestV1Type, relationshipTypeV1(),
                  manifestText(old, true));
  addMetadataPart(*p.package, kManifestPart, kManifestType, relationshipType(),
                  manifestText(current, false));
  EXPECT_TRUE(p.manager->hasEntry(u"/current"));
  EXPECT_FALSE(p.manager->hasEntry(u"/old"));
  EXPECT_TRUE(p.package->hasPart(PartName(kManifestV1Part)));
  EXPECT_EQ(p.package->getRelationshipsByType(relationshipTypeV1()).size(), 1u);
}

TEST(FileSystemManagerLoadSaveTest, OlderManifestWithoutLinksLoadsAsVersionTwo) {
  FileSystemTree old;
  old.addNode(FileSystemNode::makeFolderNode(u"/old", unknownPerms(), noTime()));
  old.addNode(
      FileSystemNode::makeFileNode(u"/old/f", u"/fsroot/old/f", opcvk_test::perms(0644), noTime()));
  ManagedPackage p;
  addMetadataPart(*p.package, kManifestV1Part, kManifestV1Type, relationshipTypeV1(),
                  manifestText(old, true));
  EXPECT_EQ(p.manager->getVersion(), u"2.0");
  EXPECT_EQ(p.manager->getEntry(u"/old/f").getPermissions(), opcvk_test::perms(0644));
}

TEST(FileSystemManagerLoadSaveTest, ManagedPartNamesListFilesOnly) {
  ManagedPackage p;
  FileSystemEntry const f = p.manager->createFile(u"/d/f", textType(), unknownPerms(), noTime());
  p.manager->createFile(u"/a", textType(), unknownPerms(), noTime());
  p.manager->createLink(u"/d/l", u"f");
  p.manager->createFolder(u"/empty");
  EXPECT_EQ(FileSystemManagerAccess::managedPartNames(*p.manager),
            (Texts{kManifestPart, u"/fsroot/a", u"/fsroot/d/f"}));
  p.manager->setSaveV1Manifest(true);
  EXPECT_EQ(FileSystemManagerAccess::managedPartNames(*p.manager),
            (Texts{kManifestPart, kManifestV1Part, u"/fsroot/a", u"/fsroot/d/f"}));
  (void)f;
}

TEST(FileSystemManagerLoadSaveTest, ManagedRelationshipTypesDoNotLoad) {
  ManagedPackage p;
  addMetadataPart(*p.package, kManifestPart, kManifestType, relationshipType(), "not xml");
  FileSystemManager manager(*p.package, opc::FileSystemOpsSelector());
  EXPECT_EQ(FileSystemManagerAccess::managedRelationshipTypes(manager), Texts{relationshipType()});
  manager.setSaveV1Manifest(true);
  EXPECT_EQ(FileSystemManagerAccess::managedRelationshipTypes(manager),
            (Texts{relationshipType(), relationshipTypeV1()}));
}

TEST(FileSystemManagerLoadSaveTest, ReadOnlyPackageIsReadButNeverWritten) {
  ManagedPackage p;
  p.manager->createFile(u"/f", textType(), unknownPerms(), noTime());
  Bytes const bytes = p.save();
  auto reopened = Package::openBuffer(bytes, PackageAccess::Read);
  FileSystemManager manager(*reopened, opc::FileSystemOpsSelector());
  EXPECT_TRUE(manager.getEntry(u"/f").isFile());
  EXPECT_THROW(manager.createFile(u"/g", textType(), unknownPerms(), noTime()),
               opc::model::PackageNotWritable);
  EXPECT_FALSE(manager.hasEntry(u"/g"));
}

}  // namespace
