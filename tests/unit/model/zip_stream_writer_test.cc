// The archive written front to back keeps each item's name and place in blocks of its own:
// many items, long names and copies must come out as a reader expects them.
#include "zip/zip_stream_writer.h"

#include <cstdint>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/package_options.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "zip/zip_archive.h"
#include "zip/zip_dos_time.h"

namespace opc {
namespace model {
namespace {

// A file opened for writing, closed at the end of the scope.
class WriteFile {
 public:
  explicit WriteFile(std::string const& path) {
    { std::ofstream create(path, std::ios::binary); }
    fd_ = ::open(path.c_str(), O_RDWR);
  }
  ~WriteFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
};

// A name of at least `size` bytes, different for each `index`.
std::string nameOf(std::size_t index, std::size_t size) {
  std::string name = "n" + std::to_string(index) + "/";
  while (name.size() < size) name += static_cast<char>('a' + (name.size() + index) % 26);
  return name;
}

// CRC-32 of ZIP, bit by bit: slow, and independent of the library's own.
std::uint32_t crcOf(std::string const& bytes) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (char c : bytes) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

std::string readEntry(detail::ZipArchive const& archive, std::size_t index) {
  std::string out;
  auto stream = archive.openEntry(archive.entries()[index]);
  unsigned char buffer[4096];
  for (;;) {
    std::size_t const n = stream->read(buffer, sizeof buffer);
    if (n == 0) break;
    out.append(reinterpret_cast<char const*>(buffer), n);
  }
  return out;
}

TEST(ZipStreamWriterTest, ItemsAndNamesAcrossManyBlocksKeepTheirPlaceAndBytes) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "blocks.zip";
  // Past several blocks of items (4,096 each) and of names (64 KiB each, so that names of up
  // to 700 bytes often meet the end of one), added whole and streamed in turn.
  std::size_t const count = 9000;
  std::vector<std::string> names;
  std::vector<std::string> contents;
  {
    WriteFile file(path);
    ASSERT_GE(file.fd(), 0);
    detail::ZipStreamWriter writer(file.fd(), detail::dosTimeOf(1700000000));
    for (std::size_t i = 0; i < count; ++i) {
      names.push_back(nameOf(i, 1 + (i * 37) % 700));
      contents.push_back("content of " + std::to_string(i));
      std::string const& bytes = contents.back();
      auto const data = reinterpret_cast<unsigned char const*>(bytes.data());
      if (i % 3 == 0) {
        writer.begin(names.back(), false, bytes.size());
        writer.append(data, 3);
        writer.append(data + 3, bytes.size() - 3);
        writer.end(crcOf(bytes), bytes.size());
      } else {
        writer.add(names.back(), false, crcOf(bytes), bytes.size(), data, bytes.size());
      }
    }
    ASSERT_EQ(writer.itemCount(), count);
    // Names kept and not, in the file and still in the buffer, out of order.
    detail::ZipStreamWriter::NameReader reader(writer);
    for (std::size_t i :
         {std::size_t{4096}, std::size_t{0}, std::size_t{4095}, count - 1, std::size_t{4097}}) {
      detail::ZipStreamItem const& item = writer.item(i);
      EXPECT_EQ(reader.nameOf(i), names[i]) << i;
      EXPECT_EQ(item.nameKept(), names[i].size() <= detail::ZipStreamWriter::kKeptNameSize) << i;
      EXPECT_EQ(item.dataOffset(), item.headerOffset + 30 + names[i].size()) << i;
      EXPECT_EQ(item.compressedSize, contents[i].size()) << i;
    }
    writer.finish();
  }
  auto archive = detail::ZipArchive::open(detail::openFileSource(path), PackageLimits());
  ASSERT_EQ(archive->entries().size(), count);
  for (std::size_t i = 0; i < count; i += 97) {
    EXPECT_EQ(archive->entries()[i].name, names[i]) << i;
    EXPECT_EQ(readEntry(*archive, i), contents[i]) << i;
  }
  EXPECT_EQ(archive->entries()[count - 1].name, names[count - 1]);
}

TEST(ZipStreamWriterTest, CopiedItemsKeepNamesSizesAndBytes) {
  opcvk_test::TempDir dir;
  std::string const from = dir / "from.zip";
  std::string const to = dir / "to.zip";
  std::string const small = "small stored bytes";
  std::string const streamed(100000, 'q');
  WriteFile source(from);
  ASSERT_GE(source.fd(), 0);
  detail::ZipStreamWriter first(source.fd(), detail::dosTimeOf(1700000000));
  first.add("dropped", false, crcOf("x"), 1, reinterpret_cast<unsigned char const*>("x"), 1);
  first.add("kept/\xC3\xA9t\xC3\xA9.txt", false, crcOf(small), small.size(),
            reinterpret_cast<unsigned char const*>(small.data()), small.size());
  // Room for ZIP64 sizes in its local header, which the copy keeps.
  first.begin("kept/large.bin", false, std::uint64_t{0xF0000000u});
  first.append(reinterpret_cast<unsigned char const*>(streamed.data()), streamed.size());
  first.end(crcOf(streamed), streamed.size());
  // A name too long to be kept in memory: the copy takes it from the local header.
  std::string const longName = "kept/" + std::string(300, 'n') + ".txt";
  first.add(longName, false, crcOf(small), small.size(),
            reinterpret_cast<unsigned char const*>(small.data()), small.size());
  ASSERT_FALSE(first.item(3).nameKept());
  first.flush();
  {
    WriteFile target(to);
    ASSERT_GE(target.fd(), 0);
    detail::ZipStreamWriter second(target.fd(), detail::dosTimeOf(1700000000));
    second.copy(source.fd(), first.item(1));
    second.copy(source.fd(), first.item(2));
    second.copy(source.fd(), first.item(3));
    ASSERT_EQ(second.itemCount(), 3u);
    EXPECT_TRUE(second.item(1).zip64Sizes);
    EXPECT_EQ(second.item(1).dataOffset(), second.item(1).headerOffset + 30 + 14 + 20);
    second.finish();
  }
  auto archive = detail::ZipArchive::open(detail::openFileSource(to), PackageLimits());
  ASSERT_EQ(archive->entries().size(), 3u);
  EXPECT_EQ(archive->entries()[0].name, "kept/\xC3\xA9t\xC3\xA9.txt");
  EXPECT_EQ(readEntry(*archive, 0), small);
  EXPECT_EQ(archive->entries()[1].name, "kept/large.bin");
  EXPECT_EQ(readEntry(*archive, 1), streamed);
  EXPECT_EQ(archive->entries()[2].name, longName);
  EXPECT_EQ(readEntry(*archive, 2), small);
}

TEST(ZipStreamWriterTest, NameLongerThanItsHeaderFieldIsRefusedAndTheLongestFitsTaken) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "names.zip";
  {
    WriteFile file(path);
    ASSERT_GE(file.fd(), 0);
    detail::ZipStreamWriter writer(file.fd(), detail::dosTimeOf(1700000000));
    writer.add("before", false, 0, 0, nullptr, 0);
    std::string const longest(65535, 'L');
    writer.add(longest, false, 0, 0, nullptr, 0);
    std::string const tooLong = std::string(64, 'T') + std::string(65472, 'U');
    EXPECT_THROW_MESSAGE(writer.add(tooLong, false, 0, 0, nullptr, 0), opc::Exception,
                         "item \"" + std::string(64, 'T') +
                             "...\": its name of 65536 bytes is longer than an archive item "
                             "name may be (65535 bytes)");
    EXPECT_THROW_MESSAGE(writer.begin(tooLong, false, 0), opc::Exception,
                         "item \"" + std::string(64, 'T') +
                             "...\": its name of 65536 bytes is longer than an archive item "
                             "name may be (65535 bytes)");
    ASSERT_EQ(writer.itemCount(), 2u);
    writer.add("after", false, 0, 0, nullptr, 0);
    writer.finish();
  }
  auto archive = detail::ZipArchive::open(detail::openFileSource(path), PackageLimits());
  ASSERT_EQ(archive->entries().size(), 3u);
  EXPECT_EQ(archive->entries()[1].name.size(), 65535u);
  EXPECT_EQ(archive->entries()[2].name, "after");
}

}  // namespace
}  // namespace model
}  // namespace opc
