// A new package made in a file names each saved item after its part, without keeping the
// item name beside the part: what comes back must be the same parts, names, types and
// relationships, on the first save and the next ones.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/output_stream.h>
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
};

std::vector<Sample> samples() {
  return {{u"/a.xml", u"application/xml", "<a/>"},
          {u"/donn\u00e9es/r\u00e9sum\u00e9.xml", u"application/vnd.example+xml", "<r>e</r>"},
          {u"/nouveau/\u00e9t\u00e9.bin", u"application/octet-stream", std::string(5000, 'b')},
          {u"/deep/er/still/a%20b.txt", u"text/plain; charset=utf-8", "percent"},
          {u"/empty", u"application/x-empty", ""}};
}

void create(Package& package, Sample const& sample) {
  Part part = package.createPart(PartName(sample.name), ContentType(sample.type),
                                 StandardPartInfo(CompressionType::DeflateContent, 0));
  writeAll(part.getOutputStream(), sample.bytes);
}

void expectSamples(std::string const& path, std::vector<Sample> const& expected) {
  std::vector<std::string> const names = opcvk_test::itemNames(opcvk_test::fileBytes(path));
  EXPECT_EQ(std::count(names.begin(), names.end(), "[Content_Types].xml"), 1);
  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
  EXPECT_EQ(package->getParts().size(), expected.size());
  for (Sample const& sample : expected) {
    PartName const name(sample.name);
    EXPECT_NE(std::find(names.begin(), names.end(), toZipItemName(name)), names.end())
        << toZipItemName(name);
    Part part = package->getPart(name);
    EXPECT_EQ(part.getContentType(), ContentType(sample.type)) << toZipItemName(name);
    EXPECT_EQ(readAll(part.getInputStream()), sample.bytes) << toZipItemName(name);
  }
}

TEST(EagerSaveItemsTest, PartsComeBackUnderTheirNamesWithTypesAndRelationships) {
  for (unsigned threads : {1u, 2u}) {
    opcvk_test::TempDir dir;
    std::string const path = dir / "p.zip";
    PackageOptions options;
    options.compressionThreads = threads;
    std::vector<Sample> expected = samples();
    {
      auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create, options);
      for (Sample const& sample : expected) create(*package, sample);
      package->createInternalRelationship(u"http://example.com/r", URI(u"/a.xml"), u"r1");
      package->getPart(PartName(expected[1].name))
          .createInternalRelationship(u"http://example.com/r", URI(u"/a.xml"), u"p1");
      // Written again and deleted then made again before the first save: the archive being
      // written holds their first contents, which the save must not keep.
      writeAll(package->getPart(PartName(u"/a.xml")).getOutputStream(), "<a>again</a>");
      package->deletePart(PartName(expected[2].name));
      create(*package, {expected[2].name, u"image/x-made-again", "made again"});
      package->save();
    }
    expected[0].bytes = "<a>again</a>";
    expected[2] = {expected[2].name, u"image/x-made-again", "made again"};
    expectSamples(path, expected);
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
    EXPECT_TRUE(package->hasRelationship(u"r1")) << threads;
    EXPECT_TRUE(package->getPart(PartName(expected[1].name)).hasRelationship(u"p1")) << threads;
  }
}

TEST(EagerSaveItemsTest, PartsClosedInAnotherOrderThanMadeAreKeptOnce) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  std::vector<Sample> const all = samples();
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    std::vector<opc::OutputStream*> streams;
    for (Sample const& sample : all) {
      Part part = package->createPart(PartName(sample.name), ContentType(sample.type),
                                      StandardPartInfo(CompressionType::Stored, 0));
      streams.push_back(&part.getOutputStream());
      streams.back()->write(reinterpret_cast<unsigned char const*>(sample.bytes.data()),
                            sample.bytes.size());
    }
    for (std::size_t i : {3u, 0u, 4u, 2u, 1u}) streams[i]->close();
    package->deletePart(PartName(all[4].name));
    package->save();
  }
  std::vector<Sample> expected(all.begin(), all.begin() + 4);
  expectSamples(path, expected);
  // Each content once, and the deleted part's bytes gone: the content types and four parts.
  EXPECT_EQ(opcvk_test::itemNames(opcvk_test::fileBytes(path)).size(), 5u);
}

TEST(EagerSaveItemsTest, LaterSavesAndUpdatesKeepEveryPart) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  std::vector<Sample> expected = samples();
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    for (Sample const& sample : expected) create(*package, sample);
    package->save();
    Sample const later{u"/later/\u00fcber.xml", u"application/xml", "<later/>"};
    create(*package, later);
    expected.push_back(later);
    package->save();
  }
  expectSamples(path, expected);
  {
    // An update of the saved package: one part goes, one changes, one comes.
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Modify);
    package->deletePart(PartName(expected[4].name));
    writeAll(package->getPart(PartName(expected[3].name)).getOutputStream(), "updated");
    Sample const added{u"/added.txt", u"text/plain", "added"};
    create(*package, added);
    package->save();
    expected.erase(expected.begin() + 4);
    expected[3].bytes = "updated";
    expected.push_back(added);
  }
  expectSamples(path, expected);
}

}  // namespace
}  // namespace model
}  // namespace opc
