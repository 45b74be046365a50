#include "entry_walk.h"

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/perms.h>
#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/expect_exception.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::FileSystemManager;
using opcvk::WalkedEntry;
using opcvk::WalkOrder;
using Paths = std::vector<std::u16string>;

boost::posix_time::ptime const kNoTime(boost::posix_time::not_a_date_time);

struct Files {
  Files()
      : package(Package::openBuffer({}, PackageAccess::Create)),
        manager(std::make_unique<FileSystemManager>(*package, opc::FileSystemOpsSelector())) {}

  void file(std::u16string const& path) {
    manager->createFile(path, opc::model::ContentType(u"text/plain"), opc::Perms::unknown, kNoTime);
  }
  void folder(std::u16string const& path) { manager->createFolder(path); }

  // Path and depth of every entry the walk gives, in its order.
  std::vector<std::pair<std::u16string, int>> walk(std::u16string const& path, WalkOrder order) {
    std::vector<std::pair<std::u16string, int>> seen;
    opcvk::walkEntries(*manager, path, order, [&](WalkedEntry const& walked) {
      EXPECT_EQ(walked.path, walked.entry.getPathName());
      EXPECT_EQ(walked.name, walked.entry.getBaseName());
      seen.emplace_back(walked.path, walked.depth);
    });
    return seen;
  }

  Paths paths(std::u16string const& path, WalkOrder order) {
    Paths result;
    for (auto const& seen : walk(path, order)) result.push_back(seen.first);
    return result;
  }

  std::unique_ptr<Package> package;
  std::unique_ptr<FileSystemManager> manager;
};

TEST(EntryWalkTest, ByPathPutsSiblingsWithLowCharactersBetweenAFolderAndItsContent) {
  Files files;
  for (char16_t const* path : {u"/a/x", u"/a.txt", u"/a-b/c", u"/a0", u"/a/y/z", u"/a!", u"/B"}) {
    files.file(path);
  }
  files.folder(u"/a/empty");
  EXPECT_EQ(files.paths(u"/", WalkOrder::kByPath),
            (Paths{u"/B", u"/a", u"/a!", u"/a-b", u"/a-b/c", u"/a.txt", u"/a/empty", u"/a/x",
                   u"/a/y", u"/a/y/z", u"/a0"}));
}

TEST(EntryWalkTest, AsTreeGoesDepthFirstByName) {
  Files files;
  for (char16_t const* path : {u"/a/x", u"/a.txt", u"/a-b/c", u"/a0", u"/a/y/z"}) files.file(path);
  EXPECT_EQ(files.walk(u"/", WalkOrder::kAsTree),
            (std::vector<std::pair<std::u16string, int>>{{u"/a", 0},
                                                         {u"/a/x", 1},
                                                         {u"/a/y", 1},
                                                         {u"/a/y/z", 2},
                                                         {u"/a-b", 0},
                                                         {u"/a-b/c", 1},
                                                         {u"/a.txt", 0},
                                                         {u"/a0", 0}}));
}

TEST(EntryWalkTest, StartsBelowAFolderAndGivesAFileAlone) {
  Files files;
  files.file(u"/d/e/f");
  files.file(u"/d/g");
  EXPECT_EQ(
      files.walk(u"/d", WalkOrder::kByPath),
      (std::vector<std::pair<std::u16string, int>>{{u"/d/e", 0}, {u"/d/e/f", 1}, {u"/d/g", 0}}));
  EXPECT_EQ(files.walk(u"/d/g", WalkOrder::kByPath),
            (std::vector<std::pair<std::u16string, int>>{{u"/d/g", 0}}));
  files.folder(u"/empty");
  EXPECT_TRUE(files.walk(u"/empty", WalkOrder::kByPath).empty());
}

TEST(EntryWalkTest, AnAbsentPathRaisesBeforeAnythingIsVisited) {
  Files files;
  files.file(u"/a");
  int visits = 0;
  EXPECT_THROW_MESSAGE(opcvk::walkEntries(*files.manager, u"/nope", WalkOrder::kByPath,
                                          [&](WalkedEntry const&) { ++visits; }),
                       opc::vkservices::FileSystemEntryNotFound,
                       "File system entry does not exist: /nope");
  EXPECT_EQ(visits, 0);
}

// Whatever the names, the path order is that of one sort of every path.
TEST(EntryWalkTest, ByPathEqualsASortOfAllPaths) {
  std::mt19937 random(7);
  std::u16string const alphabet = u"ab.-_ !0/~\u00E9\uFFFD";
  Files files;
  Paths all;
  for (int i = 0; i < 400; ++i) {
    std::u16string path;
    int const depth = 1 + static_cast<int>(random() % 4);
    for (int d = 0; d < depth; ++d) {
      path += u'/';
      int const length = 1 + static_cast<int>(random() % 3);
      for (int c = 0; c < length; ++c) {
        char16_t const unit = alphabet[random() % alphabet.size()];
        path += unit == u'/' ? u'x' : unit;
      }
    }
    if (files.manager->hasEntry(path)) continue;
    try {
      files.file(path);
    } catch (opc::Exception const&) {
      continue;  // below an existing file, or a name no part can take
    }
  }
  std::vector<std::u16string> pending{u"/"};
  while (!pending.empty()) {
    std::u16string const folder = pending.back();
    pending.pop_back();
    for (auto const& child : files.manager->getChildren(folder)) {
      all.push_back(child.getPathName());
      pending.push_back(child.getPathName());
    }
  }
  std::sort(all.begin(), all.end());
  ASSERT_GT(all.size(), 100u);
  EXPECT_EQ(files.paths(u"/", WalkOrder::kByPath), all);
}

}  // namespace
