// Opening a package checks each item name as a part name.  Names of plain ASCII take a
// quicker road than the others; whichever they take, an item opens as a part exactly when
// its name (after "/") is a valid part name, keeps its spelling, and is refused with the
// part name's own message when it is not.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/part.h>

#include "support/expect_exception.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::Bytes;
using opcvk_test::makeZip;
using opcvk_test::minimalTypes;

std::string const kPrefix = "Invalid package (in memory): ";

// Item names around one ASCII character: inside a segment, at the end of a folder segment and
// at the start of the last one, each in a folder of the character's own (so that the names of
// different characters never name one part).  No backslash, "/" or NUL: the archive reader
// refuses those itself, before any part name is made.
std::vector<std::string> namesAround(char c) {
  static char const kHex[] = "0123456789abcdef";
  unsigned char const code = static_cast<unsigned char>(c);
  std::string const folder = std::string("f") + kHex[code >> 4] + kHex[code & 0xF] + "/";
  std::string const one(1, c);
  return {folder + "ab" + one + "cd.xml", folder + "ab" + one + "/cd.xml", folder + one + "ab.xml"};
}

// What the part name rules say of the item's name on their own: its text, or the message
// with which they refuse it.
struct Verdict {
  std::u16string text;
  std::string refusal;
};

Verdict verdictOf(std::string const& item) {
  Verdict verdict;
  try {
    verdict.text = PartName(u"/" + opc::detail::toStringFromUTF8String(item, true)).toString();
  } catch (InvalidPartName const& e) {
    verdict.refusal = e.what();
  }
  return verdict;
}

// Opens a package of these items (all valid part names) for Read and for Modify and checks
// that each is a part under its own spelling, in the order of the archive.
void expectPartsOpen(opcvk_test::Items const& items, std::vector<std::u16string> const& expected) {
  opcvk_test::Items all = {{"[Content_Types].xml", minimalTypes()}};
  all.insert(all.end(), items.begin(), items.end());
  Bytes const bytes = makeZip(all);
  for (PackageAccess const access : {PackageAccess::Read, PackageAccess::Modify}) {
    std::unique_ptr<Package> package = Package::openBuffer(bytes, access);
    std::vector<std::u16string> names;
    for (Part const& part : package->getParts()) names.push_back(part.getName().toString());
    EXPECT_EQ(names, expected);
    for (std::u16string const& name : expected) EXPECT_TRUE(package->hasPart(PartName(name)));
  }
}

void expectRefused(std::string const& item, std::string const& refusal) {
  SCOPED_TRACE(item);
  Bytes const bytes = makeZip({{"[Content_Types].xml", minimalTypes()}, {item, "x"}});
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackage>(
      [&] { Package::openBuffer(bytes, PackageAccess::Read); }, kPrefix + refusal));
}

TEST(PackageItemNamesTest, AnItemOpensExactlyWhenItsNameIsAValidPartName) {
  opcvk_test::Items valid;
  std::vector<std::u16string> texts;
  for (int c = 1; c < 0x80; ++c) {
    if (c == '/' || c == '\\') continue;
    for (std::string const& item : namesAround(static_cast<char>(c))) {
      Verdict const verdict = verdictOf(item);
      if (!verdict.refusal.empty()) {
        expectRefused(item, verdict.refusal);
        continue;
      }
      valid.push_back({item, "x"});
      texts.push_back(verdict.text);
    }
  }
  // Most ASCII characters may stand in a part name: all of those open in one package.
  EXPECT_GT(valid.size(), 200u);
  expectPartsOpen(valid, texts);
}

TEST(PackageItemNamesTest, NamesOfEveryFormGetTheVerdictOfThePartNameRules) {
  for (char const* name : {"a.xml",
                           ".xml",
                           "a/.b.xml",
                           "a./b.xml",
                           "a/./b.xml",
                           "a//b.xml",
                           "a/b.xml.",
                           "..a/b.xml",
                           "a/...",
                           "a/b..xml",
                           "%41.xml",
                           "%2F.xml",
                           "%5C.xml",
                           "%2e.xml",
                           "%e9.xml",
                           "%.xml",
                           "%4.xml",
                           "%zz.xml",
                           "a%20b.xml",
                           "\xC3\xA9.xml",
                           "d\xC3\xA9/e.xml",
                           "\xEF\xBF\xBE.xml",
                           "A/B/C/D.XML",
                           "ab:y/z.xml",
                           "~!$&'()*+,;=:@.xml"}) {
    SCOPED_TRACE(name);
    Verdict const verdict = verdictOf(name);
    if (verdict.refusal.empty()) {
      expectPartsOpen({{name, "x"}}, {verdict.text});
    } else {
      expectRefused(name, verdict.refusal);
    }
  }
}

