#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::Bytes;
using ::testing::HasSubstr;

StandardPartInfo const kInfo(CompressionType::DeflateMetadata, 0);
std::u16string const kTypeA = u"http://example.com/rel/a";
std::u16string const kTypeB = u"http://example.com/rel/b";

TEST(RelationshipsTest, AbsentTypeGivesAnEmptyEnumerator) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  EXPECT_TRUE(package->getRelationshipsByType(kTypeA).empty());
  package->createInternalRelationship(kTypeB, URI(u"/x.xml"), u"");
  EXPECT_TRUE(package->getRelationshipsByType(kTypeA).empty());
  EXPECT_EQ(package->getRelationshipsByType(kTypeB).size(), 1u);
}

TEST(RelationshipsTest, EmptyIdGetsAnIdThatGetIdGivesAndDeleteAccepts) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Relationship const first = package->createInternalRelationship(kTypeA, URI(u"/a.xml"), u"");
  Relationship const second = package->createInternalRelationship(kTypeA, URI(u"/b.xml"), u"");
  EXPECT_FALSE(first.getID().empty());
  EXPECT_NE(first.getID(), second.getID());
  EXPECT_TRUE(package->hasRelationship(first.getID()));
  EXPECT_EQ(package->getRelationship(first.getID()), first);
  package->deleteRelationship(first.getID());
  EXPECT_FALSE(package->hasRelationship(first.getID()));
  // The id of a deleted relationship is not given again.
  Relationship const third = package->createInternalRelationship(kTypeA, URI(u"/c.xml"), u"");
  EXPECT_NE(third.getID(), first.getID());
  EXPECT_NE(third.getID(), second.getID());
}

TEST(RelationshipsTest, DuplicateAndUnknownIdsAreRefused) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createInternalRelationship(kTypeA, URI(u"/a.xml"), u"r1");
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidRelationship>(
      [&] { package->createInternalRelationship(kTypeA, URI(u"/b.xml"), u"r1"); },
      "Could not create the relationship \"r1\" from \"/\": the id is taken"));
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidRelationship>(
      [&] { package->deleteRelationship(u"r2"); },
      "Could not delete the relationship \"r2\" from \"/\": there is no such relationship"));
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidRelationship>(
      [&] { package->getRelationship(u"r2"); }, "No relationship \"r2\" from \"/\""));
  EXPECT_EQ(package->getRelationships().size(), 1u);
}

TEST(RelationshipsTest, PartRelationshipsResolveAgainstTheirSourceAndRoundTrip) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/docs/main.xml"), ContentType(u"a/b"), kInfo);
  package->createPart(PartName(u"/img/p.png"), ContentType(u"image/png"), kInfo);
  part.createInternalRelationship(kTypeA, URI(u"../img/p.png"), u"img");
  part.createExternalRelationship(kTypeB, URI(u"C:\\My Docs\\x.txt"), u"ext");
  package->save();
  auto reread = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  auto rels = reread->getPart(PartName(u"/docs/main.xml")).getRelationships().getEntries();
  ASSERT_EQ(rels.size(), 2u);
  EXPECT_EQ(rels[0].getTargetPartName(), PartName(u"/img/p.png"));
  EXPECT_EQ(rels[0].getSourceURI(), URI(u"/docs/main.xml"));
  EXPECT_EQ(rels[1].getTargetMode(), TargetMode::External);
  EXPECT_EQ(rels[1].getTargetURI(), URI(u"C:\\My Docs\\x.txt"));
  std::string const xml = opcvk_test::itemText(package->getBuffer(), "docs/_rels/main.xml.rels");
  EXPECT_THAT(xml, HasSubstr("TargetMode=\"External\""));
  EXPECT_THAT(xml, HasSubstr("Id=\"img\""));
}

TEST(RelationshipsTest, TargetsAreWrittenWithoutRawNonAsciiAndEveryOneWithAnId) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createInternalRelationship(kTypeA, URI(u"/d\xE9j\xE0.xml"), u"");
  package->createExternalRelationship(kTypeB, URI(u"http://example.com/\x4E2D"), u"");
  package->save();
  std::string const xml = opcvk_test::itemText(package->getBuffer(), "_rels/.rels");
  for (char c : xml) EXPECT_LT(static_cast<unsigned char>(c), 0x80) << xml;
  EXPECT_THAT(xml, HasSubstr("Target=\"/d%C3%A9j%C3%A0.xml\""));
  EXPECT_THAT(xml, HasSubstr("Target=\"http://example.com/%E4%B8%AD\""));
  EXPECT_EQ(opcvk_test::itemNames(package->getBuffer())[1], "_rels/.rels");
  auto reread = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  auto rels = reread->getRelationships().getEntries();
  ASSERT_EQ(rels.size(), 2u);
  EXPECT_EQ(rels[0].getTargetPartName(), PartName(u"/d\xE9j\xE0.xml"));
  for (Relationship const& r : rels) EXPECT_FALSE(r.getID().empty());
}

