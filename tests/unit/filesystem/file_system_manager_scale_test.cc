#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/stream_helper.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/file_system_entry_access.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;
using opc::vkservices::detail::FileSystemEntryAccess;
using opcvk_test::ManagedPackage;

std::u16string number(int value) {
  std::string const digits = std::to_string(value);
  return std::u16string(digits.begin(), digits.end());
}

// 10,000 entries: 100 folders, each with 80 files, 19 links and an empty folder.  Saved,
// opened for Read, and every entry compared, with every file's bytes and every link's target.
TEST(FileSystemManagerScaleTest, TenThousandEntriesSurviveSaveAndRead) {
  auto const start = std::chrono::steady_clock::now();
  ManagedPackage p;
  std::vector<std::pair<std::u16string, std::string>> files;
  for (int folder = 0; folder < 100; ++folder) {
    std::u16string const dir = u"/folder " + number(folder);
    for (int file = 0; file < 80; ++file) {
      std::u16string const path = dir + u"/file" + number(file) + u".txt";
      std::string const content = "content of " + std::to_string(folder * 100 + file);
      FileSystemEntry const entry = p.manager->createFile(
          path, opcvk_test::textType(), opcvk_test::perms(0600 + file % 8), opcvk_test::noTime());
      opc::OutputStream& output = p.manager->getFileOutputStream(entry);
      output.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
      output.close();
      files.emplace_back(path, content);
    }
    for (int link = 0; link < 19; ++link) {
      p.manager->createLink(dir + u"/link" + number(link), u"file" + number(link) + u".txt");
    }
    p.manager->createFolder(dir + u"/empty");
  }
  auto const before = p.manager->getAllLeafs();
  ASSERT_EQ(before.size(), 100u * 100u);
  auto const bytes = p.save();

  ManagedPackage read(bytes, opc::model::PackageAccess::Read);
  auto const after = read.manager->getAllLeafs();
  ASSERT_EQ(after.size(), before.size());
  auto b = before.begin();
  for (auto const& entry : after) {
    ASSERT_EQ(entry, *b);
    if (entry.isLink()) {
      EXPECT_EQ(read.manager->getLinkTarget(entry), p.manager->getLinkTarget(*b));
    } else {
      EXPECT_EQ(FileSystemEntryAccess::contentName(entry), FileSystemEntryAccess::contentName(*b));
    }
    ++b;
  }
  for (auto const& f : files) {
    auto source = read.manager->getFileContentSource(read.manager->getEntry(f.first),
                                                     TransformMode::ApplyTransforms);
    std::ostringstream out;
    opc::StreamHelper::copyStreamToStream(source->getInputStream(), out);
    ASSERT_EQ(out.str(), f.second);
  }
  auto const seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  RecordProperty("seconds", std::to_string(seconds));
}

}  // namespace
