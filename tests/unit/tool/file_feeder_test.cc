#include "file_feeder.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <tuple>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/model/package.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "source_tree.h"
#include "support/expect_exception.h"
#include "support/run_unprivileged.h"
#include "support/temp_dir.h"
#include "tool_error.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CouldNotOpenFile;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;
using opcvk::FileFeeder;
using opcvk::SourceItem;
using opcvk::SourceTree;
using opcvk::ToolError;
using opcvk_test::TempDir;

void write(std::string const& path, std::string const& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

struct Files {
  Files()
      : package(Package::openBuffer({}, PackageAccess::Create)),
        manager(std::make_unique<FileSystemManager>(*package, opc::FileSystemOpsSelector())) {}

  std::string content(std::u16string const& path) {
    auto source =
        manager->getFileContentSource(manager->getEntry(path), TransformMode::NoTransforms);
    std::ostringstream out;
    opc::StreamHelper::copyStreamToStream(source->getInputStream(), out);
    return out.str();
  }
  std::u16string type(std::u16string const& path) {
    return manager->getFileContentSource(manager->getEntry(path), TransformMode::NoTransforms)
        ->getContentType()
        .toString();
  }

  std::unique_ptr<Package> package;
  std::unique_ptr<FileSystemManager> manager;
};

// Adds every file of `tree` through a feeder, as pack does, and gives the sizes the feeder
// told, by path.
std::map<std::string, std::uint64_t> feed(Files& files, TempDir const& dir, SourceTree const& tree,
                                          TransformMode mode, unsigned threads) {
  std::map<std::string, std::uint64_t> sizes;
  FileFeeder feeder(dir.path(), tree, mode, threads);
  for (std::size_t i = 0; i < tree.items.size(); ++i) {
    if (tree.items[i].kind != SourceItem::Kind::File) continue;
    sizes[tree.native(tree.items[i])] =
        feeder.add(*files.manager, i, u"/" + tree.relative(tree.items[i]));
  }
  return sizes;
}

class FileFeederModeTest
    : public ::testing::TestWithParam<std::tuple<TransformMode, opcvk::KindsBy>> {};

// What the feeder adds is what the library's own add of the same file gives: content, content
// type (with the recoding of text), permissions and time, for small files read ahead and for
// a file large enough to be read as it is copied; whether the walk learnt the files' status
// or left it to their reader.
TEST_P(FileFeederModeTest, AddsWhatTheLibrarysOwnAddOfThePathAdds) {
  TransformMode const mode = std::get<0>(GetParam());
  TempDir dir;
  write(dir / "latin.txt", "caf\xe9 cr\xe8me\n");
  write(dir / "data.json", "{\"a\": 1}\n");
  write(dir / "plain", "no extension\n");
  write(dir / ".hidden.txt", "hidden text\n");
  // The last dot of the name counts, and the table is asked with the extension as it is
  // written.
  write(dir / "archive.tar.json", "[1]\n");
  write(dir / "LOUD.TXT", "caf\xe9 in capitals\n");
  write(dir / "..txt", "two dots in front\n");
  // Below a folder whose name has a dot: the type comes from the file's own name alone.
  std::filesystem::create_directory(dir / "v1.2");
  write(dir / "v1.2/README", "no extension below a dotted folder\n");
  write(dir / "v1.2/notes.txt", "caf\xe9 below a folder\n");
  std::string big;
  for (int i = 0; big.size() < (3u << 20) / 2; ++i) big += "line \xe9 " + std::to_string(i) + "\n";
  write(dir / "big.txt", big);
  ASSERT_EQ(::chmod((dir / "plain").c_str(), 0640), 0);
  timeval const times[2] = {{1600000000, 0}, {1600000000, 123456}};
  ASSERT_EQ(::utimes((dir / "data.json").c_str(), times), 0);

  SourceTree const tree =
      opcvk::walkSourceFolder(dir.path(), std::filesystem::path(), std::get<1>(GetParam()));
  Files fed;
  std::map<std::string, std::uint64_t> const sizes = feed(fed, dir, tree, mode, 2);
  Files own;
  for (SourceItem const& item : tree.items) {
    std::u16string const path = u"/" + tree.relative(item);
    own.manager->addFile(opc::toString(dir / tree.native(item)), path, mode);
    SCOPED_TRACE(tree.native(item));
    struct stat status;
    ASSERT_EQ(::stat((dir / tree.native(item)).c_str(), &status), 0);
    EXPECT_EQ(sizes.at(tree.native(item)), static_cast<std::uint64_t>(status.st_size));
    auto const ownEntry = own.manager->getEntry(path);
    auto const fedEntry = fed.manager->getEntry(path);
    EXPECT_EQ(fed.content(path), own.content(path));
    EXPECT_EQ(fed.type(path), own.type(path));
    EXPECT_EQ(fedEntry.getPermissions(), ownEntry.getPermissions());
    EXPECT_EQ(fedEntry.getLastModifiedTime(), ownEntry.getLastModifiedTime());
  }
  EXPECT_EQ(fed.manager->getEntry(u"/data.json").getLastModifiedTime(),
            boost::posix_time::from_time_t(1600000000) + boost::posix_time::microseconds(123456));
}

INSTANTIATE_TEST_SUITE_P(Modes, FileFeederModeTest,
                         ::testing::Combine(::testing::Values(TransformMode::ApplyTransforms,
                                                              TransformMode::NoTransforms),
                                            ::testing::Values(opcvk::KindsBy::Listing,
                                                              opcvk::KindsBy::Status)));

TEST(FileFeederTest, AFileGoneSinceTheWalkIsNotPassedOverInSilence) {
  TempDir dir;
  write(dir / "a.txt", "alpha\n");
  write(dir / "b.txt", "beta\n");
  SourceTree const tree = opcvk::walkSourceFolder(dir.path());
  ASSERT_EQ(std::remove((dir / "b.txt").c_str()), 0);
  Files files;
  FileFeeder feeder(dir.path(), tree, TransformMode::ApplyTransforms, 2);
  feeder.add(*files.manager, 0, u"/a.txt");
  EXPECT_THROW_MESSAGE(feeder.add(*files.manager, 1, u"/b.txt"), ToolError,
                       "Could not add: " + dir.path() + "/b.txt");
}

// The first file that cannot be read stops the add with the library's own error for it,
// even though the readers have already met the later one.
TEST(FileFeederTest, TheFirstUnreadableFileInTheOrderIsTheOneTold) {
  TempDir dir;
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  write(dir / "a.txt", "alpha\n");
  write(dir / "m-secret.txt", "nobody\n");
  write(dir / "z-secret.txt", "nobody either\n");
  ASSERT_EQ(::chmod((dir / "m-secret.txt").c_str(), 0), 0);
  ASSERT_EQ(::chmod((dir / "z-secret.txt").c_str(), 0), 0);
  SourceTree const tree = opcvk::walkSourceFolder(dir.path());
  int const result = opcvk_test::runUnprivileged([&] {
    Files files;
    FileFeeder feeder(dir.path(), tree, TransformMode::ApplyTransforms, 3);
    feeder.add(*files.manager, 0, u"/a.txt");
    try {
      feeder.add(*files.manager, 1, u"/m-secret.txt");
    } catch (CouldNotOpenFile const& error) {
      bool const right =
          std::string(error.what()) == "Could not open file: " + dir.path() + "/m-secret.txt" &&
          error.code().value() == EACCES;
      return right && !files.manager->hasEntry(u"/m-secret.txt") ? 0 : 2;
    }
    return 1;
  });
  EXPECT_EQ(result, 0);
}

// A file below folders is told by its whole path, whether it was to be read ahead or, too
// large for that, read as it is copied.
TEST(FileFeederTest, AFileGoneBelowAFolderIsToldByItsWholePath) {
  for (opcvk::KindsBy const kinds : {opcvk::KindsBy::Listing, opcvk::KindsBy::Status}) {
    TempDir dir;
    std::filesystem::create_directories(dir / "a/b");
    write(dir / "a/b/big.bin", std::string((3u << 20) / 2, 'x'));
    write(dir / "a/b/small.txt", "small\n");
    SourceTree const tree = opcvk::walkSourceFolder(dir.path(), std::filesystem::path(), kinds);
    ASSERT_EQ(std::remove((dir / "a/b/big.bin").c_str()), 0);
    ASSERT_EQ(std::remove((dir / "a/b/small.txt").c_str()), 0);
    Files files;
    FileFeeder feeder(dir.path(), tree, TransformMode::ApplyTransforms, 2);
    EXPECT_THROW_MESSAGE(feeder.add(*files.manager, 0, u"/a/b/big.bin"), ToolError,
                         "Could not add: " + dir.path() + "/a/b/big.bin");
    EXPECT_THROW_MESSAGE(feeder.add(*files.manager, 1, u"/a/b/small.txt"), ToolError,
                         "Could not add: " + dir.path() + "/a/b/small.txt");
    EXPECT_FALSE(files.manager->hasEntry(u"/a/b/big.bin"));
  }
}

TEST(FileFeederTest, AnUnreadableFileBelowAFolderIsToldByItsWholePath) {
  TempDir dir;
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  std::filesystem::create_directories(dir / "sub/deeper");
  ASSERT_EQ(::chmod((dir / "sub").c_str(), 0755), 0);
  ASSERT_EQ(::chmod((dir / "sub/deeper").c_str(), 0755), 0);
  write(dir / "sub/deeper/secret.txt", "nobody\n");
  ASSERT_EQ(::chmod((dir / "sub/deeper/secret.txt").c_str(), 0), 0);
  SourceTree const tree = opcvk::walkSourceFolder(dir.path());
  int const result = opcvk_test::runUnprivileged([&] {
    Files files;
    FileFeeder feeder(dir.path(), tree, TransformMode::ApplyTransforms, 2);
    try {
      feeder.add(*files.manager, 0, u"/sub/deeper/secret.txt");
    } catch (CouldNotOpenFile const& error) {
      return std::string(error.what()) ==
                     "Could not open file: " + dir.path() + "/sub/deeper/secret.txt"
                 ? 0
                 : 2;
    }
    return 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(FileFeederTest, AFileThatOpensButCannotBeReadTellsTheReadError) {
  TempDir dir;
  write(dir / "x.txt", "text\n");
  SourceTree const tree = opcvk::walkSourceFolder(dir.path());
  // A folder takes the file's place after the walk: it opens, and its read fails.
  ASSERT_EQ(std::remove((dir / "x.txt").c_str()), 0);
  ASSERT_EQ(::mkdir((dir / "x.txt").c_str(), 0755), 0);
  Files files;
  FileFeeder feeder(dir.path(), tree, TransformMode::ApplyTransforms, 1);
  EXPECT_THROW_MESSAGE(feeder.add(*files.manager, 0, u"/x.txt"), opc::Exception,
                       "Could not read from the input stream");
}

}  // namespace
