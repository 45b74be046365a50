// A manifest of 100,000 entries goes through a write and a read whole and in reasonable time.
// bench/file_system_manifest_bench.cc measures the same work precisely.
#include <chrono>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_io.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/optional/optional_io.hpp>
#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "support/byte_streams.h"

namespace {

using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;
using opc::vkservices::FileSystemTree;

constexpr std::size_t kEntries = 100000;

#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
// Sanitizers and unoptimised builds are many times slower; the bound only catches hangs.
constexpr auto kLimit = std::chrono::seconds(300);
#else
constexpr auto kLimit = std::chrono::seconds(30);
#endif

std::u16string number(std::size_t value) { return opc::toString(std::to_string(value)); }

// Files under 100 folders of 10 subfolders each, with a link every 10th entry and an empty
// folder every 50th; permissions and times vary, some are unknown.
void fill(FileSystemTree& tree) {
  boost::posix_time::ptime const base(boost::gregorian::date(2023, 1, 1));
  for (std::size_t i = 0; i < kEntries; ++i) {
    std::u16string const folder = u"/dir" + number(i / 1000) + u"/sub" + number(i / 100 % 10);
    auto const permissions = static_cast<opc::Perms::Perms_tag>(i % 7 == 0 ? 0xFFFF : i % 0777);
    boost::posix_time::ptime const time =
        i % 11 == 0 ? boost::posix_time::ptime(boost::posix_time::not_a_date_time)
                    : base + boost::posix_time::microseconds(static_cast<long>(i) * 1000003);
    if (i % 50 == 0) {
      tree.addNode(
          FileSystemNode::makeFolderNode(folder + u"/empty" + number(i), permissions, time));
    } else if (i % 10 == 0) {
      tree.addNode(FileSystemNode::makeLinkNode(folder + u"/link" + number(i),
                                                u"../file" + number(i - 1), permissions, time));
    } else {
      tree.addNode(FileSystemNode::makeFileNode(folder + u"/file \u00FC" + number(i) + u".txt",
                                                u"/fsroot/" + number(i), permissions, time));
    }
  }
}

TEST(FileSystemManifestXmlScaleTest, AHundredThousandEntriesComeBackWhole) {
  FileSystemTree tree;
  fill(tree);
  std::vector<FileSystemNode> const leaves = tree.leafNodes();
  ASSERT_EQ(leaves.size(), kEntries);

  FileSystemManifestXml manifest;
  auto const start = std::chrono::steady_clock::now();
  opcvk_test::MemoryOutputStream target;
  manifest.write(tree, target);
  FileSystemTree back;
  opcvk_test::MemoryInputStream source(target.bytes, 64 * 1024);
  manifest.read(source, back);
  auto const elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_LT(elapsed, kLimit);

  std::vector<FileSystemNode> const read = back.leafNodes();
  ASSERT_EQ(read.size(), leaves.size());
  for (std::size_t i = 0; i < leaves.size(); ++i) {
    ASSERT_EQ(read[i].getPathName(), leaves[i].getPathName());
    ASSERT_EQ(read[i].getType(), leaves[i].getType());
    ASSERT_EQ(read[i].getContentName(), leaves[i].getContentName());
    ASSERT_EQ(read[i].getPermissions(), leaves[i].getPermissions());
    ASSERT_EQ(read[i].getLastModifiedTime(), leaves[i].getLastModifiedTime());
  }
  EXPECT_EQ(back.childNodes(u"/").size(), 100u);
  EXPECT_EQ(back.childNodes(u"/dir7/sub3").size(), 100u);
}

}  // namespace
