// Extraction to real folders (and to file systems in memory where a disk cannot fail on
// demand): what is made, what is restored, how existing files are replaced, and every error's
// class, message and code.
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <typeinfo>
#include <unistd.h>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/expect_exception.h"
#include "support/faulty_file_system_ops.h"
#include "support/file_system_entry_access.h"
#include "support/in_memory_file_system_ops.h"
#include "support/run_unprivileged.h"
#include "support/temp_dir.h"
#include "unit/core/local_file_system_ops_test_util.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using boost::system::errc::errc_t;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CouldNotCreateDestinationParent;
using opc::vkservices::CouldNotCreateDestinationRoot;
using opc::vkservices::CouldNotCreateFile;
using opc::vkservices::CouldNotCreateFolder;
using opc::vkservices::CouldNotCreateLink;
using opc::vkservices::CouldNotSetLastModifiedTime;
using opc::vkservices::CouldNotSetPermissions;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;
using opcvk_test::FaultyFileSystemOps;
using opcvk_test::InMemoryFileSystemOps;
using opcvk_test::isCondition;
using opcvk_test::modeOf;
using opcvk_test::noTime;
using opcvk_test::pathExists;
using opcvk_test::perms;
using opcvk_test::readFile;
using opcvk_test::readLink;
using opcvk_test::runUnprivileged;
using opcvk_test::TempDir;
using opcvk_test::textType;
using opcvk_test::u16;
using opcvk_test::unknownPerms;
using opcvk_test::writeFile;

constexpr RestoreMode kNothing = RestoreMode::RestoreNothing;
constexpr RestoreMode kRestore = RestoreMode::RestoreTimeAndPermissions;
constexpr TransformMode kRaw = TransformMode::NoTransforms;
constexpr ReplaceMode kNever = ReplaceMode::ReplaceNever;
constexpr ReplaceMode kExisting = ReplaceMode::ReplaceExisting;
constexpr ReplaceMode kAlways = ReplaceMode::ReplaceAlways;

boost::posix_time::ptime someTime() {
  return boost::posix_time::ptime(boost::gregorian::date(2019, 3, 4),
                                  boost::posix_time::hours(5) + boost::posix_time::minutes(6) +
                                      boost::posix_time::microseconds(789));
}

boost::posix_time::ptime mtimeOf(std::string const& path) {
  struct stat status;
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return boost::posix_time::from_time_t(status.st_mtim.tv_sec) +
         boost::posix_time::microseconds(status.st_mtim.tv_nsec / 1000);
}

// The generic code file_exists, which extraction gives for an existing file that cannot be
// opened, whatever code the open gave.
bool isGenericFileExists(boost::system::error_code const& code) {
  return code.category() == boost::system::generic_category() &&
         code.value() == static_cast<int>(boost::system::errc::file_exists);
}

mode_t currentUmask() {
  mode_t const mask = ::umask(0);
  ::umask(mask);
  return mask;
}

// What a child process reports of an expected failure: 0 if `action` threw exactly
// `ExceptionType` with `message` and a code equal to `condition`.
template <typename ExceptionType>
int failsInChild(std::function<void()> const& action, std::string const& message,
                 errc_t condition) {
  try {
    action();
  } catch (ExceptionType const& e) {
    if (typeid(e) != typeid(ExceptionType)) return 2;
    if (message != e.what()) return 3;
    if (e.code() != boost::system::errc::make_error_condition(condition)) return 4;
    return 0;
  } catch (...) {
    return 5;
  }
  return 1;
}

// A package in memory with a manager that uses `selector`.  The package outlives the
// manager.
class FileSystemManagerExtractTest : public ::testing::Test {
 protected:
  FileSystemManagerExtractTest() { makeManager(opc::FileSystemOpsSelector()); }

  void makeManager(opc::FileSystemOpsSelector const& selector) {
    manager_.reset();
    package_ = Package::openBuffer({}, PackageAccess::Create);
    manager_ = std::make_unique<FileSystemManager>(*package_, selector);
  }

  FileSystemEntry addFile(std::u16string const& path, std::string const& content,
                          opc::Perms::Perms_tag permissions = unknownPerms(),
                          boost::posix_time::ptime time = noTime()) {
    FileSystemEntry const entry = manager_->createFile(path, textType(), permissions, time);
    opc::OutputStream& output = manager_->getFileOutputStream(entry);
    output.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
    output.close();
    return entry;
  }

