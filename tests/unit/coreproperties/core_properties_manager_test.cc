#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <foundation/release_info/release_info.h>
#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/package_helper.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/core_properties_manager.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "unit/coreproperties/core_properties_manager_test_support.h"

namespace {

using boost::posix_time::ptime;
using foundation::release_info::ReleaseInfo;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::CoreProperties;
using opc::vkservices::CorePropertiesManager;
using opc::vkservices::InvalidCoreProperties;
using opc::vkservices::detail::CorePropertiesManagerAccess;
using namespace opcvk_test;
using Bytes = std::vector<unsigned char>;

constexpr char16_t kType[] = u"application/vnd.veltrance.orvane.test";
constexpr char16_t kUUID[] = u"0123abcd-4567-49ef-8123-456789abcdef";

CoreProperties record(std::u16string const& release = CoreProperties::getCurrentORVANERelease()) {
  return CoreProperties(kType, u"Test package", release);
}

std::string text(boost::optional<std::u16string> const& value) {
  return value ? opc::detail::toUTF8String(*value) : "(none)";
}

std::vector<std::u16string> partNames(Package const& package) {
  std::vector<std::u16string> names;
  for (opc::model::Part const& part : package.getParts())
    names.push_back(part.getName().toString());
  return names;
}

std::size_t relationshipCount(Package const& package, std::u16string const& type) {
  auto const relationships = package.getRelationshipsByType(type);
  return static_cast<std::size_t>(std::distance(relationships.begin(), relationships.end()));
}

// Saves a new package with `properties` through a manager of `mode`, and returns it.
Bytes savedWith(CoreProperties const& properties, CorePropertiesManager::DeterministicMode mode =
                                                      CorePropertiesManager::NotDeterministic) {
  PropertiesPackage fixture({}, PackageAccess::Create, mode);
  fixture.manager->setCoreProperties(properties);
  return fixture.save();
}

// A package made by hand, without a manager.
Bytes handMade(void (*fill)(Package&)) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  fill(*package);
  package->save();
  return package->getBuffer();
}

CoreProperties loaded(Bytes const& bytes) {
  PropertiesPackage fixture(bytes, PackageAccess::Read);
  return fixture.manager->getCoreProperties();
}

TEST(CorePropertiesManagerTest, APackageWithoutPropertiesLoadsAnInvalidRecord) {
  PropertiesPackage fixture;
  CoreProperties const properties = fixture.manager->getCoreProperties();
  EXPECT_FALSE(properties.isValid());
  EXPECT_TRUE(properties.opcProps().isEmpty());
  EXPECT_THROW_MESSAGE(CorePropertiesManagerAccess::save(*fixture.manager), InvalidCoreProperties,
                       "Not all required core properties are set");
  EXPECT_TRUE(partNames(*fixture.package).empty());
}

TEST(CorePropertiesManagerTest, SavingAnInvalidRecordRaisesThroughThePackageAndWritesNothing) {
  PropertiesPackage fixture;
  CoreProperties properties;
  properties.setTitle(u"no content type");
  fixture.manager->setCoreProperties(properties);
  EXPECT_THROW_MESSAGE(fixture.package->save(), InvalidCoreProperties,
                       "Not all required core properties are set");
  EXPECT_TRUE(partNames(*fixture.package).empty());
}

TEST(CorePropertiesManagerTest, ANewPackageGetsFourPartsInOrder) {
  Bytes const bytes = savedWith(record());
  auto const package = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_EQ(partNames(*package), (std::vector<std::u16string>{kCorePart, kExtensionPart,
                                                              kReleaseInfoPart, kStandardPart}));
  EXPECT_EQ(package->getPart(PartName(kCorePart)).getContentType().toString(), kCoreType);
  EXPECT_EQ(package->getPart(PartName(kExtensionPart)).getContentType().toString(), kExtensionType);
  EXPECT_EQ(package->getPart(PartName(kReleaseInfoPart)).getContentType().toString(),
            kReleaseInfoType);
  for (std::u16string const type : {kCoreRelationship, kExtensionRelationship,
                                    kReleaseInfoRelationship, kStandardRelationship}) {
    EXPECT_EQ(relationshipCount(*package, type), 1u) << opc::detail::toUTF8String(type);
  }
  EXPECT_EQ(readAll(package->getPart(PartName(kReleaseInfoPart))), ReleaseInfo().getVersionInfo());
}

