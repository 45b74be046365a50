// A new package made in a file writes each part into the temporary archive as soon as its
// stream is closed; the save completes that archive.
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"
#include "zip/zip_dos_time.h"
#include "zip/zip_stream_writer.h"
#include "zip/zip_writer_output.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::readAll;
using opcvk_test::writeAll;

// Names in `folder`, "." and ".." left out.
std::vector<std::string> namesIn(std::string const& folder) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return names;
  while (dirent* entry = ::readdir(dir)) {
    std::string const name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(dir);
  return names;
}

std::string fileBytes(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// Text that deflates, of about `size` bytes, different for each `seed`.
std::string text(std::size_t size, int seed) {
  std::string out;
  std::uint64_t state = static_cast<std::uint64_t>(seed) * 2654435761u + 1;
  while (out.size() < size) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    out += "line " + std::to_string(state >> 52) + " of seed " + std::to_string(seed) + "\n";
  }
  out.resize(size);
  return out;
}

struct Content {
  std::u16string name;
  std::string bytes;
  CompressionType compression;
};

std::vector<Content> sampleContents() {
  return {{u"/a.txt", text(10000, 1), CompressionType::DeflateContent},
          {u"/empty.txt", std::string(), CompressionType::DeflateContent},
          {u"/stored.bin", "STORED-AS-IT-IS " + text(3000, 2), CompressionType::Stored},
          // Past what is compressed in memory: streamed into the file in chunks.
          {u"/big.txt", text(std::size_t{6} << 20, 3), CompressionType::DeflateContent},
          {u"/meta.xml", "<a>" + text(500, 4) + "</a>", CompressionType::DeflateMetadata}};
}

void writeParts(Package& package, std::vector<Content> const& contents) {
  for (Content const& content : contents) {
    Part part = package.createPart(PartName(content.name), ContentType(u"text/plain"),
                                   StandardPartInfo(content.compression, 0));
    writeAll(part.getOutputStream(), content.bytes);
  }
}

void expectParts(std::string const& path, std::vector<Content> const& contents) {
  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
  EXPECT_EQ(package->getParts().size(), contents.size());
  for (Content const& content : contents) {
    Part part = package->getPart(PartName(content.name));
    EXPECT_EQ(readAll(part.getInputStream()), content.bytes) << opc::toUDEString(content.name);
  }
}

