#include <cerrno>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/local_file_system_ops.h>
#include <opc/core/stream_helper.h>
#include <opc/model/package.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"
#include "support/faulty_file_system_ops.h"
#include "support/in_memory_file_system_ops.h"
#include "support/temp_dir.h"
#include "unit/filesystem/disk_tree_test_util.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using boost::posix_time::ptime;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::CouldNotGetLastModifiedTime;
using opc::vkservices::CouldNotGetPermissions;
using opc::vkservices::CouldNotGetSourceFilesAndLinks;
using opc::vkservices::CouldNotMakeRelativeToSourceRoot;
using opc::vkservices::CouldNotOpenFile;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemEntryAlreadyExists;
using opc::vkservices::FileSystemManager;
using opc::vkservices::IContentSource;
using opc::vkservices::StreamContentSource;
using opc::vkservices::TransformMode;
using opcvk_test::FaultyFileSystemOps;
using opcvk_test::InMemoryFileSystemOps;
using opcvk_test::ManagedPackage;
using opcvk_test::perms;
using opcvk_test::TempDir;
using opcvk_test::disk::u16;
using Paths = std::vector<std::u16string>;

constexpr TransformMode kNo = TransformMode::NoTransforms;
constexpr TransformMode kApply = TransformMode::ApplyTransforms;

ptime timeAt(int year, int month, int day, long micros) {
  return ptime(boost::gregorian::date(year, month, day), boost::posix_time::microseconds(micros));
}

boost::system::error_code systemCode(int value) {
  return boost::system::error_code(value, boost::system::system_category());
}

std::string readAll(opc::InputStream& input) {
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(input, out);
  return out.str();
}

std::string contentOf(FileSystemManager& manager, std::u16string const& path) {
  auto source = manager.getFileContentSource(manager.getEntry(path), kNo);
  return readAll(source->getInputStream());
}

ContentType storedTypeOf(FileSystemManager& manager, std::u16string const& path) {
  return manager.getFileContentSource(manager.getEntry(path), kNo)->getContentType();
}

Paths childrenOf(FileSystemManager const& manager, std::u16string const& path) {
  Paths paths;
  for (auto const& entry : manager.getChildren(path)) paths.push_back(entry.getPathName());
  return paths;
}

// A package in memory with a manager over it that reaches real paths through `selector`.
struct SelectedPackage {
  explicit SelectedPackage(opc::FileSystemOpsSelector const& selector)
      : package(Package::openBuffer({}, PackageAccess::Create)),
        manager(std::make_unique<FileSystemManager>(*package, selector)) {}

  std::unique_ptr<Package> package;
  std::unique_ptr<FileSystemManager> manager;
};

// A source whose stream gives up after a number of bytes, to see what a failed copy leaves.
class FailingSource : public IContentSource {
 public:
  FailingSource(std::string bytes, std::size_t failAfter) : stream_(std::move(bytes), 4) {
    stream_.failAfter(failAfter);
  }
  ContentType getContentType() override { return ContentType(u"application/octet-stream"); }
  opc::InputStream& getInputStream() override { return stream_; }

 private:
  opcvk_test::MemoryInputStream stream_;
};

// A manager that reads every source from one file system of its own, whatever the selector
// says, as a derived class may.
class RedirectedManager : public FileSystemManager {
 public:
  RedirectedManager(Package& package, opc::FileSystemOps& source)
      : FileSystemManager(package, opc::FileSystemOpsSelector()), source_(source) {}

 protected:
  opc::FileSystemOps& getSourceFSImpl() const override { return source_; }

 private:
  opc::FileSystemOps& source_;
};

class FileSystemManagerAddTest : public ::testing::Test {
 protected:
  FileSystemManagerAddTest() : root_(tmp_ / "src") { opcvk_test::disk::makeFolder(root_); }

  // `name` below the source root, as a real path.
  std::string at(std::string const& name) const { return root_ + "/" + name; }
  std::u16string atU(std::string const& name) const { return u16(at(name)); }

