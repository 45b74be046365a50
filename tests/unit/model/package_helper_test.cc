#include <memory>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <opc/model/core_properties.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/package_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"

namespace {

using opc::interfaces::CompressionType;
using opc::interfaces::StandardPartInfo;
using opc::model::ContentType;
using opc::model::CoreProperties;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PackageHelper;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::URI;
using opcvk_test::throwsWithMessage;

char16_t const kType[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
char16_t const kOlderType[] =
    u"http://schemas.openxmlformats.org/officedocument/2006/relationships/metadata/"
    u"core-properties";
char16_t const kContentType[] = u"application/vnd.openxmlformats-package.core-properties+xml";
char16_t const kOtherType[] = u"urn:example:other";

std::string const kCoreXml =
    "<cp:coreProperties "
    "xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
    "xmlns:dc=\"http://purl.org/dc/elements/1.1/\"><dc:title>From the part</dc:title>"
    "</cp:coreProperties>";

void writePart(Package& package, std::u16string const& name, std::u16string const& contentType,
               std::string const& bytes) {
  auto part = package.createPart(PartName(name), ContentType(contentType),
                                 StandardPartInfo(CompressionType::DeflateMetadata, 0));
  opc::OutputStream& out = part.getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
  out.close();
}

std::unique_ptr<Package> reopen(Package& package, PackageAccess access) {
  package.save();
  return Package::openBuffer(package.getBuffer(), access);
}

CoreProperties sample() {
  CoreProperties properties;
  properties.setTitle(u"Title é");
  properties.setCreator(u"Writer");
  properties.setKeywords({{u"k1", u""}, {u"k2", u"en"}});
  properties.setCreated(boost::posix_time::time_from_string("2024-05-17 10:20:30"));
  return properties;
}

TEST(PackageHelperTest, ConstantsNameTheStandardPartAndType) {
  EXPECT_EQ(URI(u"/docProps/core.xml"), PackageHelper::getCorePropertiesURI());
  EXPECT_EQ(kType, PackageHelper::getCorePropertiesRelationshipType());
}

TEST(PackageHelperTest, PackageWithoutCorePropertiesGivesEmptyRecord) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/a.xml", u"application/xml", "<a/>");
  EXPECT_TRUE(PackageHelper::getCoreProperties(*package).isEmpty());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_TRUE(PackageHelper::getCoreProperties(*read).isEmpty());
}

TEST(PackageHelperTest, CreateMakesStandardPartAndRelationshipThatSurviveSave) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto read = reopen(*package, PackageAccess::Read);

  auto part = read->getPart(PartName(u"/docProps/core.xml"));
  EXPECT_EQ(ContentType(kContentType), part.getContentType());
  EXPECT_EQ(CompressionType::DeflateMetadata, part.getCompressionType());
  auto relationships = read->getRelationshipsByType(kType);
  ASSERT_EQ(1u, relationships.size());
  EXPECT_EQ(PartName(u"/docProps/core.xml"), relationships.begin()->getTargetPartName());
  EXPECT_FALSE(relationships.begin()->getID().empty());
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*read));
}

TEST(PackageHelperTest, UpdateReplacesContentAndKeepsOneRelationship) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto modify = reopen(*package, PackageAccess::Modify);
  CoreProperties second;
  second.setSubject(u"only this");
  PackageHelper::createOrUpdateCoreProperties(*modify, second);
  EXPECT_EQ(second, PackageHelper::getCoreProperties(*modify));

  auto read = reopen(*modify, PackageAccess::Read);
  EXPECT_EQ(second, PackageHelper::getCoreProperties(*read));
  EXPECT_EQ(1u, read->getRelationshipsByType(kType).size());
  EXPECT_EQ(1u, read->getParts().size());
}

