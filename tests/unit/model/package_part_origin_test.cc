// A part read from an archive keeps the name of its item for as long as it lives, and the
// item itself (copied raw at save) until its content is written; a part made here has
// neither until a save points it at the saved archive.  Through saves, writes, deletions and
// parts made again, each part comes back once under the right item name, with its type and
// last bytes.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/package.h>
#include <opc/model/zip_item_names.h>

#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::Bytes;
using opcvk_test::readAll;
using opcvk_test::writeAll;

// "données/é.xml", "données/ü.xml" and "plain.txt", spelled in UTF-8 as other writers do.
std::string const kAccented =
    "donn\xC3\xA9"
    "es/\xC3\xA9.xml";
std::string const kUmlaut =
    "donn\xC3\xA9"
    "es/\xC3\xBC.xml";
std::u16string const kAccentedPart = u"/donn\u00e9es/\u00e9.xml";
std::u16string const kUmlautPart = u"/donn\u00e9es/\u00fc.xml";

Bytes original() {
  return opcvk_test::makeZip({{"[Content_Types].xml", opcvk_test::minimalTypes()},
                              {kAccented, "<accented/>"},
                              {kUmlaut, "<umlaut/>"},
                              {"plain.txt", "plain"}});
}

struct Expected {
  std::string item;
  std::u16string part;
  std::u16string type;
  std::string bytes;
};

void expectItems(Bytes const& bytes, std::vector<Expected> const& expected) {
  std::vector<std::string> const names = opcvk_test::itemNames(bytes);
  EXPECT_EQ(names.size(), expected.size() + 1);
  auto package = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_EQ(package->getParts().size(), expected.size());
  for (Expected const& part : expected) {
    EXPECT_EQ(std::count(names.begin(), names.end(), part.item), 1) << part.item;
    Part found = package->getPart(PartName(part.part));
    EXPECT_EQ(found.getContentType(), ContentType(part.type)) << part.item;
    EXPECT_EQ(readAll(found.getInputStream()), part.bytes) << part.item;
  }
}

TEST(PackagePartOriginTest, ItemNamesOfTheArchiveStayThroughWritesAndSavesAndNewPartsGetTheirOwn) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "m.zip";
  opcvk_test::writeFile(path, original());
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Modify);
    // Written again: its item keeps its name.  Deleted and made again: a new part, stored
    // under the name this package gives.  The third is copied as it lies.
    writeAll(package->getPart(PartName(kAccentedPart)).getOutputStream(), "<written/>");
    package->deletePart(PartName(kUmlautPart));
    Part again = package->createPart(PartName(kUmlautPart), ContentType(u"application/xml"),
                                     StandardPartInfo(CompressionType::DeflateMetadata, 0));
    writeAll(again.getOutputStream(), "<again/>");
    package->save();
    expectItems(
        opcvk_test::fileBytes(path),
        {{kAccented, kAccentedPart, u"application/xml", "<written/>"},
         {toZipItemName(PartName(kUmlautPart)), kUmlautPart, u"application/xml", "<again/>"},
         {"plain.txt", u"/plain.txt", u"text/plain", "plain"}});
    // A second save, after each part was written once more (their items now those of the
    // saved file), keeps the same names.
    writeAll(package->getPart(PartName(kAccentedPart)).getOutputStream(), "<second/>");
    writeAll(package->getPart(PartName(kUmlautPart)).getOutputStream(), "<second again/>");
    package->save();
  }
  expectItems(
      opcvk_test::fileBytes(path),
      {{kAccented, kAccentedPart, u"application/xml", "<second/>"},
       {toZipItemName(PartName(kUmlautPart)), kUmlautPart, u"application/xml", "<second again/>"},
       {"plain.txt", u"/plain.txt", u"text/plain", "plain"}});
}

TEST(PackagePartOriginTest, PartsMadeHereArePointedAtTheSavedArchiveAndWrittenAgainAfter) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  for (std::u16string const name : {u"/a.txt", u"/\u65e5\u672c/b.txt", u"/c.txt"}) {
    Part part = package->createPart(PartName(name), ContentType(u"text/plain"),
                                    StandardPartInfo(CompressionType::DeflateContent, 0));
    writeAll(part.getOutputStream(), "first " + toZipItemName(PartName(name)));
  }
  package->save();
  // From here the parts read from the saved archive; one is written again, one deleted and
  // made again with another type, one left as it is.
  writeAll(package->getPart(PartName(u"/a.txt")).getOutputStream(), "second a");
  package->deletePart(PartName(u"/\u65e5\u672c/b.txt"));
  Part again = package->createPart(PartName(u"/\u65e5\u672c/b.txt"), ContentType(u"text/x-b"),
                                   StandardPartInfo(CompressionType::Stored, 0));
  writeAll(again.getOutputStream(), "second b");
  package->save();
  std::vector<Expected> const expected = {{"a.txt", u"/a.txt", u"text/plain", "second a"},
                                          {toZipItemName(PartName(u"/\u65e5\u672c/b.txt")),
                                           u"/\u65e5\u672c/b.txt", u"text/x-b", "second b"},
                                          {"c.txt", u"/c.txt", u"text/plain", "first c.txt"}};
  expectItems(package->getBuffer(), expected);
  // A third save with nothing changed copies every part as it lies.
  Bytes const second = package->getBuffer();
  package->save();
  EXPECT_EQ(opcvk_test::itemNames(package->getBuffer()), opcvk_test::itemNames(second));
  expectItems(package->getBuffer(), expected);
}

}  // namespace
}  // namespace model
}  // namespace opc