TEST(CorePropertiesManagerTest, ASavedRecordLoadsBackWhole) {
  CoreProperties properties = record();
  properties.setTitle(u"Title \u00E9");
  properties.setCreatedBy(u"someone");
  properties.setKeywords({{u"alpha", u"en"}, {u"beta", u""}});
  CoreProperties const back = loaded(savedWith(properties));
  EXPECT_EQ(back.getContentType(), kType);
  EXPECT_EQ(back.getContentTypeFriendlyName(), u"Test package");
  EXPECT_EQ(back.getORVANEReleaseInfo(), ReleaseInfo());
  EXPECT_EQ(text(back.getTitle()), "Title \xC3\xA9");
  EXPECT_EQ(text(back.getCreatedBy()), "someone");
  EXPECT_TRUE(back.getKeywords() == properties.getKeywords());
}

TEST(CorePropertiesManagerTest, ANonDeterministicSaveMakesAUUIDAndACreatedTimeOnce) {
  ptime const before = CoreProperties::getCurrentTime();
  PropertiesPackage fixture;
  fixture.manager->setCoreProperties(record());
  Bytes const first = fixture.save();
  CoreProperties const afterFirst = fixture.manager->getCoreProperties();
  ASSERT_TRUE(afterFirst.getUUID());
  EXPECT_TRUE(CoreProperties::isValidUUID(*afterFirst.getUUID()));
  ASSERT_TRUE(afterFirst.getCreatedTime());
  EXPECT_LE(before, *afterFirst.getCreatedTime());

  CoreProperties const firstLoaded = loaded(first);
  EXPECT_EQ(text(firstLoaded.getUUID()), text(afterFirst.getUUID()));
  // The standard part got the created time in the same save.
  EXPECT_TRUE(firstLoaded.getCreatedTime() == afterFirst.getCreatedTime());
  EXPECT_NE(
      readAll(Package::openBuffer(first, PackageAccess::Read)->getPart(PartName(kExtensionPart)))
          .find("<uuid>" + text(afterFirst.getUUID()) + "</uuid>"),
      std::string::npos);

  // A second save keeps both.
  CoreProperties changed = fixture.manager->getCoreProperties();
  changed.setTitle(u"again");
  fixture.manager->setCoreProperties(changed);
  CoreProperties const secondLoaded = loaded(fixture.save());
  EXPECT_EQ(text(secondLoaded.getUUID()), text(afterFirst.getUUID()));
  EXPECT_TRUE(secondLoaded.getCreatedTime() == afterFirst.getCreatedTime());
  EXPECT_EQ(text(secondLoaded.getTitle()), "again");
}

TEST(CorePropertiesManagerTest, TwoPackagesGetDifferentUUIDs) {
  EXPECT_NE(text(loaded(savedWith(record())).getUUID()),
            text(loaded(savedWith(record())).getUUID()));
}

TEST(CorePropertiesManagerTest, AGivenCreatedTimeAndUUIDAreKept) {
  CoreProperties properties = record();
  ptime const created(boost::gregorian::date(2001, 2, 3), boost::posix_time::seconds(4));
  properties.setCreatedTime(created);
  properties.setUUID(kUUID);
  CoreProperties const back = loaded(savedWith(properties));
  EXPECT_TRUE(back.getCreatedTime() == created);
  EXPECT_EQ(text(back.getUUID()), text(std::u16string(kUUID)));
}

TEST(CorePropertiesManagerTest, ADeterministicSaveOfANewPackageHasNoUUIDAndNoCreatedTime) {
  Bytes const bytes = savedWith(record(), CorePropertiesManager::Deterministic);
  auto const package = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_EQ(partNames(*package), (std::vector<std::u16string>{kCorePart, kExtensionPart,
                                                              kReleaseInfoPart, kStandardPart}));
  EXPECT_EQ(readAll(package->getPart(PartName(kExtensionPart))).find("uuid"), std::string::npos);
  CoreProperties const back = loaded(bytes);
  EXPECT_FALSE(back.getUUID());
  EXPECT_FALSE(back.getCreatedTime());
  EXPECT_FALSE(opc::model::PackageHelper::getCoreProperties(*package).getCreated());
}

