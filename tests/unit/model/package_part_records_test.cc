// The parts of a package read from an archive: whether it is open for Read (rows of a table,
// records made when asked for) or for Modify (records made at open), every part is found by
// its name in any ASCII case, keeps the spelling and content type of the archive, comes in
// the archive's order and reads back its bytes; conflicting names are refused alike.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/zip_item_names.h>

#include "package/part_table.h"
#include "support/expect_exception.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::makeZip;

std::string const kTypes =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
    "<Default Extension=\"rels\" "
    "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
    "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
    "<Default Extension=\"txt\" ContentType=\"text/plain; charset=utf-8\"/>"
    "<Override PartName=\"/Docs/Special.txt\" ContentType=\"text/x-special\"/>"
    "</Types>";

opcvk_test::Bytes threeParts() {
  return makeZip({{"[Content_Types].xml", kTypes},
                  {"Docs/Readme.TXT", "read me"},
                  {"Docs/Special.txt", "special"},
                  {"_rels/.rels", opcvk_test::relationshipsXml("")},
                  {"data/a.xml", "<a/>"},
                  {"data/b.xml", "<b/>"}});
}

class PackagePartRecordsTest : public ::testing::TestWithParam<PackageAccess> {};

TEST_P(PackagePartRecordsTest, FindsPartsInAnyCaseWithTheArchiveSpelling) {
  auto package = Package::openBuffer(threeParts(), GetParam());
  EXPECT_TRUE(package->hasPart(PartName(u"/docs/readme.txt")));
  Part part = package->getPart(PartName(u"/DOCS/README.txt"));
  EXPECT_EQ(part.getName().toString(), u"/Docs/Readme.TXT");
  EXPECT_EQ(opcvk_test::readAll(part.getInputStream()), "read me");
  EXPECT_EQ(part.getSize(), 7u);
  EXPECT_FALSE(package->hasPart(PartName(u"/Docs/Readme")));
  EXPECT_FALSE(package->hasPart(PartName(u"/_rels/.rels")));
  EXPECT_THROW_MESSAGE(package->getPart(PartName(u"/data/c.xml")), PartNotFound,
                       "No part \"/data/c.xml\" in the package (in memory)");
}

TEST_P(PackagePartRecordsTest, GivesEachPartTheContentTypeOfItsDefaultOrOverride) {
  auto package = Package::openBuffer(threeParts(), GetParam());
  EXPECT_EQ(package->getPart(PartName(u"/Docs/Readme.TXT")).getContentType().toString(),
            u"text/plain;charset=utf-8");
  EXPECT_EQ(package->getPart(PartName(u"/docs/special.TXT")).getContentType().toString(),
            u"text/x-special");
  EXPECT_EQ(package->getPart(PartName(u"/data/a.xml")).getContentType().toString(),
            u"application/xml");
  EXPECT_EQ(package->getPart(PartName(u"/data/b.xml")).getContentType().toString(),
            u"application/xml");
  EXPECT_EQ(package->getPart(PartName(u"/data/b.xml")).getCompressionType(),
            interfaces::CompressionType::Stored);
}

TEST_P(PackagePartRecordsTest, ListsThePartsInTheArchivesOrder) {
  auto package = Package::openBuffer(threeParts(), GetParam());
  std::vector<std::u16string> names;
  for (Part const& part : package->getParts()) names.push_back(part.getName().toString());
  EXPECT_EQ(names, (std::vector<std::u16string>{u"/Docs/Readme.TXT", u"/Docs/Special.txt",
                                                u"/data/a.xml", u"/data/b.xml"}));
  // Asked twice, the same.
  EXPECT_EQ(package->getParts().size(), 4u);
}

TEST_P(PackagePartRecordsTest, TellsNamesThatWouldMakeAPartAFolderOfAnother) {
  auto package = Package::openBuffer(threeParts(), GetParam());
  std::u16string existing;
  EXPECT_TRUE(package->isPartDerivedFromExistingPartName(PartName(u"/data/a.xml/x"), existing));
  EXPECT_EQ(existing, u"/data/a.xml");
  EXPECT_TRUE(package->isPartDerivedFromExistingPartName(PartName(u"/DOCS"), existing));
  EXPECT_EQ(existing, u"/Docs/Readme.TXT");
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/data/c.xml"), existing));
}

