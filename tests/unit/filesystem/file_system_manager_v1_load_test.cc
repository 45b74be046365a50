// Loading packages of the older generation: conversion in memory, what happens to the older
// parts, and every way a conversion fails.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

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
using opcvk_test::expectTypicalEntries;
using opcvk_test::kManifestPartName;
using opcvk_test::kOlderManifestPartName;
using opcvk_test::ManagedPackage;
using opcvk_test::olderManifestContentType;
using opcvk_test::olderManifestRelationshipType;
using opcvk_test::OlderPackage;
using opcvk_test::perms;
using opcvk_test::typicalOlderPackage;
using Bytes = std::vector<unsigned char>;

std::string const kConversionError = "Error converting from V1 manifest to current format: ";

std::size_t relationshipCount(Package const& package, std::u16string const& type) {
  return package.getRelationshipsByType(type).size();
}

bool hasPart(Package const& package, std::u16string const& name) {
  return package.hasPart(PartName(name));
}

// The text of what `action` throws: the exact words of the package model, which a converted
// failure carries behind its own.
template <class Action>
std::string messageOf(Action&& action) {
  try {
    action();
  } catch (std::exception const& e) {
    return e.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return std::string();
}

TEST(FileSystemManagerV1LoadTest, ReadOnlyPackageConvertsInMemoryAndKeepsEveryPart) {
  Bytes const bytes = typicalOlderPackage().build();
  for (bool saveV1 : {false, true}) {
    SCOPED_TRACE(saveV1);
    ManagedPackage p(bytes, PackageAccess::Read);
    p.manager->setSaveV1Manifest(saveV1);
    expectTypicalEntries(*p.manager);
    EXPECT_TRUE(hasPart(*p.package, kOlderManifestPartName));
    EXPECT_EQ(relationshipCount(*p.package, olderManifestRelationshipType()), 1u);
    EXPECT_TRUE(hasPart(*p.package, u"/fsroot/docs/current"));
    EXPECT_TRUE(hasPart(*p.package, u"/links/up"));
  }
}

TEST(FileSystemManagerV1LoadTest, ModifyWithoutSaveV1UpgradesThePackage) {
  ManagedPackage p(typicalOlderPackage().build(), PackageAccess::Modify);
  // The first public operation converts and cleans up.
  EXPECT_TRUE(p.manager->hasEntry(u"/docs/current"));
  EXPECT_FALSE(hasPart(*p.package, kOlderManifestPartName));
  EXPECT_EQ(relationshipCount(*p.package, olderManifestRelationshipType()), 0u);
  EXPECT_FALSE(hasPart(*p.package, u"/fsroot/docs/current"));
  EXPECT_FALSE(hasPart(*p.package, u"/links/up"));
  expectTypicalEntries(*p.manager);

  // The cleanup marked the manager dirty: the save writes the current manifest.
  Bytes const saved = p.save();
  ManagedPackage again(saved, PackageAccess::Read);
  EXPECT_TRUE(hasPart(*again.package, kManifestPartName));
  EXPECT_EQ(relationshipCount(*again.package, opcvk_test::manifestRelationshipType()), 1u);
  EXPECT_FALSE(hasPart(*again.package, kOlderManifestPartName));
  expectTypicalEntries(*again.manager);
}

TEST(FileSystemManagerV1LoadTest, ModifyWithSaveV1DeletesLinkPartsButKeepsTheOlderManifest) {
  ManagedPackage p(typicalOlderPackage().build(), PackageAccess::Modify);
  p.manager->setSaveV1Manifest(true);
  expectTypicalEntries(*p.manager);
  EXPECT_FALSE(hasPart(*p.package, u"/fsroot/docs/current"));
  EXPECT_FALSE(hasPart(*p.package, u"/links/up"));
  EXPECT_TRUE(hasPart(*p.package, kOlderManifestPartName));
  EXPECT_EQ(relationshipCount(*p.package, olderManifestRelationshipType()), 1u);
  EXPECT_TRUE(hasPart(*p.package, u"/fsroot/docs/a.txt"));
}

TEST(FileSystemManagerV1LoadTest, SettingSaveV1AfterTheFirstLoadUndoesNoCleanup) {
  ManagedPackage p(typicalOlderPackage().build(), PackageAccess::Modify);
  EXPECT_EQ(p.manager->getVersion(), u"2.0");
  p.manager->setSaveV1Manifest(true);
  EXPECT_FALSE(hasPart(*p.package, kOlderManifestPartName));
  // Saved now, the older manifest comes back as a new part, written from the tree.
  Bytes const saved = p.save();
  ManagedPackage again(saved, PackageAccess::Read);
  EXPECT_TRUE(hasPart(*again.package, kOlderManifestPartName));
  EXPECT_TRUE(hasPart(*again.package, kManifestPartName));
}

TEST(FileSystemManagerV1LoadTest, NamesWithoutSlashAndFileModesReadAsPathsAndPermissionBits) {
  OlderPackage older;
  older.addFile("top.txt", u"/fsroot/top.txt", "t", "33152");               // 0100600
  older.addFolder("deep/er", "16877");                                      // 040755
  older.addLink("deep/link", u"/fsroot/deep/link", "../top.txt", "41453");  // 0120755
  ManagedPackage p(older.build(), PackageAccess::Read);
  EXPECT_EQ(p.manager->getEntry(u"/top.txt").getPermissions(), perms(0600));
  EXPECT_EQ(p.manager->getEntry(u"/deep/er").getPermissions(), perms(0755));
  EXPECT_EQ(p.manager->getEntry(u"/deep/link").getPermissions(), perms(0755));
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/deep/link")), u"../top.txt");
}

TEST(FileSystemManagerV1LoadTest, LinkTargetsAreUtf8TextTakenWhole) {
  OlderPackage older;
  older.addLink("/l", u"/fsroot/l", "caf\xC3\xA9/\xE2\x82\xAC dir\\x ");
  ManagedPackage p(older.build(), PackageAccess::Read);
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/l")), u"caf\u00E9/\u20AC dir\\x ");
}

TEST(FileSystemManagerV1LoadTest, EmptyLinkPartFailsTheWholeLoadAndDeletesNothing) {
  OlderPackage older = typicalOlderPackage();
  older.addLink("/z/empty", u"/fsroot/z/empty", "");
  Bytes const bytes = older.build();
  for (auto access : {PackageAccess::Read, PackageAccess::Modify}) {
    ManagedPackage p(bytes, access);
    EXPECT_THROW_MESSAGE(p.manager->getRoot(), CouldNotConvertFileSystemManifest,
                         kConversionError + "Could not read link target for: /z/empty");
    // Nothing was deleted, so a second try fails the same way rather than on a missing part.
    EXPECT_TRUE(hasPart(*p.package, u"/fsroot/docs/current"));
    EXPECT_TRUE(hasPart(*p.package, kOlderManifestPartName));
    EXPECT_THROW_MESSAGE(p.manager->getVersion(), CouldNotConvertFileSystemManifest,
                         kConversionError + "Could not read link target for: /z/empty");
  }
}

TEST(FileSystemManagerV1LoadTest, MissingLinkPartFailsWithTheModelsWords) {
  OlderPackage older;
  older.entries.push_back({"/l", "SymLink", "/links/gone", "", ""});
  ManagedPackage p(older.build(), PackageAccess::Read);
  std::string const missing = messageOf([&] { p.package->getPart(PartName(u"/links/gone")); });
  EXPECT_EQ(missing.rfind("No part \"/links/gone\" in the package", 0), 0u) << missing;
  EXPECT_THROW_MESSAGE(p.manager->getRoot(), CouldNotConvertFileSystemManifest,
                       kConversionError + missing);
}

TEST(FileSystemManagerV1LoadTest, LinkContentThatIsNoPartNameFailsWithTheModelsWords) {
  OlderPackage older;
  older.entries.push_back({"/l", "SymLink", "relative/target", "", ""});
  ManagedPackage p(older.build(), PackageAccess::Read);
  std::string const invalid = messageOf([&] { PartName(u"relative/target"); });
  EXPECT_EQ(invalid.rfind("Invalid part name \"relative/target\"", 0), 0u) << invalid;
  EXPECT_THROW_MESSAGE(p.manager->getRoot(), CouldNotConvertFileSystemManifest,
                       kConversionError + invalid);
}

TEST(FileSystemManagerV1LoadTest, LinkTargetLongerThanAnyPathIsRefused) {
  OlderPackage older;
  older.addLink("/fits", u"/fsroot/fits", std::string(128 * 1024, 'a'));
  ManagedPackage fits(older.build(), PackageAccess::Read);
  EXPECT_EQ(fits.manager->getLinkTarget(fits.manager->getEntry(u"/fits")).size(), 128u * 1024);

  older.addLink("/long", u"/fsroot/long", std::string(128 * 1024 + 1, 'a'));
  ManagedPackage p(older.build(), PackageAccess::Read);
  EXPECT_THROW_MESSAGE(p.manager->getRoot(), CouldNotConvertFileSystemManifest,
                       kConversionError + "Link target is longer than 131072 bytes for: /long");
}

TEST(FileSystemManagerV1LoadTest, CurrentRelationshipWithOlderContentTypeIsConverted) {
  OlderPackage older = typicalOlderPackage();
  older.manifestPart = kManifestPartName;
  older.relationshipType = opcvk_test::manifestRelationshipType();
  ManagedPackage p(older.build(), PackageAccess::Modify);
  expectTypicalEntries(*p.manager);
  // The link parts go; no older relationship means no cleanup and no mark.
  EXPECT_FALSE(hasPart(*p.package, u"/links/up"));
  EXPECT_TRUE(hasPart(*p.package, kManifestPartName));
  Bytes const saved = p.save();
  ManagedPackage again(saved, PackageAccess::Read);
  EXPECT_EQ(again.package->getPart(PartName(kManifestPartName)).getContentType(),
            olderManifestContentType());
}

TEST(FileSystemManagerV1LoadTest, OlderRelationshipWithAnotherContentTypeIsNotConverted) {
  OlderPackage older = typicalOlderPackage();
  older.manifestType = ContentType(u"application/xml");
  ManagedPackage p(older.build(), PackageAccess::Modify);
  // Read by the older rules (decimal modes, names given a "/") but not converted.
  EXPECT_EQ(p.manager->getVersion(), u"1.0");
  EXPECT_EQ(p.manager->getEntry(u"/docs/a.txt").getPermissions(), perms(0644));
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/docs/current")),
            u"/fsroot/docs/current");
  EXPECT_TRUE(hasPart(*p.package, u"/links/up"));
  EXPECT_TRUE(hasPart(*p.package, kOlderManifestPartName));

  // Written in the current form with version "1.0" and octal permissions, which the reader
  // of that version then refuses.
  p.manager->createFolder(u"/new");
  Bytes const saved = p.save();
  ManagedPackage again(saved, PackageAccess::Read);
  EXPECT_THROW_MESSAGE(again.manager->getRoot(), opc::model::InvalidPartContent,
                       "Permissions are not a valid decimal value");
}

