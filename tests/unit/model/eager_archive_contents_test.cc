// The contents of a new package made in a file move into the archive being written as their
// streams close; the save finds each part's item by where its content lies there.  What comes
// back must be each part once, with its last bytes, name and type, whatever was written
// again, deleted or made again meanwhile.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/input_stream.h>
#include <opc/model/package.h>
#include <opc/model/zip_item_names.h>

#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::readAll;
using opcvk_test::writeAll;

struct Sample {
  std::u16string name;
  std::u16string type;
  std::string bytes;
  CompressionType compression;
};

// `count` parts in a few folders, with names that are not all ASCII, every other
// one stored, some of them empty.
std::vector<Sample> manyParts(std::size_t count) {
  static char16_t const* const kFolders[] = {u"/a", u"/donn\u00e9es", u"/\u65e5\u672c",
                                             u"/deep/er/x"};
  static char16_t const* const kTypes[] = {u"text/plain", u"application/xml",
                                           u"application/vnd.example.summer+xml; charset=utf-8"};
  std::vector<Sample> samples;
  for (std::size_t i = 0; i < count; ++i) {
    std::string const number = std::to_string(i);
    std::u16string const name = std::u16string(kFolders[i % 4]) + u"/f\u00fc" +
                                std::u16string(number.begin(), number.end()) + u".bin";
    std::string bytes =
        i % 7 == 3 ? std::string() : "part " + number + " " + std::string(i / 2 % 300, 'x');
    samples.push_back({name, kTypes[i % 3], std::move(bytes),
                       i % 2 == 0 ? CompressionType::DeflateContent : CompressionType::Stored});
  }
  return samples;
}

void create(Package& package, Sample const& sample) {
  Part part = package.createPart(PartName(sample.name), ContentType(sample.type),
                                 StandardPartInfo(sample.compression, 0));
  writeAll(part.getOutputStream(), sample.bytes);
}

// Other bytes than `bytes` (unless empty), as many.
std::string turned(std::string bytes) {
  for (char& c : bytes) c = c == 'x' ? 'y' : c == 'p' ? 'P' : c;
  return bytes;
}

// The package at `path` holds `expected` and nothing else: each part once under its item
// name, with its type and bytes, beside one content types item.
void expectOnly(std::string const& path, std::vector<Sample> const& expected) {
  std::vector<std::string> const names = opcvk_test::itemNames(opcvk_test::fileBytes(path));
  EXPECT_EQ(names.size(), expected.size() + 1);
  EXPECT_EQ(std::count(names.begin(), names.end(), "[Content_Types].xml"), 1);
  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
  EXPECT_EQ(package->getParts().size(), expected.size());
  for (Sample const& sample : expected) {
    PartName const name(sample.name);
    std::string const item = toZipItemName(name);
    EXPECT_EQ(std::count(names.begin(), names.end(), item), 1) << item;
    Part part = package->getPart(name);
    EXPECT_EQ(part.getContentType(), ContentType(sample.type)) << item;
    EXPECT_EQ(readAll(part.getInputStream()), sample.bytes) << item;
  }
}

TEST(EagerArchiveContentsTest, ManyPartsChangedBeforeTheSaveComeBackOnceWithTheirLastBytes) {
  for (unsigned threads : {1u, 2u}) {
    opcvk_test::TempDir dir;
    std::string const path = dir / "p.zip";
    PackageOptions options;
    options.compressionThreads = threads;
    std::vector<Sample> expected = manyParts(600);
    {
      auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create, options);
      for (Sample const& sample : expected) create(*package, sample);
      for (std::size_t i = 0; i < expected.size(); i += 5) {
        // Written again with as many bytes, under the same name: only where the new content
        // lies tells it from the item of the first.
        expected[i].bytes = turned(expected[i].bytes);
        writeAll(package->getPart(PartName(expected[i].name)).getOutputStream(), expected[i].bytes);
      }
      for (std::size_t i = 2; i < expected.size(); i += 11) {
        // Deleted and made again under the same name, type and length.
        package->deletePart(PartName(expected[i].name));
        expected[i].bytes = turned(expected[i].bytes);
        create(*package, expected[i]);
      }
      for (Sample const& sample : expected) {
        ASSERT_EQ(readAll(package->getPart(PartName(sample.name)).getInputStream()), sample.bytes)
            << threads << " " << toZipItemName(PartName(sample.name));
      }
      package->save();
    }
    expectOnly(path, expected);
  }
}

TEST(EagerArchiveContentsTest, PartsDeletedBeforeTheSaveAreGoneAndTheSecondSaveKeepsTheRest) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  std::vector<Sample> const all = manyParts(300);
  std::vector<Sample> expected;
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    for (Sample const& sample : all) create(*package, sample);
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (i % 3 == 1) {
        package->deletePart(PartName(all[i].name));
      } else {
        expected.push_back(all[i]);
      }
    }
    package->save();
    expectOnly(path, expected);
    // After the save the parts read from the saved file; a second save with one part more
    // and one written again keeps every other part as it was.
    for (Sample const& sample : expected) {
      ASSERT_EQ(readAll(package->getPart(PartName(sample.name)).getInputStream()), sample.bytes);
    }
    Sample const later{u"/later/\u00e9t\u00e9.xml", u"application/xml", "<later/>",
                       CompressionType::DeflateContent};
    create(*package, later);
    expected.push_back(later);
    expected[1].bytes = turned(expected[1].bytes) + "!";
    writeAll(package->getPart(PartName(expected[1].name)).getOutputStream(), expected[1].bytes);
    package->save();
  }
  expectOnly(path, expected);
}

TEST(EagerArchiveContentsTest, AStreamOpenWhileItsContentMovesReadsItToTheEnd) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  PackageOptions options;
  options.compressionThreads = 1;
  std::string const first(100000, 'a');
  std::string const second = opcvk_test::numberedLines(300000, "line ", 1000, "\n");
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create, options);
    create(*package, {u"/first.txt", u"text/plain", first, CompressionType::DeflateContent});
    // Opened before the later parts push the first one's bytes out to the file.
    opc::InputStream& reading = package->getPart(PartName(u"/first.txt")).getInputStream();
    reading.open();
    unsigned char head[10];
    ASSERT_EQ(reading.read(head, sizeof head), sizeof head);
    for (int i = 0; i < 20; ++i) {
      std::string const name = "/later" + std::to_string(i) + ".txt";
      create(*package, {std::u16string(name.begin(), name.end()), u"text/plain", second,
                        CompressionType::DeflateContent});
    }
    package->save();
    std::string rest;
    unsigned char buffer[4096];
    while (std::size_t n = reading.read(buffer, sizeof buffer)) {
      rest.append(reinterpret_cast<char*>(buffer), n);
    }
    EXPECT_EQ(std::string(reinterpret_cast<char*>(head), sizeof head) + rest, first);
    EXPECT_EQ(readAll(package->getPart(PartName(u"/later19.txt")).getInputStream()), second);
  }
  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
  EXPECT_EQ(readAll(package->getPart(PartName(u"/first.txt")).getInputStream()), first);
  EXPECT_EQ(package->getParts().size(), 21u);
}

}  // namespace
}  // namespace model
}  // namespace opc
