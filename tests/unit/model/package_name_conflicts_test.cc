// A part may not lie inside another part: the folders above a new name are looked at once for
// the many parts of one folder, and what is learnt of them must never hide a part made, or
// found in the archive, since.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;

StandardPartInfo const kDeflate(CompressionType::DeflateContent, 0);

void create(Package& package, std::u16string const& name) {
  Part part = package.createPart(PartName(name), ContentType(u"application/xml"), kDeflate);
  opcvk_test::writeAll(part.getOutputStream(), "<a/>");
}

std::string besideMessage(std::string const& name, std::string const& existing) {
  return "Could not create the part \"" + name + "\": it cannot exist beside the part \"" +
         existing + "\"";
}

TEST(PackageNameConflictsTest, AFolderFoundFreeIsLookedAtAgainOnceAPartTakesItsName) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::u16string existing;
  // Asked only: "/a/b" and "/a" name no part.
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/a/b/c.xml"), existing));
  create(*package, u"/A/B");
  EXPECT_TRUE(package->isPartDerivedFromExistingPartName(PartName(u"/a/b/d.xml"), existing));
  EXPECT_EQ(existing, u"/A/B");
  EXPECT_THROW_MESSAGE(create(*package, u"/a/b/d.xml"), InvalidPartName,
                       besideMessage("/a/b/d.xml", "/A/B"));
}

TEST(PackageNameConflictsTest, APartHigherUpThanTheFolderFoundFreeIsFound) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::u16string existing;
  EXPECT_FALSE(package->isPartDerivedFromExistingPartName(PartName(u"/p/q/r/s.xml"), existing));
  create(*package, u"/p");
  EXPECT_THROW_MESSAGE(create(*package, u"/p/q/r/t.xml"), InvalidPartName,
                       besideMessage("/p/q/r/t.xml", "/p"));
  EXPECT_THROW_MESSAGE(create(*package, u"/p/x.xml"), InvalidPartName,
                       besideMessage("/p/x.xml", "/p"));
}

TEST(PackageNameConflictsTest, ManyPartsOfNestedFoldersAreMadeAndTheirFoldersStayFolders) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  for (std::u16string const& name :
       std::vector<std::u16string>{u"/f/1.xml", u"/f/2.xml", u"/f/g/1.xml", u"/f/g/h/1.xml",
                                   u"/f/3.xml", u"/f/g/2.xml", u"/f2/1.xml", u"/1.xml"}) {
    create(*package, name);
  }
  EXPECT_EQ(package->getParts().size(), 8u);
  EXPECT_THROW_MESSAGE(create(*package, u"/f/g"), InvalidPartName,
                       besideMessage("/f/g", "/f/g/1.xml"));
  EXPECT_THROW_MESSAGE(create(*package, u"/f/g/h/1.xml/x"), InvalidPartName,
                       besideMessage("/f/g/h/1.xml/x", "/f/g/h/1.xml"));
  EXPECT_THROW_MESSAGE(create(*package, u"/1.xml/a/b"), InvalidPartName,
                       besideMessage("/1.xml/a/b", "/1.xml"));
}

TEST(PackageNameConflictsTest, AFolderFreedByADeleteTakesPartsAgain) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  create(*package, u"/a/b");
  EXPECT_THROW_MESSAGE(create(*package, u"/a/b/c.xml"), InvalidPartName,
                       besideMessage("/a/b/c.xml", "/a/b"));
  package->deletePart(PartName(u"/a/b"));
  create(*package, u"/a/b/c.xml");
  create(*package, u"/a/b/d.xml");
  EXPECT_TRUE(package->hasPart(PartName(u"/a/b/d.xml")));
}

TEST(PackageNameConflictsTest, PartsOfTheArchiveAreFoundByAPackageOpenForModify) {
  auto source = Package::openBuffer({}, PackageAccess::Create);
  create(*source, u"/m/n.xml");
  create(*source, u"/m/o/p.xml");
  source->save();
  auto package = Package::openBuffer(source->getBuffer(), PackageAccess::Modify);
  create(*package, u"/m/q.xml");
  EXPECT_THROW_MESSAGE(create(*package, u"/m/n.xml/r"), InvalidPartName,
                       besideMessage("/m/n.xml/r", "/m/n.xml"));
  EXPECT_THROW_MESSAGE(create(*package, u"/M/O"), InvalidPartName,
                       besideMessage("/M/O", "/m/o/p.xml"));
  create(*package, u"/m/o/s.xml");
  EXPECT_EQ(package->getParts().size(), 4u);
}

}  // namespace
}  // namespace model
}  // namespace opc
