// Extraction of an encrypted file system: each file reaches its place whole and authenticated,
// or not at all, and whatever stood there before a failure is left as it was.
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "support/file_system_entry_access.h"
#include "support/temp_dir.h"
#include "unit/core/local_file_system_ops_test_util.h"
#include "unit/filesystem/file_system_manager_encryption_test_support.h"
#include "unit/filesystem/shared_extraction_support.h"

namespace {

using opc::model::PackageAccess;
using opc::vkservices::bytes;
using opc::vkservices::CouldNotCreateFile;
using opc::vkservices::CouldNotTransformContentData;
using opc::vkservices::IVMode;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;
using opcvk_test::addContent;
using opcvk_test::flipped;
using opcvk_test::keyA;
using opcvk_test::ManagedPackage;
using opcvk_test::modeOf;
using opcvk_test::namesIn;
using opcvk_test::partBytes;
using opcvk_test::readFile;
using opcvk_test::readLink;
using opcvk_test::TempDir;
using opcvk_test::withPart;
using opcvk_test::writeFile;

// A package of one encrypted file `/dir/f.bin` holding `content`; its part's name in `name`.
std::vector<unsigned char> encryptedFile(std::string const& content, std::u16string& name) {
  ManagedPackage p;
  p.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  name = opc::vkservices::detail::FileSystemEntryAccess::contentName(
      addContent(*p.manager, u"/dir/f.bin", content, u"application/octet-stream"));
  return p.save();
}

// The package with the part `name` changed by flipping its last bit (in the tag).
std::vector<unsigned char> withTagFlipped(std::vector<unsigned char> const& archive,
                                          std::u16string const& name) {
  auto reader = opc::model::Package::openBuffer(archive, PackageAccess::Read);
  std::string const stored = partBytes(*reader, name);
  return withPart(archive, name, flipped(stored, stored.size() * 8 - 1));
}

void extractInto(std::vector<unsigned char> const& archive, std::string const& destination,
                 ReplaceMode replace = ReplaceMode::ReplaceNever) {
  ManagedPackage p(archive, PackageAccess::Read);
  p.manager->enableDecryption(keyA());
  p.manager->extractAll(opcvk_test::u16(destination), RestoreMode::RestoreTimeAndPermissions,
                        TransformMode::ApplyTransforms, replace);
}

TEST(FileSystemManagerEncryptedExtractionTest, SharedExtractionDecryptsEveryFile) {
  ManagedPackage made;
  made.manager->enableEncryption(keyA(), IVMode::RandomIV, bytes());
  for (int i = 0; i < 40; ++i) {
    addContent(
        *made.manager,
        u"/d" + opcvk_test::u16(std::to_string(i % 3)) + u"/f" + opcvk_test::u16(std::to_string(i)),
        "secret " + std::to_string(i), u"application/octet-stream");
  }
  ManagedPackage p(made.save(), PackageAccess::Read);
  p.manager->enableDecryption(keyA());
  TempDir dir;
  opcvk_test::extractShared(*p.manager, opcvk_test::u16(dir.path()), 3,
                            RestoreMode::RestoreTimeAndPermissions, ReplaceMode::ReplaceNever,
                            TransformMode::ApplyTransforms);
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(readFile(dir / ("d" + std::to_string(i % 3) + "/f" + std::to_string(i))),
              "secret " + std::to_string(i));
  }
}

TEST(FileSystemManagerEncryptedExtractionTest, FileArrivesDecryptedWithItsPermissions) {
  std::u16string name;
  std::vector<unsigned char> const archive = encryptedFile("secret bytes", name);
  TempDir dir;
  extractInto(archive, dir.path());
  EXPECT_EQ(readFile(dir / "dir/f.bin"), "secret bytes");
  EXPECT_EQ(modeOf(dir / "dir/f.bin") & 07777, 0640U);
  EXPECT_EQ(namesIn(dir / "dir"), std::set<std::string>{"f.bin"});
}

TEST(FileSystemManagerEncryptedExtractionTest, AlteredSmallFileLeavesNoFileAndNoTemporary) {
  std::u16string name;
  std::vector<unsigned char> const archive = withTagFlipped(encryptedFile("12345678", name), name);
  TempDir dir;
  testing::internal::CaptureStdout();
  EXPECT_THROW(extractInto(archive, dir.path()), CouldNotTransformContentData);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(namesIn(dir / "dir"), std::set<std::string>{});
}

// Past the size decrypted whole, the file is decrypted into its temporary file in one pass
// and the tag is met only at the end: the bytes written by then must never take the place.
TEST(FileSystemManagerEncryptedExtractionTest, AlteredLargeFileLeavesTheFileThatWasThere) {
  std::string const big = opcvk_test::pattern(5 * 1024 * 1024 + 3);
  std::u16string name;
  std::vector<unsigned char> const archive = withTagFlipped(encryptedFile(big, name), name);
  TempDir dir;
  ASSERT_EQ(mkdir((dir / "dir").c_str(), 0755), 0);
  writeFile(dir / "dir/f.bin", "before");
  testing::internal::CaptureStdout();
  EXPECT_THROW(extractInto(archive, dir.path(), ReplaceMode::ReplaceAlways),
               CouldNotTransformContentData);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(readFile(dir / "dir/f.bin"), "before");
  EXPECT_EQ(namesIn(dir / "dir"), std::set<std::string>{"f.bin"});
}

TEST(FileSystemManagerEncryptedExtractionTest, LargeFileReplacesAWritableFile) {
  std::string const big = opcvk_test::pattern(5 * 1024 * 1024 + 3);
  std::u16string name;
  std::vector<unsigned char> const archive = encryptedFile(big, name);
  TempDir dir;
  ASSERT_EQ(mkdir((dir / "dir").c_str(), 0755), 0);
  writeFile(dir / "dir/f.bin", "before");
  extractInto(archive, dir.path());
  EXPECT_EQ(readFile(dir / "dir/f.bin"), big);
  EXPECT_EQ(namesIn(dir / "dir"), std::set<std::string>{"f.bin"});
}

// The temporary road meets what stands at the path as the plain road does: a link is
// refused, not replaced.
TEST(FileSystemManagerEncryptedExtractionTest, LinkAtThePathIsRefusedAndStays) {
  std::u16string name;
  std::vector<unsigned char> const archive = encryptedFile("content", name);
  TempDir dir;
  ASSERT_EQ(mkdir((dir / "dir").c_str(), 0755), 0);
  ASSERT_EQ(symlink("elsewhere", (dir / "dir/f.bin").c_str()), 0);
  EXPECT_THROW(extractInto(archive, dir.path(), ReplaceMode::ReplaceAlways), CouldNotCreateFile);
  EXPECT_EQ(readLink(dir / "dir/f.bin"), "elsewhere");
  EXPECT_EQ(namesIn(dir / "dir"), std::set<std::string>{"f.bin"});
}

TEST(FileSystemManagerEncryptedExtractionTest, StoredBytesWithoutTransformsGoStraightThrough) {
  std::u16string name;
  std::vector<unsigned char> const archive = encryptedFile("content", name);
  auto reader = opc::model::Package::openBuffer(archive, PackageAccess::Read);
  std::string const stored = partBytes(*reader, name);
  TempDir dir;
  ManagedPackage p(archive, PackageAccess::Read);
  p.manager->enableDecryption(keyA());
  p.manager->extractAll(opcvk_test::u16(dir.path()), RestoreMode::RestoreNothing,
                        TransformMode::NoTransforms, ReplaceMode::ReplaceNever);
  EXPECT_EQ(readFile(dir / "dir/f.bin"), stored);
}

}  // namespace
