// Writers of one package file take turns; readers never wait.  Two packages in one process
// exclude each other as two processes do, so these cases run in one process; the tool's
// cases show the same between processes.
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::readAll;
using opcvk_test::u16;
using opcvk_test::writeAll;

StandardPartInfo const kInfo(interfaces::CompressionType::DeflateContent, 0);

void addPart(Package& package, std::u16string const& name, std::string const& content) {
  writeAll(package.createPart(PartName(name), ContentType(u"text/plain"), kInfo).getOutputStream(),
           content);
}

bool has(Package const& package, std::u16string const& name) {
  return package.hasPart(PartName(name));
}

PackageOptions waiting(std::uint64_t milliseconds) {
  PackageOptions options;
  options.lockWaitMilliseconds = milliseconds;
  return options;
}

class PackageLockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto package = Package::open(path(), PackageAccess::Create);
    addPart(*package, u"/first.txt", "first");
    package->save();
  }

  std::u16string path() const { return u16(dir_ / "p.zip"); }
  std::string locked(std::string const& tail = ": another writer has it open") const {
    return "Could not open package \"" + (dir_ / "p.zip") + "\" for writing" + tail;
  }

  opcvk_test::TempDir dir_;
};

TEST_F(PackageLockTest, SecondModifyIsRefusedNamingThePackage) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  EXPECT_THROW_MESSAGE(Package::open(path(), PackageAccess::Modify), PackageLocked, locked());
}

TEST_F(PackageLockTest, CreateOverAPackageInUseIsRefused) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  EXPECT_THROW_MESSAGE(Package::open(path(), PackageAccess::Create), PackageLocked, locked());
}

TEST_F(PackageLockTest, CreateOverAnExistingPackageHoldsItAgainstModify) {
  auto creator = Package::open(path(), PackageAccess::Create);
  EXPECT_THROW_MESSAGE(Package::open(path(), PackageAccess::Modify), PackageLocked, locked());
}

TEST_F(PackageLockTest, ReadersAreNeverHeldUpAndSeeACompletePackage) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  addPart(*writer, u"/second.txt", "second");
  auto before = Package::open(path(), PackageAccess::Read);
  writer->save();
  auto after = Package::open(path(), PackageAccess::Read);
  EXPECT_FALSE(has(*before, u"/second.txt"));
  EXPECT_EQ(readAll(before->getPart(PartName(u"/first.txt")).getInputStream()), "first");
  EXPECT_TRUE(has(*after, u"/second.txt"));
}

TEST_F(PackageLockTest, ClosingTheWriterLetsTheNextOneIn) {
  Package::open(path(), PackageAccess::Modify).reset();
  auto next = Package::open(path(), PackageAccess::Modify);
  EXPECT_TRUE(has(*next, u"/first.txt"));
}

TEST_F(PackageLockTest, FailedOpenOfAWriterHoldsNothing) {
  opcvk_test::writeFile(dir_ / "bad.zip", {'n', 'o', 't', ' ', 'z', 'i', 'p'});
  EXPECT_THROW(Package::open(u16(dir_ / "bad.zip"), PackageAccess::Modify), InvalidPackage);
  EXPECT_NO_THROW(Package::open(u16(dir_ / "bad.zip"), PackageAccess::Create));
}

// The lock moves with the package to the file that each save puts in its place.
TEST_F(PackageLockTest, WriterKeepsTheLockAcrossItsSaves) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  for (char16_t const* name : {u"/a.txt", u"/b.txt"}) {
    addPart(*writer, name, "x");
    writer->save();
    EXPECT_THROW_MESSAGE(Package::open(path(), PackageAccess::Modify), PackageLocked, locked());
  }
}

TEST_F(PackageLockTest, WaitingWriterGetsInAndSeesTheChangesOfTheOneBefore) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  addPart(*writer, u"/second.txt", "second");
  auto next = std::async(std::launch::async, [this] {
    auto waiter = Package::open(path(), PackageAccess::Modify, waiting(20000));
    bool const sawSecond = has(*waiter, u"/second.txt");
    addPart(*waiter, u"/third.txt", "third");
    waiter->save();
    return sawSecond;
  });
  EXPECT_EQ(next.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  writer->save();
  writer.reset();
  EXPECT_TRUE(next.get());
  auto result = Package::open(path(), PackageAccess::Read);
  EXPECT_TRUE(has(*result, u"/first.txt"));
  EXPECT_TRUE(has(*result, u"/second.txt"));
  EXPECT_TRUE(has(*result, u"/third.txt"));
}

TEST_F(PackageLockTest, WaitEndsWithTheTimeItWaited) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  auto const start = std::chrono::steady_clock::now();
  EXPECT_THROW_MESSAGE(Package::open(path(), PackageAccess::Modify, waiting(250)), PackageLocked,
                       locked(": another writer still has it open after 0.25 seconds"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
}

TEST_F(PackageLockTest, CreateOfANewFileDoesNotReplaceAPackageInUseThere) {
  std::u16string const fresh = u16(dir_ / "new.zip");
  auto creator = Package::open(fresh, PackageAccess::Create);
  addPart(*creator, u"/mine.txt", "mine");
  {
    auto other = Package::open(fresh, PackageAccess::Create);
    addPart(*other, u"/theirs.txt", "theirs");
    other->save();
    EXPECT_THROW_MESSAGE(
        creator->save(), PackageLocked,
        "Could not save package \"" + (dir_ / "new.zip") + "\": another writer has it open");
  }
  auto result = Package::open(fresh, PackageAccess::Read);
  EXPECT_TRUE(has(*result, u"/theirs.txt"));
  EXPECT_FALSE(has(*result, u"/mine.txt"));
  // Once the other writer is gone, the creator's save goes through and holds the file.
  creator->save();
  EXPECT_THROW(Package::open(fresh, PackageAccess::Modify), PackageLocked);
}

TEST_F(PackageLockTest, BufferPackagesTakeNoLock) {
  auto writer = Package::open(path(), PackageAccess::Modify);
  auto buffer = Package::openBuffer(opcvk_test::fileBytes(dir_ / "p.zip"), PackageAccess::Modify);
  addPart(*buffer, u"/b.txt", "b");
  EXPECT_NO_THROW(buffer->save());
}

}  // namespace
}  // namespace model
}  // namespace opc