TEST(FileSystemManagerV1LoadTest, LinksSharingAPartConvertAndThePartGoesOnce) {
  OlderPackage older;
  older.addLink("/one", u"/links/shared", "target");
  older.entries.push_back({"/two", "SymLink", "/links/shared", "", ""});
  ManagedPackage p(older.build(), PackageAccess::Modify);
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/one")), u"target");
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/two")), u"target");
  EXPECT_FALSE(hasPart(*p.package, u"/links/shared"));
}

TEST(FileSystemManagerV1LoadTest, LinkPartThatAFileOrTheManifestUsesIsNotDeleted) {
  OlderPackage older;
  older.addFile("/a.txt", u"/fsroot/a.txt", "alpha");
  // Crafted: links whose "parts" are a file's content and the manifest itself.
  older.entries.push_back({"/la", "SymLink", "/fsroot/a.txt", "", ""});
  older.entries.push_back(
      {"/lm", "SymLink", opc::detail::toUTF8String(kOlderManifestPartName), "", ""});
  ManagedPackage p(older.build(), PackageAccess::Modify);
  p.manager->setSaveV1Manifest(true);
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/la")), u"alpha");
  EXPECT_EQ(opcvk_test::storedContent(*p.manager, u"/a.txt"), "alpha");
  EXPECT_TRUE(hasPart(*p.package, kOlderManifestPartName));
}

