#include <memory>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/core/local_file_system_ops.h>

#include "support/expect_exception.h"

namespace {

// Distinct objects to map; LocalFileSystemOps will do, each instance being its own.
std::shared_ptr<opc::FileSystemOps> makeOps() {
  return std::make_shared<opc::LocalFileSystemOps>();
}

TEST(FileSystemOpsSelectorTest, DefaultGivesTheSharedLocalFileSystemForEveryPath) {
  opc::FileSystemOpsSelector selector;
  opc::FileSystemOps* shared = opc::LocalFileSystemOps::getShared().get();
  for (char16_t const* path : {u"/", u"/tmp/x", u"relative", u"", u"C:\\data"}) {
    EXPECT_EQ(&selector.getForPath(path), shared);
  }
  opc::FileSystemOpsSelector other;
  EXPECT_EQ(&other.getForPath(u"/a"), &selector.getForPath(u"/b"));
}

TEST(FileSystemOpsSelectorTest, PrefixesMatchWholeComponents) {
  auto mounted = makeOps();
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"/mnt/x", mounted);
  opc::FileSystemOps* local = opc::LocalFileSystemOps::getShared().get();
  EXPECT_EQ(&selector.getForPath(u"/mnt/x"), mounted.get());
  EXPECT_EQ(&selector.getForPath(u"/mnt/x/"), mounted.get());
  EXPECT_EQ(&selector.getForPath(u"/mnt/x/y/z"), mounted.get());
  EXPECT_EQ(&selector.getForPath(u"/mnt//x/./y"), mounted.get());
  EXPECT_EQ(&selector.getForPath(u"/mnt/xy"), local);
  EXPECT_EQ(&selector.getForPath(u"/mnt"), local);
  EXPECT_EQ(&selector.getForPath(u"/mnt/x/../y"), local);
  EXPECT_EQ(&selector.getForPath(u"mnt/x"), local);
}

TEST(FileSystemOpsSelectorTest, LongestPrefixWins) {
  auto outer = makeOps();
  auto inner = makeOps();
  auto everything = makeOps();
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"/a/b/c", inner);
  selector.setForPrefix(u"/a/", outer);
  selector.setForPrefix(u"/", everything);
  EXPECT_EQ(&selector.getForPath(u"/a/b/c/d"), inner.get());
  EXPECT_EQ(&selector.getForPath(u"/a/b/cd"), outer.get());
  EXPECT_EQ(&selector.getForPath(u"/a"), outer.get());
  EXPECT_EQ(&selector.getForPath(u"/z"), everything.get());
  EXPECT_EQ(&selector.getForPath(u"relative"), opc::LocalFileSystemOps::getShared().get());
  auto all = makeOps();
  selector.setForPrefix(u"", all);
  EXPECT_EQ(&selector.getForPath(u"relative"), all.get());
  EXPECT_EQ(&selector.getForPath(u"/z"), everything.get());
}

TEST(FileSystemOpsSelectorTest, SettingAPrefixAgainReplacesIt) {
  auto first = makeOps();
  auto second = makeOps();
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"/data", first);
  selector.setForPrefix(u"/data//", second);
  EXPECT_EQ(&selector.getForPath(u"/data/x"), second.get());
}

TEST(FileSystemOpsSelectorTest, CopiesShareTheMappedObjects) {
  std::weak_ptr<opc::FileSystemOps> watch;
  opc::FileSystemOps* fromCopy = nullptr;
  std::unique_ptr<opc::FileSystemOpsSelector> copy;
  {
    auto mounted = makeOps();
    watch = mounted;
    opc::FileSystemOpsSelector original;
    original.setForPrefix(u"/m", mounted);
    copy = std::make_unique<opc::FileSystemOpsSelector>(original);
    fromCopy = &original.getForPath(u"/m/x");
    opc::FileSystemOpsSelector assigned;
    assigned = original;
    EXPECT_EQ(&assigned.getForPath(u"/m/x"), mounted.get());
  }
  // The original and the caller's pointer are gone; the copy keeps the object alive.
  ASSERT_FALSE(watch.expired());
  EXPECT_EQ(&copy->getForPath(u"/m/y"), fromCopy);
  copy.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(FileSystemOpsSelectorTest, CopyIsIndependentForLaterMappings) {
  opc::FileSystemOpsSelector original;
  opc::FileSystemOpsSelector copy(original);
  auto mounted = makeOps();
  copy.setForPrefix(u"/m", mounted);
  EXPECT_EQ(&copy.getForPath(u"/m"), mounted.get());
  EXPECT_EQ(&original.getForPath(u"/m"), opc::LocalFileSystemOps::getShared().get());
}

TEST(FileSystemOpsSelectorTest, NullFileSystemIsRefused) {
  opc::FileSystemOpsSelector selector;
  EXPECT_THROW_MESSAGE(selector.setForPrefix(u"/m", nullptr), opc::Exception,
                       "Could not map a path prefix: the file system is null");
}

}  // namespace
