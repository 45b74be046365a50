// FileSystemManager turning a plain file system into an encrypted one, output that a fixed
// IV portion makes reproducible, and altered encrypted parts seen through the whole package.
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/standard_part_info.h>
#include <opc/vkservices/errors.h>

#include "filesystem/file_system_manifest_xml_names.h"
#include "support/expect_exception.h"
#include "support/file_system_entry_access.h"
#include "unit/filesystem/file_system_manager_encryption_test_support.h"

namespace {

using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::bytes;
using opc::vkservices::CannotEnableEncryption;
using opc::vkservices::CouldNotDecryptContent;
using opc::vkservices::CouldNotTransformContentData;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::IVMode;
using opc::vkservices::TransformMode;
using opcvk_test::addContent;
using opcvk_test::allParts;
using opcvk_test::contentOf;
using opcvk_test::fixedPortion;
using opcvk_test::flipped;
using opcvk_test::hiddenPartName;
using opcvk_test::keyA;
using opcvk_test::ManagedPackage;
using opcvk_test::partBytes;
using opcvk_test::withPart;

std::u16string contentName(FileSystemEntry const& entry) {
  return opc::vkservices::detail::FileSystemEntryAccess::contentName(entry);
}

std::vector<unsigned char> plainPackage() {
  ManagedPackage p;
  addContent(*p.manager, u"/docs/a.json", "{\"a\": 1}");
  addContent(*p.manager, u"/docs/deep/b.txt", "words", u"text/plain;charset=utf-8");
  addContent(*p.manager, u"/empty.bin", "", u"application/octet-stream");
  p.manager->createLink(u"/docs/link", u"../empty.bin");
  p.manager->createLink(u"/absolute", u"/docs/a.json");
  p.manager->createFolder(u"/nothing/inside");
  return p.save();
}

TEST(FileSystemManagerConversionTest, PlainFilesGoEncryptedLinksAndEmptyFoldersStay) {
  ManagedPackage p(plainPackage(), PackageAccess::Modify);
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  // Nothing was saved yet: the manifest part still says what it was.
  EXPECT_FALSE(p.manager->isEncrypted());
  for (std::u16string const path : {u"/docs/a.json", u"/docs/deep/b.txt", u"/empty.bin"}) {
    FileSystemEntry const entry = p.manager->getEntry(path);
    EXPECT_EQ(contentName(entry), hiddenPartName(keyA(), path));
    EXPECT_EQ(entry.getPermissions(), opcvk_test::perms(0640));
    EXPECT_EQ(p.package->getPart(PartName(contentName(entry))).getCompressionType(),
              opc::interfaces::CompressionType::Stored);
  }
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/docs/a.json")));
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/empty.bin")));
  // Written under encryption, not yet readable: there is no decryptor in this state.
  EXPECT_THROW_MESSAGE(contentOf(*p.manager, u"/docs/a.json"), CouldNotDecryptContent,
                       "Content is encrypted but enableDecryption() has not been called yet");

  ManagedPackage read(p.save(), PackageAccess::Read);
  EXPECT_TRUE(read.manager->isEncrypted());
  read.manager->enableDecryption(keyA());
  EXPECT_EQ(contentOf(*read.manager, u"/docs/a.json"), "{\"a\": 1}");
  EXPECT_EQ(contentOf(*read.manager, u"/docs/deep/b.txt"), "words");
  EXPECT_EQ(contentOf(*read.manager, u"/empty.bin"), "");
  auto source = read.manager->getFileContentSource(read.manager->getEntry(u"/docs/deep/b.txt"),
                                                   TransformMode::ApplyTransforms);
  EXPECT_EQ(source->getContentType().toString(), u"text/plain;charset=utf-8");
  EXPECT_EQ(read.manager->getLinkTarget(read.manager->getEntry(u"/docs/link")), u"../empty.bin");
  EXPECT_EQ(read.manager->getLinkTarget(read.manager->getEntry(u"/absolute")), u"/docs/a.json");
  EXPECT_TRUE(read.manager->getEntry(u"/nothing/inside").isFolder());
  EXPECT_FALSE(read.manager->hasChildren(u"/nothing/inside"));
  EXPECT_EQ(read.manager->getAllLeafs().size(), 6U);
}

// The relationship and the part name stay; the type changes, so the part is made again.
TEST(FileSystemManagerConversionTest, ManifestPartKeepsItsNameAndTakesTheEncryptedType) {
  ManagedPackage p(plainPackage(), PackageAccess::Modify);
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  ManagedPackage read(p.save(), PackageAccess::Read);
  auto const relationships = read.package->getRelationshipsByType(
      opc::vkservices::detail::kManifestRelationshipType.str());
  ASSERT_EQ(relationships.size(), 1U);
  EXPECT_EQ(relationships.begin()->getTargetURI().toString(), u"/metadata/filesystemManifest.xml");
  EXPECT_EQ(read.package->getPart(PartName(u"/metadata/filesystemManifest.xml"))
                .getContentType()
                .toString(),
            u"application/vnd.veltrance.package.filesystemManifest+xml;encryption=AES256-GCM;"
            u"iv=inline");
}

// A file whose plain part cannot be read keeps it; the files before it are converted.
TEST(FileSystemManagerConversionTest, FailureLeavesTheFileItCouldNotReadAsItWas) {
  std::vector<unsigned char> archive;
  {
    ManagedPackage p;
    addContent(*p.manager, u"/a.json", "{}");
    addContent(*p.manager, u"/b.json", "[]");
    addContent(*p.manager, u"/c.json", "1");
    p.package->deletePart(PartName(u"/fsroot/b.json"));
    archive = p.save();
  }
  ManagedPackage p(archive, PackageAccess::Modify);
  EXPECT_THROW_MESSAGE(p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes()),
                       CannotEnableEncryption,
                       "Could not successfully change from a non-encrypted file system to an "
                       "encrypted file-system");
  EXPECT_EQ(contentName(p.manager->getEntry(u"/a.json")), hiddenPartName(keyA(), u"/a.json"));
  EXPECT_EQ(contentName(p.manager->getEntry(u"/b.json")), u"/fsroot/b.json");
  EXPECT_EQ(contentName(p.manager->getEntry(u"/c.json")), u"/fsroot/c.json");
  EXPECT_TRUE(p.package->hasPart(PartName(u"/fsroot/c.json")));
  EXPECT_FALSE(p.package->hasPart(PartName(hiddenPartName(keyA(), u"/b.json"))));
}

