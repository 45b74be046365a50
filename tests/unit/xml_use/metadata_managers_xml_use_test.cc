// The metadata managers load the XML library only when one of their parts is read or written:
// attaching them, or loading a package that lacks their parts, leaves it out of the process.
// The cases run in the order written when the program runs them together: those that must not
// load it come first.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/package.h>
#include <opc/model/relationship_selector.h>
#include <opc/model/uri.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/core_properties_manager.h>

#include "support/process_maps.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CipherDataManager;
using opc::vkservices::CoreProperties;
using opc::vkservices::CorePropertiesManager;

using opcvk_test::isMapped;
using opcvk_test::xmlLibraryLoaded;

opc::model::RelationshipSelector selector() {
  return opc::model::RelationshipSelector(opc::model::URI(u"/"),
                                          opc::model::RelationshipSelectorType::ByType, u"t");
}

TEST(MetadataManagersXmlUseTest, AttachingManagersLoadsNothing) {
  ASSERT_FALSE(xmlLibraryLoaded());
  auto const package = Package::openBuffer({}, PackageAccess::Create);
  {
    CorePropertiesManager const properties(*package, CorePropertiesManager::NotDeterministic);
    CipherDataManager const cipherData(*package);
  }
  EXPECT_FALSE(xmlLibraryLoaded());
}

TEST(MetadataManagersXmlUseTest, PackageWithoutTheirPartsLoadsWithoutTheXmlLibrary) {
  ASSERT_FALSE(xmlLibraryLoaded());
  auto const package = Package::openBuffer({}, PackageAccess::Create);
  CorePropertiesManager const properties(*package, CorePropertiesManager::NotDeterministic);
  CipherDataManager const cipherData(*package);
  EXPECT_FALSE(properties.getCoreProperties().isValid());
  EXPECT_FALSE(cipherData.hasCipherEntry(selector()));
  EXPECT_FALSE(xmlLibraryLoaded());
}

// The core properties' documents of ordinary values are written and read without the parser:
// packing a folder and showing its properties, a user's first commands, never load it.
TEST(MetadataManagersXmlUseTest, CorePropertiesOfOrdinaryValuesAreWrittenAndReadWithoutIt) {
  ASSERT_FALSE(xmlLibraryLoaded());
  std::vector<unsigned char> bytes;
  CoreProperties written(u"application/vnd.veltrance.foo.bar", u"Foo & <bar>", u"R2011a");
  written.setTitle(u"Caf\u00e9 \U0001F600 \"quoted\"");
  written.setKeywords({{u"alpha", u"en"}, {u"beta", u""}});
  {
    auto const package = Package::openBuffer({}, PackageAccess::Create);
    CorePropertiesManager properties(*package, CorePropertiesManager::NotDeterministic);
    properties.setCoreProperties(written);
    package->save();
    bytes = package->getBuffer();
  }
  auto const package = Package::openBuffer(bytes, PackageAccess::Read);
  CorePropertiesManager const properties(*package, CorePropertiesManager::NotDeterministic);
  CoreProperties const read = properties.getCoreProperties();
  EXPECT_EQ(read.getContentTypeFriendlyName(), u"Foo & <bar>");
  EXPECT_TRUE(read.getTitle() == written.getTitle());
  EXPECT_TRUE(read.getKeywords() == written.getKeywords());
  EXPECT_TRUE(read.getUUID());
  EXPECT_TRUE(read.getCreatedTime());
  EXPECT_EQ(read.getORVANEReleaseInfo().getVersionInfo(),
            written.getORVANEReleaseInfo().getVersionInfo());
  EXPECT_FALSE(xmlLibraryLoaded());
}

TEST(MetadataManagersXmlUseTest, PartsWrittenAndReadAgainLoadItAndReadTheSame) {
  std::vector<unsigned char> bytes;
  {
    auto const package = Package::openBuffer({}, PackageAccess::Create);
    CorePropertiesManager properties(*package, CorePropertiesManager::Deterministic);
    CipherDataManager cipherData(*package);
    properties.setCoreProperties(
        CoreProperties(u"application/vnd.veltrance.foo.bar", u"Foo", u"R2011a"));
    cipherData.addCipherEntry(selector(), {1, 2}, u"salt", {3, 4});
    package->save();
    bytes = package->getBuffer();
  }
  EXPECT_TRUE(isMapped("libopcmodel_xml"));
  auto const package = Package::openBuffer(bytes, PackageAccess::Read);
  CorePropertiesManager const properties(*package, CorePropertiesManager::Deterministic);
  CipherDataManager const cipherData(*package);
  EXPECT_EQ(properties.getCoreProperties().getContentTypeFriendlyName(), u"Foo");
  EXPECT_EQ(cipherData.getCipherEntry(selector()).getSalt(), u"salt");
}

}  // namespace
