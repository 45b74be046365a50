// The writer of the ZIP container: what it writes reads back exactly (with our reader and
// with unzip), raw copies keep their bytes, compression runs on workers, and a save that
// fails or is abandoned leaves the target as it was.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"

namespace {

using opc::interfaces::CompressionType;
using opc::model::CouldNotSavePackage;
using opc::model::PackageLimits;
using opc::model::detail::ZipArchive;
using opc::model::detail::ZipContentReader;
using opc::model::detail::ZipEntry;
using opc::model::detail::ZipWriter;

ZipContentReader readerOf(std::string content) {
  auto state = std::make_shared<std::pair<std::string, std::size_t>>(std::move(content), 0);
  return [state](unsigned char* buffer, std::size_t size) {
    std::size_t const n = std::min(size, state->first.size() - state->second);
    std::copy_n(state->first.data() + state->second, n, buffer);
    state->second += n;
    return n;
  };
}

std::unique_ptr<ZipArchive> openVector(std::vector<unsigned char> const& bytes) {
  return ZipArchive::open(opc::model::detail::openBufferSource(
                              std::make_shared<std::vector<unsigned char> const>(bytes)),
                          PackageLimits());
}

std::string readEntry(ZipArchive const& archive, ZipEntry const& entry) {
  auto stream = archive.openEntry(entry);
  std::string result;
  std::vector<unsigned char> buffer(65536);
  while (!stream->isDone()) {
    std::size_t const n = stream->read(buffer.data(), buffer.size());
    result.append(reinterpret_cast<char const*>(buffer.data()), n);
  }
  return result;
}

std::string randomBytes(std::size_t size, std::uint32_t seed) {
  std::string result(size, '\0');
  std::uint64_t x = seed * 0x9E3779B97F4A7C15ull + 1;
  for (char& c : result) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    c = static_cast<char>(x >> 24);
  }
  return result;
}

std::string text(std::size_t size) {
  return opcvk_test::numberedLines(size, "<w:p>paragraph ", 1000, "</w:p>\n");
}

std::string fileContent(std::string const& path) {
  std::string result;
  if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) result.append(buffer, n);
    std::fclose(file);
  }
  return result;
}