TEST(CorePropertiesManagerTest, DeterministicSavesOfTheSameRecordAreByteIdentical) {
  CoreProperties properties = record();
  properties.setTitle(u"same");
  // The archive stamps each item with the time of the save unless the package is saved
  // reproducibly; two saves a second apart would differ there, not in the properties.
  opc::model::PackageOptions reproducible;
  reproducible.reproducibleTime = 1700000000;
  auto const save = [&] {
    PropertiesPackage fixture({}, PackageAccess::Create, CorePropertiesManager::Deterministic,
                              reproducible);
    fixture.manager->setCoreProperties(properties);
    return fixture.save();
  };
  Bytes const first = save();
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  EXPECT_EQ(first, save());
}

TEST(CorePropertiesManagerTest, DeterministicModeRefusesInOrderAndKeepsTheRecord) {
  PropertiesPackage fixture({}, PackageAccess::Create, CorePropertiesManager::Deterministic);
  fixture.manager->getCoreProperties();
  CoreProperties properties = record();
  properties.setTitle(u"first");
  fixture.manager->setCoreProperties(properties);

  CoreProperties all = record();
  all.setCreatedTime(CoreProperties::getCurrentTime());
  all.setLastModifiedTime(CoreProperties::getCurrentTime());
  all.setUUID(kUUID);
  EXPECT_THROW_MESSAGE(
      fixture.manager->setCoreProperties(all), opc::vkservices::NondeterministicCoreProperties,
      "The createdTime core property should not be set while in deterministic mode.");
  CoreProperties modifiedAndUUID = record();
  modifiedAndUUID.setLastModifiedTime(CoreProperties::getCurrentTime());
  modifiedAndUUID.setUUID(kUUID);
  EXPECT_THROW_MESSAGE(
      fixture.manager->setCoreProperties(modifiedAndUUID),
      opc::vkservices::NondeterministicCoreProperties,
      "The lastModfiedTime core property should not be set while in deterministic mode.");
  CoreProperties uuid = record();
  uuid.setUUID(kUUID);
  EXPECT_THROW_MESSAGE(fixture.manager->setCoreProperties(uuid),
                       opc::vkservices::NondeterministicCoreProperties,
                       "The UUID core property should not be set while in deterministic mode.");
  EXPECT_EQ(text(fixture.manager->getCoreProperties().getTitle()), "first");
}

TEST(CorePropertiesManagerTest, NotDeterministicAcceptsAnyRecord) {
  PropertiesPackage fixture;
  CoreProperties all = record();
  all.setCreatedTime(CoreProperties::getCurrentTime());
  all.setLastModifiedTime(CoreProperties::getCurrentTime());
  all.setUUID(kUUID);
  fixture.manager->setCoreProperties(all);
  EXPECT_EQ(text(fixture.manager->getCoreProperties().getUUID()), text(std::u16string(kUUID)));
}

TEST(CorePropertiesManagerTest, LoadedValuesStayInDeterministicMode) {
  CoreProperties properties = record();
  properties.setUUID(kUUID);
  ptime const created(boost::gregorian::date(2001, 2, 3));
  properties.setCreatedTime(created);
  PropertiesPackage fixture(savedWith(properties), PackageAccess::Modify,
                            CorePropertiesManager::Deterministic);
  CoreProperties current = fixture.manager->getCoreProperties();
  EXPECT_EQ(text(current.getUUID()), text(std::u16string(kUUID)));
  // A record without the loaded values is accepted, and the UUID is kept.
  CoreProperties plain = record();
  plain.setTitle(u"changed");
  fixture.manager->setCoreProperties(plain);
  CoreProperties const back = loaded(fixture.save());
  EXPECT_EQ(text(back.getUUID()), text(std::u16string(kUUID)));
  EXPECT_EQ(text(back.getTitle()), "changed");
}