  void file(std::string const& name, std::string const& bytes, unsigned mode = 0644,
            ptime time = timeAt(2020, 1, 2, 3000000)) {
    opcvk_test::disk::writeFile(at(name), bytes);
    opcvk_test::disk::setMode(at(name), mode);
    opcvk_test::disk::setTime(at(name), time);
  }
  void folder(std::string const& name) { opcvk_test::disk::makeFolder(at(name)); }
  void link(std::string const& name, std::string const& target) {
    opcvk_test::disk::makeSymlink(target, at(name));
  }

  // A selector that sends everything below the temporary folder through `fileSystem`.
  opc::FileSystemOpsSelector selectorFor(std::shared_ptr<opc::FileSystemOps> fileSystem) const {
    opc::FileSystemOpsSelector selector;
    selector.setForPrefix(u16(tmp_.path()), std::move(fileSystem));
    return selector;
  }

  TempDir tmp_;
  std::string root_;
  ManagedPackage p_;
};

// --- addFile from disk ---

TEST_F(FileSystemManagerAddTest, AddFileTakesTypePermissionsAndMicrosecondTimeFromDisk) {
  std::string const bytes("{\"a\":\0\1\2}", 9);
  ptime const time = timeAt(2019, 3, 4, 18367123456LL);
  file("a.json", bytes, 0640, time);

  FileSystemEntry const entry = p_.manager->addFile(atU("a.json"), u"docs/a.json", kNo);

  EXPECT_EQ(entry.getPathName(), u"/docs/a.json");
  EXPECT_TRUE(entry.isFile());
  EXPECT_EQ(entry.getPermissions(), perms(0640));
  EXPECT_EQ(entry.getLastModifiedTime(), time);
  EXPECT_EQ(contentOf(*p_.manager, u"/docs/a.json"), bytes);
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/docs/a.json"), ContentType(u"application/json"));
  EXPECT_TRUE(p_.package->hasPart(PartName(u"/fsroot/docs/a.json")));
  // The folder comes from the tree, without anything of the disk.
  FileSystemEntry const docs = p_.manager->getEntry(u"/docs");
  EXPECT_TRUE(docs.isFolder());
  EXPECT_EQ(docs.getPermissions(), FileSystemEntry::getUnknownPermissions());
  EXPECT_EQ(docs.getLastModifiedTime(), FileSystemEntry::getUnknownTime());
}

TEST_F(FileSystemManagerAddTest, AddFileKeepsNonAsciiAndBlankNames) {
  std::string const name =
      "Gr\xC3\xBC\xC3\x9F"
      "e an alle \xE6\x97\xA5\xE6\x9C\xAC.bin";
  file(name, "hallo", 0600);
  std::u16string const path = u"/Ordner mit Leerzeichen/" + u16(name);

  FileSystemEntry const entry = p_.manager->addFile(atU(name), path, kNo);

  EXPECT_EQ(entry.getPathName(), path);
  EXPECT_EQ(entry.getBaseName(), u16(name));
  EXPECT_EQ(entry.getPermissions(), perms(0600));
  EXPECT_EQ(contentOf(*p_.manager, path), "hallo");
}

TEST_F(FileSystemManagerAddTest, AddFileWithNoTransformsStoresTextAsItIs) {
  std::string const latin1 =
      "Gr\xFC\xDF"
      "e aus K\xF6ln";
  file("t.txt", latin1);
  p_.manager->addFile(atU("t.txt"), u"/t.txt", kNo);
  EXPECT_EQ(contentOf(*p_.manager, u"/t.txt"), latin1);
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/t.txt"), opc::vkservices::getTextContentType());
}

TEST_F(FileSystemManagerAddTest, AddFileLeavesTypesOtherThanPlainTextAloneInBothModes) {
  // text/html is text, but not the one type that is recoded.
  std::string const latin1 =
      "<p>Gr\xFC\xDF"
      "e aus K\xF6ln</p>";
  file("page.html", latin1);
  file("blob.bin", std::string("\xFF\xFE\0x", 4));
  p_.manager->addFile(atU("page.html"), u"/no.html", kNo);
  p_.manager->addFile(atU("page.html"), u"/apply.html", kApply);
  p_.manager->addFile(atU("blob.bin"), u"/apply.bin", kApply);
  EXPECT_EQ(contentOf(*p_.manager, u"/no.html"), latin1);
  EXPECT_EQ(contentOf(*p_.manager, u"/apply.html"), latin1);
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/apply.html"), ContentType(u"text/html"));
  EXPECT_EQ(contentOf(*p_.manager, u"/apply.bin"), std::string("\xFF\xFE\0x", 4));
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/apply.bin"),
            opc::vkservices::getORVANEDefaultContentType());
}

