#include "manifests.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/file_system_manager.h>

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::FileSystemManager;
using Names = std::vector<std::string>;

PartName const kCurrent(u"/metadata/filesystemManifest.xml");
PartName const kOlder(u"/metadata/filesystemManifestV1.xml");

// A package saved by the library with the folder /kept, and with the older manifest too if
// `withOlder`.
std::vector<unsigned char> savedPackage(bool withOlder) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  {
    FileSystemManager files(*package, opc::FileSystemOpsSelector());
    files.setSaveV1Manifest(withOlder);
    files.createFolder(u"/kept");
    package->save();
  }
  return package->getBuffer();
}

// The relationship types as the library's own package holds them.
std::u16string typeOf(Package const& package, PartName const& target) {
  for (auto const& relationship : package.getRelationships()) {
    if (PartName(relationship.getTargetURI()) == target) return relationship.getType();
  }
  ADD_FAILURE() << "no relationship to the part";
  return std::u16string();
}

TEST(ManifestsTest, TellsWhichManifestsAPackageHolds) {
  auto empty = Package::openBuffer({}, PackageAccess::Create);
  EXPECT_EQ(opcvk::heldManifests(*empty).names(), Names{});

  auto current = Package::openBuffer(savedPackage(false), PackageAccess::Read);
  opcvk::HeldManifests held = opcvk::heldManifests(*current);
  EXPECT_EQ(held.names(), Names{"current"});
  EXPECT_FALSE(held.readInOlderForm);

  auto both = Package::openBuffer(savedPackage(true), PackageAccess::Modify);
  held = opcvk::heldManifests(*both);
  EXPECT_EQ(held.names(), (Names{"current", "v1"}));
  EXPECT_FALSE(held.readInOlderForm);

  // The older one alone is what is read, in the older form.
  both->deletePart(kCurrent);
  both->deleteRelationship(
      both->getRelationshipsByType(typeOf(*current, kCurrent)).begin()->getID());
  held = opcvk::heldManifests(*both);
  EXPECT_EQ(held.names(), Names{"v1"});
  EXPECT_TRUE(held.readInOlderForm);
}

TEST(ManifestsTest, RemovingTheOlderManifestLeavesTheCurrentOneWhole) {
  auto package = Package::openBuffer(savedPackage(true), PackageAccess::Modify);
  opcvk::removeOlderManifest(*package);
  EXPECT_FALSE(package->hasPart(kOlder));
  EXPECT_TRUE(package->hasPart(kCurrent));
  EXPECT_EQ(opcvk::heldManifests(*package).names(), Names{"current"});
  FileSystemManager files(*package, opc::FileSystemOpsSelector());
  EXPECT_TRUE(files.hasEntry(u"/kept"));
}

TEST(ManifestsTest, RemovingTheOlderManifestDeletesOnlyPartsOfItsType) {
  auto package = Package::openBuffer(savedPackage(true), PackageAccess::Modify);
  std::u16string const olderType = typeOf(*package, kOlder);
  // Older relationships that lead to the current manifest and to a part of another type.
  package->createInternalRelationship(olderType, kCurrent.getURI(), u"");
  package->createPart(
      PartName(u"/other.xml"), opc::model::ContentType(u"application/xml"),
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
  package->createInternalRelationship(olderType, PartName(u"/other.xml").getURI(), u"");
  opcvk::removeOlderManifest(*package);
  EXPECT_TRUE(package->getRelationshipsByType(olderType).empty());
  EXPECT_FALSE(package->hasPart(kOlder));
  EXPECT_TRUE(package->hasPart(kCurrent));
  EXPECT_TRUE(package->hasPart(PartName(u"/other.xml")));
}

}  // namespace
