// The writer that puts each item into the file as it comes (the save of a package read from an
// archive): raw copies keep their stored bytes whatever the source's headers held, new items
// read back, reproducible archives do not depend on the threads, and every failure names the
// file and the item and leaves the target as it was.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"
#include "zip/replacement_file.h"
#include "zip/zip_archive.h"

namespace {

using opc::interfaces::CompressionType;
using opc::model::CouldNotSavePackage;
using opc::model::InvalidPackage;
using opc::model::PackageLimits;
using opc::model::detail::ReplacementFile;
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

std::unique_ptr<ZipArchive> openBytes(std::string const& bytes) {
  return ZipArchive::open(
      opc::model::detail::openBufferSource(
          std::make_shared<std::vector<unsigned char> const>(bytes.begin(), bytes.end())),
      PackageLimits());
}

std::unique_ptr<ZipArchive> openPath(std::string const& path) {
  return ZipArchive::open(opc::model::detail::openFileSource(path), PackageLimits());
}

std::string content(ZipArchive const& archive, std::string const& name) {
  std::int64_t const index = archive.find(name);
  if (index < 0) return "(missing)";
  auto stream = archive.openEntry(archive.entry(static_cast<std::size_t>(index)));
  return opcvk_test::readAll(*stream);
}

std::string fileText(std::string const& path) {
  std::string result;
  if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) result.append(buffer, n);
    std::fclose(file);
  }
  return result;
}

