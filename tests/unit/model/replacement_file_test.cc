// The temporary file of a save: where it goes, what it keeps of the target, how it is put in
// place, and which leftovers the next save of the same package removes.
#include "zip/replacement_file.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace detail {
namespace {

using opcvk_test::Bytes;
using opcvk_test::u16;

std::vector<std::string> namesIn(std::string const& folder) {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

unsigned modeOf(std::string const& path) {
  struct stat info {};
  ::stat(path.c_str(), &info);
  return info.st_mode & 07777;
}

TEST(ReplacementFileTest, CommitPutsTheNewFileInPlaceUnderTheTargetsName) {
  opcvk_test::TempDir dir;
  std::string const target = dir / "p.zip";
  opcvk_test::writeFile(target, Bytes{'o', 'l', 'd'});
  {
    ReplacementFile file(target);
    std::string const name = file.temporaryPath().substr(dir.path().size() + 1);
    EXPECT_EQ(name.size(), std::string(".p.zip.01234567.tmp").size());
    EXPECT_EQ(name.substr(0, 7), ".p.zip.");
    EXPECT_EQ(name.substr(15), ".tmp");
    ASSERT_EQ(::write(file.descriptor(), "new", 3), 3);
    EXPECT_EQ(opcvk_test::fileBytes(target), (Bytes{'o', 'l', 'd'}));
    file.commit();
  }
  EXPECT_EQ(opcvk_test::fileBytes(target), (Bytes{'n', 'e', 'w'}));
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(ReplacementFileTest, AbandonedFileLeavesNothingAndTheTargetAlone) {
  opcvk_test::TempDir dir;
  std::string const target = dir / "p.zip";
  opcvk_test::writeFile(target, Bytes{'o', 'l', 'd'});
  {
    ReplacementFile file(target);
    ASSERT_EQ(::write(file.descriptor(), "new", 3), 3);
  }
  EXPECT_EQ(opcvk_test::fileBytes(target), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(ReplacementFileTest, FailedRenameLeavesNothingAndNamesTheStep) {
  opcvk_test::TempDir dir;
  std::string const target = dir / "p.zip";
  std::filesystem::create_directory(target);
  std::filesystem::create_directory(target + "/inside");
  ReplacementFile file(target);
  EXPECT_THROW_MESSAGE(file.commit(), CouldNotSavePackage,
                       "Could not save package \"" + target +
                           "\": could not rename the temporary file over it: Is a directory");
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(ReplacementFileTest, TemporaryFileIsLockedUntilReleasedAndClosed) {
  opcvk_test::TempDir dir;
  std::string const target = dir / "p.zip";
  int fd = -1;
  {
    ReplacementFile file(target);
    file.commit();
    fd = file.release();
  }
  int const other = ::open(target.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(other, 0);
  EXPECT_NE(::flock(other, LOCK_EX | LOCK_NB), 0);
  ::close(fd);
  EXPECT_EQ(::flock(other, LOCK_EX | LOCK_NB), 0);
  ::close(other);
}

TEST(ReplacementFileTest, TargetThatIsALinkStaysOneAndTheFileItLeadsToIsReplaced) {
  opcvk_test::TempDir dir;
  std::filesystem::create_directory(dir / "real");
  opcvk_test::writeFile(dir / "real/p.zip", Bytes{'o', 'l', 'd'});
  std::filesystem::create_symlink("real/p.zip", dir / "link.zip");
  {
    ReplacementFile file(dir / "link.zip");
    EXPECT_EQ(file.temporaryPath().substr(0, (dir / "real/.p.zip.").size()), dir / "real/.p.zip.");
    ASSERT_EQ(::write(file.descriptor(), "new", 3), 3);
    file.commit();
  }
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link.zip"));
  EXPECT_EQ(opcvk_test::fileBytes(dir / "real/p.zip"), (Bytes{'n', 'e', 'w'}));
  EXPECT_EQ(namesIn(dir / "real"), std::vector<std::string>{"p.zip"});
}

TEST(ReplacementFileTest, KeepsThePermissionBitsOfTheTarget) {
  opcvk_test::TempDir dir;
  std::string const target = dir / "p.zip";
  for (unsigned mode : {0600u, 0640u, 0664u}) {
    opcvk_test::writeFile(target, Bytes{'o'});
    ::chmod(target.c_str(), mode);
    ReplacementFile file(target);
    file.commit();
    EXPECT_EQ(modeOf(target), mode);
  }
}

TEST(ReplacementFileTest, SaveOfAPrivatePackageKeepsItPrivate) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  {
    auto package = Package::open(u16(path), PackageAccess::Create);
    package->save();
  }
  ::chmod(path.c_str(), 0600);
  auto package = Package::open(u16(path), PackageAccess::Modify);
  package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"),
                      StandardPartInfo(interfaces::CompressionType::Stored, 0));
  package->save();
  EXPECT_EQ(modeOf(path), 0600u);
}

// What a save killed before its rename leaves, what another live writer holds, and names that
// only look alike.
TEST(ReplacementFileTest, NextSaveRemovesTheTemporaryFilesThatNoWriterHolds) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  {
    auto package = Package::open(u16(path), PackageAccess::Create);
    package->save();
  }
  Bytes const junk{'P', 'K', 3, 4};
  std::vector<std::string> const kept = {".p.zip.0123ABCD.tmp",   // upper case: not made by a save
                                         ".p.zip.0123abc.tmp",    // seven digits
                                         ".p.zip.0123abcde.tmp",  // nine
                                         "p.zip.01234567.tmp",    // no leading dot
                                         ".p.zip.01234567.tmp~",  // another suffix
                                         ".q.zip.01234567.tmp",   // another package's
                                         ".p.zip.01234567.tmp.x"};  // longer
  for (std::string const& name : kept) opcvk_test::writeFile(dir / name, junk);
  opcvk_test::writeFile(dir / ".p.zip.0123abcd.tmp", junk);
  opcvk_test::writeFile(dir / ".p.zip.deadbeef.tmp", junk);
  // A live writer's file: locked.
  opcvk_test::writeFile(dir / ".p.zip.89abcdef.tmp", junk);
  int const live = ::open((dir / ".p.zip.89abcdef.tmp").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(live, LOCK_EX | LOCK_NB), 0);
  // A link with the name of a temporary file is not followed, and not removed.
  opcvk_test::writeFile(dir / "precious", junk);
  std::filesystem::create_symlink(dir / "precious", dir / ".p.zip.fedcba98.tmp");

  {
    auto package = Package::open(u16(path), PackageAccess::Modify);
    package->save();
  }
  std::vector<std::string> expected = kept;
  expected.insert(expected.end(),
                  {".p.zip.89abcdef.tmp", ".p.zip.fedcba98.tmp", "p.zip", "precious"});
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(namesIn(dir.path()), expected);
  EXPECT_EQ(opcvk_test::fileBytes(dir / "precious"), junk);
  ::close(live);
  // Once its writer is gone, the file is stale too.
  {
    auto package = Package::open(u16(path), PackageAccess::Modify);
    package->save();
  }
  EXPECT_FALSE(std::filesystem::exists(dir / ".p.zip.89abcdef.tmp"));
}

}  // namespace
}  // namespace detail
}  // namespace model
}  // namespace opc