  // The destination below the temporary folder, not made yet.
  std::string destination() const { return temp_ / "out"; }
  std::u16string destination16() const { return u16(destination()); }
  std::string out(std::string const& rest) const { return destination() + "/" + rest; }

  void extractAll(RestoreMode restore = kNothing, ReplaceMode replace = kNever) {
    manager_->extractAll(destination16(), restore, kRaw, replace);
  }
  void extractEntry(FileSystemEntry const& entry, RestoreMode restore = kNothing,
                    ReplaceMode replace = kNever) {
    manager_->extractEntry(destination16(), entry, restore, kRaw, replace);
  }

  // Lets the user nobody make and write what a child process needs below the temporary
  // folder.
  void openToEveryone() { ASSERT_EQ(::chmod(temp_.path().c_str(), 0777), 0); }

  TempDir temp_;
  std::unique_ptr<Package> package_;
  std::unique_ptr<FileSystemManager> manager_;
};

TEST_F(FileSystemManagerExtractTest, EmptyFileSystemMakesTheRootAndNothingElse) {
  extractAll();
  ASSERT_TRUE(pathExists(destination()));
  EXPECT_TRUE(S_ISDIR(modeOf(destination())));
  EXPECT_EQ(::rmdir(destination().c_str()), 0) << "the root holds something";
}

TEST_F(FileSystemManagerExtractTest, MakesFilesFoldersAndLinksWithTheirContent) {
  addFile(u"/a/b/c.txt", "hello");
  addFile(u"/top.bin", std::string("\0\1\2", 3));
  addFile(u"/a/empty", "");
  manager_->createFolder(u"/a/lonely");
  manager_->createLink(u"/a/abs", u"/a/b/c.txt");
  manager_->createLink(u"/rel", u"../b");
  extractAll();
  EXPECT_EQ(readFile(out("a/b/c.txt")), "hello");
  EXPECT_EQ(readFile(out("top.bin")), std::string("\0\1\2", 3));
  EXPECT_TRUE(S_ISREG(modeOf(out("a/empty"))));
  EXPECT_EQ(readFile(out("a/empty")), "");
  EXPECT_TRUE(S_ISDIR(modeOf(out("a/lonely"))));
  // An absolute target is a package path: the link points into the extracted tree.
  EXPECT_TRUE(S_ISLNK(modeOf(out("a/abs"))));
  EXPECT_EQ(readLink(out("a/abs")), destination() + "/a/b/c.txt");
  EXPECT_EQ(readFile(out("a/abs")), "hello");
  // A relative target keeps its text.
  EXPECT_EQ(readLink(out("rel")), "../b");
}

TEST_F(FileSystemManagerExtractTest, LinkToThePackageRootPointsToTheDestinationRoot) {
  manager_->createLink(u"/home", u"/");
  extractAll();
  EXPECT_EQ(readLink(out("home")), destination());
}

TEST_F(FileSystemManagerExtractTest, ExistingDestinationRootIsUsedAsItIs) {
  ASSERT_EQ(::mkdir(destination().c_str(), 0700), 0);
  writeFile(out("kept"), "mine");
  addFile(u"/new", "x");
  extractAll();
  EXPECT_EQ(readFile(out("kept")), "mine");
  EXPECT_EQ(readFile(out("new")), "x");
  EXPECT_EQ(modeOf(destination()) & 0777, 0700u);
}

TEST_F(FileSystemManagerExtractTest, DestinationRootMayBeALinkTheUserChose) {
  ASSERT_EQ(::mkdir((temp_ / "real").c_str(), 0755), 0);
  ASSERT_EQ(::symlink((temp_ / "real").c_str(), destination().c_str()), 0);
  addFile(u"/d/f", "through the chosen link");
  extractAll();
  EXPECT_EQ(readFile(temp_ / "real/d/f"), "through the chosen link");
}

TEST_F(FileSystemManagerExtractTest, WritableExistingFileIsOverwrittenEvenWithReplaceNever) {
  ASSERT_EQ(::mkdir(destination().c_str(), 0755), 0);
  writeFile(out("f"), "old content that is longer");
  ASSERT_EQ(::chmod(out("f").c_str(), 0640), 0);
  addFile(u"/f", "new");
  extractAll(kNothing, kNever);
  EXPECT_EQ(readFile(out("f")), "new");
  EXPECT_EQ(modeOf(out("f")) & 0777, 0640u);
}