TEST_F(FileSystemManagerAddTest, AddFileWithApplyTransformsRecodesPlainTextToUtf8) {
  std::string const utf8 =
      "Gr\xC3\xBC\xC3\x9F"
      "e aus K\xC3\xB6ln! Die B\xC3\xA4ume bl\xC3\xBChen, und \xC3\xBC"
      "ber "
      "den Stra\xC3\x9F"
      "en liegt der Duft des Fr\xC3\xBChlings. \xC3\x84rger gibt es keinen.\n";
  // The same text as UTF-16 with its byte order mark, which leaves detection no doubt.
  std::u16string const text = u16(utf8);
  std::string utf16le("\xFF\xFE", 2);
  for (char16_t unit : text) {
    utf16le.push_back(static_cast<char>(unit & 0xFF));
    utf16le.push_back(static_cast<char>(unit >> 8));
  }
  file("letter.txt", utf16le, 0640, timeAt(2018, 5, 6, 7));

  FileSystemEntry const entry = p_.manager->addFile(atU("letter.txt"), u"/letter.txt", kApply);

  std::string stored = contentOf(*p_.manager, u"/letter.txt");
  // Whether the mark is carried over as UTF-8 is the recoder's business; the text is not.
  if (stored.compare(0, 3, "\xEF\xBB\xBF") == 0) stored.erase(0, 3);
  EXPECT_EQ(stored, utf8);
  ContentType expected = opc::vkservices::getTextContentType();
  expected.addParameter(u"charset", u"utf-8");
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/letter.txt"), expected);
  EXPECT_EQ(entry.getPermissions(), perms(0640));
  EXPECT_EQ(entry.getLastModifiedTime(), timeAt(2018, 5, 6, 7));
}

TEST_F(FileSystemManagerAddTest, AddFileWithApplyTransformsPassesUtf8TextByteForByte) {
  std::string const utf8 = "\xEF\xBB\xBFK\xC3\xB6ln, \xE6\x97\xA5\xE6\x9C\xAC, caf\xC3\xA9\n";
  file("u.txt", utf8);
  p_.manager->addFile(atU("u.txt"), u"/u.txt", kApply);
  EXPECT_EQ(contentOf(*p_.manager, u"/u.txt"), utf8);
}

TEST_F(FileSystemManagerAddTest, AddFileToATakenPathRaisesBeforeTheSourceIsTouched) {
  auto faulty = std::make_shared<FaultyFileSystemOps>(opc::LocalFileSystemOps::getShared());
  SelectedPackage s(selectorFor(faulty));
  file("a.txt", "a");
  s.manager->createFolder(u"/d");
  s.manager->addFile(atU("a.txt"), u"/a.txt", kNo);
  int const opens = faulty->callCount("doCreateInputStream");

  // The source does not exist either: the taken path is what is reported.
  EXPECT_THROW_MESSAGE(s.manager->addFile(atU("missing.txt"), u"d", kNo),
                       FileSystemEntryAlreadyExists, "File system entry already exists: /d");
  EXPECT_THROW_MESSAGE(s.manager->addFile(atU("a.txt"), u"\\a.txt", kNo),
                       FileSystemEntryAlreadyExists, "File system entry already exists: /a.txt");
  EXPECT_THROW_MESSAGE(s.manager->addFile(atU("a.txt"), u"", kNo), FileSystemEntryAlreadyExists,
                       "File system entry already exists: /");
  EXPECT_EQ(faulty->callCount("doCreateInputStream"), opens);
  EXPECT_EQ(faulty->callCount("doGetPermissions"), 1);
  EXPECT_TRUE(s.manager->getEntry(u"/d").isFolder());
}

