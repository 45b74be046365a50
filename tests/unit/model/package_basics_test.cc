#include <algorithm>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <opc/core/local_file_system_ops.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::Bytes;
using opcvk_test::readAll;
using opcvk_test::u16;
using opcvk_test::writeAll;

StandardPartInfo const kDeflate(CompressionType::DeflateContent, 0);
std::u16string const kType = u"http://example.com/rel/a";

void addPart(Package& package, std::u16string const& name, std::string const& content,
             char16_t const* type = u"application/xml") {
  Part part = package.createPart(PartName(name), ContentType(type), kDeflate);
  writeAll(part.getOutputStream(), content);
}

std::string contentOf(Package const& package, std::u16string const& name) {
  return readAll(package.getPart(PartName(name)).getInputStream());
}

TEST(PackageTest, CreateSaveAndReopenGivesBackPartsTypesAndRelationships) {
  opcvk_test::TempDir dir;
  std::u16string const path = u16(dir / "p.zip");
  {
    auto package = Package::open(path, PackageAccess::Create);
    EXPECT_TRUE(package->isCreateOnly());
    EXPECT_FALSE(package->isReadOnly());
    addPart(*package, u"/a/b.xml", "<b/>");
    addPart(*package, u"/c.txt", "text", u"text/plain;charset=utf-8");
    package->createInternalRelationship(kType, URI(u"/a/b.xml"), u"rId1");
    package->getPart(PartName(u"/a/b.xml"))
        .createInternalRelationship(kType, URI(u"../c.txt"), u"");
    package->save();
  }
  auto package = Package::open(path, PackageAccess::Read);
  EXPECT_TRUE(package->isReadOnly());
  EXPECT_EQ(contentOf(*package, u"/a/b.xml"), "<b/>");
  EXPECT_EQ(contentOf(*package, u"/c.txt"), "text");
  EXPECT_EQ(package->getPart(PartName(u"/c.txt")).getContentType(),
            ContentType(u"text/plain;charset=utf-8"));
  auto rels = package->getRelationships();
  ASSERT_EQ(rels.size(), 1u);
  EXPECT_EQ(rels.getEntries()[0].getID(), u"rId1");
  auto partRels = package->getPart(PartName(u"/a/b.xml")).getRelationships();
  ASSERT_EQ(partRels.size(), 1u);
  EXPECT_EQ(partRels.getEntries()[0].getTargetPartName(), PartName(u"/c.txt"));
}

// Every new part starts empty; what is written to one never shows in another, before the
// save or after it, nor in a part made after it.
TEST(PackageTest, NewPartsStartEmptyAndEachKeepsItsOwnContent) {
  opcvk_test::TempDir dir;
  std::u16string const path = u16(dir / "p.zip");
  {
    auto package = Package::open(path, PackageAccess::Create);
    for (char16_t const* name : {u"/a.xml", u"/b.xml", u"/c.xml"}) {
      package->createPart(PartName(name), ContentType(u"application/xml"), kDeflate);
    }
    writeAll(package->getPart(PartName(u"/b.xml")).getOutputStream(), "<b/>");
    EXPECT_EQ(contentOf(*package, u"/a.xml"), "");
    EXPECT_EQ(contentOf(*package, u"/b.xml"), "<b/>");
    EXPECT_EQ(contentOf(*package, u"/c.xml"), "");
    addPart(*package, u"/d.xml", "<d/>");
    package->createPart(PartName(u"/e.xml"), ContentType(u"application/xml"), kDeflate);
    EXPECT_EQ(contentOf(*package, u"/e.xml"), "");
    writeAll(package->getPart(PartName(u"/c.xml")).getOutputStream(), "<c/>");
    EXPECT_EQ(contentOf(*package, u"/a.xml"), "");
    package->save();
  }
  auto package = Package::open(path, PackageAccess::Read);
  EXPECT_EQ(contentOf(*package, u"/a.xml"), "");
  EXPECT_EQ(contentOf(*package, u"/b.xml"), "<b/>");
  EXPECT_EQ(contentOf(*package, u"/c.xml"), "<c/>");
  EXPECT_EQ(contentOf(*package, u"/d.xml"), "<d/>");
  EXPECT_EQ(contentOf(*package, u"/e.xml"), "");
}

