// The walk of the folder that pack reads: what comes out, in which order, with which facts,
// and how a folder that cannot be read is told.
#include "source_tree.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/expect_exception.h"
#include "support/run_unprivileged.h"
#include "support/scoped_thread_locale.h"
#include "support/temp_dir.h"
#include "tool_error.h"

namespace {

using opcvk::SourceItem;
using opcvk::SourceTree;
using opcvk::ToolError;
using opcvk_test::TempDir;

void write(std::string const& path, std::string const& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// "F path", "L path" or "D path" for each item, in the order of the walk.
std::vector<std::string> itemsOf(SourceTree const& tree) {
  std::vector<std::string> items;
  for (SourceItem const& item : tree.items) {
    char const kind = item.kind == SourceItem::Kind::File   ? 'F'
                      : item.kind == SourceItem::Kind::Link ? 'L'
                                                            : 'D';
    items.push_back(std::string(1, kind) + " " + tree.native(item));
  }
  return items;
}

// A folder of files, links and folders; b.txt has mode 0640.
void makeMixedFolder(TempDir const& dir) {
  ASSERT_EQ(::mkdir((dir / "a").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "a/y").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "c").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "c/d").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "e").c_str(), 0755), 0);
  write(dir / "b.txt", "bee");
  write(dir / "B.txt", "Bee!");
  write(dir / "a/x", "");
  write(dir / "a-b", "dash");
  ASSERT_EQ(::symlink("../b.txt", (dir / "a/z").c_str()), 0);
  // A link to a folder is a link: what lies behind it is not walked.
  ASSERT_EQ(::symlink("a", (dir / "f").c_str()), 0);
  ASSERT_EQ(::chmod((dir / "b.txt").c_str(), 0640), 0);
}

std::vector<std::string> const kMixedItems{"F B.txt", "F a/x", "D a/y", "L a/z", "F a-b",
                                           "F b.txt", "D c/d", "D e",   "L f"};

// The package path of an item is "/" and its path converted as the library converts real
// paths, whatever the encoding of names and whatever the item before it left in the buffer.
TEST(SourceTreeTest, GivesThePackagePathOfEachItemInTheNamesEncoding) {
  SourceTree tree;
  tree.add(SourceItem(), "deeper/folder/with-a-long-name.txt");
  tree.add(SourceItem(), "caf\xc3\xa9/x");
  tree.add(SourceItem(), "\xe9t\xe9");  // not UTF-8
  tree.add(SourceItem(), "a");
  struct Case {
    char const* locale;
    std::vector<std::u16string> paths;
  };
  for (Case const& test :
       {Case{"C.UTF-8",
             {u"/deeper/folder/with-a-long-name.txt", u"/caf\u00e9/x", u"/\u00e9t\u00e9", u"/a"}},
        Case{"C",
             {u"/deeper/folder/with-a-long-name.txt", u"/caf\u00c3\u00a9/x", u"/\u00e9t\u00e9",
              u"/a"}}}) {
    opcvk_test::ScopedThreadLocale const locale(test.locale);
    ASSERT_TRUE(locale.installed()) << test.locale;
    SCOPED_TRACE(test.locale);
    std::string scratch;
    for (std::size_t i = 0; i < tree.items.size(); ++i) {
      std::u16string const path = tree.packagePath(tree.items[i], scratch);
      EXPECT_EQ(path, test.paths[i]);
      EXPECT_EQ(path, u"/" + tree.relative(tree.items[i]));
    }
  }
}