TEST(CorePropertiesManagerTest, SetCorePropertiesKeepsTheUUIDOfTheRecordThatLacksOne) {
  PropertiesPackage fixture;
  CoreProperties first = record();
  first.setUUID(kUUID);
  fixture.manager->setCoreProperties(first);
  fixture.manager->setCoreProperties(record());
  EXPECT_EQ(text(fixture.manager->getCoreProperties().getUUID()), text(std::u16string(kUUID)));
  CoreProperties other = record();
  other.setUUID(CoreProperties::getNilUUID());
  fixture.manager->setCoreProperties(other);
  EXPECT_EQ(text(fixture.manager->getCoreProperties().getUUID()),
            text(CoreProperties::getNilUUID()));
}

TEST(CorePropertiesManagerTest, WithoutTheReleaseInfoPartTheReleaseIsLegacy) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, kCorePart, kCoreType, kCoreRelationship,
                    coreXml("application/vnd.veltrance.a.b", "n", "R2011a"));
  });
  CoreProperties const back = loaded(bytes);
  EXPECT_EQ(back.getORVANERelease(), u"R2011a");
  EXPECT_TRUE(back.getORVANEReleaseInfo().isLegacy());
  EXPECT_FALSE(back.getUUID());
  EXPECT_TRUE(back.isValid());
}

TEST(CorePropertiesManagerTest, TheReleaseInfoPartReplacesTheFamilyOfTheCorePart) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, kCorePart, kCoreType, kCoreRelationship,
                    coreXml("application/vnd.veltrance.a.b", "n", "R2011a"));
    addMetadataPart(package, kReleaseInfoPart, kReleaseInfoType, kReleaseInfoRelationship,
                    ReleaseInfo().getVersionInfo());
  });
  CoreProperties const back = loaded(bytes);
  EXPECT_EQ(back.getORVANEReleaseInfo(), ReleaseInfo());
}

TEST(CorePropertiesManagerTest, PartsAreFoundByRelationshipWhateverTheirNames) {
  Bytes const bytes = handMade([](Package& package) {
    // Made in the order release-info, extension, core: reading still goes core first.
    addMetadataPart(package, u"/r.xml", kReleaseInfoType, kReleaseInfoRelationship,
                    ReleaseInfo().getVersionInfo());
    addMetadataPart(package, u"/e.xml", kExtensionType, kExtensionRelationship,
                    extensionXml("<uuid>0123abcd-4567-49ef-8123-456789abcdef</uuid>"));
    addMetadataPart(package, u"/c.xml", kCoreType, kCoreRelationship,
                    coreXml("application/vnd.veltrance.a.b", "n", "R2011a"));
  });
  CoreProperties const back = loaded(bytes);
  EXPECT_EQ(back.getORVANEReleaseInfo(), ReleaseInfo());
  EXPECT_EQ(text(back.getUUID()), text(std::u16string(kUUID)));

  // Saving writes into the same parts and makes no others.
  PropertiesPackage fixture(bytes, PackageAccess::Modify);
  CoreProperties changed = fixture.manager->getCoreProperties();
  changed.setContentTypeFriendlyName(u"renamed");
  fixture.manager->setCoreProperties(changed);
  auto const saved = Package::openBuffer(fixture.save(), PackageAccess::Read);
  EXPECT_EQ(partNames(*saved),
            (std::vector<std::u16string>{u"/r.xml", u"/e.xml", u"/c.xml", kStandardPart}));
  EXPECT_NE(readAll(saved->getPart(PartName(u"/c.xml"))).find("renamed"), std::string::npos);
}