TEST(PackageItemNamesTest, APlainNameWithoutAKnownExtensionHasNoContentType) {
  for (char const* name : {"noext", "a/b.bin", "a.b/c"}) {
    expectRefused(name, "the part \"/" + std::string(name) + "\" has no content type");
  }
}

TEST(PackageItemNamesTest, PlainNamesKeepTheirSpellingAndAreFoundInAnyCase) {
  Bytes const bytes = makeZip({{"[Content_Types].xml", minimalTypes()},
                               {"Docs/Read-Me_1~(x).XML", "a"},
                               {"docs/other.xml", "b"}});
  std::unique_ptr<Package> package = Package::openBuffer(bytes, PackageAccess::Read);
  Part const part = package->getPart(PartName(u"/DOCS/read-me_1~(X).xml"));
  EXPECT_EQ(part.getName().toString(), u"/Docs/Read-Me_1~(x).XML");
  EXPECT_TRUE(package->hasPart(PartName(u"/Docs/Other.XML")));
  EXPECT_FALSE(package->hasPart(PartName(u"/Docs/Read-Me_1~(x).XM")));
}

TEST(PackageItemNamesTest, LongNamesAreFoundInAnyCaseWhereverTheirLettersAndOtherBytesStand) {
  // Names longer than the pieces in which keys are made, with capitals and non-ASCII bytes
  // at the start, within and after the first pieces.
  Bytes const bytes =
      makeZip({{"[Content_Types].xml", minimalTypes()},
               {"ABCDEFGHIJKLMNOPQRSTUVWXYZ/abcdefghijklmnopqrstuvwxyz/@Z_z~A-a.XML", "a"},
               {"Folder/SubFolder/\xC3\xA9t\xC3\xA9-Long-NAME.txt", "b"},
               {"\xE6\x9D\xB1/Folder/SubFolder/Long-NAME-\xF0\x9F\x98\x80.txt", "c"}});
  std::unique_ptr<Package> package = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_EQ(package
                ->getPart(PartName(
                    u"/abcdefghijklmnopqrstuvwxyz/ABCDEFGHIJKLMNOPQRSTUVWXYZ/@z_Z~a-A.xml"))
                .getName()
                .toString(),
            u"/ABCDEFGHIJKLMNOPQRSTUVWXYZ/abcdefghijklmnopqrstuvwxyz/@Z_z~A-a.XML");
  EXPECT_TRUE(package->hasPart(PartName(u"/FOLDER/subfolder/%C3%A9t%C3%A9-long-name.TXT")));
  EXPECT_FALSE(package->hasPart(PartName(u"/FOLDER/subfolder/%C3%89t%C3%A9-long-name.TXT")));
  EXPECT_TRUE(package->hasPart(PartName(u"/\u6771/folder/SUBFOLDER/long-name-\U0001F600.TXT")));
}

TEST(PackageItemNamesTest, OverridesAndRelationshipsPartsAreFoundInAnyCase) {
  std::string const types =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"RELS\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"Txt\" ContentType=\"text/plain\"/>"
      "<Override PartName=\"/Docs/Special.TXT\" ContentType=\"text/x-special\"/>"
      "<Override PartName=\"/noext\" ContentType=\"text/x-bare\"/>"
      "</Types>";
  Bytes const bytes = makeZip({{"[Content_Types].xml", types},
                               {"docs/SPECIAL.txt", "special"},
                               {"Docs/plain.tXt", "plain"},
                               {"NOEXT", "bare"},
                               {"Docs/_Rels/plain.tXt.Rels", opcvk_test::relationshipsXml("")}});
  for (PackageAccess const access : {PackageAccess::Read, PackageAccess::Modify}) {
    std::unique_ptr<Package> package = Package::openBuffer(bytes, access);
    EXPECT_EQ(package->getPart(PartName(u"/docs/special.txt")).getContentType().toString(),
              u"text/x-special");
    EXPECT_EQ(package->getPart(PartName(u"/Docs/plain.txt")).getContentType().toString(),
              u"text/plain");
    EXPECT_EQ(package->getPart(PartName(u"/noext")).getContentType().toString(), u"text/x-bare");
    // The relationships part is no part of its own but the relationships of its source.
    EXPECT_FALSE(package->hasPart(PartName(u"/Docs/_Rels/plain.tXt.Rels")));
    std::vector<std::u16string> names;
    for (Part const& part : package->getParts()) names.push_back(part.getName().toString());
    EXPECT_EQ(names,
              (std::vector<std::u16string>{u"/docs/SPECIAL.txt", u"/Docs/plain.tXt", u"/NOEXT"}));
  }
}

