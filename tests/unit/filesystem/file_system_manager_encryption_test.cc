// FileSystemManager with encryption: enabling it, the names, bytes and types of encrypted
// parts, the encrypted manifest, and keys that are missing or wrong.
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/exceptions.h>
#include <opc/core/string_conversions.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "support/file_system_entry_access.h"
#include "unit/filesystem/file_system_manager_encryption_test_support.h"

namespace {

using opc::model::ContentType;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::bytes;
using opc::vkservices::CannotEnableDecryption;
using opc::vkservices::CannotEnableEncryption;
using opc::vkservices::CouldNotDecryptContent;
using opc::vkservices::CouldNotTransformContentData;
using opc::vkservices::InvalidIVBytesSize;
using opc::vkservices::IVMode;
using opc::vkservices::TransformMode;
using opc::vkservices::detail::FileSystemManagerAccess;
using opcvk_test::addContent;

std::u16string contentName(opc::vkservices::FileSystemEntry const& entry) {
  return opc::vkservices::detail::FileSystemEntryAccess::contentName(entry);
}

using opcvk_test::contentOf;
using opcvk_test::deterministicIV;
using opcvk_test::encryptedPackage;
using opcvk_test::fixedPortion;
using opcvk_test::hiddenPartName;
using opcvk_test::keyA;
using opcvk_test::keyB;
using opcvk_test::ManagedPackage;
using opcvk_test::partBytes;

constexpr char16_t kEncryptedManifestType[] =
    u"application/vnd.veltrance.package.filesystemManifest+xml;encryption=AES256-GCM;iv=inline";

TEST(FileSystemManagerEncryptionTest, DecryptionIsForPackagesOpenForReadOnly) {
  for (PackageAccess access : {PackageAccess::Create, PackageAccess::Modify}) {
    ManagedPackage p(access == PackageAccess::Modify ? encryptedPackage() : bytes(), access);
    EXPECT_THROW_MESSAGE(p.manager->enableDecryption(keyA()), CannotEnableDecryption,
                         "Cannot enable decryption unless package is open for Read");
    EXPECT_FALSE(p.manager->isDecryptionEnabled());
  }
}

TEST(FileSystemManagerEncryptionTest, EncryptionIsForPackagesOpenForCreateOrModify) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Read);
  EXPECT_THROW_MESSAGE(p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes()),
                       CannotEnableEncryption,
                       "Cannot enable encryption unless package is open for Create or Modify");
  EXPECT_FALSE(p.manager->isEncryptionEnabled());
}

TEST(FileSystemManagerEncryptionTest, BadIVBytesLeaveEncryptionOff) {
  ManagedPackage p;
  EXPECT_THROW_MESSAGE(p.manager->enableEncryption(keyA(), IVMode::DeterministicIV, bytes(7, 1)),
                       InvalidIVBytesSize, "IV fixed portion must be at least 8 bytes");
  EXPECT_THROW_MESSAGE(p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes(7, 1)),
                       InvalidIVBytesSize, "IV seed must be at least 8 bytes when it is specified");
  EXPECT_FALSE(p.manager->isEncryptionEnabled());
  addContent(*p.manager, u"/a.json", "{}");
  EXPECT_EQ(contentName(p.manager->getEntry(u"/a.json")), u"/fsroot/a.json");
}

TEST(FileSystemManagerEncryptionTest, AnyModeButZeroIsDeterministic) {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), static_cast<IVMode>(7), fixedPortion());
  addContent(*p.manager, u"/a.json", "{}");
  std::string const stored = contentOf(*p.manager, u"/a.json", TransformMode::NoTransforms);
  EXPECT_EQ(stored.substr(0, 16), opcvk_test::text(deterministicIV(1)));
}

TEST(FileSystemManagerEncryptionTest, KeyOfAnotherSizeRaisesTheCryptoLibrarysException) {
  ManagedPackage p;
  EXPECT_THROW(p.manager->enableEncryption(bytes(16, 1), IVMode::RandomIV, bytes()),
               foundation::crypto::utils::Exception);
  EXPECT_FALSE(p.manager->isEncryptionEnabled());
  ManagedPackage reading(encryptedPackage(), PackageAccess::Read);
  EXPECT_THROW(reading.manager->enableDecryption(bytes(31, 1)),
               foundation::crypto::utils::Exception);
}