TEST(PackageTest, BufferPackageSavesIntoMemoryAndReopens) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  EXPECT_TRUE(package->getBuffer().empty());
  addPart(*package, u"/x.xml", "<x/>");
  package->save();
  Bytes const saved = package->getBuffer();
  ASSERT_FALSE(saved.empty());
  EXPECT_EQ(opcvk_test::itemNames(saved).front(), "[Content_Types].xml");
  auto reopened = Package::openBuffer(saved, PackageAccess::Modify);
  EXPECT_EQ(contentOf(*reopened, u"/x.xml"), "<x/>");
  addPart(*reopened, u"/y.xml", "<y/>");
  reopened->save();
  auto third = Package::openBuffer(reopened->getBuffer(), PackageAccess::Read);
  EXPECT_EQ(contentOf(*third, u"/x.xml"), "<x/>");
  EXPECT_EQ(contentOf(*third, u"/y.xml"), "<y/>");
}

TEST(PackageTest, ModifyKeepsEveryPartTypeAndRelationship) {
  std::string const types =
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
      "<Override PartName=\"/docs/odd.xml\" ContentType=\"text/x-odd;v=1\"/>"
      "<Override PartName=\"/noext\" ContentType=\"application/octet-stream\"/>"
      "</Types>";
  Bytes const original = opcvk_test::makeZip({
      {"[Content_Types].xml", types},
      {"_rels/.rels", opcvk_test::relationshipsXml(
                          "<Relationship Id=\"r1\" Type=\"http://t/1\" Target=\"docs/main.xml\"/>"
                          "<Relationship Id=\"r2\" Type=\"http://t/ext\" "
                          "Target=\"http://example.com/x\" TargetMode=\"External\"/>")},
      {"docs/main.xml", "<main/>"},
      {"docs/_rels/main.xml.rels",
       opcvk_test::relationshipsXml(
           "<Relationship Id=\"a\" Type=\"http://t/2\" Target=\"odd.xml\"/>")},
      {"docs/odd.xml", "<odd/>"},
      {"noext", "raw bytes"},
      {"unreached.xml", "<lonely/>"},
  });
  opcvk_test::TempDir dir;
  opcvk_test::writeFile(dir / "m.zip", original);
  std::u16string const path = u16(dir / "m.zip");
  {
    auto package = Package::open(path, PackageAccess::Modify);
    EXPECT_FALSE(package->isReadOnly());
    EXPECT_FALSE(package->isCreateOnly());
    writeAll(package->getPart(PartName(u"/docs/main.xml")).getOutputStream(), "<changed/>");
    package->save();
  }
  auto package = Package::open(path, PackageAccess::Read);
  std::vector<std::u16string> names;
  for (Part const& part : package->getParts()) names.push_back(part.getName().toString());
  EXPECT_EQ(names, (std::vector<std::u16string>{u"/docs/main.xml", u"/docs/odd.xml", u"/noext",
                                                u"/unreached.xml"}));
  EXPECT_EQ(contentOf(*package, u"/docs/main.xml"), "<changed/>");
  EXPECT_EQ(contentOf(*package, u"/unreached.xml"), "<lonely/>");
  EXPECT_EQ(contentOf(*package, u"/noext"), "raw bytes");
  EXPECT_EQ(package->getPart(PartName(u"/docs/odd.xml")).getContentType(),
            ContentType(u"text/x-odd;v=1"));
  EXPECT_EQ(package->getPart(PartName(u"/noext")).getContentType(),
            ContentType(u"application/octet-stream"));
  auto rels = package->getRelationships().getEntries();
  ASSERT_EQ(rels.size(), 2u);
  EXPECT_EQ(rels[1].getTargetMode(), TargetMode::External);
  EXPECT_EQ(rels[1].getTargetURI(), URI(u"http://example.com/x"));
  auto partRels = package->getPart(PartName(u"/docs/main.xml")).getRelationships().getEntries();
  ASSERT_EQ(partRels.size(), 1u);
  EXPECT_EQ(partRels[0].getTargetPartName(), PartName(u"/docs/odd.xml"));
}

