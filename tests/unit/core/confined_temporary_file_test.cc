// Files written whole or not at all: a temporary file beside the target that takes its place
// only on commit, on the descriptor road, the by-path road of the local disk and a file
// system in memory.  A failure before commit leaves neither a file nor a temporary.
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <opc/core/confined_destination.h>
#include <opc/core/local_file_system_ops.h>

#include "confined_destination_test_util.h"
#include "local_file_system_ops_test_util.h"
#include "support/in_memory_file_system_ops.h"

namespace {

using boost::system::error_code;
using opc::ConfinedResult;
using opcvk_test::InMemoryFileSystemOps;
using opcvk_test::isCondition;
using opcvk_test::modeOf;
using opcvk_test::namesIn;
using opcvk_test::readFile;
using opcvk_test::readLink;
using opcvk_test::u16;
using opcvk_test::write;
using opcvk_test::writeFile;
namespace errc = boost::system::errc;

using Names = std::set<std::string>;

// true: descriptors; false: by path.
class ConfinedTemporaryFileTest : public opcvk_test::ConfinedDestinationFixture,
                                  public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    ConfinedDestinationFixture::SetUp();
    fileSystem_ = opcvk_test::localFileSystem(GetParam());
    destination_ = fileSystem_->openConfinedDestination(u16(dest()));
    ConfinedResult result;
    destination_->makeParents(u"/d/target", result);
    ASSERT_TRUE(result.done());
  }

  std::unique_ptr<opc::ConfinedFile> temporary(std::string const& content) {
    ConfinedResult result;
    std::unique_ptr<opc::ConfinedFile> file = destination_->openTemporaryFile(u"/d/target", result);
    EXPECT_TRUE(result.done());
    if (file) write(*file, content);
    return file;
  }

  std::unique_ptr<opc::LocalFileSystemOps> fileSystem_;
  std::unique_ptr<opc::ConfinedDestination> destination_;
};

TEST_P(ConfinedTemporaryFileTest, CommitPutsTheWholeFileInPlaceOfTheOldOne) {
  writeFile(in("d/target"), "old");
  std::unique_ptr<opc::ConfinedFile> file = temporary(std::string(200000, 'n'));
  ASSERT_TRUE(file);
  // Until the commit the target keeps its content, and the temporary lies beside it.
  EXPECT_EQ(readFile(in("d/target")), "old");
  EXPECT_EQ(namesIn(in("d")).size(), 2u);
  error_code code;
  file->setPermissions(static_cast<opc::Perms::Perms_tag>(0640), code);
  EXPECT_FALSE(code);
  file->commit(code);
  EXPECT_FALSE(code);
  file = nullptr;
  EXPECT_EQ(readFile(in("d/target")), std::string(200000, 'n'));
  EXPECT_EQ(modeOf(in("d/target")) & 0777, 0640u);
  EXPECT_EQ(namesIn(in("d")), Names{"target"});
}

TEST_P(ConfinedTemporaryFileTest, FailureBeforeCommitLeavesNoFileAndNoTemporary) {
  std::unique_ptr<opc::ConfinedFile> file = temporary("half of what was to come");
  ASSERT_TRUE(file);
  file = nullptr;  // say, the content did not verify
  EXPECT_TRUE(namesIn(in("d")).empty());
  // And an existing target stays as it was.
  writeFile(in("d/target"), "old");
  file = temporary("half");
  file = nullptr;
  EXPECT_EQ(namesIn(in("d")), Names{"target"});
  EXPECT_EQ(readFile(in("d/target")), "old");
}

TEST_P(ConfinedTemporaryFileTest, CommitReplacesALinkNotWhatItPointsTo) {
  ASSERT_EQ(::symlink("../../outside/secret", in("d/target").c_str()), 0);
  std::unique_ptr<opc::ConfinedFile> file = temporary("new");
  error_code code;
  file->commit(code);
  EXPECT_FALSE(code);
  EXPECT_TRUE(S_ISREG(modeOf(in("d/target"))));
  EXPECT_EQ(readFile(in("d/target")), "new");
  expectOutsideUntouched();
}

TEST_P(ConfinedTemporaryFileTest, FailedCommitOverAFolderLeavesNoTemporary) {
  ASSERT_EQ(::mkdir(in("d/target").c_str(), 0755), 0);
  writeFile(in("d/target/inside"), "kept");
  std::unique_ptr<opc::ConfinedFile> file = temporary("new");
  error_code code;
  file->commit(code);
  EXPECT_TRUE(isCondition(code, errc::is_a_directory));
  file = nullptr;
  EXPECT_EQ(namesIn(in("d")), Names{"target"});
  EXPECT_EQ(readFile(in("d/target/inside")), "kept");
}

TEST_P(ConfinedTemporaryFileTest, TemporaryNeedsAnExistingFolderAndAName) {
  ConfinedResult result;
  EXPECT_FALSE(destination_->openTemporaryFile(u"/missing/target", result));
  EXPECT_TRUE(isCondition(result.code, errc::no_such_file_or_directory));
  EXPECT_FALSE(destination_->openTemporaryFile(u"/", result));
  EXPECT_TRUE(isCondition(result.code, errc::invalid_argument));
}

INSTANTIATE_TEST_SUITE_P(DescriptorsAndPaths, ConfinedTemporaryFileTest, ::testing::Bool(),
                         opcvk_test::roadName);

TEST(ConfinedTemporaryFileInMemoryTest, CommitRenamesAndAFailureRemoves) {
  InMemoryFileSystemOps memory;
  memory.addFile(u"/mem/dest/d/target", "old");
  std::vector<std::u16string> const before = memory.listAll();
  std::unique_ptr<opc::ConfinedDestination> destination =
      memory.openConfinedDestination(u"/mem/dest");
  ConfinedResult result;
  std::unique_ptr<opc::ConfinedFile> file = destination->openTemporaryFile(u"/d/target", result);
  ASSERT_TRUE(file);
  write(*file, "abandoned");
  file = nullptr;
  EXPECT_EQ(memory.listAll(), before);
  EXPECT_EQ(memory.readContent(u"/mem/dest/d/target"), "old");
  file = destination->openTemporaryFile(u"/d/target", result);
  write(*file, "new");
  error_code code;
  file->commit(code);
  EXPECT_FALSE(code);
  file = nullptr;
  EXPECT_EQ(memory.listAll(), before);
  EXPECT_EQ(memory.readContent(u"/mem/dest/d/target"), "new");
}

}  // namespace