TEST_F(FileSystemManagerAddTest, AddFileOfAMissingSourceRaisesCouldNotOpenFile) {
  std::string const missing = at("missing.txt");
  try {
    p_.manager->addFile(u16(missing), u"/m.txt", kNo);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not open file: " + missing);
    EXPECT_EQ(e.code(), boost::system::errc::no_such_file_or_directory);
  }
  EXPECT_FALSE(p_.manager->hasEntry(u"/m.txt"));
  EXPECT_FALSE(p_.package->hasPart(PartName(u"/fsroot/m.txt")));
}

TEST_F(FileSystemManagerAddTest, AddFileRaisesCouldNotGetPermissionsWithTheCode) {
  auto faulty = std::make_shared<FaultyFileSystemOps>(opc::LocalFileSystemOps::getShared());
  faulty->failOn("doGetPermissions", systemCode(EACCES));
  SelectedPackage s(selectorFor(faulty));
  file("a.txt", "a");
  try {
    s.manager->addFile(atU("a.txt"), u"/a.txt", kNo);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotGetPermissions const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not get permissions: Permission denied");
    EXPECT_EQ(e.code(), systemCode(EACCES));
  }
  // Nothing was made: the failure comes before the part and the node.
  EXPECT_FALSE(s.manager->hasEntry(u"/a.txt"));
  EXPECT_FALSE(s.package->hasPart(PartName(u"/fsroot/a.txt")));
  EXPECT_EQ(faulty->callCount("doGetLastModifiedTime"), 0);
}

TEST_F(FileSystemManagerAddTest, AddFileRaisesCouldNotGetLastModifiedTimeWithTheCode) {
  auto faulty = std::make_shared<FaultyFileSystemOps>(opc::LocalFileSystemOps::getShared());
  faulty->failOn("doGetLastModifiedTime", systemCode(EIO));
  SelectedPackage s(selectorFor(faulty));
  file("a.txt", "a");
  try {
    s.manager->addFile(atU("a.txt"), u"/a.txt", kNo);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotGetLastModifiedTime const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not get last modified time: Input/output error");
    EXPECT_EQ(e.code(), systemCode(EIO));
  }
  EXPECT_FALSE(s.manager->hasEntry(u"/a.txt"));
  EXPECT_EQ(faulty->callCount("doGetPermissions"), 1);
}

// --- addFile from a content source ---

TEST_F(FileSystemManagerAddTest, AddFileFromASourceTakesTheGivenValuesAndType) {
  std::istringstream known("known bytes");
  std::istringstream unknown(std::string("\0\1", 2));
  ptime const time = timeAt(2001, 2, 3, 4000005);
  FileSystemEntry const a =
      p_.manager->addFile(std::make_unique<StreamContentSource>(known, ContentType(u"image/png")),
                          u"img\\a.png", perms(0604), time);
  FileSystemEntry const b = p_.manager->addFile(
      std::make_unique<StreamContentSource>(unknown, ContentType(u"application/x-y; q=1")), u"/b",
      opcvk_test::unknownPerms(), opcvk_test::noTime());

  EXPECT_EQ(a.getPathName(), u"/img/a.png");
  EXPECT_EQ(a.getPermissions(), perms(0604));
  EXPECT_EQ(a.getLastModifiedTime(), time);
  EXPECT_EQ(contentOf(*p_.manager, u"/img/a.png"), "known bytes");
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/img/a.png"), ContentType(u"image/png"));
  EXPECT_EQ(b.getPermissions(), FileSystemEntry::getUnknownPermissions());
  EXPECT_EQ(b.getLastModifiedTime(), FileSystemEntry::getUnknownTime());
  EXPECT_EQ(contentOf(*p_.manager, u"/b"), std::string("\0\1", 2));
  EXPECT_EQ(storedTypeOf(*p_.manager, u"/b"), ContentType(u"application/x-y; q=1"));
}

TEST_F(FileSystemManagerAddTest, AddFileFromASourceToATakenPathRaises) {
  p_.manager->createLink(u"/l", u"x");
  std::istringstream input("x");
  EXPECT_THROW_MESSAGE(
      p_.manager->addFile(std::make_unique<StreamContentSource>(input, ContentType(u"a/b")), u"l",
                          perms(0644), opcvk_test::noTime()),
      FileSystemEntryAlreadyExists, "File system entry already exists: /l");
  EXPECT_TRUE(p_.manager->getEntry(u"/l").isLink());
}