TEST(PackageTest, ModifyKeepsTheItemNamesOfOtherWritersAndWritesNewOnesInUriForm) {
  // Other writers store non-ASCII names as UTF-8 and point at them with UTF-8 targets; they
  // look items up by those targets, so the items must keep their names.
  Bytes const original = opcvk_test::makeZip({
      {"[Content_Types].xml", opcvk_test::minimalTypes()},
      {"_rels/.rels", opcvk_test::relationshipsXml("<Relationship Id=\"r1\" Type=\"http://t/1\" "
                                                   "Target=\"donn\xC3\xA9"
                                                   "es/r\xC3\xA9"
                                                   "sum\xC3\xA9.xml\"/>")},
      {"donn\xC3\xA9"
       "es/r\xC3\xA9"
       "sum\xC3\xA9.xml",
       "<r/>"},
      {"donn\xC3\xA9"
       "es/_rels/r\xC3\xA9"
       "sum\xC3\xA9.xml.rels",
       opcvk_test::relationshipsXml("<Relationship Id=\"a\" Type=\"http://t/2\" "
                                    "Target=\"http://x/\" TargetMode=\"External\"/>")},
  });
  opcvk_test::TempDir dir;
  opcvk_test::writeFile(dir / "m.zip", original);
  std::u16string const path = u16(dir / "m.zip");
  {
    auto package = Package::open(path, PackageAccess::Modify);
    writeAll(package->getPart(PartName(u"/donn\u00e9es/r\u00e9sum\u00e9.xml")).getOutputStream(),
             "<changed/>");
    package->createPart(
        PartName(u"/nouveau/\u00e9t\u00e9.xml"), ContentType(u"application/xml"),
        opc::model::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
    package->save();
  }
  std::vector<std::string> const names =
      opcvk_test::itemNames(opcvk_test::fileBytes(dir / "m.zip"));
  EXPECT_NE(std::find(names.begin(), names.end(),
                      "donn\xC3\xA9"
                      "es/r\xC3\xA9"
                      "sum\xC3\xA9.xml"),
            names.end());
  EXPECT_NE(std::find(names.begin(), names.end(),
                      "donn\xC3\xA9"
                      "es/_rels/r\xC3\xA9"
                      "sum\xC3\xA9.xml.rels"),
            names.end());
  EXPECT_NE(std::find(names.begin(), names.end(), "nouveau/%C3%A9t%C3%A9.xml"), names.end());
  auto package = Package::open(path, PackageAccess::Read);
  EXPECT_EQ(contentOf(*package, u"/donn\u00e9es/r\u00e9sum\u00e9.xml"), "<changed/>");
  EXPECT_EQ(
      package->getPart(PartName(u"/donn\u00e9es/r\u00e9sum\u00e9.xml")).getRelationships().size(),
      1u);
}

TEST(PackageTest, SavedPackageKeepsWorkingAndSavesAgain) {
  opcvk_test::TempDir dir;
  std::u16string const path = u16(dir / "s.zip");
  auto package = Package::open(path, PackageAccess::Create);
  addPart(*package, u"/a.xml", "<a/>");
  opc::InputStream& early = package->getPart(PartName(u"/a.xml")).getInputStream();
  package->save();
  EXPECT_EQ(readAll(early), "<a/>");
  EXPECT_EQ(contentOf(*package, u"/a.xml"), "<a/>");
  addPart(*package, u"/b.xml", "<b/>");
  package->save();
  package->deletePart(PartName(u"/a.xml"));
  package->save();
  auto reread = Package::open(path, PackageAccess::Read);
  EXPECT_FALSE(reread->hasPart(PartName(u"/a.xml")));
  EXPECT_EQ(contentOf(*reread, u"/b.xml"), "<b/>");
}

TEST(PackageTest, CreateReplacesWhatIsAtThePathOnlyWhenSaved) {
  opcvk_test::TempDir dir;
  Bytes const before = {'o', 'l', 'd'};
  opcvk_test::writeFile(dir / "c.zip", before);
  {
    auto package = Package::open(u16(dir / "c.zip"), PackageAccess::Create);
    addPart(*package, u"/a.xml", "<a/>");
  }
  EXPECT_EQ(opcvk_test::fileBytes(dir / "c.zip"), before);
  {
    auto package = Package::open(u16(dir / "c.zip"), PackageAccess::Create);
    addPart(*package, u"/a.xml", "<a/>");
    package->save();
  }
  auto package = Package::open(u16(dir / "c.zip"), PackageAccess::Read);
  EXPECT_EQ(contentOf(*package, u"/a.xml"), "<a/>");
}

struct FileStamp {
  Bytes bytes;
  long long mtimeNs;
};

FileStamp stampOf(std::string const& path) {
  struct stat status {};
  ::stat(path.c_str(), &status);
  return FileStamp{
      opcvk_test::fileBytes(path),
      static_cast<long long>(status.st_mtim.tv_sec) * 1000000000LL + status.st_mtim.tv_nsec};
}

TEST(PackageTest, ReadPackageIsNeverWritten) {
  opcvk_test::TempDir dir;
  std::string const file = dir / "r.zip";
  {
    auto package = Package::open(u16(file), PackageAccess::Create);
    addPart(*package, u"/a.xml", "<a/>");
    package->createInternalRelationship(kType, URI(u"a.xml"), u"r1");
    package->save();
  }
  FileStamp const before = stampOf(file);
  std::string const label = "the package \"" + file + "\" is open for Read";
  {
    auto package = Package::open(u16(file), PackageAccess::Read);
    Part part = package->getPart(PartName(u"/a.xml"));
    EXPECT_TRUE(opcvk_test::throwsWithMessage<PackageNotWritable>(
        [&] { package->createPart(PartName(u"/b.xml"), ContentType(u"a/b"), kDeflate); },
        "Could not create the part \"/b.xml\": " + label));
    EXPECT_TRUE(opcvk_test::throwsWithMessage<PackageNotWritable>(
        [&] { package->deletePart(PartName(u"/a.xml")); },
        "Could not delete the part \"/a.xml\": " + label));
    EXPECT_TRUE(opcvk_test::throwsWithMessage<PackageNotWritable>(
        [&] { part.getOutputStream(); }, "Could not write the part \"/a.xml\": " + label));
    EXPECT_TRUE(opcvk_test::throwsWithMessage<PackageNotWritable>(
        [&] { package->createInternalRelationship(kType, URI(u"a.xml"), u""); },
        "Could not create a relationship from \"/\": " + label));
    EXPECT_TRUE(opcvk_test::throwsWithMessage<PackageNotWritable>(
        [&] { package->deleteRelationship(u"r1"); },
        "Could not delete the relationship \"r1\" from \"/\": " + label));
    EXPECT_TRUE(opcvk_test::throwsWithMessage<PackageNotWritable>(
        [&] { package->save(); }, "Could not save the package \"" + file + "\": " + label));
    EXPECT_EQ(readAll(part.getInputStream()), "<a/>");
    EXPECT_EQ(package->getRelationships().size(), 1u);
  }
  FileStamp const after = stampOf(file);
  EXPECT_EQ(after.bytes, before.bytes);
  EXPECT_EQ(after.mtimeNs, before.mtimeNs);
}

TEST(PackageTest, MissingFileCannotBeOpened) {
  opcvk_test::TempDir dir;
  for (PackageAccess access : {PackageAccess::Read, PackageAccess::Modify}) {
    EXPECT_THROW(Package::open(u16(dir / "none.zip"), access), CouldNotOpenPackage);
  }
}

TEST(PackageTest, PartsAreFoundWithoutRegardToAsciiCase) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  addPart(*package, u"/Docs/A.xml", "<a/>");
  EXPECT_TRUE(package->hasPart(PartName(u"/docs/a.XML")));
  EXPECT_EQ(package->getPart(PartName(u"/docs/a.xml")).getName().toString(), u"/Docs/A.xml");
  EXPECT_FALSE(package->hasPart(PartName(u"/Docs/B.xml")));
  EXPECT_TRUE(opcvk_test::throwsWithMessage<PartNotFound>(
      [&] { package->getPart(PartName(u"/Docs/B.xml")); },
      "No part \"/Docs/B.xml\" in the package (in memory)"));
  EXPECT_TRUE(opcvk_test::throwsWithMessage<PartNotFound>(
      [&] { package->deletePart(PartName(u"/b")); },
      "Could not delete the part \"/b\": there is no such part in the package (in memory)"));
}

