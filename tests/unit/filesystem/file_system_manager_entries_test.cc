#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/stream_helper.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/expect_exception.h"
#include "support/file_system_entry_access.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using opc::model::ContentType;
using opc::model::PartName;
using opc::vkservices::CouldNotDecryptContent;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemEntryAlreadyExists;
using opc::vkservices::FileSystemEntryMustBeFile;
using opc::vkservices::FileSystemEntryMustBeFolder;
using opc::vkservices::FileSystemEntryMustBeLink;
using opc::vkservices::FileSystemEntryNotFound;
using opc::vkservices::TransformMode;
using opc::vkservices::detail::FileSystemEntryAccess;
using opcvk_test::ManagedPackage;
using opcvk_test::noTime;
using opcvk_test::textType;
using opcvk_test::unknownPerms;
using Paths = std::vector<std::u16string>;

std::string readAll(opc::InputStream& input) {
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(input, out);
  return out.str();
}

void writeText(opc::OutputStream& output, std::string const& text) {
  output.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  output.close();
}

template <typename Entries>
Paths pathsOf(Entries const& entries) {
  Paths paths;
  for (auto const& entry : entries) paths.push_back(entry.getPathName());
  return paths;
}

FileSystemEntry makeFile(ManagedPackage& p, std::u16string const& path) {
  return p.manager->createFile(path, textType(), unknownPerms(), noTime());
}

TEST(FileSystemManagerEntriesTest, CreatingAnExistingPathRaisesWithTheNormalisedPath) {
  ManagedPackage p;
  makeFile(p, u"/f");
  p.manager->createFolder(u"/d");
  char const* const root = "File system entry already exists: /";
  EXPECT_THROW_MESSAGE(p.manager->createFolder(u"/"), FileSystemEntryAlreadyExists, root);
  EXPECT_THROW_MESSAGE(makeFile(p, u""), FileSystemEntryAlreadyExists, root);
  EXPECT_THROW_MESSAGE(p.manager->createLink(u"", u"x"), FileSystemEntryAlreadyExists, root);
  EXPECT_THROW_MESSAGE(p.manager->createFolder(u"d"), FileSystemEntryAlreadyExists,
                       "File system entry already exists: /d");
  EXPECT_THROW_MESSAGE(makeFile(p, u"\\f"), FileSystemEntryAlreadyExists,
                       "File system entry already exists: /f");
  EXPECT_THROW_MESSAGE(p.manager->createLink(u"/f", u"x"), FileSystemEntryAlreadyExists,
                       "File system entry already exists: /f");
  // No part was made for the refused file.
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/f_1")));
}

TEST(FileSystemManagerEntriesTest, RelativePathIsCreatedUnderTheRootWithItsFolders) {
  ManagedPackage p;
  FileSystemEntry const file = makeFile(p, u"a/b.txt");
  EXPECT_EQ(file.getPathName(), u"/a/b.txt");
  EXPECT_TRUE(p.manager->hasEntry(u"/a"));
  EXPECT_TRUE(p.manager->getEntry(u"/a").isFolder());
  EXPECT_EQ(p.package->getPart(PartName(u"/fsroot/a/b.txt")).getCompressionType(),
            opc::interfaces::CompressionType::DeflateContent);
  EXPECT_EQ(p.package->getPart(PartName(u"/fsroot/a/b.txt")).getContentType(), textType());
}

TEST(FileSystemManagerEntriesTest, ImplicitFolderIsAnOrdinaryFolder) {
  ManagedPackage p;
  FileSystemEntry const x = makeFile(p, u"/d/x");
  makeFile(p, u"/d/y");
  p.manager->deleteFile(x);
  EXPECT_TRUE(p.manager->hasEntry(u"/d"));
  p.manager->deleteFile(p.manager->getEntry(u"/d/y"));
  // Removing the last child leaves the folder.
  EXPECT_TRUE(p.manager->hasEntry(u"/d"));
  EXPECT_EQ(pathsOf(p.manager->getAllLeafs()), Paths{u"/d"});
  makeFile(p, u"/d/z");
  p.manager->deleteFolder(p.manager->getEntry(u"/d"));
  EXPECT_FALSE(p.manager->hasEntry(u"/d"));
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/d/z")));
}