TEST_F(FileSystemManagerAddTest, FailedCopyLeavesTheNodeAndPartWithWhatWasWritten) {
  EXPECT_THROW_MESSAGE(p_.manager->addFile(std::make_unique<FailingSource>("abcdefghijkl", 8),
                                           u"/partial", perms(0644), opcvk_test::noTime()),
                       opc::Exception, "injected read failure");
  EXPECT_TRUE(p_.manager->getEntry(u"/partial").isFile());
  auto const bytes = p_.save();
  ManagedPackage reopened(bytes, PackageAccess::Read);
  EXPECT_EQ(contentOf(*reopened.manager, u"/partial"), "abcdefgh");
}

// --- addAll ---

TEST_F(FileSystemManagerAddTest, AddAllOfOnlyEmptyFoldersAddsNothing) {
  folder("e1");
  folder("e1/e2");
  folder("e3");
  p_.manager->addAll(u16(root_), kNo);
  EXPECT_TRUE(childrenOf(*p_.manager, u"/").empty());
  EXPECT_TRUE(p_.manager->getAllLeafs().empty());
}

TEST_F(FileSystemManagerAddTest, AddAllAddsFilesAndLinksAtTheirRelativePathsInListingOrder) {
  file("a.txt", "alpha", 0600, timeAt(2015, 6, 7, 1));
  folder("sub");
  file("sub/b.bin", std::string(70000, 'b'), 0755, timeAt(1999, 12, 31, 86399999999LL));
  folder("sub/deeper");
  file("sub/deeper/c", "", 0444, timeAt(2030, 1, 1, 500000));
  folder("sub/empty");
  link("rel", "sub/b.bin");
  link("sub/up", "../a.txt");
  link("abs", at("sub/deeper/c"));
  link("self", root_);
  link("dangling", "nowhere/x");

  p_.manager->addAll(u16(root_), kNo);

  // Files and links of a folder by name, then its subfolders: the tree keeps that order.
  EXPECT_EQ(childrenOf(*p_.manager, u"/"),
            (Paths{u"/a.txt", u"/abs", u"/dangling", u"/rel", u"/self", u"/sub"}));
  EXPECT_EQ(childrenOf(*p_.manager, u"/sub"), (Paths{u"/sub/b.bin", u"/sub/up", u"/sub/deeper"}));
  EXPECT_FALSE(p_.manager->hasEntry(u"/sub/empty"));

  FileSystemEntry const a = p_.manager->getEntry(u"/a.txt");
  EXPECT_EQ(a.getPermissions(), perms(0600));
  EXPECT_EQ(a.getLastModifiedTime(), timeAt(2015, 6, 7, 1));
  EXPECT_EQ(contentOf(*p_.manager, u"/a.txt"), "alpha");
  EXPECT_EQ(p_.manager->getEntry(u"/sub/b.bin").getLastModifiedTime(),
            timeAt(1999, 12, 31, 86399999999LL));
  EXPECT_EQ(contentOf(*p_.manager, u"/sub/b.bin"), std::string(70000, 'b'));
  EXPECT_EQ(p_.manager->getEntry(u"/sub/deeper/c").getPermissions(), perms(0444));
  EXPECT_EQ(contentOf(*p_.manager, u"/sub/deeper/c"), "");

  auto target = [this](std::u16string const& path) {
    return p_.manager->getLinkTarget(p_.manager->getEntry(path));
  };
  EXPECT_EQ(target(u"/rel"), u"sub/b.bin");
  EXPECT_EQ(target(u"/sub/up"), u"../a.txt");
  EXPECT_EQ(target(u"/abs"), u"/sub/deeper/c");
  EXPECT_EQ(target(u"/self"), u"/");
  EXPECT_EQ(target(u"/dangling"), u"nowhere/x");
  // Links and folders get nothing of the disk.
  for (auto const& path : {u"/rel", u"/sub", u"/sub/deeper"}) {
    FileSystemEntry const entry = p_.manager->getEntry(path);
    EXPECT_EQ(entry.getPermissions(), FileSystemEntry::getUnknownPermissions());
    EXPECT_EQ(entry.getLastModifiedTime(), FileSystemEntry::getUnknownTime());
  }
}