TEST(CorePropertiesManagerTest, TheFirstOfTwoCoreRelationshipsIsReadAndWritten) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, u"/first.xml", kCoreType, kCoreRelationship,
                    coreXml("application/vnd.veltrance.first.one", "first", "R2011a"));
    addMetadataPart(package, u"/second.xml", kCoreType, kCoreRelationship,
                    coreXml("application/vnd.veltrance.second.one", "second", "R2011a"));
  });
  PropertiesPackage fixture(bytes, PackageAccess::Modify);
  CoreProperties properties = fixture.manager->getCoreProperties();
  EXPECT_EQ(properties.getContentTypeFriendlyName(), u"first");
  properties.setContentTypeFriendlyName(u"written");
  fixture.manager->setCoreProperties(properties);
  auto const saved = Package::openBuffer(fixture.save(), PackageAccess::Read);
  EXPECT_NE(readAll(saved->getPart(PartName(u"/first.xml"))).find("written"), std::string::npos);
  EXPECT_NE(readAll(saved->getPart(PartName(u"/second.xml"))).find("second"), std::string::npos);
  EXPECT_EQ(relationshipCount(*saved, kCoreRelationship), 2u);
}

TEST(CorePropertiesManagerTest, ALegacyReleaseRemovesTheReleaseInfoPart) {
  PropertiesPackage fixture(savedWith(record()), PackageAccess::Modify);
  CoreProperties properties = fixture.manager->getCoreProperties();
  properties.setORVANERelease(u"R2011a");
  fixture.manager->setCoreProperties(properties);
  Bytes const bytes = fixture.save();
  auto const saved = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_FALSE(saved->hasPart(PartName(kReleaseInfoPart)));
  EXPECT_EQ(relationshipCount(*saved, kReleaseInfoRelationship), 0u);
  EXPECT_TRUE(saved->hasPart(PartName(kCorePart)));
  CoreProperties const back = loaded(bytes);
  EXPECT_TRUE(back.getORVANEReleaseInfo().isLegacy());
  EXPECT_EQ(back.getORVANERelease(), u"R2011a");
}

TEST(CorePropertiesManagerTest, InAReadOnlyPackageNothingIsDeleted) {
  Bytes const bytes = savedWith(record());
  PropertiesPackage fixture(bytes, PackageAccess::Read);
  CoreProperties properties = fixture.manager->getCoreProperties();
  properties.setORVANERelease(u"R2011a");
  fixture.manager->setCoreProperties(properties);
  EXPECT_THROW(CorePropertiesManagerAccess::save(*fixture.manager), opc::model::PackageNotWritable);
  EXPECT_TRUE(fixture.package->hasPart(PartName(kReleaseInfoPart)));
  EXPECT_EQ(relationshipCount(*fixture.package, kReleaseInfoRelationship), 1u);
}

TEST(CorePropertiesManagerTest, AVersionElementIsToleratedAndDroppedOnTheNextSave) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, kCorePart, kCoreType, kCoreRelationship,
                    coreXml("application/vnd.veltrance.a.b", "n", "R2011a",
                            "<orvaneVersion>7.1.0</orvaneVersion>"));
  });
  PropertiesPackage fixture(bytes, PackageAccess::Modify);
  fixture.manager->setCoreProperties(fixture.manager->getCoreProperties());
  auto const saved = Package::openBuffer(fixture.save(), PackageAccess::Read);
  EXPECT_EQ(readAll(saved->getPart(PartName(kCorePart))).find("orvaneVersion"), std::string::npos);
}

TEST(CorePropertiesManagerTest, AnExtensionPartInAnotherNamespaceIsRead) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, kExtensionPart, kExtensionType, kExtensionRelationship,
                    "<vkcoreProperties xmlns='urn:elsewhere'><uuid>"
                    "0123abcd-4567-49ef-8123-456789abcdef</uuid></vkcoreProperties>");
  });
  EXPECT_EQ(text(loaded(bytes).getUUID()), text(std::u16string(kUUID)));
}