TEST(FileSystemManagerConversionTest, OlderOrMissingFileSystemIsNotConverted) {
  ManagedPackage empty(ManagedPackage().save(), PackageAccess::Modify);
  empty.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  EXPECT_TRUE(empty.manager->isEncryptionEnabled());
  EXPECT_FALSE(empty.manager->isDecryptionEnabled());
  EXPECT_EQ(empty.manager->getAllLeafs().size(), 0U);
}

std::map<std::u16string, std::string> deterministicRun() {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), IVMode::DeterministicIV, fixedPortion());
  addContent(*p.manager, u"/one.json", "{\"n\": 1}");
  addContent(*p.manager, u"/two/three.txt", opcvk_test::pattern(100000), u"text/plain");
  p.manager->createLink(u"/l", u"one.json");
  p.save();
  return allParts(*p.package);
}

TEST(FileSystemManagerConversionTest, DeterministicIVsGiveByteIdenticalEncryptedParts) {
  auto const first = deterministicRun();
  auto const second = deterministicRun();
  ASSERT_EQ(first.size(), second.size());
  int encrypted = 0;
  for (auto const& [name, content] : first) {
    if (name.rfind(u"/fsroot/", 0) != 0 && name != u"/metadata/filesystemManifest.xml") continue;
    ++encrypted;
    ASSERT_EQ(second.count(name), 1U);
    EXPECT_EQ(second.at(name), content);
  }
  EXPECT_EQ(encrypted, 3);
}

TEST(FileSystemManagerConversionTest, RandomIVsDifferFromRunToRun) {
  std::string stored[2];
  for (std::string& one : stored) {
    ManagedPackage p;
    p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
    addContent(*p.manager, u"/one.json", "{}");
    one = contentOf(*p.manager, u"/one.json", TransformMode::NoTransforms);
  }
  EXPECT_NE(stored[0].substr(0, 16), stored[1].substr(0, 16));
}

// Every bit is flipped at the transform (inline_iv_transforms_test); here a sample of the IV,
// the ciphertext and the tag goes the whole way, through a saved package.
TEST(FileSystemManagerConversionTest, FlipsOfASmallPartAreDetectedThroughThePackage) {
  std::vector<unsigned char> archive;
  std::u16string name;
  {
    ManagedPackage p;
    p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
    name = contentName(addContent(*p.manager, u"/small.bin", "8 bytes!", u"a/b"));
    archive = p.save();
  }
  auto reader = opc::model::Package::openBuffer(archive, PackageAccess::Read);
  std::string const stored = partBytes(*reader, name);
  ASSERT_EQ(stored.size(), 40U);
  testing::internal::CaptureStdout();
  for (std::size_t bit : {0U, 7U, 64U, 127U, 128U, 161U, 191U, 192U, 250U, 319U}) {
    ManagedPackage p(withPart(archive, name, flipped(stored, bit)), PackageAccess::Read);
    p.manager->enableDecryption(keyA());
    auto source = p.manager->getFileContentSource(p.manager->getEntry(u"/small.bin"),
                                                  TransformMode::ApplyTransforms);
    EXPECT_THROW(source->getInputStream(), CouldNotTransformContentData) << bit;
  }
  testing::internal::GetCapturedStdout();
}

TEST(FileSystemManagerConversionTest, FlipsAcrossTheManifestAreDetected) {
  std::vector<unsigned char> const archive = opcvk_test::encryptedPackage();
  std::u16string const manifest = u"/metadata/filesystemManifest.xml";
  auto reader = opc::model::Package::openBuffer(archive, PackageAccess::Read);
  std::string const stored = partBytes(*reader, manifest);
  testing::internal::CaptureStdout();
  std::size_t const step = stored.size() * 8 / 13;
  for (std::size_t bit = 0; bit < stored.size() * 8; bit += step) {
    ManagedPackage p(withPart(archive, manifest, flipped(stored, bit)), PackageAccess::Read);
    p.manager->enableDecryption(keyA());
    EXPECT_THROW(p.manager->getVersion(), CouldNotTransformContentData) << bit;
  }
  // The last bit of the tag too.
  ManagedPackage last(withPart(archive, manifest, flipped(stored, stored.size() * 8 - 1)),
                      PackageAccess::Read);
  last.manager->enableDecryption(keyA());
  EXPECT_THROW(last.manager->getVersion(), CouldNotTransformContentData);
  testing::internal::GetCapturedStdout();
}

}  // namespace
