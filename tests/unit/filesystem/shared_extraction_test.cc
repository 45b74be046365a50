// Extraction shared among threads: whatever the number of threads, the same tree as
// extractAll (bytes, modes, times, links, empty folders) and the same refusal, class and
// words, of the first failing leaf in path order.
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <typeinfo>
#include <unistd.h>

#include <gtest/gtest.h>

#include <opc/model/package.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>
#include <opc/vkservices/shared_extraction.h>

#include "support/file_system_entry_access.h"
#include "unit/core/local_file_system_ops_test_util.h"
#include "unit/filesystem/file_system_manager_test_support.h"
#include "unit/filesystem/shared_extraction_fixture.h"
#include "unit/filesystem/shared_extraction_support.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::SharedExtraction;
using opc::vkservices::TransformMode;
using opcvk_test::extractShared;
using opcvk_test::pathExists;
using opcvk_test::readFile;
using opcvk_test::snapshot;
using opcvk_test::u16;
using opcvk_test::writeFile;

using opcvk_test::kNever;
using opcvk_test::kRestore;
using opcvk_test::SharedExtractionTest;

TEST_F(SharedExtractionTest, GivesTheTreeOfExtractAllWithAnyNumberOfThreads) {
  // More leaves than wait at once, so that the feeding thread also extracts: the one test here
  // that takes over a second, for writing some 1,100 files four times.
  makeTree(SharedExtraction::kBatchSize * SharedExtraction::kWaitingBatches + 100);
  manager_->extractAll(u16(dest("all")), kRestore, TransformMode::NoTransforms, kNever);
  auto const expected = snapshot(dest("all"));
  ASSERT_GT(expected.size(), 1100u);
  for (unsigned threads : {1u, 2u, 4u}) {
    std::string const out = dest("shared" + std::to_string(threads));
    extractShared(*manager_, u16(out), threads, kRestore, kNever);
    EXPECT_EQ(snapshot(out), expected) << threads << " threads";
  }
}

TEST_F(SharedExtractionTest, EmptyFileSystemMakesTheRootAndNothingElse) {
  reopen();
  extractShared(*manager_, u16(dest("out")), 3, kRestore, kNever);
  ASSERT_TRUE(pathExists(dest("out")));
  EXPECT_TRUE(snapshot(dest("out")).empty());
}

TEST_F(SharedExtractionTest, RaisesTheFirstFailingLeafInPathOrder) {
  makeTree(600);
  // Two files that cannot be written (a folder stands at each path), far apart in path order.
  std::string const out = dest("out");
  auto const plant = [&] {
    ASSERT_EQ(std::system(("rm -rf " + out).c_str()), 0);
    ASSERT_EQ(
        std::system(("mkdir -p " + out + "/d1/e3/f53.txt " + out + "/d9/e2/f477.txt").c_str()), 0);
  };
  plant();
  std::string const expected = failureOf(
      [&] { manager_->extractAll(u16(out), kRestore, TransformMode::NoTransforms, kNever); });
  EXPECT_NE(expected.find("Could not create or overwrite file: " + out + "/d1/e3/f53.txt"),
            std::string::npos)
      << expected;
  for (unsigned threads : {1u, 2u, 4u}) {
    for (int round = 0; round < 3; ++round) {
      plant();
      EXPECT_EQ(failureOf([&] { extractShared(*manager_, u16(out), threads, kRestore, kNever); }),
                expected)
          << threads << " threads";
      // Leaves before the failure were made.
      EXPECT_EQ(readFile(out + "/d0/e0/f0.bin"), "/d0/e0/f0.bin");
      EXPECT_TRUE(pathExists(out + "/d1/e0/f40.bin"));
    }
  }
}

TEST_F(SharedExtractionTest, NameCollisionIsTheSameRefusalAsExtractAll) {
  makeTree(200);
  std::string const out = dest("out");
  auto const plant = [&] {
    ASSERT_EQ(std::system(("rm -rf " + out + " && mkdir -p " + out + "/d7").c_str()), 0);
    // A file where a folder must go.
    writeFile(out + "/d7/e2", "not a folder");
  };
  plant();
  std::string const expected = failureOf(
      [&] { manager_->extractAll(u16(out), kRestore, TransformMode::NoTransforms, kNever); });
  EXPECT_NE(expected.find("CouldNotCreate"), std::string::npos) << expected;
  for (unsigned threads : {1u, 3u}) {
    plant();
    EXPECT_EQ(failureOf([&] { extractShared(*manager_, u16(out), threads, kRestore, kNever); }),
              expected);
  }
}

TEST_F(SharedExtractionTest, LinksAreMadeAfterEveryFileSoTheOutcomeDoesNotDependOnThreads) {
  addFile(u"/a", "first");
  manager_->createLink(u"/b", u"x");
  addFile(u"/c", "after the link");
  reopen();
  std::string const out = dest("out");
  for (unsigned threads : {1u, 2u}) {
    ASSERT_EQ(std::system(("rm -rf " + out + " && mkdir " + out).c_str()), 0);
    ASSERT_EQ(::symlink("taken", (out + "/b").c_str()), 0);
    EXPECT_THROW(extractShared(*manager_, u16(out), threads, kRestore, kNever),
                 opc::vkservices::CouldNotCreateLink);
    EXPECT_EQ(readFile(out + "/a"), "first");
    // Unlike extractAll, which stops at the link, the file after it was made first.
    EXPECT_EQ(readFile(out + "/c"), "after the link");
    EXPECT_EQ(opcvk_test::readLink(out + "/b"), "taken");
  }
}

TEST_F(SharedExtractionTest, MissingPartIsToldAsExtractAllTellsIt) {
  addFile(u"/a-kept", "kept");
  FileSystemEntry const gone = addFile(u"/gone", "bytes");
  addFile(u"/later", "not begun after the failure");
  // The entry stays in the manifest; its part goes.
  package_->deletePart(
      opc::model::PartName(opc::vkservices::detail::FileSystemEntryAccess::contentName(gone)));
  reopen();
  std::string const out = dest("out");
  std::string const expected = failureOf(
      [&] { manager_->extractAll(u16(out), kRestore, TransformMode::NoTransforms, kNever); });
  ASSERT_TRUE(std::system(("rm -rf " + out).c_str()) == 0);
  EXPECT_EQ(failureOf([&] { extractShared(*manager_, u16(out), 2, kRestore, kNever); }), expected);
  EXPECT_EQ(readFile(out + "/a-kept"), "kept");
  EXPECT_TRUE(pathExists(out + "/gone"));
  EXPECT_EQ(readFile(out + "/gone"), "");
}

}  // namespace