TEST_F(FileSystemManagerAddTest, AddAllWithABackslashRootReadsTheSameFolder) {
  file("a.txt", "a");
  std::string backslashed = root_;
  for (auto& c : backslashed) {
    if (c == '/') c = '\\';
  }
  p_.manager->addAll(u16(backslashed), kNo);
  EXPECT_EQ(contentOf(*p_.manager, u"/a.txt"), "a");
}

TEST_F(FileSystemManagerAddTest, AddAllMendsTheSeparatorsOfARelativeTarget) {
  link("l", "..\\x\\y");
  p_.manager->addAll(u16(root_), kNo);
  EXPECT_EQ(p_.manager->getLinkTarget(p_.manager->getEntry(u"/l")), u"../x/y");
}

TEST_F(FileSystemManagerAddTest, AddAllJudgesAnAbsoluteTargetByTextAlone) {
  // A sibling folder whose name begins with the root's name counts as lying under it.
  link("l", root_ + "2/x");
  p_.manager->addAll(u16(root_), kNo);
  EXPECT_EQ(p_.manager->getLinkTarget(p_.manager->getEntry(u"/l")), u"/2/x");
}

TEST_F(FileSystemManagerAddTest, AddAllKeepsARelativeTargetThatLeavesTheRoot) {
  link("out", "../outside");
  p_.manager->addAll(u16(root_), kNo);
  EXPECT_EQ(p_.manager->getLinkTarget(p_.manager->getEntry(u"/out")), u"../outside");
}

TEST_F(FileSystemManagerAddTest, AddAllStopsAtALinkOutsideTheRootAndKeepsWhatCameBefore) {
  opcvk_test::disk::writeFile(tmp_ / "outside", "secret");
  file("a.txt", "a");
  file("b.txt", "b");
  link("m_link", tmp_ / "outside");
  file("z.txt", "z");

  EXPECT_THROW_MESSAGE(p_.manager->addAll(u16(root_), kNo), CouldNotMakeRelativeToSourceRoot,
                       "Could not make source file name relative to source root");

  EXPECT_EQ(childrenOf(*p_.manager, u"/"), (Paths{u"/a.txt", u"/b.txt"}));
  // No rollback, and the manager is dirty: the two files are in the saved package.
  ManagedPackage reopened(p_.save(), PackageAccess::Read);
  EXPECT_EQ(contentOf(*reopened.manager, u"/a.txt"), "a");
  EXPECT_EQ(contentOf(*reopened.manager, u"/b.txt"), "b");
  EXPECT_FALSE(reopened.manager->hasEntry(u"/z.txt"));
}

TEST_F(FileSystemManagerAddTest, AddAllOfTheSameSourceTwiceStopsAtTheFirstFile) {
  file("a.txt", "a");
  file("b.txt", "b");
  p_.manager->addAll(u16(root_), kNo);
  EXPECT_THROW_MESSAGE(p_.manager->addAll(u16(root_), kNo), FileSystemEntryAlreadyExists,
                       "File system entry already exists: /a.txt");
}

TEST_F(FileSystemManagerAddTest, AddAllOfAMissingRootRaisesWithoutKeepingTheCode) {
  try {
    p_.manager->addAll(atU("missing"), kNo);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotGetSourceFilesAndLinks const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not get source files and links at source root: No such file or directory");
    EXPECT_FALSE(e.code());
  }
}

TEST_F(FileSystemManagerAddTest, AddAllReportsAFailedListingWithItsMessage) {
  auto faulty = std::make_shared<FaultyFileSystemOps>(opc::LocalFileSystemOps::getShared());
  faulty->failOn("doGetFiles", systemCode(EIO));
  SelectedPackage s(selectorFor(faulty));
  file("a.txt", "a");
  EXPECT_THROW_MESSAGE(s.manager->addAll(u16(root_), kNo), CouldNotGetSourceFilesAndLinks,
                       "Could not get source files and links at source root: Input/output error");
  EXPECT_TRUE(childrenOf(*s.manager, u"/").empty());
}

