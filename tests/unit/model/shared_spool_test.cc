// The package-wide memory budget of part contents and the shared file past it: content reads
// back exactly whichever side of the budget it landed on, the budget holds, the file's space
// comes back, the content saves into an archive that reads back, and a file system that
// refuses the bytes is reported rather than losing content silently.
#include "package/shared_spool.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/package.h>
#include <opc/model/package_options.h>

#include "package/package_state.h"
#include "package/part_streams.h"
#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"

namespace opc {
namespace model {
namespace detail {
namespace {

using interfaces::CompressionType;

// Bytes that differ from part to part and from place to place.
std::vector<unsigned char> contentOf(std::size_t part, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  std::uint64_t state = part * 0x9E3779B97F4A7C15ull + 1;
  for (unsigned char& byte : bytes) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    byte = static_cast<unsigned char>(state);
  }
  return bytes;
}

std::vector<unsigned char> readAll(PartContent const& content) {
  std::vector<unsigned char> bytes;
  std::unique_ptr<ContentReader> reader = content.openReader();
  unsigned char buffer[3000];  // not a divisor of the staging size: reads cross ranges
  while (std::size_t const n = reader->read(buffer, sizeof buffer)) {
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  EXPECT_TRUE(reader->isDone());
  return bytes;
}

std::shared_ptr<PartRecord> recordOf(std::size_t i) {
  return std::make_shared<PartRecord>(PartName(u"/p" + opc::toString(std::to_string(i))),
                                      ContentType(u"application/octet-stream"),
                                      CompressionType::DeflateContent);
}

// Writes `bytes` through a part output stream in pieces of `piece` bytes, and closes it.
void writeThrough(PartOutputStream& out, std::vector<unsigned char> const& bytes,
                  std::size_t piece) {
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    out.write(bytes.data() + at, std::min(piece, bytes.size() - at));
  }
  out.close();
}

class SharedSpoolTest : public ::testing::Test {
 protected:
  opcvk_test::TempDir dir_;
  std::u16string folder() const { return opc::toString(dir_.path()); }
};

TEST_F(SharedSpoolTest, ContentReadsBackOnBothSidesOfTheBudget) {
  std::uint64_t const budget = 10000;
  auto spool = std::make_shared<SharedSpool>(budget, folder());
  std::vector<std::shared_ptr<PartRecord>> records;
  for (std::size_t i = 0; i < 12; ++i) {
    records.push_back(recordOf(i));
    PartOutputStream out(records.back(), std::uint64_t{8} << 20, folder(), spool);
    writeThrough(out, contentOf(i, 1500 + i * 7000), 777);
    EXPECT_LE(spool->reserved(), budget);
  }
  // The first parts fit in memory; the later ones went to the file.
  EXPECT_GT(spool->reserved(), 0u);
  EXPECT_GT(spool->fileSize(), 0u);
  for (std::size_t i = 0; i < records.size(); ++i) {
    ASSERT_TRUE(records[i]->content) << i;
    EXPECT_EQ(records[i]->content->size(), 1500 + i * 7000) << i;
    EXPECT_EQ(readAll(*records[i]->content), contentOf(i, 1500 + i * 7000)) << i;
  }
  // Contents that go give their memory and the file's space back.
  records.clear();
  EXPECT_EQ(spool->reserved(), 0u);
  EXPECT_EQ(spool->fileSize(), 0u);
}

TEST_F(SharedSpoolTest, ManyPartsWrittenInTurnsKeepTheirOwnBytes) {
  auto spool = std::make_shared<SharedSpool>(64 * 1024, folder());
  std::size_t const count = 400;
  std::vector<std::shared_ptr<PartRecord>> records;
  std::vector<std::unique_ptr<PartOutputStream>> streams;
  std::vector<std::vector<unsigned char>> expected;
  for (std::size_t i = 0; i < count; ++i) {
    records.push_back(recordOf(i));
    streams.push_back(std::make_unique<PartOutputStream>(records.back(), std::uint64_t{8} << 20,
                                                         folder(), spool));
    expected.push_back(contentOf(i, 100 + (i * 997) % 40000));
  }
  // Every stream is open at once and takes a piece in turn, so that the file interleaves
  // the parts' bytes.
  std::size_t const piece = 1000;
  for (std::size_t at = 0;; at += piece) {
    bool any = false;
    for (std::size_t i = 0; i < count; ++i) {
      if (at >= expected[i].size()) continue;
      any = true;
      streams[i]->write(expected[i].data() + at, std::min(piece, expected[i].size() - at));
    }
    if (!any) break;
  }
  for (auto& stream : streams) stream->close();
  EXPECT_LE(spool->reserved(), 64u * 1024);
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_EQ(readAll(*records[i]->content), expected[i]) << i;
  }
  // Readers on several threads at once.
  std::vector<std::thread> threads;
  std::vector<int> good(4, 0);
  for (std::size_t t = 0; t < good.size(); ++t) {
    threads.emplace_back([&, t] {
      bool same = true;
      for (std::size_t i = t; i < count; i += good.size()) {
        std::vector<unsigned char> bytes;
        std::unique_ptr<ContentReader> reader = records[i]->content->openReader();
        unsigned char buffer[4096];
        while (std::size_t const n = reader->read(buffer, sizeof buffer)) {
          bytes.insert(bytes.end(), buffer, buffer + n);
        }
        same = same && bytes == expected[i];
      }
      good[t] = same ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, std::vector<int>(4, 1));
}

TEST_F(SharedSpoolTest, AReaderKeepsItsBytesAfterThePartGetsNewContent) {
  auto spool = std::make_shared<SharedSpool>(0, folder());
  auto record = recordOf(1);
  {
    PartOutputStream out(record, std::uint64_t{8} << 20, folder(), spool);
    writeThrough(out, contentOf(1, 5000), 5000);
  }
  std::unique_ptr<ContentReader> reader = record->content->openReader();
  {
    PartOutputStream out(record, std::uint64_t{8} << 20, folder(), spool);
    writeThrough(out, contentOf(2, 7000), 100);
  }
  std::vector<unsigned char> first(5000);
  std::size_t got = 0;
  while (std::size_t const n = reader->read(first.data() + got, first.size() - got)) got += n;
  EXPECT_EQ(got, 5000u);
  EXPECT_EQ(first, contentOf(1, 5000));
  EXPECT_EQ(readAll(*record->content), contentOf(2, 7000));
}

TEST_F(SharedSpoolTest, AStreamDroppedUnclosedGivesItsMemoryBack) {
  auto spool = std::make_shared<SharedSpool>(1 << 20, folder());
  auto record = recordOf(1);
  {
    PartOutputStream out(record, std::uint64_t{8} << 20, folder(), spool);
    std::vector<unsigned char> const bytes = contentOf(1, 4000);
    out.write(bytes.data(), bytes.size());
    EXPECT_EQ(spool->reserved(), 4000u);
  }
  EXPECT_EQ(spool->reserved(), 0u);
  EXPECT_FALSE(record->content);
}

TEST_F(SharedSpoolTest, ContentSavesIntoAnArchiveThatReadsBack) {
  auto spool = std::make_shared<SharedSpool>(20000, folder());
  std::vector<std::shared_ptr<PartRecord>> records;
  for (std::size_t i = 0; i < 50; ++i) {
    records.push_back(recordOf(i));
    PartOutputStream out(records.back(), std::uint64_t{8} << 20, folder(), spool);
    // Half compressible, half not.
    std::vector<unsigned char> bytes = contentOf(i, 3000 + i * 100);
    if (i % 2 == 0) std::fill(bytes.begin() + bytes.size() / 4, bytes.end(), 'a');
    writeThrough(out, bytes, 512);
  }
  ASSERT_GT(spool->fileSize(), 0u);
  for (unsigned threads : {1u, 2u}) {
    std::vector<unsigned char> archiveBytes;
    {
      auto writer = ZipWriter::toBuffer(archiveBytes, threads);
      for (std::size_t i = 0; i < records.size(); ++i) {
        auto content = records[i]->content;
        auto reader = std::make_shared<std::unique_ptr<ContentReader>>();
        writer->add("p" + std::to_string(i), CompressionType::DeflateContent, content->size(),
                    [content, reader](unsigned char* buffer, std::size_t size) {
                      if (!*reader) *reader = content->openReader();
                      return (*reader)->read(buffer, size);
                    });
      }
      writer->commit();
    }
    std::shared_ptr<ZipArchive const> const archive = ZipArchive::open(
        openBufferSource(std::make_shared<std::vector<unsigned char> const>(archiveBytes)),
        PackageLimits());
    ASSERT_EQ(archive->entries().size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
      std::int64_t const index = archive->find("p" + std::to_string(i));
      ASSERT_GE(index, 0);
      auto const content =
          makeArchiveContent(archive, archive->entries()[static_cast<std::size_t>(index)]);
      EXPECT_EQ(readAll(*content), readAll(*records[i]->content)) << threads << " " << i;
    }
  }
}

TEST_F(SharedSpoolTest, APackageOfManyPartsPastItsBudgetSavesAndReopensIntact) {
  PackageOptions options;
  options.spoolBudget = 4096;
  options.compressionThreads = 2;
  std::u16string const path = opc::toString(dir_ / "many.zip");
  std::size_t const count = 300;
  auto const text = [](std::size_t i) {
    std::string bytes(50 + (i * 131) % 3000, '\0');
    for (std::size_t j = 0; j < bytes.size(); ++j) {
      bytes[j] = static_cast<char>('a' + (i + j * j) % 26);
    }
    return bytes;
  };
  auto const nameOf = [](std::size_t i) {
    return PartName(u"/d/p" + opc::toString(std::to_string(i)) + u".txt");
  };
  {
    auto package = Package::open(path, PackageAccess::Create, options);
    for (std::size_t i = 0; i < count; ++i) {
      Part part =
          package->createPart(nameOf(i), ContentType(u"text/plain"),
                              interfaces::StandardPartInfo(CompressionType::DeflateContent, 0));
      opc::OutputStream& out = part.getOutputStream();
      opcvk_test::writeAll(out, text(i));
      out.close();
    }
    for (std::size_t i = 0; i < count; i += 7) {
      ASSERT_EQ(opcvk_test::readAll(package->getPart(nameOf(i)).getInputStream()), text(i)) << i;
    }
    package->save();
    // Saved content reads back from the new archive as well.
    ASSERT_EQ(opcvk_test::readAll(package->getPart(nameOf(5)).getInputStream()), text(5));
  }
  auto package = Package::open(path, PackageAccess::Read, options);
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_EQ(opcvk_test::readAll(package->getPart(nameOf(i)).getInputStream()), text(i)) << i;
  }
}

// Runs `body` with files limited to `limit` bytes: writing past the limit fails with EFBIG
// (the signal it would raise is ignored), which root cannot override.
template <typename Body>
void withFileSizeLimit(rlim_t limit, Body body) {
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit small = old;
  small.rlim_cur = limit;
  auto const oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  body();
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);
}

TEST_F(SharedSpoolTest, AFileSystemThatRefusesTheBytesIsReported) {
  auto spool = std::make_shared<SharedSpool>(0, folder());
  auto kept = recordOf(1);
  {
    PartOutputStream out(kept, std::uint64_t{8} << 20, folder(), spool);
    writeThrough(out, contentOf(1, 10000), 10000);
  }
  auto record = recordOf(2);
  auto out = std::make_unique<PartOutputStream>(record, std::uint64_t{8} << 20, folder(), spool);
  std::vector<unsigned char> const bytes = contentOf(2, 200000);
  withFileSizeLimit(100000, [&] {
    EXPECT_THROW_MESSAGE(out->write(bytes.data(), bytes.size()), opc::Exception,
                         "Could not write the shared temporary file of the parts: File too large");
  });
  // The content is lost: the stream says so rather than committing part of it.
  EXPECT_THROW_MESSAGE(
      out->close(), opc::Exception,
      "Could not write the shared temporary file of the parts: Input/output error");
  out.reset();
  EXPECT_FALSE(record->content);
  // What the file held before stays readable, and the file takes new content again.
  EXPECT_EQ(readAll(*kept->content), contentOf(1, 10000));
  auto later = recordOf(3);
  {
    PartOutputStream again(later, std::uint64_t{8} << 20, folder(), spool);
    writeThrough(again, contentOf(3, 3000), 3000);
  }
  EXPECT_EQ(readAll(*later->content), contentOf(3, 3000));
}

TEST_F(SharedSpoolTest, NoFolderForTheFileIsReported) {
  std::string const missing = dir_ / "missing";
  char const* oldTemp = std::getenv("TMPDIR");
  std::string const saved = oldTemp != nullptr ? oldTemp : "";
  ::setenv("TMPDIR", missing.c_str(), 1);
  auto spool = std::make_shared<SharedSpool>(10, opc::toString(missing));
  auto record = recordOf(1);
  PartOutputStream out(record, std::uint64_t{8} << 20, opc::toString(missing), spool);
  std::vector<unsigned char> const bytes = contentOf(1, 100);
  // Past the budget the bytes are gathered before they go to the file; closing sends them.
  out.write(bytes.data(), bytes.size());
  EXPECT_THROW_MESSAGE(
      out.close(), opc::Exception,
      "Could not create the shared temporary file of the parts: No such file or directory");
  if (oldTemp != nullptr) {
    ::setenv("TMPDIR", saved.c_str(), 1);
  } else {
    ::unsetenv("TMPDIR");
  }
  EXPECT_EQ(spool->reserved(), 0u);
}

}  // namespace
}  // namespace detail
}  // namespace model
}  // namespace opc