void writeFile(std::string const& path, std::string const& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::vector<std::string> folderNames(std::string const& folder) {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool haveUnzip() { return std::system("command -v unzip >/dev/null 2>&1") == 0; }

int unzipTest(std::string const& path) {
  return std::system(("unzip -tqq '" + path + "' >/dev/null 2>&1").c_str());
}

struct RoundTripCase {
  char const* what;
  std::string name;
  CompressionType compression;
  std::string content;
  int expectedMethod;
};

class ZipWriterRoundTripTest : public ::testing::TestWithParam<RoundTripCase> {};

TEST_P(ZipWriterRoundTripTest, ReadsBackWhatWasWritten) {
  RoundTripCase const& c = GetParam();
  for (unsigned threads : {1u, 3u}) {
    std::vector<unsigned char> bytes;
    auto writer = ZipWriter::toBuffer(bytes, threads);
    writer->add(c.name, c.compression, c.content.size(), readerOf(c.content));
    writer->commit();
    auto archive = openVector(bytes);
    ASSERT_EQ(archive->entries().size(), 1u);
    ZipEntry const& entry = archive->entries()[0];
    EXPECT_EQ(entry.name, c.name);
    EXPECT_EQ(entry.method, c.expectedMethod) << c.what;
    EXPECT_EQ(entry.uncompressedSize, c.content.size());
    EXPECT_EQ(entry.crc32, opcvk_test::crc32Of(c.content));
    EXPECT_EQ(readEntry(*archive, entry), c.content) << c.what;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZipWriterRoundTripTest,
    ::testing::Values(
        RoundTripCase{"stored", "a/stored.bin", CompressionType::Stored, text(5000), 0},
        RoundTripCase{"metadata", "metadata/x.xml", CompressionType::DeflateMetadata, text(5000),
                      8},
        RoundTripCase{"content", "fsroot/doc.txt", CompressionType::DeflateContent, text(300000),
                      8},
        RoundTripCase{"incompressible", "fsroot/noise", CompressionType::DeflateContent,
                      randomBytes(100000, 1), 0},
        RoundTripCase{"empty stored", "e1", CompressionType::Stored, "", 0},
        RoundTripCase{"empty metadata", "e2", CompressionType::DeflateMetadata, "", 0},
        RoundTripCase{"empty content", "e3", CompressionType::DeflateContent, "", 0},
        RoundTripCase{"non-ASCII name",
                      "donn\xC3\xA9"
                      "es/\xE6\x97\xA5\xE6\x9C\xAC.xml",
                      CompressionType::DeflateContent, text(100), 8}),
    [](::testing::TestParamInfo<RoundTripCase> const& p) {
      std::string name;
      for (char c : std::string(p.param.what)) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      }
      return name;
    });

TEST(ZipWriterTest, MetadataDeflatesAtLeastAsSmallAsContent) {
  std::string const content = text(200000) + randomBytes(2000, 3) + text(100000);
  std::map<CompressionType, std::uint64_t> sizes;
  for (CompressionType type : {CompressionType::DeflateMetadata, CompressionType::DeflateContent}) {
    std::vector<unsigned char> bytes;
    auto writer = ZipWriter::toBuffer(bytes, 1);
    writer->add("x", type, content.size(), readerOf(content));
    writer->commit();
    sizes[type] = openVector(bytes)->entries()[0].compressedSize;
  }
  EXPECT_LE(sizes[CompressionType::DeflateMetadata], sizes[CompressionType::DeflateContent]);
}

TEST(ZipWriterTest, NonAsciiNamesCarryTheUtf8Flag) {
  std::vector<unsigned char> bytes;
  auto writer = ZipWriter::toBuffer(bytes, 1);
  writer->add("ascii.xml", CompressionType::Stored, 1, readerOf("a"));
  writer->add("\xC3\xA9t\xC3\xA9.xml", CompressionType::Stored, 1, readerOf("b"));
  writer->commit();
  // General purpose flags of each local header: offset 6.
  auto archive = openVector(bytes);
  auto flagsOf = [&](ZipEntry const& e) {
    return bytes[e.localHeaderOffset + 6] | (bytes[e.localHeaderOffset + 7] << 8);
  };
  EXPECT_EQ(flagsOf(archive->entries()[0]) & 0x0800, 0);
  EXPECT_EQ(flagsOf(archive->entries()[1]) & 0x0800, 0x0800);
  EXPECT_EQ(archive->entries()[1].name, "\xC3\xA9t\xC3\xA9.xml");
}

TEST(ZipWriterTest, RawCopyKeepsTheExactStoredBytes) {
  // Deflate data from the test's own encoder: a recompression would not give these bytes.
  opcvk_test::ZipBuilder builder;
  builder.add("deflated.xml", text(20000), 8);
  builder.add("stored.bin", randomBytes(3000, 2), 0);
  builder.add("empty", "", 8);
  std::vector<unsigned char> const original = builder.build();
  auto source = openVector(original);
  std::vector<unsigned char> bytes;
  auto writer = ZipWriter::toBuffer(bytes, 2);
  writer->add("new.xml", CompressionType::DeflateMetadata, 5, readerOf("hello"));
  for (ZipEntry const& e : source->entries()) writer->addRaw("copy/" + e.name, *source, e);
  writer->commit();
  auto copy = openVector(bytes);
  ASSERT_EQ(copy->entries().size(), 4u);
  for (std::size_t i = 0; i < 3; ++i) {
    ZipEntry const from = source->locate(source->entries()[i]);
    ZipEntry const to = copy->locate(copy->entries()[i + 1]);
    EXPECT_EQ(to.name, "copy/" + from.name);
    EXPECT_EQ(to.method, from.method);
    EXPECT_EQ(to.crc32, from.crc32);
    EXPECT_EQ(to.uncompressedSize, from.uncompressedSize);
    ASSERT_EQ(to.compressedSize, from.compressedSize);
    EXPECT_TRUE(std::equal(original.begin() + from.dataOffset,
                           original.begin() + from.dataOffset + from.compressedSize,
                           bytes.begin() + to.dataOffset));
    EXPECT_EQ(readEntry(*copy, to), readEntry(*source, from));
  }
}

TEST(ZipWriterTest, WorkersCompressManyItemsAndNeverCallOneReaderOnTwoThreads) {
  std::vector<std::string> contents;
  for (int i = 0; i < 120; ++i) {
    contents.push_back(i % 7 == 0 ? randomBytes(1000 + i * 37, i) : text(1000 + i * 997));
  }
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> overlaps{0};
  std::vector<unsigned char> bytes;
  {
    auto writer = ZipWriter::toBuffer(bytes, 4);
    for (std::size_t i = 0; i < contents.size(); ++i) {
      auto inner = readerOf(contents[i]);
      auto busy = std::make_shared<std::atomic<int>>(0);
      writer->add("item" + std::to_string(i), CompressionType::DeflateContent, contents[i].size(),
                  [&, inner, busy](unsigned char* b, std::size_t n) {
                    if (busy->fetch_add(1) != 0) ++overlaps;
                    {
                      std::lock_guard<std::mutex> lock(mutex);
                      threads.insert(std::this_thread::get_id());
                    }
                    std::size_t const got = inner(b, n);
                    busy->fetch_sub(1);
                    return got;
                  });
    }
    writer->commit();
  }
  EXPECT_EQ(overlaps.load(), 0);
  EXPECT_GE(threads.size(), 2u);
  auto archive = openVector(bytes);
  ASSERT_EQ(archive->entries().size(), contents.size());
  for (std::size_t i = 0; i < contents.size(); ++i) {
    EXPECT_EQ(readEntry(*archive, archive->entries()[i]), contents[i]) << i;
  }
}

TEST(ZipWriterTest, ManyItemsGetZip64Records) {
  std::size_t const count = 70000;
  std::vector<unsigned char> bytes;
  auto writer = ZipWriter::toBuffer(bytes, 1);
  for (std::size_t i = 0; i < count; ++i) {
    writer->add("i/" + std::to_string(i), CompressionType::Stored, 1, readerOf("x"));
  }
  writer->commit();
  // The 16-bit count of the end record is saturated and a ZIP64 locator precedes it.
  std::size_t const end = bytes.size() - 22;
  EXPECT_EQ(bytes[end + 10] | (bytes[end + 11] << 8), 0xFFFF);
  EXPECT_EQ(bytes[end - 20], 0x50);
  EXPECT_EQ(bytes[end - 17], 0x07);
  auto archive = openVector(bytes);
  ASSERT_EQ(archive->entries().size(), count);
  EXPECT_EQ(archive->find("i/69999"), 69999);
  EXPECT_EQ(readEntry(*archive, archive->entries()[69999]), "x");
}

// Content generated on the fly, so that large items need no large buffer in the test.
ZipContentReader generated(std::uint64_t size, bool compressible, std::uint32_t* crcOut) {
  struct State {
    std::uint64_t left;
    std::uint64_t x = 88172645463325252ull;
    std::uint64_t counter = 0;
    bool compressible;
  };
  auto state = std::make_shared<State>(State{size, 88172645463325252ull, 0, compressible});
  (void)crcOut;
  return [state](unsigned char* buffer, std::size_t n) {
    std::size_t const count = static_cast<std::size_t>(std::min<std::uint64_t>(n, state->left));
    for (std::size_t i = 0; i < count; ++i) {
      if (state->compressible) {
        buffer[i] = static_cast<unsigned char>("abcdefgh\n"[(state->counter++ / 64) % 9]);
      } else {
        state->x ^= state->x << 13;
        state->x ^= state->x >> 7;
        state->x ^= state->x << 17;
        buffer[i] = static_cast<unsigned char>(state->x >> 24);
      }
    }
    state->left -= count;
    return count;
  };
}

TEST(ZipWriterTest, LargeItemsStreamThroughASpoolFileOrAreStored) {
  opcvk_test::TempDir dir;
  std::uint64_t const size = (std::uint64_t{64} << 20) + 12345;
  std::string const path = dir / "large.zip";
  auto writer = ZipWriter::toFile(path, 2);
  writer->add("text", CompressionType::DeflateContent, size, generated(size, true, nullptr));
  writer->add("noise", CompressionType::DeflateContent, size, generated(size, false, nullptr));
  writer->commit();
  writer.reset();
  EXPECT_EQ(folderNames(dir.path()), std::vector<std::string>{"large.zip"});
  auto archive = ZipArchive::open(opc::model::detail::openFileSource(path), PackageLimits());
  ASSERT_EQ(archive->entries().size(), 2u);
  EXPECT_EQ(archive->entries()[0].method, 8);
  EXPECT_LT(archive->entries()[0].compressedSize, size / 10);
  EXPECT_EQ(archive->entries()[1].method, 0);
  for (ZipEntry const& entry : archive->entries()) {
    // The stream checks size and CRC-32 at its end; the content is compared by regenerating.
    auto stream = archive->openEntry(entry);
    auto expected = generated(size, entry.name == "text", nullptr);
    std::vector<unsigned char> got(1 << 20);
    std::vector<unsigned char> want(1 << 20);
    std::uint64_t total = 0;
    bool same = true;
    while (!stream->isDone()) {
      std::size_t const n = stream->read(got.data(), got.size());
      std::size_t const m = expected(want.data(), n);
      same = same && m == n && std::equal(got.begin(), got.begin() + n, want.begin());
      total += n;
    }
    EXPECT_TRUE(same) << entry.name;
    EXPECT_EQ(total, size);
  }
  if (haveUnzip()) {
    EXPECT_EQ(unzipTest(path), 0);
  }
}

TEST(ZipWriterTest, UnzipAcceptsWhatWeWrite) {
  if (!haveUnzip()) GTEST_SKIP() << "unzip is not installed";
  opcvk_test::TempDir dir;
  opcvk_test::ZipBuilder builder;
  builder.add("raw/deflated.xml", text(3000), 8);
  builder.add("raw/stored.bin", randomBytes(500, 4), 0);
  auto source = openVector(builder.build());
  std::string const path = dir / "package.zip";
  auto writer = ZipWriter::toFile(path, 2);
  writer->add("[Content_Types].xml", CompressionType::DeflateMetadata, 900, readerOf(text(900)));
  writer->add("fsroot/\xC3\xA9t\xC3\xA9.txt", CompressionType::DeflateContent, 50000,
              readerOf(text(50000)));
  writer->add("fsroot/cipher", CompressionType::Stored, 4096, readerOf(randomBytes(4096, 5)));
  writer->add("fsroot/noise", CompressionType::DeflateContent, 4096,
              readerOf(randomBytes(4096, 6)));
  writer->add("fsroot/empty", CompressionType::DeflateContent, 0, readerOf(""));
  for (ZipEntry const& e : source->entries()) writer->addRaw(e.name, *source, e);
  writer->commit();
  EXPECT_EQ(unzipTest(path), 0);
}

TEST(ZipWriterTest, WrongContentSizeFailsTheCommit) {
  struct Case {
    CompressionType type;
    std::uint64_t declared;
    std::string content;
    std::string message;
  };
  std::vector<Case> const cases = {
      {CompressionType::DeflateContent, 10, "12345",
       "Could not save package to memory: item \"x\": its content ends after 5 bytes, before "
       "the 10 declared"},
      {CompressionType::DeflateContent, 3, "12345",
       "Could not save package to memory: item \"x\": its content goes on past the 3 bytes "
       "declared"},
      {CompressionType::Stored, 10, "12345",
       "Could not save package to memory: item \"x\": its content ends after 5 bytes, before "
       "the 10 declared"},
      {CompressionType::Stored, 3, "12345",
       "Could not save package to memory: item \"x\": its content goes on past the 3 bytes "
       "declared"},
      {CompressionType::Stored, 0, "1",
       "Could not save package to memory: item \"x\": its content goes on past the 0 bytes "
       "declared"},
  };
  for (Case const& c : cases) {
    for (unsigned threads : {1u, 2u}) {
      std::vector<unsigned char> bytes = {1, 2, 3};
      auto writer = ZipWriter::toBuffer(bytes, threads);
      writer->add("ok", CompressionType::DeflateContent, 2, readerOf("ok"));
      writer->add("x", c.type, c.declared, readerOf(c.content));
      EXPECT_THROW_MESSAGE(writer->commit(), CouldNotSavePackage, c.message);
      EXPECT_EQ(bytes, (std::vector<unsigned char>{1, 2, 3}));
    }
  }
}

TEST(ZipWriterTest, DuplicateNamesAreRefused) {
  std::vector<unsigned char> bytes;
  auto writer = ZipWriter::toBuffer(bytes, 1);
  writer->add("a", CompressionType::Stored, 1, readerOf("a"));
  EXPECT_THROW_MESSAGE(writer->add("a", CompressionType::Stored, 1, readerOf("a")),
                       CouldNotSavePackage,
                       "Could not save package to memory: item \"a\": another item has the same "
                       "name");
}

TEST(ZipWriterTest, EmptyArchiveIsValid) {
  std::vector<unsigned char> bytes;
  auto writer = ZipWriter::toBuffer(bytes, 1);
  writer->commit();
  EXPECT_EQ(bytes.size(), 22u);
  EXPECT_TRUE(openVector(bytes)->entries().empty());
  EXPECT_THROW_MESSAGE(writer->commit(), CouldNotSavePackage,
                       "Could not save package to memory: the archive was already written");
}

// ---------------------------------------------------------------------------------------
// Atomic save.

TEST(ZipWriterTest, CommitReplacesTheTargetWithAnOrdinaryFile) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  writeFile(path, "old");
  mode_t const mask = ::umask(022);
  auto writer = ZipWriter::toFile(path, 1);
  writer->add("a", CompressionType::DeflateContent, 1000, readerOf(text(1000)));
  EXPECT_EQ(fileContent(path), "old");
  writer->commit();
  ::umask(mask);
  struct stat info;
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
  EXPECT_EQ(folderNames(dir.path()), std::vector<std::string>{"p.zip"});
  auto archive = ZipArchive::open(opc::model::detail::openFileSource(path), PackageLimits());
  EXPECT_EQ(readEntry(*archive, archive->entries()[0]), text(1000));
}

TEST(ZipWriterTest, WriterDestroyedWithoutCommitLeavesTargetIntact) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  writeFile(path, "original");
  for (unsigned threads : {1u, 3u}) {
    auto writer = ZipWriter::toFile(path, threads);
    writer->add("a", CompressionType::DeflateContent, 100000, readerOf(text(100000)));
    writer.reset();
    EXPECT_EQ(fileContent(path), "original");
    EXPECT_EQ(folderNames(dir.path()), std::vector<std::string>{"p.zip"});
  }
}