TEST(PackageHelperTest, OlderRelationshipTypeIsReadAndUpdatedInPlace) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/meta/props.xml", kContentType, kCoreXml);
  package->createInternalRelationship(kOlderType, URI(u"meta/props.xml"), u"old");
  EXPECT_EQ(u"From the part", *PackageHelper::getCoreProperties(*package).getTitle());

  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*read));
  EXPECT_TRUE(read->getRelationshipsByType(kType).empty());
  EXPECT_EQ(1u, read->getRelationshipsByType(kOlderType).size());
  EXPECT_FALSE(read->hasPart(PartName(u"/docProps/core.xml")));
}

TEST(PackageHelperTest, CurrentTypeWinsOverOlderAndFirstRelationshipWins) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/old.xml", kContentType,
            "<cp:coreProperties xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/"
            "metadata/core-properties\"><cp:category>old</cp:category></cp:coreProperties>");
  writePart(*package, u"/first.xml", kContentType, kCoreXml);
  writePart(*package, u"/second.xml", kContentType,
            "<cp:coreProperties xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/"
            "metadata/core-properties\"><cp:category>second</cp:category></cp:coreProperties>");
  package->createInternalRelationship(kOlderType, URI(u"/old.xml"), u"r0");
  package->createInternalRelationship(kType, URI(u"/first.xml"), u"r1");
  package->createInternalRelationship(kType, URI(u"/second.xml"), u"r2");
  EXPECT_EQ(u"From the part", *PackageHelper::getCoreProperties(*package).getTitle());

  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*read));
  CoreProperties untouched;
  untouched.setCategory(u"second");
  auto part = read->getPart(PartName(u"/second.xml"));
  EXPECT_EQ(untouched, opc::model::CorePropertiesXml::read(part.getInputStream()));
}

TEST(PackageHelperTest, ExternalRelationshipIsRefused) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createExternalRelationship(kType, URI(u"http://example.com/core.xml"), u"ext");
  char const message[] =
      "The core properties relationship ext targets an external resource: "
      "http://example.com/core.xml";
  EXPECT_TRUE(throwsWithMessage<opc::model::InvalidPackage>(
      [&] { PackageHelper::getCoreProperties(*package); }, message));
  EXPECT_TRUE(throwsWithMessage<opc::model::InvalidPackage>(
      [&] { PackageHelper::createOrUpdateCoreProperties(*package, sample()); }, message));
}

TEST(PackageHelperTest, PartOfAnotherContentTypeIsRefusedAndLeftAlone) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/docProps/core.xml", u"application/xml", "<keep/>");
  char const message[] =
      "The core properties part /docProps/core.xml has content type application/xml, not "
      "application/vnd.openxmlformats-package.core-properties+xml";
  EXPECT_TRUE(throwsWithMessage<opc::model::InvalidPartContent>(
      [&] { PackageHelper::createOrUpdateCoreProperties(*package, sample()); }, message));
  EXPECT_TRUE(package->getRelationshipsByType(kType).empty());

  package->createInternalRelationship(kType, URI(u"docProps/core.xml"), u"r1");
  EXPECT_TRUE(throwsWithMessage<opc::model::InvalidPartContent>(
      [&] { PackageHelper::getCoreProperties(*package); }, message));
}

TEST(PackageHelperTest, UnreferencedStandardPartIsReusedWithNewRelationship) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/docProps/core.xml", kContentType, kCoreXml);
  EXPECT_TRUE(PackageHelper::getCoreProperties(*package).isEmpty());
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_EQ(1u, read->getRelationshipsByType(kType).size());
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*read));
}

TEST(PackageHelperTest, MissingTargetFailsToReadAndIsCreatedOnUpdate) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createInternalRelationship(kType, URI(u"meta/gone.xml"), u"r1");
  EXPECT_THROW(PackageHelper::getCoreProperties(*package), opc::model::PartNotFound);
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_EQ(ContentType(kContentType), read->getPart(PartName(u"/meta/gone.xml")).getContentType());
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*read));
  EXPECT_EQ(1u, read->getRelationshipsByType(kType).size());
}

