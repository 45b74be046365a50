// Extraction while the destination changes under it: another process that can write in the
// destination swaps a folder for a symbolic link during an extraction, or between the calls of
// an extraction made entry by entry.  Nothing may land outside the destination, whatever the
// timing.  A sentinel folder beside the destination proves it.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/model/package.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/core/confined_destination_test_util.h"
#include "unit/core/local_file_system_ops_test_util.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CouldNotCreateFile;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;
using opcvk_test::namesIn;
using opcvk_test::noTime;
using opcvk_test::pathExists;
using opcvk_test::perms;
using opcvk_test::readFile;
using opcvk_test::textType;
using opcvk_test::u16;
using opcvk_test::writeFile;

constexpr RestoreMode kRestore = RestoreMode::RestoreTimeAndPermissions;
constexpr TransformMode kRaw = TransformMode::NoTransforms;
constexpr ReplaceMode kAlways = ReplaceMode::ReplaceAlways;

// Swaps the folder `folder` for a link to the sentinel and back, again and again, from a
// thread of its own, until stopped: the link is made once beside the folder, and the two
// names are exchanged in one step (renameat2 with RENAME_EXCHANGE), so that the name always
// holds one or the other.
class Swapper {
 public:
  explicit Swapper(std::string folder) : folder_(std::move(folder)), decoy_(folder_ + ".decoy") {
    EXPECT_EQ(::symlink("../../outside", decoy_.c_str()), 0);
    thread_ = std::thread([this] { run(); });
  }
  ~Swapper() { stop(); }

  void stop() {
    done_ = true;
    if (thread_.joinable()) thread_.join();
  }

 private:
  bool exchange() {
    return ::renameat2(AT_FDCWD, folder_.c_str(), AT_FDCWD, decoy_.c_str(), RENAME_EXCHANGE) == 0;
  }

  void run() {
    while (!done_.load()) {
      // Each state lasts about as long as the extraction of an entry.
      if (!exchange()) return;
      std::this_thread::sleep_for(std::chrono::microseconds(20));
      if (!exchange()) return;
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }

  std::string folder_;
  std::string decoy_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

// "outside" (the sentinel, with "secret") and "box/dest", the destination.
class ExtractionRaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir(outside().c_str(), 0755), 0);
    writeFile(outside() + "/secret", "s3cret");
    ASSERT_EQ(::chmod((outside() + "/secret").c_str(), 0640), 0);
    ASSERT_EQ(::mkdir((temp_ / "box").c_str(), 0755), 0);
    package_ = Package::openBuffer({}, PackageAccess::Create);
    manager_ = std::make_unique<FileSystemManager>(*package_, opc::FileSystemOpsSelector());
  }

  std::string outside() const { return temp_ / "outside"; }
  std::string dest() const { return temp_ / "box/dest"; }
  std::string in(std::string const& rest) const { return dest() + "/" + rest; }

  FileSystemEntry addFile(std::u16string const& path, std::string const& content) {
    FileSystemEntry const entry = manager_->createFile(path, textType(), perms(0666), noTime());
    opc::OutputStream& output = manager_->getFileOutputStream(entry);
    output.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
    output.close();
    return entry;
  }

  void expectOutsideUntouched() const {
    EXPECT_EQ(namesIn(outside()), std::set<std::string>{"secret"});
    EXPECT_EQ(readFile(outside() + "/secret"), "s3cret");
    EXPECT_EQ(opcvk_test::modeOf(outside() + "/secret") & 0777, 0640u);
  }

  opcvk_test::TempDir temp_;
  std::unique_ptr<Package> package_;
  std::unique_ptr<FileSystemManager> manager_;
};