// A package saved with both manifests, holding the file /a.txt ("alpha", in the part
// /fsroot/a.txt) and a link to `target`, from which the current manifest is then lost.
Bytes olderOnlyAsWritten(std::u16string const& target) {
  ManagedPackage made;
  made.manager->setSaveV1Manifest(true);
  FileSystemEntry const file = made.manager->createFile(u"/a.txt", opcvk_test::textType(),
                                                        perms(0644), opcvk_test::noTime());
  opc::OutputStream& output = made.manager->getFileOutputStream(file);
  output.write(reinterpret_cast<unsigned char const*>("alpha"), 5);
  output.close();
  made.manager->createLink(u"/link", target);
  auto package = Package::openBuffer(made.save(), PackageAccess::Modify);
  package->deletePart(PartName(kManifestPartName));
  for (auto const& relationship :
       package->getRelationshipsByType(opcvk_test::manifestRelationshipType())) {
    package->deleteRelationship(relationship.getID());
  }
  package->save();
  return package->getBuffer();
}

TEST(FileSystemManagerV1LoadTest, WrittenOlderFormReadThroughItsRelationshipTakesTargetsForParts) {
  // What the older form written here holds for a link is its target text, which the
  // conversion takes for the name of a part.
  ManagedPackage relative(olderOnlyAsWritten(u"a.txt"), PackageAccess::Read);
  std::string const invalid = messageOf([&] { PartName(u"a.txt"); });
  EXPECT_THROW_MESSAGE(relative.manager->getRoot(), CouldNotConvertFileSystemManifest,
                       kConversionError + invalid);

  ManagedPackage missing(olderOnlyAsWritten(u"/nowhere"), PackageAccess::Read);
  EXPECT_THROW(missing.manager->getRoot(), CouldNotConvertFileSystemManifest);

  // A target that names a part loads, with that part's bytes for a target.
  ManagedPackage named(olderOnlyAsWritten(u"/fsroot/a.txt"), PackageAccess::Read);
  EXPECT_EQ(named.manager->getLinkTarget(named.manager->getEntry(u"/link")), u"alpha");
  EXPECT_EQ(named.manager->getVersion(), u"2.0");
}