TEST_P(PackagePartRecordsTest, HandlesStayValidWhileThePackageIsOpen) {
  auto package = Package::openBuffer(threeParts(), GetParam());
  Part part = package->getPart(PartName(u"/data/a.xml"));
  Part again = package->getPart(PartName(u"/data/a.xml"));
  EXPECT_TRUE(part.isValid());
  EXPECT_EQ(opcvk_test::readAll(part.getInputStream()), "<a/>");
  EXPECT_EQ(opcvk_test::readAll(again.getInputStream()), "<a/>");
  package.reset();
  EXPECT_FALSE(part.isValid());
}

TEST_P(PackagePartRecordsTest, RefusesItemsThatNameOnePartInAnyOrder) {
  for (bool folderFirst : {false, true}) {
    opcvk_test::Items items = {{"[Content_Types].xml", kTypes}};
    if (folderFirst) items.push_back({"a.xml/b.xml", "y"});
    items.push_back({"A.xml", "x"});
    if (!folderFirst) items.push_back({"a.xml/b.xml", "y"});
    EXPECT_THROW_MESSAGE(
        Package::openBuffer(makeZip(items), GetParam()), InvalidPackage,
        folderFirst ? "Invalid package (in memory): the parts \"/a.xml/b.xml\" and \"/A.xml\" "
                      "cannot both exist, since one name is a folder of the other"
                    : "Invalid package (in memory): the parts \"/A.xml\" and \"/a.xml/b.xml\" "
                      "cannot both exist, since one name is a folder of the other");
  }
  // Two spellings of one name (the ZIP layer already refuses names equal but for case).
  EXPECT_THROW_MESSAGE(Package::openBuffer(makeZip({{"[Content_Types].xml", kTypes},
                                                    {"x/\xC3\xA9.xml", "1"},
                                                    {"x/b.xml", "2"},
                                                    {"x/%c3%a9.xml", "3"}}),
                                           GetParam()),
                       InvalidPackage,
                       "Invalid package (in memory): the items \"" +
                           opc::toUDEString(u"x/\xE9.xml") +
                           "\" and \"x/%c3%a9.xml\" name the same part");
  EXPECT_THROW_MESSAGE(
      Package::openBuffer(makeZip({{"[Content_Types].xml", kTypes},
                                   {"_rels/\xC3\xA9.xml.rels", opcvk_test::relationshipsXml("")},
                                   {"_rels/%C3%A9.xml.rels", opcvk_test::relationshipsXml("")}}),
                          GetParam()),
      InvalidPackage,
      "Invalid package (in memory): the items \"" + opc::toUDEString(u"_rels/\xE9.xml.rels") +
          "\" and \"_rels/%C3%A9.xml.rels\" name the same part");
}

TEST_P(PackagePartRecordsTest, RefusesAFolderOfPartsWhereverItComesAmongItsFolder) {
  std::string const kBoth = " cannot both exist, since one name is a folder of the other";
  // After several parts of a folder: a part named as that folder, and one below the last.
  EXPECT_THROW_MESSAGE(Package::openBuffer(makeZip({{"[Content_Types].xml", kTypes},
                                                    {"d/e.xml/f/1.xml", "1"},
                                                    {"d/e.xml/f/2.xml", "2"},
                                                    {"d/e.xml/g.xml", "3"},
                                                    {"d/E.xml", "4"}}),
                                           GetParam()),
                       InvalidPackage,
                       "Invalid package (in memory): the parts \"/d/e.xml/f/1.xml\" and "
                       "\"/d/E.xml\"" +
                           kBoth);
  EXPECT_THROW_MESSAGE(Package::openBuffer(makeZip({{"[Content_Types].xml", kTypes},
                                                    {"d/e.xml/f/1.xml", "1"},
                                                    {"d/e.xml/f.xml", "2"},
                                                    {"d/e.xml/F.xml/z.xml", "3"}}),
                                           GetParam()),
                       InvalidPackage,
                       "Invalid package (in memory): the parts \"/d/e.xml/f.xml\" and "
                       "\"/d/e.xml/F.xml/z.xml\"" +
                           kBoth);
  // Below a part read some folders earlier.
  EXPECT_THROW_MESSAGE(Package::openBuffer(makeZip({{"[Content_Types].xml", kTypes},
                                                    {"p/q.xml", "1"},
                                                    {"p/r/1.xml", "2"},
                                                    {"s/1.xml", "3"},
                                                    {"p/q.xml/r/t.xml", "4"}}),
                                           GetParam()),
                       InvalidPackage,
                       "Invalid package (in memory): the parts \"/p/q.xml\" and "
                       "\"/p/q.xml/r/t.xml\"" +
                           kBoth);
}

