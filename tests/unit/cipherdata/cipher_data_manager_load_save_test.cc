// The table in its part: what a save writes, what a load reads, and every refusal of a part.
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/exceptions.h>
#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "unit/cipherdata/cipher_data_test_support.h"

namespace opcvk_test {
namespace {

using opc::model::PackageAccess;
using opc::vkservices::InvalidCipherData;

// The error that loading the part of `text` gives through a table operation, as
// "<class>: <message>", or "none".
std::string loadFailure(std::string const& text) {
  CipherPackage cipher(packageWithCipherPart(text), PackageAccess::Read);
  try {
    cipher.manager->hasCipherEntry(byType(u"t"));
  } catch (InvalidCipherData const& e) {
    return std::string("InvalidCipherData: ") + e.what();
  } catch (std::exception const& e) {
    return std::string("other: ") + e.what();
  }
  return "none";
}

TEST(CipherDataManagerLoadSaveTest, SavedTableReadsBackInAnotherPackageObject) {
  CipherPackage writer;
  writer.manager->addCipherEntry(byType(u"urn:type", u"/"), {0, 1, 254, 255}, u"0a1b", {9, 8, 7});
  writer.manager->addCipherEntry(byID(u"rId3", u"/docs/a.xml"), {5}, u"salt & <salt>", {6});
  CipherPackage reader(writer.save(), PackageAccess::Read);
  auto const first = reader.manager->getCipherEntry(byType(u"urn:type", u"/"));
  EXPECT_EQ(first.getHash(), (Bytes{0, 1, 254, 255}));
  EXPECT_EQ(first.getSalt(), u"0a1b");
  EXPECT_EQ(first.getIV(), (Bytes{9, 8, 7}));
  EXPECT_EQ(first.getRelationshipSelector().getSelectorType(), RelationshipSelectorType::ByType);
  auto const second = reader.manager->getCipherEntry(byID(u"rId3", u"/docs/a.xml"));
  EXPECT_EQ(second.getSalt(), u"salt & <salt>");
  EXPECT_EQ(second.getRelationshipSelector().getSelectorType(), RelationshipSelectorType::ByID);
  EXPECT_FALSE(reader.manager->hasCipherEntry(byID(u"urn:type", u"/")));
}

TEST(CipherDataManagerLoadSaveTest, SaveMakesThePartItsTypeAndARelationshipToIt) {
  CipherPackage writer;
  writer.manager->addCipherEntry(byType(u"t"), {1}, u"s", {2});
  CipherPackage reader(writer.save(), PackageAccess::Read);
  auto const relationships = reader.package->getRelationshipsByType(cipherRelationshipType());
  ASSERT_EQ(std::distance(relationships.begin(), relationships.end()), 1);
  EXPECT_EQ(relationships.begin()->getTargetURI().toString(), u"/metadata/vkCipherData.xml");
  auto const part = reader.package->getPart(opc::model::PartName(cipherPartName()));
  EXPECT_EQ(part.getContentType().toString(), u"application/vnd.veltrance.package.cipherData+xml");
  std::string const text = partText(*reader.package, cipherPartName());
  EXPECT_NE(text.find("standalone=\"yes\""), std::string::npos) << text;
  EXPECT_NE(text.find("<CipherData xmlns=\"" + cipherNamespace() + "\">"), std::string::npos)
      << text;
  // The serializer puts attributes in an order of its own; readers do not care.
  for (char const* attribute : {" SourceURI=\"/\"", " SelectorType=\"ByType\"", " Value=\"t\""}) {
    EXPECT_NE(text.find(attribute), std::string::npos) << attribute << "\n" << text;
  }
  EXPECT_NE(text.find("<Hash>AQ==</Hash>"), std::string::npos) << text;
  EXPECT_NE(text.find("<Salt>s</Salt>"), std::string::npos) << text;
  EXPECT_NE(text.find("<IV>Ag==</IV>"), std::string::npos) << text;
}

TEST(CipherDataManagerLoadSaveTest, EmptyTableWritesNoPartAndNoRelationship) {
  CipherPackage writer;
  writer.manager->addCipherEntry(byType(u"t"), {1}, u"s", {2});
  writer.manager->deleteCipherEntry(byType(u"t"));
  CipherPackage reader(writer.save(), PackageAccess::Read);
  EXPECT_FALSE(reader.package->hasPart(opc::model::PartName(cipherPartName())));
  auto const relationships = reader.package->getRelationshipsByType(cipherRelationshipType());
  EXPECT_EQ(relationships.begin(), relationships.end());
}

TEST(CipherDataManagerLoadSaveTest, SavingAnEmptyTableLeavesAnExistingPartUntouched) {
  std::string const text = cipherDocument(cipherEntryXml(selectorXml("/", "ByType", "t")));
  CipherPackage modifier(packageWithCipherPart(text), PackageAccess::Modify);
  modifier.manager->deleteCipherEntry(byType(u"t"));
  CipherPackage reader(modifier.save(), PackageAccess::Read);
  EXPECT_EQ(partText(*reader.package, cipherPartName()), text);
}

TEST(CipherDataManagerLoadSaveTest, SaveRewritesThePartItsRelationshipLeadsTo) {
  std::u16string const elsewhere = u"/custom/cipher.xml";
  CipherPackage modifier(
      packageWithCipherPart(cipherDocument(cipherEntryXml(selectorXml())), elsewhere),
      PackageAccess::Modify);
  modifier.manager->addCipherEntry(byID(u"new"), {1}, u"s", {2});
  CipherPackage reader(modifier.save(), PackageAccess::Read);
  EXPECT_FALSE(reader.package->hasPart(opc::model::PartName(cipherPartName())));
  EXPECT_NE(partText(*reader.package, elsewhere).find("Value=\"new\""), std::string::npos);
  EXPECT_TRUE(reader.manager->hasCipherEntry(byType(u"urn:x")));
  EXPECT_TRUE(reader.manager->hasCipherEntry(byID(u"new")));
}

TEST(CipherDataManagerLoadSaveTest, NewEntryIsAcceptedAndGoneAfterTheNextSave) {
  std::string const extra =
      "<NewEntry><Later xmlns=\"urn:later\" kind=\"x\"><Deeper/></Later><More/></NewEntry>";
  CipherPackage modifier(packageWithCipherPart(cipherDocument(
                             cipherEntryXml(selectorXml(), "AQID", "s", "BAUG", extra))),
                         PackageAccess::Modify);
  auto const entry = modifier.manager->getCipherEntry(byType(u"urn:x"));
  EXPECT_EQ(entry.getHash(), (Bytes{1, 2, 3}));
  EXPECT_EQ(entry.getIV(), (Bytes{4, 5, 6}));
  modifier.manager->addCipherEntry(byID(u"second"), {1}, u"s", {2});
  CipherPackage reader(modifier.save(), PackageAccess::Read);
  EXPECT_EQ(partText(*reader.package, cipherPartName()).find("NewEntry"), std::string::npos);
  EXPECT_TRUE(reader.manager->hasCipherEntry(byType(u"urn:x")));
}

TEST(CipherDataManagerLoadSaveTest, OnlyTheExactTextByTypeSelectsByType) {
  std::string entries;
  char const* const types[] = {"ByType", "bytype", "BYTYPE", "ByID", "Other", ""};
  for (char const* type : types) {
    entries += cipherEntryXml(selectorXml("/", type, std::string("v-") + type));
  }
  CipherPackage reader(packageWithCipherPart(cipherDocument(entries)), PackageAccess::Read);
  EXPECT_TRUE(reader.manager->hasCipherEntry(byType(u"v-ByType")));
  for (std::u16string const value : {u"v-bytype", u"v-BYTYPE", u"v-ByID", u"v-Other", u"v-"}) {
    EXPECT_TRUE(reader.manager->hasCipherEntry(byID(value))) << opc::toUDEString(value);
    EXPECT_FALSE(reader.manager->hasCipherEntry(byType(value)));
  }
}

TEST(CipherDataManagerLoadSaveTest, EveryRefusalOfAPartIsInvalidCipherDataInTheReadersWords) {
  struct Case {
    std::string text;
    std::string failure;
  };
  Case const cases[] = {
      {cipherDocument(cipherEntryXml("")), "XML signature: RelationshipSelector is not present."},
      {cipherDocument(
           cipherEntryXml("<RelationshipSelector SelectorType=\"ByType\" Value=\"v\"/>")),
       "RelationshipSelector xml element missing SourceURI attribute."},
      {cipherDocument(cipherEntryXml("<RelationshipSelector SourceURI=\"/\" Value=\"v\"/>")),
       "RelationshipSelector xml element missing SelectorType attribute."},
      {cipherDocument(
           cipherEntryXml("<RelationshipSelector SourceURI=\"/\" SelectorType=\"ByID\"/>")),
       "RelationshipSelector xml element missing SelectorValue attribute."},
      {cipherDocument(cipherEntryXml(selectorXml(), "")), "XML signature: Hash is empty."},
      {cipherDocument(cipherEntryXml(selectorXml(), "AQID", "")), "XML signature: Salt is empty."},
      {cipherDocument(cipherEntryXml(selectorXml(), "AQID", "s", "")),
       "XML signature: IV is empty."},
      {cipherDocument(cipherEntryXml(selectorXml("/", "ByType", "same"), "AQID") +
                      cipherEntryXml(selectorXml("/", "ByType", "same"), "BAUG")),
       "Cipher data in the package has multiple entries with the same values."},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(loadFailure(c.text), "InvalidCipherData: " + c.failure) << c.text;
  }
}

TEST(CipherDataManagerLoadSaveTest, DocumentsTheSchemaRefusesAreInvalidCipherData) {
  std::string const ns = cipherNamespace();
  std::string const cases[] = {
      // No entry at all: the schema asks for one at least.
      cipherDocument(""),
      // Out of order, unknown, or twice.
      cipherDocument("<CipherEntry>" + selectorXml() +
                     "<Salt>s</Salt><Hash>AQID</Hash><IV>BAUG</IV></CipherEntry>"),
      cipherDocument(cipherEntryXml(selectorXml(), "AQID", "s", "BAUG", "<Unknown/>")),
      cipherDocument("<CipherEntry>" + selectorXml() + selectorXml() +
                     "<Hash>AQID</Hash><Salt>s</Salt><IV>BAUG</IV></CipherEntry>"),
      cipherDocument(cipherEntryXml("<RelationshipSelector SourceURI=\"/\" SelectorType=\"ByType\" "
                                    "Value=\"v\" Extra=\"1\"/>")),
      // Another namespace, none, a declared document type, not well-formed.
      "<CipherData xmlns=\"urn:other\">" + cipherEntryXml(selectorXml()) + "</CipherData>",
      "<CipherData>" + cipherEntryXml(selectorXml()) + "</CipherData>",
      "<!DOCTYPE CipherData [<!ENTITY e \"x\">]><CipherData xmlns=\"" + ns + "\">" +
          cipherEntryXml(selectorXml()) + "</CipherData>",
      cipherDocument(cipherEntryXml(selectorXml())).substr(0, 120),
      "",
  };
  for (std::string const& text : cases) {
    std::string const failure = loadFailure(text);
    EXPECT_EQ(failure.rfind("InvalidCipherData: XML error", 0), 0u) << text << "\n" << failure;
  }
}

TEST(CipherDataManagerLoadSaveTest, ParserTextOfAnInvalidDocumentReachesTheCallerUnchanged) {
  EXPECT_EQ(loadFailure(cipherDocument("")),
            "InvalidCipherData: XML error at line 2, column 91: empty content is not valid for "
            "content model '(CipherEntry+)'");
}

TEST(CipherDataManagerLoadSaveTest, HashOrIVThatIsNotBase64PassesTheCryptoLibrarysError) {
  CipherPackage reader(packageWithCipherPart(cipherDocument(cipherEntryXml(selectorXml(), "AQI"))),
                       PackageAccess::Read);
  EXPECT_THROW(reader.manager->hasCipherEntry(byType(u"t")), foundation::crypto::utils::Exception);
  CipherPackage reader2(
      packageWithCipherPart(cipherDocument(cipherEntryXml(selectorXml(), "AQID", "s", "B A="))),
      PackageAccess::Read);
  EXPECT_THROW(reader2.manager->hasCipherEntry(byType(u"t")), foundation::crypto::utils::Exception);
}

TEST(CipherDataManagerLoadSaveTest, PartBeyondTheSizeLimitIsRefused) {
  std::string const padding(std::size_t{4} << 20, ' ');
  std::string const text = cipherDocument(padding + cipherEntryXml(selectorXml()));
  EXPECT_EQ(loadFailure(text),
            "InvalidCipherData: The cipher data part is larger than 4194304 bytes");
}

TEST(CipherDataManagerLoadSaveTest, RelationshipToAMissingPartIsInvalidCipherData) {
  auto package = opc::model::Package::openBuffer({}, PackageAccess::Create);
  package->createInternalRelationship(cipherRelationshipType(),
                                      opc::model::URI(u"/metadata/vkCipherData.xml"), u"");
  package->save();
  CipherPackage reader(package->getBuffer(), PackageAccess::Read);
  try {
    reader.manager->hasCipherEntry(byType(u"t"));
    ADD_FAILURE() << "no failure";
  } catch (InvalidCipherData const& e) {
    EXPECT_NE(std::string(e.what()).find("/metadata/vkCipherData.xml"), std::string::npos)
        << e.what();
  }
}

TEST(CipherDataManagerLoadSaveTest, FailedLoadIsTriedAgainByTheNextOperation) {
  CipherPackage reader(packageWithCipherPart(cipherDocument(cipherEntryXml(""))),
                       PackageAccess::Read);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_THROW_MESSAGE(reader.manager->getCipherEntry(byType(u"t")), InvalidCipherData,
                         "XML signature: RelationshipSelector is not present.");
  }
  EXPECT_THROW_MESSAGE(reader.manager->addCipherEntry(byType(u"t"), {1}, u"s", {1}),
                       InvalidCipherData, "XML signature: RelationshipSelector is not present.");
}

TEST(CipherDataManagerLoadSaveTest, LoadWithoutAPartKeepsTheTable) {
  CipherPackage cipher;
  cipher.manager->addCipherEntry(byType(u"kept"), {1}, u"s", {1});
  Access::load(*cipher.manager);
  EXPECT_TRUE(cipher.manager->hasCipherEntry(byType(u"kept")));
}

TEST(CipherDataManagerLoadSaveTest, LoadWithAPartReplacesTheTable) {
  CipherPackage cipher(packageWithCipherPart(cipherDocument(cipherEntryXml(selectorXml()))),
                       PackageAccess::Modify);
  cipher.manager->addCipherEntry(byType(u"added"), {1}, u"s", {1});
  Access::load(*cipher.manager);
  EXPECT_FALSE(cipher.manager->hasCipherEntry(byType(u"added")));
  EXPECT_TRUE(cipher.manager->hasCipherEntry(byType(u"urn:x")));
}

TEST(CipherDataManagerLoadSaveTest, ValueThatXmlCannotCarryFailsTheSaveAndWritesNothing) {
  CipherPackage writer;
  writer.manager->addCipherEntry(byType(u"t"), {1}, std::u16string(u"a\u0001b"), {1});
  try {
    writer.save();
    ADD_FAILURE() << "no failure";
  } catch (InvalidCipherData const& e) {
    EXPECT_EQ(std::string(e.what()).rfind("XML error", 0), 0u) << e.what();
  }
  EXPECT_FALSE(writer.package->hasPart(opc::model::PartName(cipherPartName())));
}

TEST(CipherDataManagerLoadSaveTest, SaltWithWhiteSpaceAndMarkupCharactersSurvivesARoundTrip) {
  std::u16string const salts[] = {u" lead",      u"trail ", u"a\tb\nc",
                                  u"cr\rlf\r\n", u"<&>\"'", u"\u00e9\u4e2d\U0001F600"};
  CipherPackage writer;
  for (std::u16string const& salt : salts)
    writer.manager->addCipherEntry(byID(salt), {1}, salt, {1});
  CipherPackage reader(writer.save(), PackageAccess::Read);
  for (std::u16string const& salt : salts) {
    EXPECT_EQ(reader.manager->getCipherEntry(byID(salt)).getSalt(), salt);
  }
}

}  // namespace
}  // namespace opcvk_test
