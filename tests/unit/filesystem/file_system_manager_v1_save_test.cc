// Saving with the older manifest beside the current one, and the trap of a package of the
// older generation that is loaded with setSaveV1Manifest(true) and saved unchanged.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/stream_helper.h>
#include <opc/model/exceptions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_tree.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"
#include "unit/filesystem/file_system_manager_test_support.h"
#include "unit/filesystem/older_package.h"

namespace {

using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::CouldNotConvertFileSystemManifest;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemTree;
using opcvk_test::expectTypicalEntries;
using opcvk_test::kManifestPartName;
using opcvk_test::kOlderManifestPartName;
using opcvk_test::ManagedPackage;
using opcvk_test::manifestRelationshipType;
using opcvk_test::olderManifestContentType;
using opcvk_test::olderManifestRelationshipType;
using opcvk_test::perms;
using opcvk_test::typicalOlderPackage;
using Bytes = std::vector<unsigned char>;

// A caller's own manager that can ask for its manifests to be written: what the warning of
// setSaveV1Manifest tells callers to do.
class MarkableManager : public FileSystemManager {
 public:
  using FileSystemManager::FileSystemManager;
  void markForSave() {
    getVersion();  // loaded first: an unloaded manager would write its empty tree
    markAsDirty();
  }
};

std::string partText(Package& package, std::u16string const& name) {
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(package.getPart(PartName(name)).getInputStream(), out);
  return out.str();
}

// The tree that a manifest part holds, read by itself.
FileSystemTree treeOf(Package& package, std::u16string const& name) {
  FileSystemManifestXml xml;
  FileSystemTree tree;
  opcvk_test::MemoryInputStream source(partText(package, name));
  xml.read(source, tree);
  return tree;
}

TEST(FileSystemManagerV1SaveTest, NewPackageWithSaveV1HoldsBothManifests) {
  ManagedPackage p;
  p.manager->setSaveV1Manifest(true);
  FileSystemEntry const file =
      p.manager->createFile(u"/d/a.txt", opcvk_test::textType(), perms(0644), opcvk_test::noTime());
  p.manager->getFileOutputStream(file).close();
  p.manager->createLink(u"/d/l", u"a.txt");
  p.manager->createFolder(u"/e");
  Bytes const saved = p.save();

  auto package = Package::openBuffer(saved, PackageAccess::Read);
  auto const older = package->getRelationshipsByType(olderManifestRelationshipType());
  ASSERT_EQ(older.size(), 1u);
  EXPECT_EQ(PartName(older.begin()->getTargetURI()), PartName(kOlderManifestPartName));
  opc::model::Part const part = package->getPart(PartName(kOlderManifestPartName));
  EXPECT_EQ(part.getContentType(), olderManifestContentType());
  EXPECT_EQ(part.getCompressionType(), opc::interfaces::CompressionType::DeflateMetadata);
  EXPECT_EQ(package->getRelationshipsByType(manifestRelationshipType()).size(), 1u);

  // The older document: version "1.0", decimal modes, a link's target as its content.
  std::string const text = partText(*package, kOlderManifestPartName);
  EXPECT_NE(text.find("permissions=\"33188\""), std::string::npos) << text;
  FileSystemTree const tree = treeOf(*package, kOlderManifestPartName);
  EXPECT_EQ(tree.getVersion(), u"1.0");
  EXPECT_EQ(tree.findNode(u"/d/l").getContentName(), u"a.txt");
  EXPECT_EQ(tree.findNode(u"/e").getContentName(), u"/e");

  // The current manifest is the one read.
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  EXPECT_EQ(manager.getLinkTarget(manager.getEntry(u"/d/l")), u"a.txt");
}

TEST(FileSystemManagerV1SaveTest, OlderManifestIsRewrittenWhereItsRelationshipLeads) {
  opcvk_test::OlderPackage older;
  older.addFolder("/old");
  older.manifestPart = u"/elsewhere/manifest.xml";
  older.manifestType = ContentType(u"application/xml");
  ManagedPackage made;
  made.manager->createFolder(u"/current");
  made.save();
  auto both = Package::openBuffer(made.package->getBuffer(), PackageAccess::Modify);
  older.writeInto(*both);
  both->save();

  ManagedPackage p(both->getBuffer(), PackageAccess::Modify);
  p.manager->setSaveV1Manifest(true);
  p.manager->createFolder(u"/added");
  Bytes const saved = p.save();

  auto package = Package::openBuffer(saved, PackageAccess::Read);
  EXPECT_FALSE(package->hasPart(PartName(kOlderManifestPartName)));
  EXPECT_EQ(package->getPart(PartName(u"/elsewhere/manifest.xml")).getContentType(),
            ContentType(u"application/xml"));
  EXPECT_EQ(package->getRelationshipsByType(olderManifestRelationshipType()).size(), 1u);
  FileSystemTree const tree = treeOf(*package, u"/elsewhere/manifest.xml");
  EXPECT_TRUE(tree.hasNode(u"/current"));
  EXPECT_TRUE(tree.hasNode(u"/added"));
  EXPECT_FALSE(tree.hasNode(u"/old"));
}

TEST(FileSystemManagerV1SaveTest, OlderPackageReadWithSaveV1AndSavedUnchangedLosesItsLinks) {
  // The trap: the conversion deleted the link parts and marked nothing, so the save writes
  // neither manifest, and the older one still names the parts that are gone.
  ManagedPackage p(typicalOlderPackage().build(), PackageAccess::Modify);
  p.manager->setSaveV1Manifest(true);
  expectTypicalEntries(*p.manager);
  Bytes const saved = p.save();

  ManagedPackage again(saved, PackageAccess::Read);
  EXPECT_FALSE(again.package->hasPart(PartName(kManifestPartName)));
  EXPECT_FALSE(again.package->hasPart(PartName(u"/fsroot/docs/current")));
  FileSystemTree const older = treeOf(*again.package, kOlderManifestPartName);
  EXPECT_EQ(older.findNode(u"/docs/current").getContentName(), u"/fsroot/docs/current");
  EXPECT_EQ(older.findNode(u"/bin/up").getContentName(), u"/links/up");
  // The first link in path order is /bin/up.
  std::string missing;
  try {
    again.package->getPart(PartName(u"/links/up"));
  } catch (opc::model::PartNotFound const& e) {
    missing = e.what();
  }
  EXPECT_EQ(missing.rfind("No part \"/links/up\"", 0), 0u) << missing;
  EXPECT_THROW_MESSAGE(again.manager->getRoot(), CouldNotConvertFileSystemManifest,
                       "Error converting from V1 manifest to current format: " + missing);
}

TEST(FileSystemManagerV1SaveTest, OlderPackageMarkedForSaveKeepsBothManifestsAndItsLinks) {
  auto package = Package::openBuffer(typicalOlderPackage().build(), PackageAccess::Modify);
  {
    MarkableManager manager(*package, opc::FileSystemOpsSelector());
    manager.setSaveV1Manifest(true);
    expectTypicalEntries(manager);
    manager.markForSave();
    package->save();
  }
  ManagedPackage again(package->getBuffer(), PackageAccess::Read);
  EXPECT_TRUE(again.package->hasPart(PartName(kManifestPartName)));
  expectTypicalEntries(*again.manager);
  // The older manifest is up to date with the tree: links carry their targets.
  FileSystemTree const older = treeOf(*again.package, kOlderManifestPartName);
  EXPECT_EQ(older.findNode(u"/docs/current").getContentName(), u"a.txt");
  EXPECT_EQ(older.findNode(u"/bin/up").getContentName(), u"../docs");
}

TEST(FileSystemManagerV1SaveTest, OlderPackageChangedWithSaveV1KeepsBothManifests) {
  ManagedPackage p(typicalOlderPackage().build(), PackageAccess::Modify);
  p.manager->setSaveV1Manifest(true);
  p.manager->createFolder(u"/new");
  Bytes const saved = p.save();

  ManagedPackage again(saved, PackageAccess::Modify);
  again.manager->setSaveV1Manifest(true);
  expectTypicalEntries(*again.manager);
  EXPECT_TRUE(again.manager->hasEntry(u"/new"));
  EXPECT_TRUE(again.package->hasPart(PartName(kOlderManifestPartName)));
  // From now on the current manifest is read, and the older one is only kept up to date.
  again.manager->deleteFolder(again.manager->getEntry(u"/new"));
  Bytes const third = again.save();
  auto package = Package::openBuffer(third, PackageAccess::Read);
  EXPECT_FALSE(treeOf(*package, kOlderManifestPartName).hasNode(u"/new"));
  EXPECT_TRUE(treeOf(*package, kOlderManifestPartName).hasNode(u"/docs/current"));
}

}  // namespace