TEST(FileSystemManagerEntriesTest, FileUnderAFileWorksAndOutlivesIt) {
  ManagedPackage p;
  FileSystemEntry const a = makeFile(p, u"/a");
  FileSystemEntry const b = makeFile(p, u"/a/b");
  EXPECT_EQ(FileSystemEntryAccess::contentName(b), u"/fsroot/a_1/b");
  p.manager->deleteFile(a);
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/a")));
  EXPECT_TRUE(p.manager->hasEntry(u"/a/b"));
  EXPECT_TRUE(p.package->hasPart(PartName(u"/fsroot/a_1/b")));
}

TEST(FileSystemManagerEntriesTest, EntriesOfAListingTellTheirChildrenAsTheTreeHasThemNow) {
  ManagedPackage p;
  makeFile(p, u"/d/f1");
  p.manager->createFolder(u"/d/empty");
  auto const childOf = [&p](std::u16string const& path) {
    for (auto const& entry : p.manager->getChildren(p.manager->getEntry(u"/d"))) {
      if (entry.getPathName() == path) return entry;
    }
    throw std::logic_error("no such child");
  };
  FileSystemEntry const f1 = childOf(u"/d/f1");
  FileSystemEntry const empty = childOf(u"/d/empty");
  EXPECT_FALSE(p.manager->hasChildren(f1));
  EXPECT_FALSE(p.manager->hasChildren(empty));
  // Entries listed before a change answer for the tree after it.
  makeFile(p, u"/d/empty/g");
  EXPECT_TRUE(p.manager->hasChildren(empty));
  makeFile(p, u"/d/f1/h");
  EXPECT_TRUE(p.manager->hasChildren(f1));
  p.manager->deleteFile(p.manager->getEntry(u"/d/empty/g"));
  EXPECT_FALSE(p.manager->hasChildren(empty));
  EXPECT_TRUE(p.manager->hasChildren(childOf(u"/d/f1")));
  EXPECT_FALSE(p.manager->hasChildren(childOf(u"/d/empty")));
}

TEST(FileSystemManagerEntriesTest, DeleteFolderRemovesTheWholeSubtreeAndItsParts) {
  ManagedPackage p;
  makeFile(p, u"/d/f1");
  makeFile(p, u"/d/sub/f2");
  p.manager->createLink(u"/d/sub/l", u"f2");
  p.manager->createFolder(u"/d/sub/empty");
  makeFile(p, u"/other/f3");
  p.manager->deleteFolder(p.manager->getEntry(u"/d"));
  EXPECT_EQ(pathsOf(p.manager->getAllLeafs()), Paths{u"/other/f3"});
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/d/f1")));
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/d/sub/f2")));
  EXPECT_TRUE(p.package->hasPart(PartName(u"/fsroot/other/f3")));
}

TEST(FileSystemManagerEntriesTest, DeleteOfTheWrongKindRaisesBeforeAnythingChanges) {
  ManagedPackage p;
  FileSystemEntry const file = makeFile(p, u"/d/f");
  FileSystemEntry const folder = p.manager->getEntry(u"/d");
  FileSystemEntry const link = p.manager->createLink(u"/l", u"d/f");
  EXPECT_THROW_MESSAGE(p.manager->deleteFile(folder), FileSystemEntryMustBeFile,
                       "File system entry must be a file");
  EXPECT_THROW_MESSAGE(p.manager->deleteFile(link), FileSystemEntryMustBeFile,
                       "File system entry must be a file");
  EXPECT_THROW_MESSAGE(p.manager->deleteFolder(file), FileSystemEntryMustBeFolder,
                       "File system entry must be a folder");
  EXPECT_THROW_MESSAGE(p.manager->deleteFolder(link), FileSystemEntryMustBeFolder,
                       "File system entry must be a folder");
  EXPECT_THROW_MESSAGE(p.manager->deleteLink(file), FileSystemEntryMustBeLink,
                       "File system entry must be a link");
  EXPECT_THROW_MESSAGE(p.manager->deleteLink(folder), FileSystemEntryMustBeLink,
                       "File system entry must be a link");
  EXPECT_EQ(pathsOf(p.manager->getAllLeafs()), (Paths{u"/d/f", u"/l"}));
  EXPECT_TRUE(p.package->hasPart(PartName(u"/fsroot/d/f")));
}