TEST(ZipWriterTest, ReaderThatThrowsFailsTheCommitAndLeavesTargetIntact) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  writeFile(path, "original");
  for (CompressionType type : {CompressionType::Stored, CompressionType::DeflateContent}) {
    for (unsigned threads : {1u, 2u}) {
      auto writer = ZipWriter::toFile(path, threads);
      writer->add("good", type, 10, readerOf("0123456789"));
      writer->add("bad", type, 10, [](unsigned char*, std::size_t) -> std::size_t {
        throw opc::model::InvalidPackageState("the part was deleted");
      });
      EXPECT_THROW_MESSAGE(
          writer->commit(), CouldNotSavePackage,
          "Could not save package \"" + path + "\": item \"bad\": the part was deleted");
      EXPECT_EQ(fileContent(path), "original");
      EXPECT_EQ(folderNames(dir.path()), std::vector<std::string>{"p.zip"});
    }
  }
}

TEST(ZipWriterTest, MissingFolderIsReportedAtCreation) {
  EXPECT_THROW_MESSAGE(ZipWriter::toFile("/nonexistent-folder/p.zip", 1), CouldNotSavePackage,
                       "Could not save package \"/nonexistent-folder/p.zip\": could not create a "
                       "temporary file beside it: No such file or directory");
}

