// A package of thousands of parts read from a file, changed in a few places and saved: every
// part that was not touched comes over with its stored bytes as they lay (never inflated nor
// deflated again, which another encoder's bytes would betray), and a save that fails half way
// leaves the file as it was, with nothing beside it.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::Bytes;
using opcvk_test::readAll;
using opcvk_test::writeAll;

constexpr int kParts = 3000;

std::string partText(int index) {
  return opcvk_test::numberedLines(200 + static_cast<std::size_t>(index % 7) * 50,
                                   "<p n=\"" + std::to_string(index) + "\">", 9, "</p>");
}

std::string itemOf(int index) {
  return "f/" + std::to_string(index % 10) + "/p" + std::to_string(index) + ".xml";
}

// Items deflated by the test's own encoder (one fixed-code block), stored ones among them, one
// flagged as followed by a data descriptor and one with ZIP64 sizes in its central header.
opcvk_test::ZipBuilder manyParts() {
  opcvk_test::ZipBuilder zip;
  zip.add("[Content_Types].xml", opcvk_test::minimalTypes());
  zip.add("_rels/.rels", opcvk_test::relationshipsXml(
                             "<Relationship Id=\"r1\" Type=\"urn:t\" Target=\"/f/0/p0.xml\"/>"));
  for (int i = 0; i < kParts; ++i) {
    opcvk_test::ZipBuilderItem& item = zip.add(itemOf(i), partText(i), i % 5 == 0 ? 0 : 8);
    if (i == 7) item.flags = 0x0008;
    if (i == 8) item.zip64 = true;
  }
  return zip;
}

std::unique_ptr<detail::ZipArchive> openFile(std::string const& path) {
  return detail::ZipArchive::open(detail::openFileSource(path), PackageLimits());
}

std::u16string partOf(int index) { return u"/" + opcvk_test::u16(itemOf(index)); }

TEST(PackageModifySaveTest, UntouchedPartsAreCopiedAsTheyLayThroughEveryKindOfChange) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  opcvk_test::writeFile(path, manyParts().build());
  auto const original = openFile(path);

  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Modify);
  // Written again, deleted, made new, a relationship added to a part and one to the package.
  writeAll(package->getPart(PartName(partOf(1))).getOutputStream(), "rewritten");
  package->deletePart(PartName(partOf(2)));
  Part added = package->createPart(PartName(u"/new/added.txt"), ContentType(u"text/plain"),
                                   StandardPartInfo(CompressionType::DeflateContent, 0));
  writeAll(added.getOutputStream(), "added");
  package->getPart(PartName(partOf(3)))
      .createInternalRelationship(u"urn:t", URI(u"/new/added.txt"), u"");
  package->createInternalRelationship(u"urn:u", URI(u"/new/added.txt"), u"");
  package->save();
  package.reset();

  auto const saved = openFile(path);
  auto reader = Package::open(opcvk_test::u16(path), PackageAccess::Read);
  EXPECT_EQ(reader->getParts().size(), static_cast<std::size_t>(kParts));
  for (int i = 0; i < kParts; ++i) {
    if (i == 1 || i == 2) continue;
    std::string const item = itemOf(i);
    ASSERT_EQ(opcvk_test::storedBytes(*saved, item), opcvk_test::storedBytes(*original, item))
        << item;
    detail::ZipEntry const before = original->entry(static_cast<std::size_t>(original->find(item)));
    detail::ZipEntry const after = saved->entry(static_cast<std::size_t>(saved->find(item)));
    EXPECT_EQ(after.crc32, before.crc32) << item;
    EXPECT_EQ(after.method, before.method) << item;
    EXPECT_EQ(readAll(reader->getPart(PartName(partOf(i))).getInputStream()), partText(i)) << item;
  }
  EXPECT_EQ(readAll(reader->getPart(PartName(partOf(1))).getInputStream()), "rewritten");
  EXPECT_FALSE(reader->hasPart(PartName(partOf(2))));
  EXPECT_EQ(readAll(reader->getPart(PartName(u"/new/added.txt")).getInputStream()), "added");
  EXPECT_EQ(reader->getPart(PartName(u"/new/added.txt")).getContentType(),
            ContentType(u"text/plain"));
  EXPECT_EQ(reader->getPart(PartName(partOf(3))).getRelationshipsByType(u"urn:t").size(), 1u);
  EXPECT_EQ(reader->getRelationshipsByType(u"urn:t").size(), 1u);
  EXPECT_EQ(reader->getRelationshipsByType(u"urn:u").size(), 1u);
  EXPECT_EQ(opcvk_test::folderNames(dir.path()), std::vector<std::string>{"p.zip"});
}

TEST(PackageModifySaveTest, SaveThatFailsHalfWayLeavesTheFileAsItWasAndNothingBesideIt) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  opcvk_test::ZipBuilder zip = manyParts();
  // An item late in the archive that opens (its central header is sound) but cannot be
  // copied: the save has written most of the new file when it meets it.
  zip.items[kParts - 100].localSignature = 0x12345678;
  Bytes const bytes = zip.build();
  opcvk_test::writeFile(path, bytes);

  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Modify);
  Part added = package->createPart(PartName(u"/new/added.txt"), ContentType(u"text/plain"),
                                   StandardPartInfo(CompressionType::DeflateContent, 0));
  writeAll(added.getOutputStream(), "added");
  std::string const bad = zip.items[kParts - 100].name;
  EXPECT_THROW_MESSAGE(package->save(), InvalidPackage,
                       "Invalid ZIP item \"" + bad + "\": its local header has a bad signature");
  EXPECT_EQ(opcvk_test::fileBytes(path), bytes);
  EXPECT_EQ(opcvk_test::folderNames(dir.path()), std::vector<std::string>{"p.zip"});
  // The package is still open and whole: what it reads is the old file.
  EXPECT_EQ(readAll(package->getPart(PartName(partOf(4))).getInputStream()), partText(4));
}

}  // namespace
}  // namespace model
}  // namespace opc