TEST(FileSystemManagerEntriesTest, StaleEntriesAndTheRootAreRefusedWithoutHarm) {
  ManagedPackage p;
  FileSystemEntry const file = makeFile(p, u"/f");
  FileSystemEntry const link = p.manager->createLink(u"/l", u"f");
  p.manager->deleteFile(file);
  p.manager->deleteLink(link);
  EXPECT_THROW_MESSAGE(p.manager->deleteFile(file), FileSystemEntryNotFound,
                       "File system entry does not exist: /f");
  EXPECT_THROW_MESSAGE(p.manager->deleteLink(link), FileSystemEntryNotFound,
                       "File system entry does not exist: /l");
  makeFile(p, u"/g");
  EXPECT_THROW_MESSAGE(p.manager->deleteFolder(p.manager->getRoot()),
                       opc::vkservices::FileSystemEntryHasNoParent,
                       "File system entry has no parent");
  // The root's children went first; the root itself stays.
  EXPECT_TRUE(p.manager->hasEntry(u"/"));
  EXPECT_TRUE(p.manager->getAllLeafs().empty());
}

TEST(FileSystemManagerEntriesTest, LinkTargetsAreMendedTextOnly) {
  ManagedPackage p;
  struct Case {
    std::u16string path;
    std::u16string target;
    std::u16string expected;
  };
  std::vector<Case> const cases = {{u"/l", u"..\\x", u"../x"},
                                   {u"/l2", u"x", u"x"},
                                   {u"/l3", u"\\\\host\\share", u"/host/share"},
                                   {u"/l4", u"", u""},
                                   {u"/l5", u"/nowhere/at/all", u"/nowhere/at/all"}};
  for (auto const& c : cases) {
    FileSystemEntry const link = p.manager->createLink(c.path, c.target);
    EXPECT_TRUE(link.isLink());
    EXPECT_EQ(p.manager->getLinkTarget(link), c.expected);
    EXPECT_EQ(p.manager->getLinkTarget(p.manager->getEntry(c.path)), c.expected);
    EXPECT_EQ(link.getPermissions(), FileSystemEntry::getUnknownPermissions());
    EXPECT_EQ(link.getLastModifiedTime(), FileSystemEntry::getUnknownTime());
  }
  // A link has no part.
  EXPECT_FALSE(p.package->hasPart(PartName(u"/fsroot/l")));
}

TEST(FileSystemManagerEntriesTest, ReadingTheWrongKindRaises) {
  ManagedPackage p;
  FileSystemEntry const file = makeFile(p, u"/f");
  FileSystemEntry const link = p.manager->createLink(u"/l", u"f");
  FileSystemEntry const folder = p.manager->getRoot();
  EXPECT_THROW_MESSAGE(p.manager->getLinkTarget(file), FileSystemEntryMustBeLink,
                       "File system entry must be a symbolic link");
  EXPECT_THROW_MESSAGE(p.manager->getLinkTarget(folder), FileSystemEntryMustBeLink,
                       "File system entry must be a symbolic link");
  EXPECT_THROW_MESSAGE(p.manager->getFileOutputStream(link), FileSystemEntryMustBeFile,
                       "File system entry must be a file");
  EXPECT_THROW_MESSAGE(p.manager->getFileContentSource(folder, TransformMode::NoTransforms),
                       FileSystemEntryMustBeFile, "File system entry must be a file");
}