TEST(RelationshipsTest, DocumentsOfEitherFormGiveTheSameRelationshipsAndRefusals) {
  struct Case {
    std::string elements;
    std::string message;
  };
  Case const cases[] = {
      {"<Relationship Id=\"x\" Type=\"http://t\" Target=\"a.xml\"/>"
       "<Relationship Id=\"y\" Type=\"http://t\" Target=\"http://e/\" TargetMode=\"External\"/>",
       ""},
      {"<Relationship Id=\"x\" Type=\"http://t\" Target=\"a.xml\"/>"
       "<Relationship Id=\"x\" Type=\"http://t\" Target=\"a.xml\"/>",
       "the id \"x\" is given to more than one relationship"},
      {"<Relationship Id=\"x\" Target=\"a.xml\"/>", "a Relationship element has no Type attribute"},
      {"<Relationship Id=\"x\" Type=\"http://t\" Target=\"a.xml\" TargetMode=\"Other\"/>",
       "the target mode \"Other\" is neither \"Internal\" nor \"External\""},
  };
  for (Case const& c : cases) {
    std::string outcomes[2];
    for (bool const plain : {true, false}) {
      std::string const rels = opcvk_test::relationshipsXml(
          std::string(plain ? "" : "<!-- read by the parser -->") + c.elements);
      std::string& outcome = outcomes[plain ? 0 : 1];
      try {
        auto package = Package::openBuffer(
            opcvk_test::makeZip({{"[Content_Types].xml", opcvk_test::minimalTypes()},
                                 {"_rels/.rels", rels},
                                 {"a.xml", "<a/>"}}),
            PackageAccess::Read);
        for (Relationship const& r : package->getRelationships()) {
          outcome += opc::toUDEString(r.getID() + u" " + r.getType() + u" " +
                                      r.getTargetURI().toString()) +
                     (r.getTargetMode() == TargetMode::External ? " external;" : ";");
        }
      } catch (InvalidPackage const& e) {
        outcome = e.what();
      }
    }
    EXPECT_EQ(outcomes[0], outcomes[1]) << c.elements;
    if (!c.message.empty()) {
      EXPECT_THAT(outcomes[0], HasSubstr(c.message));
    }
  }
}

TEST(RelationshipsTest, UnreadRelationshipsAreCopiedAsTheyWere) {
  std::string const rels = opcvk_test::relationshipsXml(
      "<!-- kept --><Relationship Id=\"x\" Type=\"http://t\" Target=\"a.xml\"/>");
  Bytes const original = opcvk_test::makeZip({{"[Content_Types].xml", opcvk_test::minimalTypes()},
                                              {"_rels/.rels", rels},
                                              {"a.xml", "<a/>"}});
  auto package = Package::openBuffer(original, PackageAccess::Modify);
  package->createPart(PartName(u"/b.xml"), ContentType(u"a/b"), kInfo);
  package->save();
  EXPECT_EQ(opcvk_test::itemText(package->getBuffer(), "_rels/.rels"), rels);
  package->createInternalRelationship(kTypeA, URI(u"b.xml"), u"");
  package->save();
  std::string const rewritten = opcvk_test::itemText(package->getBuffer(), "_rels/.rels");
  EXPECT_THAT(rewritten, HasSubstr("Id=\"x\""));
  EXPECT_EQ(
      Package::openBuffer(package->getBuffer(), PackageAccess::Read)->getRelationships().size(),
      2u);
}

TEST(RelationshipsTest, RelationshipsOfADeletedPartCannotBeReached) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a.xml"), ContentType(u"a/b"), kInfo);
  package->deletePart(PartName(u"/a.xml"));
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackageState>(
      [&] { part.getRelationships(); }, "The part \"/a.xml\" no longer exists"));
}

}  // namespace
}  // namespace model
}  // namespace opc