TEST_F(FileSystemManagerExtractTest, ReadOnlyExistingFileWithReplaceNeverFailsWithFileExists) {
  openToEveryone();
  addFile(u"/f", "new");
  std::string const path = out("f");
  int const result = runUnprivileged([&] {
    if (::mkdir(destination().c_str(), 0755) != 0) return 10;
    writeFile(path, "old");
    if (::chmod(path.c_str(), 0444) != 0) return 11;
    try {
      extractAll(kNothing, kNever);
      return 1;
    } catch (CouldNotCreateFile const& e) {
      if (std::string(e.what()) != "Could not create or overwrite file: " + path) return 2;
      if (!isGenericFileExists(e.code())) return 3;
    }
    return readFile(path) == "old" ? 0 : 12;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(FileSystemManagerExtractTest, MissingFolderPermissionKeepsTheOpensOwnCode) {
  openToEveryone();
  addFile(u"/f", "new");
  std::string const path = out("f");
  // Without write permission on the folder, a file that does not exist cannot be made: the
  // error is the open's, in both modes that refuse to clobber a missing file.
  int const result = runUnprivileged([&] {
    if (::mkdir(destination().c_str(), 0555) != 0) return 10;
    for (ReplaceMode mode : {kNever, kExisting}) {
      int const failure = failsInChild<CouldNotCreateFile>(
          [&] { extractAll(kNothing, mode); }, "Could not create or overwrite file: " + path,
          boost::system::errc::permission_denied);
      if (failure != 0) return failure;
    }
    return pathExists(path) ? 13 : 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(FileSystemManagerExtractTest, ReadOnlyExistingFileWithReplaceExistingIsClobberedTo0777) {
  openToEveryone();
  addFile(u"/f", "new");
  std::string const path = out("f");
  int const result = runUnprivileged([&] {
    if (::mkdir(destination().c_str(), 0755) != 0) return 10;
    writeFile(path, "old");
    if (::chmod(path.c_str(), 0444) != 0) return 11;
    extractAll(kNothing, kExisting);
    if (readFile(path) != "new") return 12;
    return (modeOf(path) & 0777) == 0777 ? 0 : 13;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(FileSystemManagerExtractTest, ClobberedFileTakesTheRestoredPermissions) {
  openToEveryone();
  addFile(u"/f", "new", perms(0604), someTime());
  std::string const path = out("f");
  int const result = runUnprivileged([&] {
    if (::mkdir(destination().c_str(), 0755) != 0) return 10;
    writeFile(path, "old");
    if (::chmod(path.c_str(), 0400) != 0) return 11;
    extractAll(kRestore, kAlways);
    if (readFile(path) != "new") return 12;
    if ((modeOf(path) & 0777) != 0604) return 13;
    return mtimeOf(path) == someTime() ? 0 : 14;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(FileSystemManagerExtractTest, ReplaceAlwaysClobbersEvenAMissingFileAndReportsTheReopen) {
  openToEveryone();
  addFile(u"/f", "new");
  std::string const path = out("f");
  int const result = runUnprivileged([&] {
    if (::mkdir(destination().c_str(), 0555) != 0) return 10;
    // Every value beyond ReplaceExisting acts as ReplaceAlways.
    for (ReplaceMode mode : {kAlways, static_cast<ReplaceMode>(7)}) {
      int const failure = failsInChild<CouldNotCreateFile>(
          [&] { extractAll(kNothing, mode); },
          "Could not clobber file: " + path + ": Permission denied",
          boost::system::errc::permission_denied);
      if (failure != 0) return failure;
    }
    return 0;
  });
  EXPECT_EQ(result, 0);
}

// A write that fails (here the size limit of the process, as a full disk would) names the file
// and the cause, in each restore mode.
TEST_F(FileSystemManagerExtractTest, FailedWriteNamesTheFileAndTheCause) {
  openToEveryone();
  addFile(u"/small", "fits");
  addFile(u"/large", std::string(256 * 1024, 'x'));
  for (RestoreMode const restore : {kNothing, kRestore}) {
    int const result = runUnprivileged([&] {
      ::signal(SIGXFSZ, SIG_IGN);
      rlimit const limit{64 * 1024, 64 * 1024};
      if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
      return failsInChild<opc::Exception>(
          [&] { extractAll(restore); },
          "Could not write file: " + out("large") + ": File too large", errc_t::file_too_large);
    });
    EXPECT_EQ(result, 0) << static_cast<int>(restore);
    std::filesystem::remove_all(destination());
  }
}

TEST_F(FileSystemManagerExtractTest, RestoreSetsTimeAndPermissionsOfFilesOnly) {
  addFile(u"/d/f", "x", perms(0640), someTime());
  manager_->createFolder(u"/e");
  manager_->createLink(u"/l", u"d/f");
  extractAll(kRestore);
  EXPECT_EQ(modeOf(out("d/f")) & 0777, 0640u);
  EXPECT_EQ(mtimeOf(out("d/f")), someTime());
  // Folders made on the way, folder entries and links keep what the disk gave them.
  mode_t const folderMode = 0777 & ~currentUmask();
  EXPECT_EQ(modeOf(out("d")) & 0777, folderMode);
  EXPECT_EQ(modeOf(out("e")) & 0777, folderMode);
  EXPECT_NE(mtimeOf(out("l")), someTime());
}

TEST_F(FileSystemManagerExtractTest, RestoreNothingLeavesTheFileAsTheDiskMadeIt) {
  addFile(u"/f", "x", perms(0600), someTime());
  extractAll(kNothing);
  EXPECT_EQ(modeOf(out("f")) & 0777, 0666 & ~currentUmask());
  EXPECT_NE(mtimeOf(out("f")), someTime());
  // Any value other than RestoreTimeAndPermissions restores nothing.
  ASSERT_EQ(::unlink(out("f").c_str()), 0);
  manager_->extractAll(destination16(), static_cast<RestoreMode>(3), kRaw, kNever);
  EXPECT_EQ(modeOf(out("f")) & 0777, 0666 & ~currentUmask());
}

TEST_F(FileSystemManagerExtractTest, RestoreWithUnknownTimeAndPermissionsChangesNothing) {
  addFile(u"/f", "x");
  extractAll(kRestore);
  EXPECT_EQ(modeOf(out("f")) & 0777, 0666 & ~currentUmask());
}

TEST_F(FileSystemManagerExtractTest, RestoreOfTimeAloneOrPermissionsAlone) {
  addFile(u"/timed", "x", unknownPerms(), someTime());
  addFile(u"/moded", "y", perms(0751), noTime());
  extractAll(kRestore);
  EXPECT_EQ(mtimeOf(out("timed")), someTime());
  EXPECT_EQ(modeOf(out("timed")) & 0777, 0666 & ~currentUmask());
  EXPECT_EQ(modeOf(out("moded")) & 0777, 0751u);
  EXPECT_NE(mtimeOf(out("moded")), someTime());
}

TEST_F(FileSystemManagerExtractTest, ExtractingOverAnExistingLinkFailsInEveryReplaceMode) {
  manager_->createLink(u"/l", u"target");
  ASSERT_EQ(::mkdir(destination().c_str(), 0755), 0);
  ASSERT_EQ(::symlink("other", out("l").c_str()), 0);
  for (ReplaceMode mode : {kNever, kExisting, kAlways}) {
    try {
      extractAll(kNothing, mode);
      ADD_FAILURE() << "no error";
    } catch (CouldNotCreateLink const& e) {
      EXPECT_EQ(std::string(e.what()), "Could not create link: " + out("l") + ": File exists");
      EXPECT_TRUE(isCondition(e.code(), boost::system::errc::file_exists));
    }
    EXPECT_EQ(readLink(out("l")), "other");
  }
}

TEST_F(FileSystemManagerExtractTest, ExistingPlainFileWhereAFolderGoesCountsAsDone) {
  manager_->createFolder(u"/d");
  ASSERT_EQ(::mkdir(destination().c_str(), 0755), 0);
  writeFile(out("d"), "a file");
  extractAll();
  EXPECT_TRUE(S_ISREG(modeOf(out("d"))));
  EXPECT_EQ(readFile(out("d")), "a file");
}

TEST_F(FileSystemManagerExtractTest, ExtractEntryOfAFileMakesItsParentsWithDefaultPermissions) {
  FileSystemEntry const file = addFile(u"/x/y/z", "deep", perms(0600), someTime());
  addFile(u"/x/other", "not asked for");
  extractEntry(file, kRestore);
  EXPECT_EQ(readFile(out("x/y/z")), "deep");
  EXPECT_EQ(modeOf(out("x/y/z")) & 0777, 0600u);
  EXPECT_EQ(modeOf(out("x")) & 0777, 0777 & ~currentUmask());
  EXPECT_EQ(modeOf(out("x/y")) & 0777, 0777 & ~currentUmask());
  EXPECT_FALSE(pathExists(out("x/other")));
}

TEST_F(FileSystemManagerExtractTest, ExtractEntryOfAFolderMakesThatFolderAlone) {
  addFile(u"/d/inner/f", "x");
  extractEntry(manager_->getEntry(u"/d"));
  EXPECT_TRUE(S_ISDIR(modeOf(out("d"))));
  EXPECT_FALSE(pathExists(out("d/inner")));
}

TEST_F(FileSystemManagerExtractTest, ExtractEntryOfTheRootIsTheDestinationItself) {
  addFile(u"/f", "x");
  extractEntry(manager_->getRoot());
  EXPECT_TRUE(S_ISDIR(modeOf(destination())));
  EXPECT_FALSE(pathExists(out("f")));
}

TEST_F(FileSystemManagerExtractTest, ExtractEntryOfALink) {
  FileSystemEntry const link = manager_->createLink(u"/p/q", u"../elsewhere");
  extractEntry(link);
  EXPECT_EQ(readLink(out("p/q")), "../elsewhere");
}

TEST_F(FileSystemManagerExtractTest, DestinationRootThatCannotBeMade) {
  writeFile(temp_ / "file", "in the way");
  addFile(u"/f", "x");
  try {
    manager_->extractAll(u16(temp_ / "file/out"), kNothing, kRaw, kNever);
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateDestinationRoot const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not create the destination root directory: Not a directory");
    EXPECT_TRUE(isCondition(e.code(), boost::system::errc::not_a_directory));
  }
}

TEST_F(FileSystemManagerExtractTest, DestinationParentThatCannotBeMade) {
  addFile(u"/a/b/c", "x");
  ASSERT_EQ(::mkdir(destination().c_str(), 0755), 0);
  writeFile(out("a"), "a file where a folder must go");
  try {
    extractAll();
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateDestinationParent const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not create the destination parent directory: Not a directory");
    EXPECT_TRUE(isCondition(e.code(), boost::system::errc::not_a_directory));
  }
  EXPECT_EQ(readFile(out("a")), "a file where a folder must go");
}

TEST_F(FileSystemManagerExtractTest, ExistingFolderWhereAFileGoesIsRefusedByTheOpen) {
  addFile(u"/d", "x");
  ASSERT_EQ(::mkdir(destination().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(out("d").c_str(), 0755), 0);
  try {
    extractAll(kNothing, kNever);
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not create or overwrite file: " + out("d"));
    EXPECT_TRUE(isGenericFileExists(e.code()));
  }
}

TEST_F(FileSystemManagerExtractTest, FirstFailureEndsExtractAllAndWhatWasDoneStays) {
  addFile(u"/a", "first");
  manager_->createLink(u"/b", u"x");
  addFile(u"/c", "never reached");
  ASSERT_EQ(::mkdir(destination().c_str(), 0755), 0);
  ASSERT_EQ(::symlink("taken", out("b").c_str()), 0);
  EXPECT_THROW(extractAll(), CouldNotCreateLink);
  EXPECT_EQ(readFile(out("a")), "first");
  EXPECT_FALSE(pathExists(out("c")));
}

TEST_F(FileSystemManagerExtractTest, ContentSourceErrorPassesThroughAndLeavesAnEmptyFile) {
  FileSystemEntry const entry = addFile(u"/gone", "bytes");
  package_->deletePart(
      opc::model::PartName(opc::vkservices::detail::FileSystemEntryAccess::contentName(entry)));
  EXPECT_THROW(extractAll(), opc::model::PartNotFound);
  ASSERT_TRUE(pathExists(out("gone")));
  EXPECT_EQ(readFile(out("gone")), "");
}

TEST_F(FileSystemManagerExtractTest, EachCallChoosesItsFileSystemByTheDestination) {
  auto memory = std::make_shared<InMemoryFileSystemOps>();
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"/mem", memory);
  makeManager(selector);
  addFile(u"/d/f", "in memory", perms(0640), someTime());
  manager_->createLink(u"/d/l", u"/d/f");
  manager_->extractAll(u"/mem/out", kRestore, kRaw, kNever);
  EXPECT_EQ(memory->readContent(u"/mem/out/d/f"), "in memory");
  boost::system::error_code code;
  EXPECT_EQ(memory->getPermissions(u"/mem/out/d/f", code), perms(0640));
  EXPECT_EQ(memory->getLastModifiedTime(u"/mem/out/d/f", code), someTime());
  EXPECT_EQ(memory->getLinkTarget(u"/mem/out/d/l"), u"/mem/out/d/f");
  // The next call goes to the disk.
  manager_->extractAll(destination16(), kNothing, kRaw, kNever);
  EXPECT_EQ(readFile(out("d/f")), "in memory");
  EXPECT_FALSE(memory->isFolder(u16(destination())));
}

// A fault-injecting file system in memory below "/mem".
class FileSystemManagerExtractFaultTest : public FileSystemManagerExtractTest {
 protected:
  FileSystemManagerExtractFaultTest()
      : memory_(std::make_shared<InMemoryFileSystemOps>()),
        faulty_(std::make_shared<FaultyFileSystemOps>(memory_)) {
    opc::FileSystemOpsSelector selector;
    selector.setForPrefix(u"/mem", faulty_);
    makeManager(selector);
  }

  void extractToMemory(RestoreMode restore = kNothing, ReplaceMode replace = kNever) {
    manager_->extractAll(u"/mem/out", restore, kRaw, replace);
  }

  static boost::system::error_code error(errc_t condition) {
    return boost::system::error_code(static_cast<int>(condition), boost::system::system_category());
  }

  std::shared_ptr<InMemoryFileSystemOps> memory_;
  std::shared_ptr<FaultyFileSystemOps> faulty_;
};

TEST_F(FileSystemManagerExtractFaultTest, TimeThatCannotBeSetStopsBeforePermissions) {
  addFile(u"/f", "content", perms(0600), someTime());
  faulty_->failOn("doSetLastModifiedTime", error(boost::system::errc::operation_not_permitted));
  EXPECT_THROW_MESSAGE(extractToMemory(kRestore), CouldNotSetLastModifiedTime,
                       "Could not set last modified time: /mem/out/f: Operation not permitted");
  EXPECT_EQ(memory_->readContent(u"/mem/out/f"), "content");
  EXPECT_EQ(faulty_->callCount("doSetPermissions"), 0);
}

TEST_F(FileSystemManagerExtractFaultTest, PermissionsThatCannotBeSet) {
  addFile(u"/f", "content", perms(0600), someTime());
  faulty_->failOn("doSetPermissions", error(boost::system::errc::read_only_file_system));
  try {
    extractToMemory(kRestore);
    ADD_FAILURE() << "no error";
  } catch (CouldNotSetPermissions const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not set permissions: /mem/out/f: Read-only file system");
    EXPECT_TRUE(isCondition(e.code(), boost::system::errc::read_only_file_system));
  }
  // The time went first and stays.
  boost::system::error_code code;
  EXPECT_EQ(memory_->getLastModifiedTime(u"/mem/out/f", code), someTime());
}

TEST_F(FileSystemManagerExtractFaultTest, FolderThatCannotBeMade) {
  manager_->createFolder(u"/d");
  faulty_->failOn("doCreateFolder", error(boost::system::errc::no_space_on_device));
  try {
    extractToMemory();
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateFolder const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not create folder: /mem/out/d: No space left on device");
    EXPECT_TRUE(isCondition(e.code(), boost::system::errc::no_space_on_device));
  }
}

TEST_F(FileSystemManagerExtractFaultTest, FolderCreationThatFindsOneAlreadyThereIsNoError) {
  manager_->createFolder(u"/d");
  // Another process made it between the test and the creation.
  faulty_->failOn("doCreateFolder", error(boost::system::errc::file_exists));
  extractToMemory();
  EXPECT_EQ(faulty_->callCount("doCreateFolder"), 1);
}

TEST_F(FileSystemManagerExtractFaultTest, RootOrParentCreationThatFindsOneThereIsNoError) {
  addFile(u"/p/f", "x");
  faulty_->failOn("doCreateFolders", error(boost::system::errc::file_exists), 1);
  memory_->addFolder(u"/mem/out");
  // The root exists; the parent's creation reports file_exists, accepted; the open then
  // finds no folder.
  EXPECT_THROW_MESSAGE(extractToMemory(), CouldNotCreateFile,
                       "Could not create or overwrite file: /mem/out/p/f");
  faulty_->clearFaults();
  faulty_->failOn("doCreateFolders", error(boost::system::errc::file_exists));
  EXPECT_NO_THROW(
      manager_->extractEntry(u"/mem/elsewhere", manager_->getRoot(), kNothing, kRaw, kNever));
}

TEST_F(FileSystemManagerExtractFaultTest, RootCreationFailureKeepsItsCode) {
  faulty_->failOn("doCreateFolders", error(boost::system::errc::io_error));
  try {
    extractToMemory();
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateDestinationRoot const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Could not create the destination root directory: Input/output error");
    EXPECT_TRUE(isCondition(e.code(), boost::system::errc::io_error));
  }
}

TEST_F(FileSystemManagerExtractFaultTest, LinkThatCannotBeMade) {
  manager_->createLink(u"/l", u"t");
  faulty_->failOn("doCreateSymlink", error(boost::system::errc::operation_not_supported));
  EXPECT_THROW_MESSAGE(extractToMemory(), CouldNotCreateLink,
                       "Could not create link: /mem/out/l: Operation not supported");
}

TEST_F(FileSystemManagerExtractFaultTest, ClobberIgnoresAFailedChmodAndReopens) {
  addFile(u"/f", "new");
  memory_->addFile(u"/mem/out/f", "old", perms(0644));
  // The first open fails as on a read-only file, the chmod fails too, and the second open
  // works all the same.
  faulty_->failOn("doCreateOutputStream", error(boost::system::errc::permission_denied), 1);
  faulty_->failOn("doSetPermissions", error(boost::system::errc::operation_not_permitted));
  extractToMemory(kNothing, kExisting);
  EXPECT_EQ(memory_->readContent(u"/mem/out/f"), "new");
  EXPECT_EQ(faulty_->callCount("doCreateOutputStream"), 2);
}

TEST_F(FileSystemManagerExtractFaultTest, FailedOpenOfAMissingFileWithReplaceExistingKeepsItsCode) {
  addFile(u"/f", "new");
  faulty_->failOn("doCreateOutputStream", error(boost::system::errc::too_many_files_open));
  try {
    extractToMemory(kNothing, kExisting);
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not create or overwrite file: /mem/out/f");
    EXPECT_TRUE(isCondition(e.code(), boost::system::errc::too_many_files_open));
  }
  EXPECT_EQ(faulty_->callCount("doSetPermissions"), 0);
}

// A manager that extracts to a file system of its own choosing, whatever the selector says.
class RedirectedManager : public FileSystemManager {
 public:
  RedirectedManager(Package& package, std::shared_ptr<opc::FileSystemOps> fileSystem)
      : FileSystemManager(package, opc::FileSystemOpsSelector()),
        fileSystem_(std::move(fileSystem)) {}

 protected:
  opc::FileSystemOps& getDestFSImpl() const override { return *fileSystem_; }

 private:
  std::shared_ptr<opc::FileSystemOps> fileSystem_;
};

TEST_F(FileSystemManagerExtractTest, DerivedManagerSuppliesTheDestinationFileSystem) {
  auto memory = std::make_shared<InMemoryFileSystemOps>();
  manager_.reset();
  RedirectedManager redirected(*package_, memory);
  FileSystemEntry const entry = redirected.createFile(u"/d/f", textType(), perms(0600), someTime());
  opc::OutputStream& output = redirected.getFileOutputStream(entry);
  output.write(reinterpret_cast<unsigned char const*>("abc"), 3);
  output.close();
  redirected.createLink(u"/d/l", u"/d/f");
  // The selector would give the local disk; nothing may land there.
  redirected.extractAll(destination16(), kRestore, kRaw, kNever);
  EXPECT_FALSE(pathExists(destination()));
  EXPECT_EQ(memory->readContent(u16(destination()) + u"/d/f"), "abc");
  EXPECT_EQ(memory->getLinkTarget(u16(destination()) + u"/d/l"), u16(destination()) + u"/d/f");
}

}  // namespace