TEST(FileSystemManagerEncryptionTest, EncryptedFileIsNamedByDigestStoredAndLaidOutInline) {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), IVMode::DeterministicIV, fixedPortion());
  EXPECT_TRUE(p.manager->isEncryptionEnabled());
  EXPECT_FALSE(p.manager->isDecryptionEnabled());
  auto const entry = addContent(*p.manager, u"/a/b.json", "{\"x\": [1, 2, 3]}");
  EXPECT_EQ(contentName(entry), hiddenPartName(keyA(), u"/a/b.json"));
  opc::model::Part part = p.package->getPart(PartName(contentName(entry)));
  EXPECT_EQ(part.getCompressionType(), opc::interfaces::CompressionType::Stored);
  EXPECT_EQ(part.getContentType().toString(), u"application/json;encryption=AES256-GCM;iv=inline");
  EXPECT_EQ(partBytes(*p.package, contentName(entry)),
            opcvk_test::inlineIVMessage(keyA(), deterministicIV(1), "{\"x\": [1, 2, 3]}"));
}

TEST(FileSystemManagerEncryptionTest, DigestIsOfThePercentEncodedPath) {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  auto const entry = addContent(*p.manager, u"/a b/c+d@e é.txt", "x");
  EXPECT_EQ(contentName(entry), hiddenPartName(keyA(), u"/a%20b/c+d@e%20%C3%A9.txt"));
  // Under another key the same path has another name.
  ManagedPackage other;
  other.manager->enableEncryption(keyB(), IVMode::RandomIV, bytes());
  EXPECT_NE(contentName(addContent(*other.manager, u"/a b/c+d@e é.txt", "x")), contentName(entry));
}

TEST(FileSystemManagerEncryptionTest, NamesShowNoFoldersNoDotsAndClashesEndInASuffix) {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  std::u16string const first = contentName(addContent(*p.manager, u"/x/readme.txt", "1"));
  std::u16string const second = contentName(addContent(*p.manager, u"/y/readme.txt", "2"));
  EXPECT_NE(first, second);
  for (std::u16string const& name : {first, second}) {
    EXPECT_EQ(name.size(), 8U + 64U);
    EXPECT_EQ(name.find(u'.'), std::u16string::npos);
    EXPECT_EQ(name.find(u'/', 8), std::u16string::npos);
  }
  // A part that already has the name makes the next one take a suffix at the end.
  std::u16string const taken = hiddenPartName(keyA(), u"/z");
  p.package->createPart(
      PartName(taken), ContentType(u"a/b"),
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::Stored, 0));
  EXPECT_EQ(FileSystemManagerAccess::makeUniquePartName(*p.manager, u"/z").toString(),
            taken + u"_1");
}

// createFile names and stores the part as an encrypted one, but only addFile encrypts.
TEST(FileSystemManagerEncryptionTest, CreateFileNamesAndStoresButWritesAsGiven) {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  auto const entry = p.manager->createFile(u"/raw.bin", ContentType(u"a/b"),
                                           opcvk_test::unknownPerms(), opcvk_test::noTime());
  EXPECT_EQ(contentName(entry), hiddenPartName(keyA(), u"/raw.bin"));
  opc::OutputStream& output = p.manager->getFileOutputStream(entry);
  output.write(reinterpret_cast<unsigned char const*>("as given"), 8);
  output.close();
  opc::model::Part part = p.package->getPart(PartName(contentName(entry)));
  EXPECT_EQ(part.getCompressionType(), opc::interfaces::CompressionType::Stored);
  EXPECT_EQ(part.getContentType().toString(), u"a/b");
  EXPECT_EQ(partBytes(*p.package, contentName(entry)), "as given");
}

TEST(FileSystemManagerEncryptionTest, SavedPackageReadsBackWithTheKey) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Read);
  EXPECT_TRUE(p.manager->isEncrypted());
  p.manager->enableDecryption(keyA());
  EXPECT_EQ(p.manager->getVersion(), u"2.0");
  EXPECT_EQ(contentOf(*p.manager, u"/docs/a.json"), "{\"a\": 1}");
  EXPECT_EQ(contentOf(*p.manager, u"/b.txt"), "plain words");
  auto source = p.manager->getFileContentSource(p.manager->getEntry(u"/b.txt"),
                                                TransformMode::ApplyTransforms);
  EXPECT_EQ(source->getContentType().toString(), u"text/plain");
  EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(u"/docs/link")), u"a.json");
  EXPECT_TRUE(p.manager->getEntry(u"/empty").isFolder());
  auto const entry = p.manager->getEntry(u"/docs/a.json");
  EXPECT_EQ(entry.getPermissions(), opcvk_test::perms(0640));

  opc::model::Part manifest = p.package->getPart(PartName(u"/metadata/filesystemManifest.xml"));
  EXPECT_EQ(manifest.getContentType().toString(), kEncryptedManifestType);
  // The manifest is the last message written: two files came before it.
  EXPECT_EQ(partBytes(*p.package, u"/metadata/filesystemManifest.xml").substr(0, 16),
            opcvk_test::text(deterministicIV(3)));
}