TEST(PackageItemNamesTest, EscapedNamesTakeTheirTypesAndRelationshipsInAnyCase) {
  // Names of other scripts are written as escapes of their UTF-8 bytes: they are compared with
  // the escapes' digits in either case, like the letters around them.
  std::string const types =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"txt\" ContentType=\"text/plain\"/>"
      "<Default Extension=\"%C3%A9\" ContentType=\"text/x-accent\"/>"
      "<Override PartName=\"/Docs/%C3%A9t%C3%A9.TXT\" ContentType=\"text/x-special\"/>"
      "</Types>";
  std::string const rels = opcvk_test::relationshipsXml(
      "<Relationship Id=\"r\" Type=\"http://t\" Target=\"b%20c.txt\"/>");
  Bytes const bytes = makeZip({{"[Content_Types].xml", types},
                               {"docs/%c3%a9t%c3%a9.txt", "special"},
                               {"docs/b%20c.txt", "plain"},
                               {"docs/a.%c3%a9", "accent"},
                               {"docs/_rels/%C3%A9T%C3%A9.txt.rels", rels}});
  for (PackageAccess const access : {PackageAccess::Read, PackageAccess::Modify}) {
    std::unique_ptr<Package> package = Package::openBuffer(bytes, access);
    Part const special = package->getPart(PartName(u"/DOCS/%C3%A9t%C3%A9.txt"));
    EXPECT_EQ(special.getName().toString(), u"/docs/%c3%a9t%c3%a9.txt");
    EXPECT_EQ(special.getContentType().toString(), u"text/x-special");
    EXPECT_EQ(special.getRelationships().size(), 1u);
    EXPECT_EQ(package->getPart(PartName(u"/docs/B%20C.txt")).getContentType().toString(),
              u"text/plain");
    EXPECT_EQ(package->getPart(PartName(u"/docs/A.%C3%A9")).getContentType().toString(),
              u"text/x-accent");
    std::vector<std::u16string> names;
    for (Part const& part : package->getParts()) names.push_back(part.getName().toString());
    EXPECT_EQ(names, (std::vector<std::u16string>{u"/docs/%c3%a9t%c3%a9.txt", u"/docs/b%20c.txt",
                                                  u"/docs/a.%c3%a9"}));
  }
}

TEST(PackageItemNamesTest, AnEscapedNameAndItsUtf8BytesNameTheSamePart) {
  Bytes const bytes = makeZip(
      {{"[Content_Types].xml", minimalTypes()}, {"d/%c3%A9.TXT", "x"}, {"D/\xC3\xA9.txt", "y"}});
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackage>(
      [&] { Package::openBuffer(bytes, PackageAccess::Read); },
      kPrefix + "the items \"d/%c3%A9.TXT\" and \"" + opc::toUDEString(u"D/\xE9.txt") +
          "\" name the same part"));
}

TEST(PackageItemNamesTest, APartInsideARelationshipsPartIsFoundWhereverItsFolderStands) {
  // Folders with a "_" in every segment before it, so that "/_rels/" stands at every offset of
  // the steps in which names are searched, after many a "_" that begins nothing.
  for (std::size_t length = 0; length < 40; ++length) {
    std::string folder;
    for (std::size_t i = 0; i < length; ++i) folder += i % 3 == 2 ? "/" : "_";
    folder = "a" + folder + "b";
    SCOPED_TRACE(folder);
    std::string const inside = folder + "/_rels/c.xml.rels/d.xml";
    expectRefused(inside, "the part \"/" + inside + "\" lies inside the relationships part \"/" +
                              folder + "/_rels/c.xml.rels\"");
    // Without the "/" before "_rels" it is a folder like any other.
    std::string const beside = folder + "_rels/c.xml.rels/d.xml";
    expectPartsOpen({{beside, "x"}}, {u"/" + opc::detail::toStringFromUTF8String(beside, true)});
  }
}

TEST(PackageItemNamesTest, APartBelowAnotherIsRefusedWhicheverComesFirst) {
  for (bool const folderFirst : {false, true}) {
    SCOPED_TRACE(folderFirst);
    opcvk_test::Items items = {{"[Content_Types].xml", minimalTypes()}};
    if (folderFirst) {
      items.push_back({"A.xml/b.xml", "below"});
      items.push_back({"a.XML", "above"});
    } else {
      items.push_back({"a.XML", "above"});
      items.push_back({"A.xml/b.xml", "below"});
    }
    std::string const message =
        folderFirst ? kPrefix +
                          "the parts \"/A.xml/b.xml\" and \"/a.XML\" cannot both exist, "
                          "since one name is a folder of the other"
                    : kPrefix +
                          "the parts \"/a.XML\" and \"/A.xml/b.xml\" cannot both exist, "
                          "since one name is a folder of the other";
    Bytes const bytes = makeZip(items);
    EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackage>(
        [&] { Package::openBuffer(bytes, PackageAccess::Read); }, message));
  }
}

}  // namespace
}  // namespace model
}  // namespace opc