// The walk that tells kinds by the listing (the file systems of the tests list them) leaves
// the files' status to their reader: no system call per file.
TEST(SourceTreeTest, GivesFilesLinksAndEmptyFoldersInTheOrderOfTheirNamesBytes) {
  TempDir dir;
  makeMixedFolder(dir);
  SourceTree const tree = opcvk::walkSourceFolder(dir.path());
  EXPECT_EQ(itemsOf(tree), kMixedItems);
  EXPECT_EQ(tree.fileCount, 9u);
  for (SourceItem const& item : tree.items) {
    SCOPED_TRACE(tree.native(item));
    EXPECT_EQ(item.statusKnown, item.kind != SourceItem::Kind::File);
    EXPECT_EQ(item.size, 0u);
  }
  EXPECT_EQ(tree.byteCount, 0u);
}

// Where the listing does not tell an entry's kind, the walk asks the entry: the same items in
// the same order, each file with its size, mode and time.
TEST(SourceTreeTest, AWalkThatAsksEveryEntryGivesTheSameItemsWithTheFilesStatus) {
  TempDir dir;
  makeMixedFolder(dir);
  SourceTree const tree =
      opcvk::walkSourceFolder(dir.path(), std::filesystem::path(), opcvk::KindsBy::Status);
  EXPECT_EQ(itemsOf(tree), kMixedItems);
  EXPECT_EQ(tree.fileCount, 9u);
  EXPECT_EQ(tree.byteCount, 4u + 0u + 4u + 3u);
  for (SourceItem const& item : tree.items) EXPECT_TRUE(item.statusKnown);
  SourceItem const& bee = tree.items[5];
  EXPECT_EQ(bee.size, 3u);
  EXPECT_EQ(bee.mode, 0640u);
  struct stat status;
  ASSERT_EQ(::lstat((dir / "b.txt").c_str(), &status), 0);
  EXPECT_EQ(bee.mtimeSeconds, status.st_mtim.tv_sec);
  EXPECT_EQ(bee.mtimeNanoseconds, static_cast<std::uint32_t>(status.st_mtim.tv_nsec));
  EXPECT_EQ(tree.items[3].size, 0u);  // a link counts no bytes
}

// A deep tree costs its names, not its paths: each folder's name is kept once, however many
// items lie below it, and a folder that gave no item leaves nothing behind.
TEST(SourceTreeTest, KeepsTheNameOfEachFolderOnceHoweverManyItemsLieBelowIt) {
  TempDir dir;
  std::string const deep = "first-folder/second-folder/third-folder";
  ASSERT_EQ(::mkdir((dir / "first-folder").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "first-folder/second-folder").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / deep).c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "first-folder/empty").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "first-folder/empty/emptier").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "nothing").c_str(), 0755), 0);
  for (char const* name : {"a", "b", "c", "d"}) write(dir / (deep + "/" + name), name);
  SourceTree const tree = opcvk::walkSourceFolder(dir.path());
  EXPECT_EQ(itemsOf(tree),
            (std::vector<std::string>{"D first-folder/empty/emptier", "F " + deep + "/a",
                                      "F " + deep + "/b", "F " + deep + "/c", "F " + deep + "/d",
                                      "D nothing"}));
  // The root, first-folder, empty, second-folder and third-folder; not emptier nor nothing,
  // which are items of their own.
  EXPECT_EQ(tree.folders.size(), 5u);
  EXPECT_EQ(tree.names, "first-folderemptyemptiersecond-folderthird-folderabcdnothing");
  EXPECT_EQ(tree.nameOf(tree.items[1]), "a");
  std::string scratch;
  EXPECT_EQ(tree.packagePath(tree.items[4], scratch),
            u"/first-folder/second-folder/third-folder/d");
}

// A tree made item by item finds the folders it already has: the same paths come back.
TEST(SourceTreeTest, AddsItemsByTheirPathsThroughTheFoldersItHas) {
  SourceTree tree;
  for (char const* path : {"x", "a/b/c", "a/b/d", "a/e", "f/b/g", "a/b/h"}) {
    tree.add(SourceItem(), path);
  }
  std::vector<std::string> paths;
  for (SourceItem const& item : tree.items) paths.push_back(tree.native(item));
  EXPECT_EQ(paths, (std::vector<std::string>{"x", "a/b/c", "a/b/d", "a/e", "f/b/g", "a/b/h"}));
  // The root, a, a/b, f and f/b.
  EXPECT_EQ(tree.folders.size(), 5u);
  EXPECT_EQ(tree.relative(tree.items[4]), u"f/b/g");
}