TEST(FileSystemManagerEncryptionTest, StoredBytesNeedNoKey) {
  ManagedPackage writer;
  writer.manager->enableEncryption(keyA(), IVMode::DeterministicIV, fixedPortion());
  addContent(*writer.manager, u"/a.json", "{}");
  EXPECT_EQ(contentOf(*writer.manager, u"/a.json", TransformMode::NoTransforms),
            opcvk_test::inlineIVMessage(keyA(), deterministicIV(1), "{}"));
  // Written under encryption, and no decryptor in this state.
  EXPECT_THROW_MESSAGE(contentOf(*writer.manager, u"/a.json"), CouldNotDecryptContent,
                       "Content is encrypted but enableDecryption() has not been called yet");
}

TEST(FileSystemManagerEncryptionTest, EncryptedManifestWithoutAKeyFailsAtTheFirstQuery) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Read);
  EXPECT_THROW_MESSAGE(p.manager->getRoot(), CouldNotDecryptContent,
                       "Manifest is encrypted but enableDecryption() has not been called yet");
}

TEST(FileSystemManagerEncryptionTest, WrongKeyOnReadFailsAtTheFirstQuery) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Read);
  p.manager->enableDecryption(keyB());
  testing::internal::CaptureStdout();
  EXPECT_THROW_MESSAGE(p.manager->getVersion(), CouldNotTransformContentData,
                       std::string("Failure when attempting to transform data for content type:") +
                           opc::toASCIIString(kEncryptedManifestType));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "An error occurred during decryption:The data does not authenticate under this key "
            "and IV: it was altered, or the key is wrong.\n");
  // The last key given wins.
  p.manager->enableDecryption(keyA());
  EXPECT_EQ(contentOf(*p.manager, u"/docs/a.json"), "{\"a\": 1}");
}

TEST(FileSystemManagerEncryptionTest, WrongKeyOnModifyIsToldInItsWords) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Modify);
  testing::internal::CaptureStdout();
  EXPECT_THROW_MESSAGE(p.manager->enableEncryption(keyB(), IVMode::RandomIV, bytes()),
                       CannotEnableEncryption,
                       "Encryption key most likely does not match the key used to originally "
                       "encrypt the package");
  testing::internal::GetCapturedStdout();
}

TEST(FileSystemManagerEncryptionTest, RightKeyOnModifyReadsAddsAndSaves) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Modify);
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  EXPECT_TRUE(p.manager->isDecryptionEnabled());
  EXPECT_EQ(contentOf(*p.manager, u"/docs/a.json"), "{\"a\": 1}");
  addContent(*p.manager, u"/new.json", "[]");
  p.manager->deleteFile(p.manager->getEntry(u"/b.txt"));
  ManagedPackage again(p.save(), PackageAccess::Read);
  again.manager->enableDecryption(keyA());
  EXPECT_EQ(contentOf(*again.manager, u"/new.json"), "[]");
  EXPECT_EQ(contentOf(*again.manager, u"/docs/a.json"), "{\"a\": 1}");
  EXPECT_FALSE(again.manager->hasEntry(u"/b.txt"));
}

TEST(FileSystemManagerEncryptionTest, IsEncryptedLooksAtTheManifestTypeOnly) {
  ManagedPackage empty;
  EXPECT_FALSE(empty.manager->isEncrypted());
  ManagedPackage plain;
  addContent(*plain.manager, u"/a.json", "{}");
  ManagedPackage plainRead(plain.save(), PackageAccess::Read);
  EXPECT_FALSE(plainRead.manager->isEncrypted());
  ManagedPackage encrypted(encryptedPackage(), PackageAccess::Read);
  EXPECT_TRUE(encrypted.manager->isEncrypted());
  EXPECT_FALSE(encrypted.manager->isDecryptionEnabled());
}