TEST_P(PackagePartRecordsTest, RefusesAFolderOfPartsNamedInAnotherScriptOrCase) {
  std::string const kBoth = " cannot both exist, since one name is a folder of the other";
  // The folder's key holds escapes of the name's other script, its letters in lower case.
  EXPECT_THROW_MESSAGE(Package::openBuffer(makeZip({{"[Content_Types].xml", kTypes},
                                                    {"d\xC3\xA9.xml/F/1.xml", "1"},
                                                    {"x/2.xml", "2"},
                                                    {"D\xC3\xA9.XML", "3"}}),
                                           GetParam()),
                       InvalidPackage,
                       "Invalid package (in memory): the parts \"" +
                           opc::toUDEString(u"/d\xE9.xml/F/1.xml") + "\" and \"" +
                           opc::toUDEString(u"/D\xE9.XML") + "\"" + kBoth);
  // Folders whose keys share all but their last escape are told apart.
  auto package = Package::openBuffer(
      makeZip(
          {{"[Content_Types].xml", kTypes}, {"\xC3\xA9.xml/1.xml", "1"}, {"\xC3\xA8.xml", "2"}}),
      GetParam());
  EXPECT_EQ(package->getParts().size(), 2u);
  std::u16string existing;
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/\xC9.xml"), existing));
  EXPECT_TRUE(package->isPartDerivedFromExistingPartName(PartName(u"/\xE9.xml"), existing));
  EXPECT_EQ(existing, u"/\xE9.xml/1.xml");
}

TEST_P(PackagePartRecordsTest, FindsEveryPartOfFoldersThatComeAndGoInTheArchive) {
  opcvk_test::Items items = {{"[Content_Types].xml", kTypes}};
  std::vector<std::string> names;
  for (int i = 0; i < 60; ++i) {
    // Folders revisited out of order, at several depths, sharing leading runs.
    std::string const name = "f" + std::to_string(i % 4) + "/g" + std::to_string(i % 3) +
                             (i % 5 == 0 ? "/h" : "") + "/" + std::to_string(i) + ".xml";
    names.push_back(name);
    items.push_back({name, std::to_string(i)});
  }
  auto package = Package::openBuffer(makeZip(items), GetParam());
  EXPECT_EQ(package->getParts().size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::u16string const name = u"/" + opc::detail::toStringFromUTF8String(names[i]);
    ASSERT_TRUE(package->hasPart(PartName(name))) << names[i];
    EXPECT_EQ(opcvk_test::readAll(package->getPart(PartName(name)).getInputStream()),
              std::to_string(i));
  }
  EXPECT_FALSE(package->hasPart(PartName(u"/f0/g0")));
  EXPECT_FALSE(package->hasPart(PartName(u"/f0/g0/h")));
}

INSTANTIATE_TEST_SUITE_P(Accesses, PackagePartRecordsTest,
                         ::testing::Values(PackageAccess::Read, PackageAccess::Modify),
                         [](::testing::TestParamInfo<PackageAccess> const& p) {
                           return p.param == PackageAccess::Read ? "Read" : "Modify";
                         });