TEST(PackageTest, CreatePartRefusesTakenDerivedAndRelationshipsNames) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  addPart(*package, u"/a/b.xml", "");
  struct Case {
    std::u16string name;
    std::string message;
  };
  for (Case const& c : std::vector<Case>{
           {u"/A/B.XML",
            "Could not create the part \"/A/B.XML\": the package already has the "
            "part \"/a/b.xml\""},
           {u"/a/b.xml/c",
            "Could not create the part \"/a/b.xml/c\": it cannot exist beside the "
            "part \"/a/b.xml\""},
           {u"/A",
            "Could not create the part \"/A\": it cannot exist beside the part \"/a/b.xml\""},
           {u"/_rels/.rels",
            "Could not create the part \"/_rels/.rels\": relationships parts are "
            "written by the package itself"},
           {u"/x/_rels",
            "Could not create the part \"/x/_rels\": \"_rels\" is the name of the "
            "folders of relationships parts"},
           {u"/_rels/.rels/x",
            "Could not create the part \"/_rels/.rels/x\": it would lie inside "
            "the relationships part \"/_rels/.rels\""},
       }) {
    EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPartName>(
        [&] { package->createPart(PartName(c.name), ContentType(u"a/b"), kDeflate); }, c.message));
  }
}

TEST(PackageTest, DerivedNamesAreFoundBothWays) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  addPart(*package, u"/fsroot/a", "");
  std::u16string existing;
  EXPECT_TRUE(package->isPartDerivedFromExistingPartName(PartName(u"/FSROOT/A/b"), existing));
  EXPECT_EQ(existing, u"/fsroot/a");
  existing.clear();
  EXPECT_TRUE(package->isPartDerivedFromExistingPartName(PartName(u"/fsroot"), existing));
  EXPECT_EQ(existing, u"/fsroot/a");
  existing = u"untouched";
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/fsroot/ab"), existing));
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/fsroot/a"), existing));
  EXPECT_EQ(existing, u"untouched");
  package->deletePart(PartName(u"/fsroot/a"));
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/fsroot"), existing));
}