TEST(FileSystemManagerV1LoadTest, CleanupRemovesOnlyTheFirstOlderRelationship) {
  OlderPackage older = typicalOlderPackage();
  auto package = Package::openBuffer({}, PackageAccess::Create);
  older.writeInto(*package);
  // A second older relationship to a second copy of the manifest.
  OlderPackage second;
  second.manifestPart = u"/metadata/second.xml";
  second.writeInto(*package);
  package->save();

  ManagedPackage p(package->getBuffer(), PackageAccess::Modify);
  EXPECT_TRUE(p.manager->hasEntry(u"/docs/a.txt"));
  EXPECT_FALSE(hasPart(*p.package, kOlderManifestPartName));
  EXPECT_TRUE(hasPart(*p.package, u"/metadata/second.xml"));
  auto const left = p.package->getRelationshipsByType(olderManifestRelationshipType());
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(PartName(left.begin()->getTargetURI()), PartName(u"/metadata/second.xml"));
}

TEST(FileSystemManagerV1LoadTest, PackageWithBothManifestsLeavesTheOlderOneAlone) {
  OlderPackage older = typicalOlderPackage();
  ManagedPackage made;
  made.manager->createFolder(u"/current-only");
  made.save();
  auto package = Package::openBuffer(made.package->getBuffer(), PackageAccess::Modify);
  older.writeInto(*package);
  package->save();

  ManagedPackage p(package->getBuffer(), PackageAccess::Modify);
  EXPECT_TRUE(p.manager->hasEntry(u"/current-only"));
  EXPECT_FALSE(p.manager->hasEntry(u"/docs/a.txt"));
  EXPECT_TRUE(hasPart(*p.package, kOlderManifestPartName));
  EXPECT_TRUE(hasPart(*p.package, u"/links/up"));
  EXPECT_EQ(relationshipCount(*p.package, olderManifestRelationshipType()), 1u);
}

}  // namespace