TEST(EagerArchiveTest, PartsGoIntoTheTemporaryFileBeforeTheSaveAndReadBackFromIt) {
  opcvk_test::TempDir dir;
  // One thread: the caller's compresses and writes as each stream closes, so that what the
  // file holds at a given moment is known.
  PackageOptions options;
  options.compressionThreads = 1;
  std::vector<Content> contents = sampleContents();
  contents.push_back({u"/stored-big.bin", text(std::size_t{3} << 20, 5), CompressionType::Stored});
  {
    auto package = Package::open(opcvk_test::u16(dir / "p.zip"), PackageAccess::Create, options);
    writeParts(*package, contents);
    // The parts' bytes are in the temporary file beside the package, not in the package.
    std::vector<std::string> const names = namesIn(dir.path());
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names[0].rfind(".p.zip.", 0), 0u) << names[0];
    EXPECT_GE(fileBytes(dir / names[0]).size(), std::size_t{3} << 20);
    for (Content const& content : contents) {
      EXPECT_EQ(readAll(package->getPart(PartName(content.name)).getInputStream()), content.bytes);
    }
    package->save();
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
    // Parts read from the saved package now; a second save copies them.
    Part added = package->createPart(PartName(u"/later.txt"), ContentType(u"text/plain"),
                                     StandardPartInfo(CompressionType::DeflateContent, 0));
    writeAll(added.getOutputStream(), "after the first save");
    package->save();
  }
  std::vector<Content> expected = contents;
  expected.push_back({u"/later.txt", "after the first save", CompressionType::DeflateContent});
  expectParts(dir / "p.zip", expected);
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(EagerArchiveTest, PartsWrittenBeforeTheSaveStayInTheFileThatTheSaveRenames) {
  // The save finds every part it holds under the part's item name, ASCII or not, and so
  // completes the same file rather than copying the parts into a new one.
  opcvk_test::TempDir dir;
  std::vector<Content> contents = sampleContents();
  contents.push_back({u"/caf\u00e9/%5B%20x.txt", text(2000, 6), CompressionType::DeflateContent});
  {
    auto package = Package::open(opcvk_test::u16(dir / "p.zip"), PackageAccess::Create);
    writeParts(*package, contents);
    std::vector<std::string> const names = namesIn(dir.path());
    ASSERT_EQ(names.size(), 1u);
    struct stat before;
    ASSERT_EQ(::stat((dir / names[0]).c_str(), &before), 0);
    package->save();
    struct stat after;
    ASSERT_EQ(::stat((dir / "p.zip").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
  }
  expectParts(dir / "p.zip", contents);
}

TEST(EagerArchiveTest, WhatChangesAfterASaveIsWrittenAgainAndTheRestKept) {
  opcvk_test::TempDir dir;
  std::u16string const kType = u"http://example.com/rel";
  std::vector<Content> contents = sampleContents();
  {
    auto package = Package::open(opcvk_test::u16(dir / "p.zip"), PackageAccess::Create);
    writeParts(*package, contents);
    package->createInternalRelationship(kType, URI(u"/a.txt"), u"r1");
    Part meta = package->getPart(PartName(u"/meta.xml"));
    meta.createInternalRelationship(kType, URI(u"a.txt"), u"m1");
    package->getPart(PartName(u"/stored.bin"))
        .createInternalRelationship(kType, URI(u"a.txt"), u"s1");
    package->save();
    // Between the two saves: parts read from the saved file, one is written again, one goes,
    // one comes, a set of relationships changes and another does not.
    for (Content const& content : contents) {
      EXPECT_EQ(readAll(package->getPart(PartName(content.name)).getInputStream()), content.bytes);
    }
    writeAll(package->getPart(PartName(u"/a.txt")).getOutputStream(), "written again");
    package->deletePart(PartName(u"/empty.txt"));
    Part added = package->createPart(PartName(u"/later.txt"), ContentType(u"text/plain"),
                                     StandardPartInfo(CompressionType::DeflateContent, 0));
    writeAll(added.getOutputStream(), "after the first save");
    package->createInternalRelationship(kType, URI(u"/later.txt"), u"r2");
    package->save();
    writeAll(package->getPart(PartName(u"/big.txt")).getOutputStream(), "third");
    package->save();
  }
  contents[0].bytes = "written again";
  contents[3].bytes = "third";
  contents.erase(contents.begin() + 1);
  contents.push_back({u"/later.txt", "after the first save", CompressionType::DeflateContent});
  expectParts(dir / "p.zip", contents);
  auto package = Package::open(opcvk_test::u16(dir / "p.zip"), PackageAccess::Read);
  EXPECT_EQ(package->getRelationships().size(), 2u);
  EXPECT_TRUE(package->hasRelationship(u"r2"));
  EXPECT_TRUE(package->getPart(PartName(u"/meta.xml")).hasRelationship(u"m1"));
  EXPECT_TRUE(package->getPart(PartName(u"/stored.bin")).hasRelationship(u"s1"));
}

TEST(EagerArchiveTest, PartsDeletedOrRewrittenBeforeTheSaveLeaveNoBytesBehind) {
  for (unsigned threads : {1u, 2u}) {
    opcvk_test::TempDir dir;
    PackageOptions options;
    options.compressionThreads = threads;
    std::string const path = dir / "p.zip";
    {
      auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create, options);
      StandardPartInfo const stored(CompressionType::Stored, 0);
      for (char const* name : {"/a.bin", "/b.bin", "/c.bin"}) {
        Part part = package->createPart(PartName(opc::toString(name)),
                                        ContentType(u"application/x-b"), stored);
        writeAll(part.getOutputStream(), std::string("FIRST-CONTENT-OF-") + name);
      }
      package->deletePart(PartName(u"/b.bin"));
      writeAll(package->getPart(PartName(u"/c.bin")).getOutputStream(), "SECOND-CONTENT-OF-c");
      // A part made again under a deleted part's name is a new part.
      package->deletePart(PartName(u"/a.bin"));
      Part again =
          package->createPart(PartName(u"/a.bin"), ContentType(u"application/x-b"), stored);
      writeAll(again.getOutputStream(), "SECOND-CONTENT-OF-a");
      package->save();
    }
    std::string const bytes = fileBytes(path);
    EXPECT_EQ(bytes.find("FIRST-CONTENT-OF"), std::string::npos) << threads;
    expectParts(path, {{u"/a.bin", "SECOND-CONTENT-OF-a", CompressionType::Stored},
                       {u"/c.bin", "SECOND-CONTENT-OF-c", CompressionType::Stored}});
    auto archive = detail::ZipArchive::open(detail::openFileSource(path), PackageLimits());
    EXPECT_EQ(archive->entries().size(), 3u);  // the two parts and the content types
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
  }
}

TEST(EagerArchiveTest, ReproduciblePackagesAreTheSameWhateverTheThreadCount) {
  opcvk_test::TempDir dir;
  std::vector<Content> const contents = sampleContents();
  std::vector<std::string> packages;
  for (unsigned threads : {1u, 2u, 3u}) {
    PackageOptions options;
    options.compressionThreads = threads;
    options.reproducibleTime = 1700000000;
    std::string const path = dir / ("p" + std::to_string(threads) + ".zip");
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create, options);
    writeParts(*package, contents);
    package->save();
    packages.push_back(fileBytes(path));
  }
  EXPECT_EQ(packages[0], packages[1]);
  EXPECT_EQ(packages[0], packages[2]);
  expectParts(dir / "p1.zip", contents);
}