TEST(PackagePartRecordsTest, AModifiedPackageKeepsItsPartsThroughSave) {
  auto package = Package::openBuffer(threeParts(), PackageAccess::Modify);
  package->deletePart(PartName(u"/data/a.xml"));
  opcvk_test::writeAll(package->getPart(PartName(u"/data/B.xml")).getOutputStream(), "<B/>");
  package->save();
  auto reopened = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  std::vector<std::u16string> names;
  for (Part const& part : reopened->getParts()) names.push_back(part.getName().toString());
  EXPECT_EQ(names, (std::vector<std::u16string>{u"/Docs/Readme.TXT", u"/Docs/Special.txt",
                                                u"/data/b.xml"}));
  EXPECT_EQ(opcvk_test::readAll(reopened->getPart(PartName(u"/data/b.xml")).getInputStream()),
            "<B/>");
  EXPECT_EQ(reopened->getPart(PartName(u"/Docs/Special.txt")).getContentType().toString(),
            u"text/x-special");
}

// An archive of `count` items "Folder/<i>.xml", whose parts have the keys "/folder/<i>.xml".
std::unique_ptr<detail::ZipArchive> folderArchive(std::uint32_t count) {
  opcvk_test::Items items;
  for (std::uint32_t i = 0; i < count; ++i)
    items.push_back({"Folder/" + std::to_string(i) + ".xml", ""});
  return detail::ZipArchive::open(
      detail::openBufferSource(std::make_shared<opcvk_test::Bytes const>(makeZip(items))),
      PackageLimits());
}

void expectToFindEveryKey(detail::PartTable& table);

TEST(PartTableTest, FindsEveryKeyItHoldsAndNoOther) {
  auto const archive = folderArchive(5000);
  for (std::size_t reserved : {0, 100, 5000}) {
    detail::PartTable table;
    // Room made for fewer rows than come: the table still grows.
    table.reserve(*archive, reserved);
    expectToFindEveryKey(table);
  }
}

void expectToFindEveryKey(detail::PartTable& table) {
  EXPECT_EQ(table.find("/a"), detail::PartTable::kNone);
  for (std::uint32_t i = 0; i < 5000; ++i) {
    EXPECT_EQ(table.add("/folder/" + std::to_string(i) + ".xml", i, i % 3), i);
  }
  for (std::uint32_t i = 0; i < 5000; ++i) {
    std::uint32_t const row = table.find("/folder/" + std::to_string(i) + ".xml");
    ASSERT_EQ(row, i);
    EXPECT_EQ(table.rows()[row].entry, i);
    EXPECT_EQ(table.rows()[row].type, i % 3);
  }
  EXPECT_EQ(table.find("/folder/5000.xml"), detail::PartTable::kNone);
  EXPECT_EQ(table.find("/folder/1.xm"), detail::PartTable::kNone);
  EXPECT_EQ(table.find("/Folder/1.xml"), detail::PartTable::kNone);
  EXPECT_EQ(table.find("folder/1.xml"), detail::PartTable::kNone);
  EXPECT_EQ(table.find("/folder/1.xml/"), detail::PartTable::kNone);
  EXPECT_EQ(table.find(""), detail::PartTable::kNone);
}

TEST(PartTableTest, KeepsAKeyThatDoesNotFollowFromItsItemName) {
  auto const archive = folderArchive(3);
  detail::PartTable table;
  table.reserve(*archive, 3);
  EXPECT_EQ(table.add("/folder/0.xml", 0, 0), 0u);
  EXPECT_EQ(table.add("/elsewhere.xml", 1, 0), 1u);
  EXPECT_EQ(table.add("/folder/2.xml", 2, 0), 2u);
  EXPECT_EQ(table.find("/elsewhere.xml"), 1u);
  EXPECT_EQ(table.find("/folder/1.xml"), detail::PartTable::kNone);
  EXPECT_EQ(table.find("/folder/2.xml"), 2u);
}