std::string randomBytes(std::size_t size) {
  std::string result(size, '\0');
  std::uint64_t x = 0x9E3779B97F4A7C15ull;
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

// An archive whose items another writer made: deflated by an encoder that is not ours, one
// stored, one with a data descriptor flag, one whose central header has ZIP64 fields and one
// larger than a MiB.
opcvk_test::ZipBuilder foreignArchive() {
  opcvk_test::ZipBuilder zip;
  zip.add("deflated.xml", text(5000));
  zip.add("stored.bin", "0123456789", 0);
  zip.add("descriptor.txt", text(300)).flags = 0x0008;
  zip.add("zip64.txt", text(700)).zip64 = true;
  // Larger than the window that raw copies read through, between items that fit in it.
  zip.add("large.bin", randomBytes(std::size_t{3} << 20), 0);
  zip.add("after.txt", text(400));
  return zip;
}

TEST(ZipSequentialWriterTest, RawCopiesKeepTheirStoredBytesAndNewItemsReadBack) {
  opcvk_test::TempDir dir;
  std::string const foreign = foreignArchive().buildString();
  auto const from = openBytes(foreign);
  std::string const big = text(6u << 20);
  std::string const noise = randomBytes(3u << 20);
  for (unsigned threads : {1u, 2u}) {
    std::string const path = dir / ("p" + std::to_string(threads) + ".zip");
    {
      ReplacementFile file(path);
      auto writer = ZipWriter::sequentialToReplacement(file, threads);
      writer->add("[Content_Types].xml", CompressionType::DeflateMetadata, 300,
                  readerOf(text(300)));
      for (auto const& entry : from->entries()) writer->addRaw(entry.name, *from, entry);
      writer->add("new/small.txt", CompressionType::DeflateContent, 11, readerOf("hello world"));
      writer->add("new/stored.bin", CompressionType::Stored, 5, readerOf("12345"));
      writer->add("new/empty.txt", CompressionType::DeflateContent, 0, readerOf(""));
      writer->add("new/big.xml", CompressionType::DeflateContent, big.size(), readerOf(big));
      writer->add("new/noise.bin", CompressionType::DeflateContent, noise.size(), readerOf(noise));
      writer->commit();
      file.commit();
    }
    auto const archive = openPath(path);
    ASSERT_EQ(archive->size(), 12u);
    for (auto const& entry : from->entries()) {
      EXPECT_EQ(opcvk_test::storedBytes(*archive, entry.name),
                opcvk_test::storedBytes(*from, entry.name))
          << entry.name;
      ZipEntry const copied = archive->entry(static_cast<std::size_t>(archive->find(entry.name)));
      EXPECT_EQ(copied.method, entry.method) << entry.name;
      EXPECT_EQ(copied.crc32, entry.crc32) << entry.name;
      EXPECT_EQ(copied.uncompressedSize, entry.uncompressedSize) << entry.name;
      EXPECT_EQ(content(*archive, entry.name), content(*from, entry.name)) << entry.name;
    }
    EXPECT_EQ(content(*archive, "[Content_Types].xml"), text(300));
    EXPECT_EQ(content(*archive, "new/small.txt"), "hello world");
    EXPECT_EQ(content(*archive, "new/stored.bin"), "12345");
    EXPECT_EQ(archive->entry(static_cast<std::size_t>(archive->find("new/stored.bin"))).method, 0);
    EXPECT_EQ(content(*archive, "new/empty.txt"), "");
    EXPECT_EQ(content(*archive, "new/big.xml"), big);
    EXPECT_EQ(archive->entry(static_cast<std::size_t>(archive->find("new/big.xml"))).method, 8);
    EXPECT_LT(archive->entry(static_cast<std::size_t>(archive->find("new/big.xml"))).compressedSize,
              big.size() / 4);
    // Judged on its first MiB, which does not shrink: stored as it streams.
    EXPECT_EQ(content(*archive, "new/noise.bin"), noise);
    EXPECT_EQ(archive->entry(static_cast<std::size_t>(archive->find("new/noise.bin"))).method, 0);
  }
}

TEST(ZipSequentialWriterTest, ReproducibleArchivesDoNotDependOnTheThreads) {
  opcvk_test::TempDir dir;
  std::string const foreign = foreignArchive().buildString();
  auto const from = openBytes(foreign);
  std::vector<std::string> results;
  for (unsigned threads : {1u, 3u}) {
    std::string const path = dir / ("r" + std::to_string(threads) + ".zip");
    ReplacementFile file(path);
    auto writer = ZipWriter::sequentialToReplacement(file, threads);
    writer->makeReproducible(1600000000);
    for (auto const& entry : from->entries()) writer->addRaw(entry.name, *from, entry);
    std::string const big = text(5u << 20);
    writer->add("big.xml", CompressionType::DeflateContent, big.size(), readerOf(big));
    writer->commit();
    file.commit();
    results.push_back(fileText(path));
  }
  EXPECT_EQ(results[0], results[1]);
}

TEST(ZipSequentialWriterTest, WrongContentSizeFailsTheAddNamingFileAndItem) {
  struct Case {
    CompressionType compression;
    std::size_t declared;
    std::string content;
    std::string message;
  };
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  std::string const prefix = "Could not save package \"" + path + "\": item \"x\": ";
  std::vector<Case> const cases = {
      {CompressionType::DeflateContent, 8, "12345",
       "its content ends after 5 bytes, before the 8 declared"},
      {CompressionType::DeflateContent, 3, "12345",
       "its content goes on past the 3 bytes declared"},
      {CompressionType::Stored, 8, "12345",
       "its content ends after 5 bytes, before the 8 declared"},
      {CompressionType::Stored, 3, "12345", "its content goes on past the 3 bytes declared"},
      {CompressionType::Stored, 0, "1", "its content goes on past the 0 bytes declared"},
  };
  for (Case const& c : cases) {
    {
      ReplacementFile file(path);
      auto writer = ZipWriter::sequentialToReplacement(file, 1);
      EXPECT_THROW_MESSAGE(writer->add("x", c.compression, c.declared, readerOf(c.content)),
                           CouldNotSavePackage, prefix + c.message);
      // Spent: the file holds part of an item.
      EXPECT_THROW_MESSAGE(
          writer->commit(), CouldNotSavePackage,
          "Could not save package \"" + path + "\": an earlier item could not be written");
    }
    EXPECT_EQ(opcvk_test::folderNames(dir.path()), std::vector<std::string>{});
  }
}

TEST(ZipSequentialWriterTest, ReaderThatThrowsIsToldWithTheItem) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  std::ofstream(path, std::ios::binary) << "original";
  {
    ReplacementFile file(path);
    auto writer = ZipWriter::sequentialToReplacement(file, 1);
    ZipContentReader const failing = [](unsigned char*, std::size_t) -> std::size_t {
      throw opc::model::InvalidPackageState("the part was deleted");
    };
    writer->add("first", CompressionType::Stored, 1, readerOf("1"));
    EXPECT_THROW_MESSAGE(
        writer->add("bad", CompressionType::DeflateContent, 4, failing), CouldNotSavePackage,
        "Could not save package \"" + path + "\": item \"bad\": the part was deleted");
    ZipContentReader const foreignFailure = [](unsigned char*, std::size_t) -> std::size_t {
      throw std::runtime_error("disk gone");
    };
    ReplacementFile other(dir / "q.zip");
    auto second = ZipWriter::sequentialToReplacement(other, 1);
    EXPECT_THROW_MESSAGE(
        second->add("bad", CompressionType::Stored, 4, foreignFailure), CouldNotSavePackage,
        "Could not save package \"" + (dir / "q.zip") + "\": item \"bad\": disk gone");
  }
  EXPECT_EQ(fileText(path), "original");
  EXPECT_EQ(opcvk_test::folderNames(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(ZipSequentialWriterTest, RawCopyOfAnItemWithABadLocalHeaderIsTheArchivesFault) {
  opcvk_test::TempDir dir;
  opcvk_test::ZipBuilder zip;
  zip.add("good.txt", "good");
  zip.add("bad.txt", "bad").localSignature = 0x12345678;
  std::string const foreign = zip.buildString();
  auto const from = openBytes(foreign);
  std::string const path = dir / "p.zip";
  {
    ReplacementFile file(path);
    auto writer = ZipWriter::sequentialToReplacement(file, 1);
    writer->addRaw("good.txt", *from, from->entry(0));
    EXPECT_THROW_MESSAGE(writer->addRaw("bad.txt", *from, from->entry(1)), InvalidPackage,
                         "Invalid ZIP item \"bad.txt\": its local header has a bad signature");
  }
  EXPECT_EQ(opcvk_test::folderNames(dir.path()), std::vector<std::string>{});
}

TEST(ZipSequentialWriterTest, NothingFollowsTheCommit) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  ReplacementFile file(path);
  auto writer = ZipWriter::sequentialToReplacement(file, 1);
  writer->commit();
  std::string const prefix = "Could not save package \"" + path + "\": ";
  EXPECT_THROW_MESSAGE(writer->commit(), CouldNotSavePackage,
                       prefix + "the archive was already written");
  EXPECT_THROW_MESSAGE(writer->add("late", CompressionType::Stored, 0, readerOf("")),
                       CouldNotSavePackage, prefix + "the archive was already written");
  EXPECT_THROW_MESSAGE(writer->makeReproducible(0), CouldNotSavePackage,
                       prefix + "the reproducible time must be set before the first item");
  file.commit();
  EXPECT_EQ(openPath(path)->size(), 0u);
}

}  // namespace