// A file system of 1 MiB: the archive cannot fit, and the target that is already there must
// survive the attempt.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(std::string folder) : folder_(std::move(folder)) {
    std::filesystem::create_directory(folder_);
    mounted_ = ::mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=1m") == 0;
  }
  ~SmallFileSystem() {
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
  }
  bool mounted() const { return mounted_; }

 private:
  std::string folder_;
  bool mounted_ = false;
};

TEST(ZipWriterTest, FullDiskFailsTheCommitAndLeavesTargetIntact) {
  opcvk_test::TempDir dir;
  SmallFileSystem small(dir / "small");
  if (!small.mounted()) GTEST_SKIP() << "a tmpfs cannot be mounted here (needs root)";
  std::string const path = dir / "small/p.zip";
  writeFile(path, "original");
  for (unsigned threads : {1u, 2u}) {
    auto writer = ZipWriter::toFile(path, threads);
    writer->add("noise", CompressionType::Stored, 3u << 20, readerOf(randomBytes(3u << 20, 7)));
    EXPECT_THROW_MESSAGE(
        writer->commit(), CouldNotSavePackage,
        "Could not save package \"" + path + "\": could not write: No space left on device");
    EXPECT_EQ(fileContent(path), "original");
    EXPECT_EQ(folderNames(dir / "small"), std::vector<std::string>{"p.zip"});
  }
}

}  // namespace
