// Deflated items are inflated whole when both their sizes are small enough and streamed when
// not: both roads give the same bytes for every way of reading, check size and CRC-32, and
// fail on bad data with the same exception and message.
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"
#include "zip/zip_entry_stream.h"

namespace {

using opc::model::InvalidPartContent;
using opc::model::PackageLimits;
using opc::model::detail::kWholeItemLimit;
using opc::model::detail::ZipArchive;
using opcvk_test::ZipBuilder;
using opcvk_test::ZipBuilderItem;

std::string text(std::size_t size) {
  return opcvk_test::numberedLines(size, "line ", 1013, " of an item; ");
}

std::string hex32(std::uint32_t value) {
  char buffer[11];
  std::snprintf(buffer, sizeof buffer, "0x%08X", static_cast<unsigned>(value));
  return buffer;
}

std::unique_ptr<ZipArchive> openBuilt(ZipBuilder const& builder) {
  std::string const bytes = builder.buildString();
  auto buffer = std::make_shared<std::vector<unsigned char> const>(bytes.begin(), bytes.end());
  return ZipArchive::open(opc::model::detail::openBufferSource(buffer), PackageLimits());
}

// Reads the only item of the archive in reads of `chunk` bytes.
std::string readItem(ZipArchive const& archive, std::size_t chunk) {
  auto stream = archive.openEntry(archive.entries()[0]);
  std::string result;
  std::vector<unsigned char> buffer(chunk);
  while (!stream->isDone()) {
    std::size_t const n = stream->read(buffer.data(), buffer.size());
    if (n == 0) break;
    result.append(reinterpret_cast<char const*>(buffer.data()), n);
  }
  EXPECT_TRUE(stream->isDone());
  EXPECT_EQ(stream->read(buffer.data(), buffer.size()), 0u);
  stream->close();
  return result;
}

// The sizes of the two roads: an item inflated whole and one streamed.
class ZipEntryInflateTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(ZipEntryInflateTest, GivesTheContentWhateverTheSizeOfTheReads) {
  std::string const content = text(GetParam());
  for (std::uint16_t method : {0, 8}) {
    ZipBuilder builder;
    builder.add("item.txt", content, method);
    auto archive = openBuilt(builder);
    for (std::size_t chunk :
         {content.size() + 10, content.size(), std::size_t{65536}, std::size_t{1000}}) {
      EXPECT_EQ(readItem(*archive, chunk), content) << "method " << method << " chunk " << chunk;
    }
  }
}

TEST_P(ZipEntryInflateTest, RefusesBadDataInTheWordsOfEveryRoad) {
  std::string const content = text(GetParam());
  std::string const name = "Invalid ZIP item \"item.txt\": ";
  std::string const size = std::to_string(content.size());
  struct Case {
    std::function<void(ZipBuilderItem&)> change;
    std::string message;
  };
  std::vector<Case> const cases = {
      {[](ZipBuilderItem& i) { i.crc = 0xDEADBEEF; },
       name + "CRC-32 mismatch (the directory gives 0xDEADBEEF, the data " +
           hex32(opcvk_test::crc32Of(content)) + ")"},
      {[&](ZipBuilderItem& i) { i.uncompressedSize = content.size() - 1; },
       name + "its data gives more than the " + std::to_string(content.size() - 1) +
           " bytes declared"},
      {[&](ZipBuilderItem& i) { i.uncompressedSize = content.size() + 1; },
       name + "its data gives " + size + " bytes, fewer than the " +
           std::to_string(content.size() + 1) + " declared"},
      {[](ZipBuilderItem& i) {
         std::string data = opcvk_test::deflateRaw(i.content);
         data[0] = '\xFF';
         i.data = data;
       },
       name + "its compressed data is corrupt (invalid block type)"},
      {[](ZipBuilderItem& i) {
         std::string const data = opcvk_test::deflateRaw(i.content);
         i.data = data.substr(0, data.size() - 3);
       },
       name + "its compressed data ends before the deflate stream does"},
  };
  for (Case const& c : cases) {
    ZipBuilder builder;
    c.change(builder.add("item.txt", content, 8));
    auto archive = openBuilt(builder);
    for (std::size_t chunk : {content.size() + 10, std::size_t{4096}}) {
      EXPECT_THROW_MESSAGE(readItem(*archive, chunk), InvalidPartContent, c.message);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Roads, ZipEntryInflateTest,
                         ::testing::Values(std::size_t{70000},
                                           static_cast<std::size_t>(kWholeItemLimit) + 1),
                         [](::testing::TestParamInfo<std::size_t> const& p) {
                           return p.param <= kWholeItemLimit ? "Whole" : "Streamed";
                         });

TEST(ZipEntryInflateTest, AnEmptyDeflatedItemIsDoneAtOnce) {
  ZipBuilder builder;
  builder.add("empty.txt", "", 8);
  auto archive = openBuilt(builder);
  EXPECT_EQ(readItem(*archive, 1), "");
  EXPECT_EQ(readItem(*archive, 100), "");
}

TEST(ZipEntryInflateTest, ABombIsStoppedAtTheDeclaredSizeOnTheWholeRoad) {
  // A megabyte of zeros declared as ten bytes: no byte beyond the ten comes out.
  ZipBuilder builder;
  builder.add("bomb.txt", std::string(1 << 20, '\0'), 8).uncompressedSize = 10;
  auto archive = openBuilt(builder);
  auto stream = archive->openEntry(archive->entries()[0]);
  std::vector<unsigned char> buffer(1 << 20, 'x');
  EXPECT_THROW_MESSAGE(stream->read(buffer.data(), buffer.size()), InvalidPartContent,
                       "Invalid ZIP item \"bomb.txt\": its data gives more than the 10 bytes "
                       "declared");
  EXPECT_EQ(buffer[10], 'x');
}

}  // namespace
