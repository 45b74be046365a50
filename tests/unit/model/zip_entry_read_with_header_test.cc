// A small item's data comes in the same read as its local header: one read of the archive per
// item, the same bytes and the same failures as when header and data are read apart, and a
// long extra field or a larger item still read on their own.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"
#include "zip/zip_entry_stream.h"

namespace {

using opc::model::InvalidPackage;
using opc::model::InvalidPartContent;
using opc::model::PackageLimits;
using opc::model::detail::kDataReadWithHeader;
using opc::model::detail::kExtraReadWithHeader;
using opc::model::detail::ZipArchive;
using opc::model::detail::ZipByteSource;
using opcvk_test::ZipBuilder;

// Archive bytes in memory that count the reads made of them.
class CountingSource : public ZipByteSource {
 public:
  explicit CountingSource(std::string const& bytes) : bytes_(bytes.begin(), bytes.end()) {}
  std::uint64_t size() const override { return bytes_.size(); }
  void readAt(std::uint64_t offset, unsigned char* buffer, std::size_t count) const override {
    ++reads;
    ASSERT_LE(offset + count, bytes_.size()) << "a read past the end of the archive";
    std::copy_n(bytes_.data() + offset, count, buffer);
  }
  mutable std::atomic<int> reads{0};

 private:
  std::vector<unsigned char> bytes_;
};

struct Opened {
  std::shared_ptr<CountingSource> source;
  std::unique_ptr<ZipArchive> archive;
};

Opened openCounted(ZipBuilder const& builder) {
  Opened opened;
  opened.source = std::make_shared<CountingSource>(builder.buildString());
  opened.archive = ZipArchive::open(opened.source, PackageLimits());
  return opened;
}

// The content of item `index`, read through a buffer of `chunk` bytes, and the number of reads
// of the archive that took.
std::string readItem(Opened& opened, std::size_t index, int& reads, std::size_t chunk = 1 << 20) {
  int const before = opened.source->reads;
  auto stream = opened.archive->openEntry(opened.archive->entries()[index]);
  std::string result;
  std::vector<unsigned char> buffer(chunk);
  while (!stream->isDone()) {
    std::size_t const n = stream->read(buffer.data(), buffer.size());
    if (n == 0) break;
    result.append(reinterpret_cast<char const*>(buffer.data()), n);
  }
  stream->close();
  reads = opened.source->reads - before;
  return result;
}

std::string text(std::size_t size) {
  return opcvk_test::numberedLines(size, "line ", 997, " of a small item; ");
}

TEST(ZipEntryReadWithHeaderTest, SmallItemsTakeOneReadEach) {
  ZipBuilder builder;
  builder.add("a/stored.txt", text(3000), 0);
  builder.add("a/deflated.txt", text(50000), 8);
  builder.add("a/empty.txt", "", 0);
  builder.add("a/empty-deflated.txt", "", 8);
  builder.add("z/last.txt", text(700), 8);
  Opened opened = openCounted(builder);
  for (std::size_t index = 0; index < builder.items.size(); ++index) {
    for (std::size_t chunk : {std::size_t{1} << 20, std::size_t{100}}) {
      int reads = 0;
      EXPECT_EQ(readItem(opened, index, reads, chunk), builder.items[index].content) << index;
      EXPECT_EQ(reads, 1) << builder.items[index].name << " through " << chunk << " bytes";
    }
  }
}

TEST(ZipEntryReadWithHeaderTest, LargerDataIsReadOnItsOwn) {
  for (std::uint16_t method : {0, 8}) {
    ZipBuilder builder;
    // Stored, the compressed size is the content's: at the bound and one byte over it.
    builder.add("at-bound", text(kDataReadWithHeader), 0);
    builder.add("over-bound", text(kDataReadWithHeader + 1), 0);
    builder.add("deflated-large", std::string(300000, 'x') + text(300000), method);
    Opened opened = openCounted(builder);
    int reads = 0;
    EXPECT_EQ(readItem(opened, 0, reads), builder.items[0].content);
    EXPECT_EQ(reads, 1);
    EXPECT_EQ(readItem(opened, 1, reads), builder.items[1].content);
    EXPECT_EQ(reads, 2);
    EXPECT_EQ(readItem(opened, 2, reads), builder.items[2].content);
    EXPECT_GE(reads, 2);
  }
}

TEST(ZipEntryReadWithHeaderTest, ALongExtraFieldSendsTheDataToARead) {
  ZipBuilder builder;
  builder.add("fits", text(2000), 8).localExtra =
      std::string("\xFF\xFF") + std::string("\x3C\x00", 2) + std::string(60, 'e');
  builder.add("too-long", text(2000), 8).localExtra =
      std::string("\xFF\xFF") + std::string("\x3D\x00", 2) + std::string(61, 'e');
  ASSERT_EQ(builder.items[0].localExtra.size(), kExtraReadWithHeader);
  Opened opened = openCounted(builder);
  int reads = 0;
  EXPECT_EQ(readItem(opened, 0, reads), builder.items[0].content);
  EXPECT_EQ(reads, 1);
  EXPECT_EQ(readItem(opened, 1, reads), builder.items[1].content);
  EXPECT_EQ(reads, 2);
}

TEST(ZipEntryReadWithHeaderTest, FailuresAreThoseOfTheSeparateReads) {
  std::string const content = text(4000);
  char data[11];
  std::snprintf(data, sizeof data, "0x%08X", opcvk_test::crc32Of(content));
  for (std::uint16_t method : {0, 8}) {
    ZipBuilder builder;
    builder.add("bad-crc", content, method).crc = 0x12345678;
    builder.add("bad-signature", content, method).localSignature = 0x04034b51;
    builder.add("other-method", content, method).localMethod = method == 0 ? 8 : 0;
    builder.add("other-name", content, method).localName = "other-nome";
    Opened opened = openCounted(builder);
    int reads = 0;
    EXPECT_THROW_MESSAGE(readItem(opened, 0, reads), InvalidPartContent,
                         std::string("Invalid ZIP item \"bad-crc\": CRC-32 mismatch (the "
                                     "directory gives 0x12345678, the data ") +
                             data + ")");
    EXPECT_THROW_MESSAGE(
        readItem(opened, 1, reads), InvalidPackage,
        "Invalid ZIP item \"bad-signature\": its local header has a bad signature");
    EXPECT_THROW_MESSAGE(readItem(opened, 2, reads), InvalidPackage,
                         "Invalid ZIP item \"other-method\": its local header gives compression "
                         "method " +
                             std::to_string(method == 0 ? 8 : 0) + ", the central directory " +
                             std::to_string(method));
    EXPECT_THROW_MESSAGE(readItem(opened, 3, reads), InvalidPackage,
                         "Invalid ZIP item \"other-name\": its local header gives another name");
  }
}

}  // namespace