TEST(EagerArchiveTest, PackageClosedWithoutSaveLeavesNothing) {
  opcvk_test::TempDir dir;
  PackageOptions options;
  options.compressionThreads = 2;
  {
    auto package = Package::open(opcvk_test::u16(dir / "p.zip"), PackageAccess::Create, options);
    writeParts(*package, sampleContents());
    EXPECT_EQ(namesIn(dir.path()).size(), 1u);
  }
  EXPECT_TRUE(namesIn(dir.path()).empty());
}

TEST(EagerArchiveTest, CreateOverAnExistingPackageKeepsItUntilTheSave) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    writeParts(*package, {{u"/old.txt", "old", CompressionType::DeflateContent}});
    package->save();
  }
  std::string const old = fileBytes(path);
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    writeParts(*package, {{u"/new.txt", "new", CompressionType::DeflateContent}});
    EXPECT_EQ(fileBytes(path), old);
  }
  EXPECT_EQ(fileBytes(path), old);
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(ZipStreamWriterTest, ManyItemsGetZip64EndRecordsThatReadersFollow) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "many.zip";
  std::size_t const count = 70000;  // past the 65,535 items of the classic end record
  { std::ofstream create(path, std::ios::binary); }
  int const fd = ::open(path.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  detail::ZipStreamWriter writer(fd, detail::dosTimeOf(1700000000));
  for (std::size_t i = 0; i < count; ++i) {
    writer.add("i/" + std::to_string(i), false, 0, 0, nullptr, 0);
  }
  unsigned char const data[] = {'x', 'y', 'z'};
  writer.add("last \xC3\xA9", false, 0x67452301, 3, data, 3);  // CRC not checked here
  writer.finish();
  ::close(fd);
  auto archive = detail::ZipArchive::open(detail::openFileSource(path), PackageLimits());
  ASSERT_EQ(archive->entries().size(), count + 1);
  EXPECT_EQ(archive->entries()[12345].name, "i/12345");
  EXPECT_EQ(archive->entries()[count].name, "last \xC3\xA9");
  EXPECT_EQ(archive->entries()[count].uncompressedSize, 3u);
}

}  // namespace
}  // namespace model
}  // namespace opc