// The parameter's value is the part's own: it is judged when the content is read.
TEST(FileSystemManagerEncryptionTest, OtherAlgorithmOpensAndFailsAtTheFirstRead) {
  ManagedPackage writer;
  auto const entry = writer.manager->createFile(
      u"/odd.json", ContentType(u"application/json;encryption=AES128-GCM;iv=inline"),
      opcvk_test::unknownPerms(), opcvk_test::noTime());
  opc::OutputStream& output = writer.manager->getFileOutputStream(entry);
  std::string const stored = opcvk_test::inlineIVMessage(keyA(), bytes(16, 9), "{}");
  output.write(reinterpret_cast<unsigned char const*>(stored.data()), stored.size());
  output.close();
  ManagedPackage reader(writer.save(), PackageAccess::Read);
  reader.manager->enableDecryption(keyA());
  auto source = reader.manager->getFileContentSource(reader.manager->getEntry(u"/odd.json"),
                                                     TransformMode::ApplyTransforms);
  testing::internal::CaptureStdout();
  EXPECT_THROW(source->getInputStream(), CouldNotTransformContentData);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "An error occurred during decryption:Unsupported decryption type and mode.\n");
}

TEST(FileSystemManagerEncryptionTest, LargeFileIsReadBackInBoundedMemory) {
  std::string const big = opcvk_test::pattern(6 * 1024 * 1024 + 7);
  ManagedPackage writer;
  writer.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  addContent(*writer.manager, u"/big.bin", big, u"application/octet-stream");
  ManagedPackage reader(writer.save(), PackageAccess::Read);
  reader.manager->enableDecryption(keyA());
  EXPECT_EQ(contentOf(*reader.manager, u"/big.bin"), big);
}

// The name of the i-th of many folders with long names, which make a manifest of megabytes.
std::u16string longFolderName(int i) {
  std::u16string name = u"/";
  for (char const digit : std::to_string(i)) name += static_cast<char16_t>(digit);
  return name + std::u16string(600, u'f');
}

// An encrypted manifest larger than the window of the reader without the parser streams
// through the decrypting stream; one that the reader gives up on far into it is read again by
// the parser, through a new decrypting stream from the first byte.
TEST(FileSystemManagerEncryptionTest, LargeManifestStreamsAndIsReadAgainFromTheStart) {
  constexpr int kFolders = 3000;
  ManagedPackage writer;
  writer.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  for (int i = 0; i < kFolders; ++i) writer.manager->createFolder(longFolderName(i));
  std::vector<unsigned char> const archive = writer.save();
  {
    ManagedPackage reader(archive, PackageAccess::Read);
    EXPECT_GT(partBytes(*reader.package, u"/metadata/filesystemManifest.xml").size(),
              std::size_t{1} << 20);
    reader.manager->enableDecryption(keyA());
    EXPECT_EQ(reader.manager->getAllLeafs().size(), std::size_t{kFolders});
    EXPECT_TRUE(reader.manager->getEntry(longFolderName(kFolders - 1)).isFolder());
  }

  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
      "<fileEntries xmlns=\"http://schemas.opcvkservices.org/package/2013/filesystemManifest\" "
      "createdByEncoding=\"UTF-8\" createdByPlatform=\"p\" version=\"2.0\">\n";
  for (int i = 0; i < kFolders; ++i) {
    std::string const name = opc::detail::toUTF8String(longFolderName(i));
    xml += "<fileEntry content=\"" + name + "\" name=\"" + name + "\" type=\"Folder\"/>\n";
    if (i == kFolders - 10) xml += "<!-- the parser's business -->\n";
  }
  xml += "</fileEntries>\n";
  ManagedPackage reader(
      opcvk_test::withPart(archive, u"/metadata/filesystemManifest.xml",
                           opcvk_test::inlineIVMessage(keyA(), bytes(16, 9), xml)),
      PackageAccess::Read);
  reader.manager->enableDecryption(keyA());
  EXPECT_EQ(reader.manager->getAllLeafs().size(), std::size_t{kFolders});
  EXPECT_EQ(reader.manager->getCreatedByPlatform(), u"p");
}

TEST(FileSystemManagerEncryptionTest, ManagedPartNamesAreTheDigests) {
  ManagedPackage p(encryptedPackage(), PackageAccess::Read);
  p.manager->enableDecryption(keyA());
  EXPECT_EQ(FileSystemManagerAccess::managedPartNames(*p.manager),
            (std::vector<std::u16string>{u"/metadata/filesystemManifest.xml",
                                         hiddenPartName(keyA(), u"/b.txt"),
                                         hiddenPartName(keyA(), u"/docs/a.json")}));
}

}  // namespace