TEST(PackageHelperTest, InvalidContentOfThePartIsReported) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/docProps/core.xml", kContentType,
            "<cp:coreProperties xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/"
            "metadata/core-properties\"><cp:title/></cp:coreProperties>");
  package->createInternalRelationship(kType, URI(u"docProps/core.xml"), u"r1");
  EXPECT_TRUE(throwsWithMessage<opc::model::InvalidPartContent>(
      [&] { PackageHelper::getCoreProperties(*package); },
      "Unexpected element cp:title in core properties"));
}

TEST(PackageHelperTest, ReadOnlyPackageRefusesChangesAndStaysUnchanged) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_TRUE(throwsWithMessage<opc::model::PackageNotWritable>(
      [&] { PackageHelper::createOrUpdateCoreProperties(*read, CoreProperties()); },
      "Cannot write core properties: the package is open for Read"));
  EXPECT_TRUE(throwsWithMessage<opc::model::PackageNotWritable>(
      [&] { PackageHelper::deleteRelationshipsAndTargets(*read, kType); },
      "Cannot delete relationships: the package is open for Read"));
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*read));
  EXPECT_EQ(1u, read->getRelationshipsByType(kType).size());
}

TEST(PackageHelperTest, DeleteRemovesRelationshipsOfTheTypeAndTheirTargetsOnly) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writePart(*package, u"/a.xml", u"application/xml", "<a/>");
  writePart(*package, u"/b.xml", u"application/xml", "<b/>");
  writePart(*package, u"/keep.xml", u"application/xml", "<k/>");
  package->createInternalRelationship(kOtherType, URI(u"a.xml"), u"r1");
  package->createInternalRelationship(kOtherType, URI(u"/a.xml"), u"r2");
  package->createInternalRelationship(kOtherType, URI(u"missing.xml"), u"r3");
  package->createExternalRelationship(kOtherType, URI(u"http://example.com/"), u"r4");
  package->createInternalRelationship(kOtherType, URI(u"b.xml"), u"r5");
  package->createInternalRelationship(kType, URI(u"keep.xml"), u"r6");
  package->createInternalRelationship(u"urn:example:third", URI(u"b.xml"), u"r7");

  PackageHelper::deleteRelationshipsAndTargets(*package, kOtherType);
  EXPECT_TRUE(package->getRelationshipsByType(kOtherType).empty());
  EXPECT_FALSE(package->hasPart(PartName(u"/a.xml")));
  EXPECT_FALSE(package->hasPart(PartName(u"/b.xml")));
  EXPECT_TRUE(package->hasPart(PartName(u"/keep.xml")));
  EXPECT_TRUE(package->hasRelationship(u"r6"));
  // A relationship of another type that targeted a deleted part stays, as the conventions
  // allow dangling internal targets.
  EXPECT_TRUE(package->hasRelationship(u"r7"));

  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_EQ(1u, read->getParts().size());
  EXPECT_EQ(2u, read->getRelationships().size());
}

TEST(PackageHelperTest, DeleteOfTypeWithoutRelationshipsChangesNothing) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  PackageHelper::deleteRelationshipsAndTargets(*package, kOtherType);
  EXPECT_EQ(1u, package->getRelationships().size());
  EXPECT_EQ(sample(), PackageHelper::getCoreProperties(*package));
}

TEST(PackageHelperTest, DeleteOfCorePropertiesTypeRemovesThem) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  PackageHelper::createOrUpdateCoreProperties(*package, sample());
  PackageHelper::deleteRelationshipsAndTargets(*package,
                                               PackageHelper::getCorePropertiesRelationshipType());
  auto read = reopen(*package, PackageAccess::Read);
  EXPECT_TRUE(PackageHelper::getCoreProperties(*read).isEmpty());
  EXPECT_TRUE(read->getParts().empty());
}

}  // namespace