// Devices, sockets and pipes are passed over by both walks.
TEST(SourceTreeTest, PassesOverAPipeWhicheverWayKindsAreTold) {
  TempDir dir;
  write(dir / "a.txt", "a");
  ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0644), 0);
  write(dir / "z.txt", "z");
  for (opcvk::KindsBy kinds : {opcvk::KindsBy::Listing, opcvk::KindsBy::Status}) {
    SourceTree const tree = opcvk::walkSourceFolder(dir.path(), std::filesystem::path(), kinds);
    EXPECT_EQ(itemsOf(tree), (std::vector<std::string>{"F a.txt", "F z.txt"}));
  }
}

TEST(SourceTreeTest, PassesOverThePackageBeingWrittenAndWalksARootReachedThroughALink) {
  TempDir dir;
  ASSERT_EQ(::mkdir((dir / "src").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "src/sub").c_str(), 0755), 0);
  write(dir / "src/sub/out.opc", "package");
  write(dir / "src/keep.txt", "keep");
  ASSERT_EQ(::symlink("src", (dir / "link").c_str()), 0);
  SourceTree const tree =
      opcvk::walkSourceFolder(dir / "link", opcvk::absolutePath(dir / "link/sub/out.opc"));
  // A folder that holds nothing but the package is an empty folder.
  EXPECT_EQ(itemsOf(tree), (std::vector<std::string>{"F keep.txt", "D sub"}));
  SourceTree const all = opcvk::walkSourceFolder(dir / "link");
  EXPECT_EQ(itemsOf(all), (std::vector<std::string>{"F keep.txt", "F sub/out.opc"}));
}

// A path whose bytes the encoding of names does not give back is refused before anything
// is read, whether its other names are ASCII or not; ASCII paths pass.
TEST(SourceTreeTest, RefusesAPathThatTheEncodingOfNamesDoesNotGiveBack) {
  TempDir dir;
  ASSERT_EQ(::mkdir((dir / "sub").c_str(), 0755), 0);
  write(dir / "sub/plain.txt", "a");
  write(dir / "sub/caf\xc3\xa9.txt", "b");
  write(dir / "sub/not-utf8-\xe9.txt", "c");
  opcvk_test::ScopedThreadLocale const locale("C.UTF-8");
  ASSERT_TRUE(locale.installed());
  EXPECT_THROW_MESSAGE(opcvk::walkSourceFolder(dir.path()), ToolError,
                       "Cannot read file name in the current encoding: sub/not-utf8-\xe9.txt");
  ASSERT_EQ(::unlink((dir / "sub/not-utf8-\xe9.txt").c_str()), 0);
  EXPECT_EQ(itemsOf(opcvk::walkSourceFolder(dir.path())),
            (std::vector<std::string>{"F sub/caf\xc3\xa9.txt", "F sub/plain.txt"}));
}

TEST(SourceTreeTest, TellsAFolderThatCannotBeReadOrAFolderThatIsNone) {
  TempDir dir;
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "open").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "shut").c_str(), 0), 0);
  write(dir / "open/a.txt", "a");
  int const result = opcvk_test::runUnprivileged([&] {
    try {
      opcvk::walkSourceFolder(dir.path());
    } catch (ToolError const& error) {
      return std::string(error.what()) ==
                     "Could not read folder: " + (dir / "shut") + ": Permission denied"
                 ? 0
                 : 2;
    }
    return 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_THROW_MESSAGE(
      opcvk::walkSourceFolder(dir / "missing"), ToolError,
      "Could not read folder: " + (dir / "missing") + ": No such file or directory");
}

}  // namespace
