// The items of an opened archive as the package layer sees them: names held once by the
// archive and handed out as independent values, looked up by exact name from any thread.
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>

#include "support/expect_exception.h"
#include "support/zip_builder.h"
#include "zip/zip_archive.h"

namespace {

using opc::model::PackageLimits;
using opc::model::detail::ZipArchive;
using opc::model::detail::ZipEntry;
using opcvk_test::ZipBuilder;

std::unique_ptr<ZipArchive> openBuilt(ZipBuilder const& builder) {
  std::string const bytes = builder.buildString();
  auto buffer = std::make_shared<std::vector<unsigned char> const>(bytes.begin(), bytes.end());
  return ZipArchive::open(opc::model::detail::openBufferSource(buffer), PackageLimits());
}

TEST(ZipArchiveEntriesTest, EntriesAreValuesThatOutliveTheirArchive) {
  ZipBuilder builder;
  builder.add("first.xml", "one", 0);
  builder.add("a/much/longer/name/than/a/short/string/holds.bin", "two two", 8);
  builder.add("caf\x82.txt", "three", 0);  // CP437: e acute
  auto archive = openBuilt(builder);
  ASSERT_EQ(archive->size(), 3u);
  ASSERT_EQ(archive->entries().size(), 3u);
  EXPECT_FALSE(archive->entries().empty());
  std::vector<ZipEntry> copies;
  for (ZipEntry const& entry : archive->entries()) copies.push_back(entry);
  ASSERT_EQ(copies.size(), 3u);
  for (std::size_t i = 0; i < copies.size(); ++i) {
    EXPECT_EQ(copies[i].name, archive->name(i));
    EXPECT_EQ(copies[i].name, archive->entries()[i].name);
    EXPECT_EQ(copies[i].localHeaderOffset, archive->entry(i).localHeaderOffset);
    EXPECT_EQ(copies[i].uncompressedSize, archive->uncompressedSize(i));
  }
  EXPECT_EQ(copies[0].method, 0);
  EXPECT_EQ(copies[1].method, 8);
  EXPECT_EQ(copies[1].uncompressedSize, 7u);
  EXPECT_EQ(copies[2].name, "caf\xC3\xA9.txt");
  // Each item knows the item whose bytes follow its own.
  EXPECT_EQ(copies[0].following, 1u);
  EXPECT_EQ(copies[1].following, 2u);
  EXPECT_EQ(copies[2].following, ZipEntry::kNone);
  EXPECT_EQ(archive->entries().front().name, "first.xml");
  EXPECT_THROW(archive->entries().at(3), std::out_of_range);
  archive.reset();
  EXPECT_EQ(copies[1].name, "a/much/longer/name/than/a/short/string/holds.bin");
}

TEST(ZipArchiveEntriesTest, FindsEveryItemByExactNameWhateverTheDirectoryOrder) {
  ZipBuilder builder;
  std::vector<std::string> names;
  for (int i = 0; i < 300; ++i) {
    // Out of name order, so that the index is sorted at the first look-up.
    names.push_back("dir" + std::to_string((i * 37) % 300) + "/item.xml");
    builder.add(names.back(), std::to_string(i), 0);
  }
  auto archive = openBuilt(builder);
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(archive->find(names[i]), static_cast<std::int64_t>(i));
  }
  EXPECT_EQ(archive->find("dir1/ITEM.xml"), -1);
  EXPECT_EQ(archive->find("dir1/item.xm"), -1);
  EXPECT_EQ(archive->find("dir1/item.xml/"), -1);
  EXPECT_EQ(archive->find("zzz"), -1);
}

TEST(ZipArchiveEntriesTest, TheFirstLookUpsFromSeveralThreadsAtOnceAgree) {
  ZipBuilder builder;
  std::vector<std::string> names;
  for (int i = 0; i < 2000; ++i) {
    names.push_back("n" + std::to_string((i * 7919) % 2000));
    builder.add(names.back(), "", 0);
  }
  for (int round = 0; round < 5; ++round) {
    auto archive = openBuilt(builder);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        for (std::size_t i = static_cast<std::size_t>(t); i < names.size(); i += 4) {
          if (archive->find(names[i]) != static_cast<std::int64_t>(i)) ++wrong;
        }
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
  }
}

TEST(ZipArchiveEntriesTest, RefusesNamesEqualButForCaseAmongManyItems) {
  ZipBuilder builder;
  for (int i = 0; i < 1000; ++i) builder.add("Folder/File" + std::to_string(i) + ".txt", "", 0);
  builder.add("folder/file517.TXT", "", 0);
  EXPECT_THROW_MESSAGE(openBuilt(builder), opc::model::InvalidPackage,
                       "Invalid ZIP item \"folder/file517.TXT\": its name equals that of item "
                       "\"Folder/File517.txt\" without regard to case");
}

}  // namespace