TEST_F(FileSystemManagerAddTest, AddAllStopsAtAFailedPermissionsQueryAndKeepsTheFilesBefore) {
  auto faulty = std::make_shared<FaultyFileSystemOps>(opc::LocalFileSystemOps::getShared());
  faulty->failOn("doGetPermissions", systemCode(EACCES), 2);
  SelectedPackage s(selectorFor(faulty));
  file("a.txt", "a");
  file("b.txt", "b");
  file("c.txt", "c");
  EXPECT_THROW_MESSAGE(s.manager->addAll(u16(root_), kNo), CouldNotGetPermissions,
                       "Could not get permissions: Permission denied");
  EXPECT_EQ(childrenOf(*s.manager, u"/"), Paths{u"/a.txt"});
  EXPECT_EQ(contentOf(*s.manager, u"/a.txt"), "a");
}

TEST_F(FileSystemManagerAddTest, AddAllOfADriveLetterRootUsesTheFileSystemMappedToIt) {
  auto memory = std::make_shared<InMemoryFileSystemOps>();
  ptime const time = timeAt(2012, 8, 9, 10111213);
  memory->addFile(u"C:/data/sub/a.txt", "alpha", perms(0640), time);
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"C:/data", memory);
  SelectedPackage s(selector);

  s.manager->addAll(u"C:\\data", kNo);

  EXPECT_EQ(childrenOf(*s.manager, u"/"), Paths{u"/sub"});
  FileSystemEntry const a = s.manager->getEntry(u"/sub/a.txt");
  EXPECT_EQ(a.getPermissions(), perms(0640));
  EXPECT_EQ(a.getLastModifiedTime(), time);
  EXPECT_EQ(contentOf(*s.manager, u"/sub/a.txt"), "alpha");
  FileSystemEntry const sub = s.manager->getEntry(u"/sub");
  EXPECT_TRUE(sub.isFolder());
  EXPECT_EQ(sub.getPermissions(), FileSystemEntry::getUnknownPermissions());
  EXPECT_EQ(sub.getLastModifiedTime(), FileSystemEntry::getUnknownTime());
}

TEST_F(FileSystemManagerAddTest, EveryReadOfTheSourceGoesThroughGetSourceFSImpl) {
  // Nothing of this exists on disk: only the derived class's file system has it.
  InMemoryFileSystemOps memory;
  memory.addFile(u"/nowhere/in/f.txt", "from memory", perms(0611), timeAt(2003, 4, 5, 6));
  memory.addSymlink(u"/nowhere/in/l", u"/nowhere/in/f.txt");
  auto package = Package::openBuffer({}, PackageAccess::Create);
  RedirectedManager manager(*package, memory);

  manager.addAll(u"/nowhere", kNo);
  manager.addList(u"/nowhere/in", {u"f.txt"}, kNo);
  manager.addFile(u"/nowhere/in/f.txt", u"/single", kNo);

  EXPECT_EQ(contentOf(manager, u"/in/f.txt"), "from memory");
  EXPECT_EQ(manager.getEntry(u"/in/f.txt").getPermissions(), perms(0611));
  EXPECT_EQ(manager.getLinkTarget(manager.getEntry(u"/in/l")), u"/in/f.txt");
  EXPECT_EQ(contentOf(manager, u"/f.txt"), "from memory");
  EXPECT_EQ(contentOf(manager, u"/single"), "from memory");
}

// --- addList ---

TEST_F(FileSystemManagerAddTest, AddListReadsTheRootFollowedByThePackagePath) {
  auto memory = std::make_shared<InMemoryFileSystemOps>();
  memory->addFile(u"/data/a.txt", "a", perms(0600), timeAt(2010, 1, 1, 0));
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"/data", memory);

  SelectedPackage plain(selector);
  plain.manager->addList(u"/data", {u"a.txt"}, kNo);
  EXPECT_EQ(childrenOf(*plain.manager, u"/"), Paths{u"/a.txt"});
  EXPECT_EQ(contentOf(*plain.manager, u"/a.txt"), "a");

  // "/data/" + "/a.txt" reads "/data//a.txt", which is the same file.
  SelectedPackage slashed(selector);
  slashed.manager->addList(u"/data/", {u"a.txt"}, kNo);
  EXPECT_EQ(childrenOf(*slashed.manager, u"/"), Paths{u"/a.txt"});
  EXPECT_EQ(slashed.manager->getEntry(u"/a.txt").getPermissions(), perms(0600));
}