TEST(PartTableTest, TheKeyOfAnItemNameLowersOnlyAsciiCapitalsWhereverTheyStand) {
  // Every ASCII byte, at every place of names long enough to take whole blocks and a tail.
  for (std::size_t length : {1u, 15u, 16u, 17u, 31u, 33u, 70u}) {
    for (int first = 1; first < 0x80; first += 7) {
      std::string item;
      std::string key = "/";
      for (std::size_t i = 0; i < length; ++i) {
        char const c = static_cast<char>(1 + (first + i * 5) % 0x7F);
        item += c;
        key += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
      }
      EXPECT_EQ(detail::keyOfItemName(item), key) << item;
      // One byte of another script anywhere turns the whole name into escapes.
      std::string const other = item + "\xC3\x89";
      EXPECT_EQ(detail::keyOfItemName(other), key + "%c3%89") << item;
    }
  }
}

TEST(PartTableTest, TheKeyOfAnItemNameIsThatOfItsPartName) {
  struct Case {
    std::string item;
    std::string key;
    // Another spelling of the same part.
    std::string same;
  };
  std::vector<Case> const cases = {
      {"a.xml", "/a.xml", "A.XML"},
      {"Docs/ReadMe.TXT", "/docs/readme.txt", "docs/readme.txt"},
      {"%c3%A9/x.xml", "/%c3%a9/x.xml", "\xC3\xA9/X.xml"},
      {"\xC3\xA9t\xC3\xA9/\xE2\x82\xAC.XML", "/%c3%a9t%c3%a9/%e2%82%ac.xml",
       "%C3%A9t%C3%A9/%E2%82%AC.xml"},
      {"\xF0\x9F\x98\x80/Z", "/%f0%9f%98%80/z", "%f0%9f%98%80/z"},
      {"Long/ASCII/Path/Before/\xC3\x89", "/long/ascii/path/before/%c3%89",
       "LONG/ascii/PATH/before/%C3%89"},
      {"_rels/.rels", "/_rels/.rels", "_RELS/.RELS"},
      {"x/y-z_~!$&'()*+,;=@:.bin", "/x/y-z_~!$&'()*+,;=@:.bin", "X/Y-Z_~!$&'()*+,;=@:.BIN"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(detail::keyOfItemName(c.item), c.key) << c.item;
    // Items whose keys agree name one part, as the part names themselves say.
    EXPECT_EQ(detail::keyOfItemName(c.same), c.key) << c.same;
    EXPECT_EQ(partNameFromZipItemName(c.item), partNameFromZipItemName(c.same)) << c.item;
    EXPECT_TRUE(detail::isKeyOfItemName(c.key, c.item)) << c.item;
    EXPECT_TRUE(detail::isKeyOfItemName(c.key, c.same)) << c.same;
    EXPECT_FALSE(detail::isKeyOfItemName(c.key + "x", c.item)) << c.item;
    EXPECT_FALSE(detail::isKeyOfItemName(c.key.substr(0, c.key.size() - 1), c.item)) << c.item;
    EXPECT_FALSE(detail::isKeyOfItemName(c.key.substr(1), c.item)) << c.item;
  }
  EXPECT_NE(partNameFromZipItemName("a.xml"), partNameFromZipItemName("b.xml"));
  EXPECT_FALSE(detail::isKeyOfItemName("/a%c3", "a\xC3\xA9"));
  EXPECT_FALSE(detail::isKeyOfItemName("/a%C3%A9", "a\xC3\xA9"));
  EXPECT_FALSE(detail::isKeyOfItemName("", ""));
  EXPECT_TRUE(detail::isKeyOfItemName("/", ""));
}

TEST(PartTableTest, KeepsOneCopyOfEachContentType) {
  detail::PartTable table;
  ContentType const xml(u"application/xml");
  ContentType const sameText(u"application/xml");
  ContentType const text(u"text/plain");
  EXPECT_EQ(table.typeIndex(&xml), 0u);
  EXPECT_EQ(table.typeIndex(&text), 1u);
  EXPECT_EQ(table.typeIndex(&xml), 0u);
  // Another element of the content types, even of the same text, is another type.
  EXPECT_EQ(table.typeIndex(&sameText), 2u);
  ASSERT_EQ(table.types().size(), 3u);
  EXPECT_EQ(table.types()[1].toString(), u"text/plain");
}

}  // namespace
}  // namespace model
}  // namespace opc