TEST(PackageTest, DeletePartRemovesItsContentAndRelationshipsPart) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  addPart(*package, u"/a.xml", "<a/>");
  addPart(*package, u"/b.xml", "<b/>");
  package->getPart(PartName(u"/a.xml")).createInternalRelationship(kType, URI(u"b.xml"), u"");
  package->createInternalRelationship(kType, URI(u"/a.xml"), u"");
  package->save();
  EXPECT_EQ(opcvk_test::itemNames(package->getBuffer()),
            (std::vector<std::string>{"[Content_Types].xml", "_rels/.rels", "a.xml",
                                      "_rels/a.xml.rels", "b.xml"}));
  package->deletePart(PartName(u"/a.xml"));
  EXPECT_FALSE(package->hasPart(PartName(u"/a.xml")));
  package->save();
  // The package's relationship to the deleted part stays, as the conventions allow.
  EXPECT_EQ(opcvk_test::itemNames(package->getBuffer()),
            (std::vector<std::string>{"[Content_Types].xml", "_rels/.rels", "b.xml"}));
  addPart(*package, u"/a.xml", "<new/>");
  EXPECT_TRUE(package->getPart(PartName(u"/a.xml")).getRelationships().empty());
}

TEST(PackageTest, CompressionOfNewPartsFollowsTheirInfo) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::string const text(10000, 'a');
  for (auto const& c : {std::make_pair(u"/stored.txt", CompressionType::Stored),
                        std::make_pair(u"/deflated.txt", CompressionType::DeflateContent)}) {
    Part part = package->createPart(PartName(c.first), ContentType(u"text/plain"),
                                    StandardPartInfo(c.second, 0));
    EXPECT_EQ(part.getCompressionType(), c.second);
    writeAll(part.getOutputStream(), text);
  }
  package->save();
  auto archive = opcvk_test::openZip(package->getBuffer());
  EXPECT_EQ(archive->entries()[static_cast<std::size_t>(archive->find("stored.txt"))].method, 0);
  EXPECT_EQ(archive->entries()[static_cast<std::size_t>(archive->find("deflated.txt"))].method, 8);
}

TEST(PackageTest, NoTemporaryFileIsLeftBeside) {
  opcvk_test::TempDir dir;
  {
    PackageOptions options;
    options.spoolThreshold = 16;
    auto package = Package::open(u16(dir / "t.zip"), PackageAccess::Create, options);
    addPart(*package, u"/big.bin", std::string(1000, 'x'), u"application/octet-stream");
    package->save();
    package->save();
  }
  std::vector<std::u16string> files;
  boost::system::error_code code;
  opc::LocalFileSystemOps::getShared()->getFiles(u16(dir.path()), files, false, code);
  EXPECT_EQ(files, std::vector<std::u16string>{u16(dir / "t.zip")});
}

}  // namespace
}  // namespace model
}  // namespace opc