TEST_F(FileSystemManagerAddTest, AddListPassesOverFoldersAndMissingItemsAndGoesOn) {
  folder("sub");
  file("sub/b.txt", "b", 0640);
  file("c.txt", "c");
  link("lnk", at("sub/b.txt"));

  p_.manager->addList(u16(root_), {u"sub", u"/missing.txt", u"sub/nothing"}, kNo);
  EXPECT_TRUE(childrenOf(*p_.manager, u"/").empty());

  p_.manager->addList(u16(root_), {u"sub", u"missing.txt", u"sub\\b.txt", u"lnk", u"/c.txt"}, kNo);
  EXPECT_EQ(childrenOf(*p_.manager, u"/"), (Paths{u"/sub", u"/lnk", u"/c.txt"}));
  EXPECT_EQ(contentOf(*p_.manager, u"/sub/b.txt"), "b");
  EXPECT_EQ(p_.manager->getEntry(u"/sub/b.txt").getPermissions(), perms(0640));
  EXPECT_EQ(p_.manager->getLinkTarget(p_.manager->getEntry(u"/lnk")), u"/sub/b.txt");
}

TEST_F(FileSystemManagerAddTest, AddListStopsAtATakenPathAndAtALinkOutsideTheRoot) {
  file("a.txt", "a");
  file("b.txt", "b");
  link("out", tmp_ / "elsewhere");
  p_.manager->addList(u16(root_), {u"a.txt"}, kNo);
  EXPECT_THROW_MESSAGE(p_.manager->addList(u16(root_), {u"b.txt", u"a.txt", u"c.txt"}, kNo),
                       FileSystemEntryAlreadyExists, "File system entry already exists: /a.txt");
  EXPECT_TRUE(p_.manager->hasEntry(u"/b.txt"));
  EXPECT_THROW_MESSAGE(p_.manager->addList(u16(root_), {u"out"}, kNo),
                       CouldNotMakeRelativeToSourceRoot,
                       "Could not make source file name relative to source root");
  EXPECT_FALSE(p_.manager->hasEntry(u"/out"));
}

// --- What was added survives a save ---

TEST_F(FileSystemManagerAddTest, AddedFilesAndLinksReadBackAfterSaveToTheMicrosecond) {
  std::string big(300000, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>((i * 131) % 251);
  std::string const blank = "mit Leer zeichen \xC3\xA9t\xC3\xA9.dat";
  file("big.bin", big, 0751, timeAt(2024, 2, 29, 43200000001LL));
  file("empty", "", 0400, timeAt(1980, 1, 1, 999999));
  folder("d");
  file("d/" + blank, "x y", 0664, timeAt(2011, 11, 11, 111111));
  link("d/to-big", "../big.bin");
  link("abs", at("d/" + blank));

  p_.manager->addAll(u16(root_), kNo);
  auto const before = p_.manager->getAllLeafs();
  ManagedPackage reopened(p_.save(), PackageAccess::Read);
  auto const after = reopened.manager->getAllLeafs();

  ASSERT_EQ(after.size(), before.size());
  auto b = before.begin();
  for (auto const& entry : after) {
    EXPECT_EQ(entry, *b);
    ++b;
  }
  EXPECT_EQ(contentOf(*reopened.manager, u"/big.bin"), big);
  EXPECT_EQ(contentOf(*reopened.manager, u"/empty"), "");
  EXPECT_EQ(contentOf(*reopened.manager, u"/d/" + u16(blank)), "x y");
  FileSystemEntry const big2 = reopened.manager->getEntry(u"/big.bin");
  EXPECT_EQ(big2.getPermissions(), perms(0751));
  EXPECT_EQ(big2.getLastModifiedTime(), timeAt(2024, 2, 29, 43200000001LL));
  EXPECT_EQ(reopened.manager->getEntry(u"/empty").getLastModifiedTime(),
            timeAt(1980, 1, 1, 999999));
  EXPECT_EQ(reopened.manager->getLinkTarget(reopened.manager->getEntry(u"/abs")),
            u"/d/" + u16(blank));
  EXPECT_EQ(reopened.manager->getLinkTarget(reopened.manager->getEntry(u"/d/to-big")),
            u"../big.bin");
}

}  // namespace