TEST_F(ExtractionRaceTest, FolderSwappedForALinkWhileExtractingIsNeverFollowed) {
  // Entry by entry, as the tool extracts, going on past refused entries; meanwhile another
  // thread swaps the folder for a link to the sentinel, again and again.  Checked by path,
  // a swap that falls between the check and the write lands bytes outside; by descriptors
  // the folder opened is the one written in, whatever its name leads to by then.
  constexpr int kFiles = 3000;
  std::vector<FileSystemEntry> entries;
  for (int i = 0; i < kFiles; ++i) {
    entries.push_back(addFile(u"/a/f" + u16(std::to_string(i)), "x"));
  }
  entries.push_back(addFile(u"/a/secret", "overwritten?"));
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(in("a").c_str(), 0755), 0);
  Swapper swapper(in("a"));
  for (FileSystemEntry const& entry : entries) {
    try {
      manager_->extractEntry(u16(dest()), entry, kRestore, kRaw, kAlways);
    } catch (opc::Exception const&) {
      // Refused when a look meets the link, or failed when the swap took a folder away
      // while it was being made: what counts is where the bytes went.
    }
  }
  swapper.stop();
  expectOutsideUntouched();
}

TEST_F(ExtractionRaceTest, FolderSwappedForALinkDuringOneExtractAllIsNeverFollowed) {
  for (int i = 0; i < 300; ++i) addFile(u"/a/f" + u16(std::to_string(i)), "x");
  addFile(u"/a/secret", "overwritten?");
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(in("a").c_str(), 0755), 0);
  Swapper swapper(in("a"));
  try {
    manager_->extractAll(u16(dest()), kRestore, kRaw, kAlways);
  } catch (opc::Exception const&) {
    // Refused if the first look met the link.
  }
  swapper.stop();
  expectOutsideUntouched();
}

TEST_F(ExtractionRaceTest, FolderSwappedBetweenTwoEntriesIsRefusedOnTheNextCall) {
  FileSystemEntry const first = addFile(u"/a/first", "1");
  FileSystemEntry const second = addFile(u"/a/secret", "overwritten?");
  manager_->extractEntry(u16(dest()), first, kRestore, kRaw, kAlways);
  ASSERT_EQ(::rename(in("a").c_str(), in("moved").c_str()), 0);
  ASSERT_EQ(::symlink("../../outside", in("a").c_str()), 0);
  EXPECT_THROW_MESSAGE(
      manager_->extractEntry(u16(dest()), second, kRestore, kRaw, kAlways), CouldNotCreateFile,
      "Refused to extract /a/secret: " + in("a") + " is a symbolic link inside the destination");
  EXPECT_EQ(readFile(in("moved/first")), "1");
  expectOutsideUntouched();
}

TEST_F(ExtractionRaceTest, EntryByEntryFollowsTheDestinationAsItIsNow) {
  FileSystemEntry const first = addFile(u"/a/b/first", "1");
  FileSystemEntry const second = addFile(u"/a/b/second", "2");
  FileSystemEntry const third = addFile(u"/a/third", "3");
  manager_->extractEntry(u16(dest()), first, kRestore, kRaw, kAlways);
  // The folder renamed between two calls: the next entry goes where its name leads now.
  ASSERT_EQ(::rename(in("a/b").c_str(), in("a/renamed").c_str()), 0);
  manager_->extractEntry(u16(dest()), second, kRestore, kRaw, kAlways);
  EXPECT_EQ(readFile(in("a/b/second")), "2");
  EXPECT_FALSE(pathExists(in("a/renamed/second")));
  // The whole destination removed between two calls is made again.
  std::filesystem::remove_all(dest());
  manager_->extractEntry(u16(dest()), third, kRestore, kRaw, kAlways);
  EXPECT_EQ(readFile(in("a/third")), "3");
  // Another destination in between, then the first again.
  manager_->extractEntry(u16(temp_ / "box/other"), first, kRestore, kRaw, kAlways);
  manager_->extractEntry(u16(dest()), first, kRestore, kRaw, kAlways);
  EXPECT_EQ(readFile(temp_ / "box/other/a/b/first"), "1");
  EXPECT_EQ(readFile(in("a/b/first")), "1");
  expectOutsideUntouched();
}

}  // namespace