// Each failure of a part comes out as InvalidCoreProperties with the inner words.
TEST(CorePropertiesManagerTest, LoadFailuresCarryTheWordsOfTheCause) {
  struct Case {
    std::u16string name;
    std::u16string type;
    std::u16string relationship;
    std::string text;
    std::string message;
  };
  std::vector<Case> const cases = {
      {kCorePart, kCoreType, kCoreRelationship,
       "<vkcoreProperties xmlns='" + std::string(kCoreNamespace) +
           "'><contentTypeFriendlyName>n</contentTypeFriendlyName><contentType>"
           "application/vnd.veltrance.a.b</contentType><orvaneRelease>R2011a</orvaneRelease>"
           "</vkcoreProperties>",
       "XML error at line 1, column 252: element 'contentTypeFriendlyName' is not allowed for "
       "content model '(contentType,contentTypeFriendlyName,orvaneRelease,orvaneVersion?)'"},
      {kCorePart, kCoreType, kCoreRelationship,
       coreXml("application/vnd.veltrance.a", "n", "R2011a"),
       "Content type must have the format: application/vnd.veltrance.<product>.<package-type>"},
      {kExtensionPart, kExtensionType, kExtensionRelationship, "<other/>",
       "The expected extended core properties root element is not present"},
      {kReleaseInfoPart, kReleaseInfoType, kReleaseInfoRelationship,
       "<releaseInfo xmlns='http://schemas.opcvkservices.org/release/2026/releaseInfo'>"
       "<releaseFamily>R2020a</releaseFamily><version>1.2.3</version></releaseInfo>",
       "ReleaseInfo is invalid"},
      {kReleaseInfoPart, kReleaseInfoType, kReleaseInfoRelationship, "<junk/>",
       "Could not construct a ReleaseInfo from the given XML"},
  };
  for (Case const& c : cases) {
    auto package = Package::openBuffer({}, PackageAccess::Create);
    addMetadataPart(*package, c.name, c.type, c.relationship, c.text);
    package->save();
    PropertiesPackage fixture(package->getBuffer(), PackageAccess::Read);
    EXPECT_THROW_MESSAGE(fixture.manager->getCoreProperties(), InvalidCoreProperties, c.message)
        << c.text;
  }
}

TEST(CorePropertiesManagerTest, ARelationshipToAMissingPartFailsTheLoad) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createInternalRelationship(kCoreRelationship, opc::model::URI(u"/missing.xml"), u"");
  PropertiesPackage fixture(
      [&] {
        package->save();
        return package->getBuffer();
      }(),
      PackageAccess::Read);
  try {
    fixture.manager->getCoreProperties();
    FAIL() << "nothing was thrown";
  } catch (InvalidCoreProperties const& e) {
    EXPECT_NE(std::string(e.what()).find("/missing.xml"), std::string::npos) << e.what();
  }
}

TEST(CorePropertiesManagerTest, AFailedLoadIsTriedAgain) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, kCorePart, kCoreType, kCoreRelationship, "<broken");
  });
  PropertiesPackage fixture(bytes, PackageAccess::Modify);
  EXPECT_THROW(fixture.manager->getCoreProperties(), InvalidCoreProperties);
  opc::OutputStream& out = fixture.package->getPart(PartName(kCorePart)).getOutputStream();
  std::string const good = coreXml("application/vnd.veltrance.a.b", "n", "R2011a");
  out.write(reinterpret_cast<unsigned char const*>(good.data()), good.size());
  out.close();
  EXPECT_EQ(fixture.manager->getCoreProperties().getContentType(),
            u"application/vnd.veltrance.a.b");
}

TEST(CorePropertiesManagerTest, ManagedPartsAndRelationshipTypes) {
  PropertiesPackage fixture;
  EXPECT_EQ(
      CorePropertiesManagerAccess::managedPartNames(*fixture.manager),
      (std::vector<std::u16string>{kStandardPart, kCorePart, kExtensionPart, kReleaseInfoPart}));
  EXPECT_EQ(CorePropertiesManagerAccess::managedRelationshipTypes(*fixture.manager),
            (std::vector<std::u16string>{kStandardRelationship, kCoreRelationship,
                                         kExtensionRelationship, kReleaseInfoRelationship}));
}

TEST(CorePropertiesManagerTest, ConstructionReadsNothing) {
  Bytes const bytes = handMade([](Package& package) {
    addMetadataPart(package, kCorePart, kCoreType, kCoreRelationship, "<broken");
  });
  EXPECT_NO_THROW(PropertiesPackage(bytes, PackageAccess::Read));
}

}  // namespace