TEST(FileSystemManagerEntriesTest, ContentWrittenIsReadBackWithItsType) {
  ManagedPackage p;
  ContentType const type(u"application/octet-stream");
  FileSystemEntry const file = p.manager->createFile(u"/f.bin", type, unknownPerms(), noTime());
  EXPECT_EQ(
      readAll(p.manager->getFileContentSource(file, TransformMode::NoTransforms)->getInputStream()),
      "");
  writeText(p.manager->getFileOutputStream(file), std::string("bytes\0here", 10));
  for (auto mode : {TransformMode::NoTransforms, TransformMode::ApplyTransforms}) {
    auto source = p.manager->getFileContentSource(file, mode);
    EXPECT_EQ(source->getContentType(), type);
    EXPECT_EQ(readAll(source->getInputStream()), std::string("bytes\0here", 10));
  }
  // A second stream replaces the content.
  writeText(p.manager->getFileOutputStream(file), "new");
  EXPECT_EQ(
      readAll(
          p.manager->getFileContentSource(file, TransformMode::ApplyTransforms)->getInputStream()),
      "new");
}

TEST(FileSystemManagerEntriesTest, EncryptedContentNeedsADecryptorOnlyWhenTransformed) {
  ManagedPackage p;
  ContentType const type(u"text/plain;encryption=AES256-GCM;iv=inline");
  FileSystemEntry const file = p.manager->createFile(u"/secret", type, unknownPerms(), noTime());
  writeText(p.manager->getFileOutputStream(file), "IVIVIVIVIVIVciphertext");
  auto raw = p.manager->getFileContentSource(file, TransformMode::NoTransforms);
  EXPECT_EQ(raw->getContentType(), type);
  EXPECT_EQ(readAll(raw->getInputStream()), "IVIVIVIVIVIVciphertext");
  EXPECT_THROW_MESSAGE(p.manager->getFileContentSource(file, TransformMode::ApplyTransforms),
                       CouldNotDecryptContent,
                       "Content is encrypted but enableDecryption() has not been called yet");
  // Any value other than ApplyTransforms counts as NoTransforms.
  auto other = p.manager->getFileContentSource(file, static_cast<TransformMode>(7));
  EXPECT_EQ(readAll(other->getInputStream()), "IVIVIVIVIVIVciphertext");
}

TEST(FileSystemManagerEntriesTest, EveryChangeIsSavedAndNothingElse) {
  ManagedPackage p;
  makeFile(p, u"/keep");
  FileSystemEntry const gone = makeFile(p, u"/gone");
  p.manager->createFolder(u"/folder");
  p.manager->createLink(u"/link", u"keep");
  p.manager->deleteFile(gone);
  auto const bytes = p.save();
  ManagedPackage q(bytes, opc::model::PackageAccess::Modify);
  EXPECT_EQ(pathsOf(q.manager->getAllLeafs()), (Paths{u"/folder", u"/keep", u"/link"}));
  EXPECT_FALSE(q.package->hasPart(PartName(u"/fsroot/gone")));
  q.manager->getFileOutputStream(q.manager->getEntry(u"/keep"));
  q.manager->deleteLink(q.manager->getEntry(u"/link"));
  auto const again = q.save();
  ManagedPackage r(again, opc::model::PackageAccess::Read);
  EXPECT_EQ(pathsOf(r.manager->getAllLeafs()), (Paths{u"/folder", u"/keep"}));
}

// A listing's entries make their content names only when asked: each must still give the
// name that the entry found by its path gives, in every form the tree keeps it in.
TEST(FileSystemManagerEntriesTest, ChildrenGiveTheContentNamesOfTheEntriesAtTheirPaths) {
  ManagedPackage p;
  makeFile(p, u"/plain.txt");
  makeFile(p, u"/\u00e9 x\U0001F600.txt");
  p.manager->createFolder(u"/d");
  makeFile(p, u"/d/\u65e5");
  p.manager->createLink(u"/l", u"/plain.txt");
  std::vector<std::u16string> names;
  for (std::u16string const folder : {u"/", u"/d"}) {
    for (FileSystemEntry const& child : p.manager->getChildren(folder)) {
      std::u16string const name = FileSystemEntryAccess::contentName(child);
      EXPECT_EQ(name, FileSystemEntryAccess::contentName(p.manager->getEntry(child.getPathName())));
      names.push_back(name);
    }
  }
  EXPECT_EQ(names, (Paths{u"/fsroot/plain.txt", u"/fsroot/%C3%A9%20x%F0%9F%98%80.txt", u"/d",
                          u"/plain.txt", u"/fsroot/d/%E6%97%A5"}));
}

}  // namespace
