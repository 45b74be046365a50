#include <string>

#include <gmock/gmock.h>
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
using opcvk_test::Bytes;
using ::testing::HasSubstr;
using ::testing::Not;

StandardPartInfo const kInfo(CompressionType::DeflateMetadata, 0);

int countOf(std::string const& text, std::string const& what) {
  int count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

TEST(ContentTypesTest, DefaultsMatchExtensionsWithoutRegardToCaseAndOverridesWin) {
  std::string const types =
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"XmL\" ContentType=\"application/xml\"/>"
      "<Override PartName=\"/SPECIAL.xml\" ContentType=\"text/x-special\"/>"
      "</Types>";
  auto package = Package::openBuffer(
      opcvk_test::makeZip(
          {{"[Content_Types].xml", types}, {"a.XML", "<a/>"}, {"special.xml", "<s/>"}}),
      PackageAccess::Read);
  EXPECT_EQ(package->getPart(PartName(u"/a.XML")).getContentType(),
            ContentType(u"application/xml"));
  EXPECT_EQ(package->getPart(PartName(u"/special.xml")).getContentType(),
            ContentType(u"text/x-special"));
}

// The same elements in the plain form, which is read without the parser, and with a comment,
// which only the parser reads.
std::string typesOfBothForms(std::string const& elements, bool plain) {
  return "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">" +
         std::string(plain ? "" : "<!-- read by the parser -->") + elements + "</Types>";
}

TEST(ContentTypesTest, DocumentsOfEitherFormGiveTheSameTypes) {
  std::string const elements =
      "<Default Extension=\"XmL\" ContentType=\"application/xml\"/>"
      "<Override PartName=\"/sp%C3%A9cial.xml\" ContentType=\"text/x-s;a=&quot;b c&quot;\"/>";
  for (bool const plain : {true, false}) {
    auto package = Package::openBuffer(
        opcvk_test::makeZip({{"[Content_Types].xml", typesOfBothForms(elements, plain)},
                             {"a.XML", "<a/>"},
                             {"sp%C3%A9cial.xml", "<s/>"}}),
        PackageAccess::Read);
    EXPECT_EQ(package->getPart(PartName(u"/a.XML")).getContentType(),
              ContentType(u"application/xml"));
    EXPECT_EQ(package
                  ->getPart(PartName(u"/sp\xE9"
                                     u"cial.xml"))
                  .getContentType(),
              ContentType(u"text/x-s;a=\"b c\""));
  }
}

TEST(ContentTypesTest, DocumentsOfEitherFormAreRefusedWithTheSameMessage) {
  struct Case {
    std::string elements;
    std::string message;
  };
  std::string const prefix = "Invalid package (in memory): [Content_Types].xml: ";
  Case const cases[] = {
      {"<Default Extension=\"a\" ContentType=\"x/y\"/><Default Extension=\"A\" "
       "ContentType=\"x/z\"/>",
       prefix + "the extension \"A\" has more than one Default"},
      {"<Default Extension=\"\" ContentType=\"x/y\"/>",
       prefix + "a Default element has no Extension attribute"},
      {"<Override PartName=\"/a\"/>", prefix + "a Override element has no ContentType attribute"},
      {"<Override PartName=\"a\" ContentType=\"x/y\"/>", ""},
      {"<Default Extension=\"a\" ContentType=\"x\"/>", ""},
  };
  for (Case const& c : cases) {
    std::string messages[2];
    for (bool const plain : {true, false}) {
      try {
        Package::openBuffer(
            opcvk_test::makeZip({{"[Content_Types].xml", typesOfBothForms(c.elements, plain)}}),
            PackageAccess::Read);
        ADD_FAILURE() << c.elements;
      } catch (InvalidPackage const& e) {
        messages[plain ? 0 : 1] = e.what();
      }
    }
    EXPECT_EQ(messages[0], messages[1]) << c.elements;
    if (!c.message.empty()) {
      EXPECT_EQ(c.message, messages[0]);
    }
  }
}

TEST(ContentTypesTest, WrittenFirstWithDefaultsForSharedExtensionsAndOverridesForTheRest) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createPart(PartName(u"/a.xml"), ContentType(u"application/xml"), kInfo);
  package->createPart(PartName(u"/b.XML"), ContentType(u"application/xml"), kInfo);
  package->createPart(PartName(u"/c.xml"), ContentType(u"text/x-other"), kInfo);
  package->createPart(PartName(u"/d.bin"), ContentType(u"a/b;x=1;y=\"two words\""), kInfo);
  package->createPart(PartName(u"/noext"), ContentType(u"application/octet-stream"), kInfo);
  package->createPart(PartName(u"/\xE9t\xE9.txt"), ContentType(u"text/plain"), kInfo);
  package->createInternalRelationship(u"http://t", URI(u"a.xml"), u"");
  package->save();
  Bytes const saved = package->getBuffer();
  EXPECT_EQ(opcvk_test::itemNames(saved).front(), "[Content_Types].xml");
  std::string const xml = opcvk_test::itemText(saved, "[Content_Types].xml");
  EXPECT_THAT(xml, HasSubstr("standalone=\"yes\""));
  EXPECT_THAT(xml, HasSubstr("<Default ContentType=\"application/xml\" Extension=\"xml\"/>"));
  EXPECT_THAT(xml, HasSubstr("<Default ContentType=\"application/vnd.openxmlformats-package."
                             "relationships+xml\" Extension=\"rels\"/>"));
  EXPECT_THAT(xml, HasSubstr("<Default ContentType=\"a/b;x=1;y=&quot;two words&quot;\" "
                             "Extension=\"bin\"/>"));
  EXPECT_THAT(xml, HasSubstr("<Override ContentType=\"text/x-other\" PartName=\"/c.xml\"/>"));
  EXPECT_THAT(xml, HasSubstr("<Override ContentType=\"application/octet-stream\" "
                             "PartName=\"/noext\"/>"));
  EXPECT_EQ(countOf(xml, "<Override"), 2);
  EXPECT_EQ(countOf(xml, "<Default"), 4);

  auto reread = Package::openBuffer(saved, PackageAccess::Read);
  for (Part const& part : package->getParts()) {
    EXPECT_EQ(reread->getPart(part.getName()).getContentType(), part.getContentType());
  }
}

TEST(ContentTypesTest, OverridesNameNonAsciiPartsInEscapes) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  package->createPart(PartName(u"/\xE9.xml"), ContentType(u"text/x-e"), kInfo);
  package->createPart(PartName(u"/plain.xml"), ContentType(u"application/xml"), kInfo);
  package->createPart(PartName(u"/other.xml"), ContentType(u"application/xml"), kInfo);
  package->save();
  std::string const xml = opcvk_test::itemText(package->getBuffer(), "[Content_Types].xml");
  EXPECT_THAT(xml, HasSubstr("<Override ContentType=\"text/x-e\" PartName=\"/%C3%A9.xml\"/>"));
  auto reread = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  EXPECT_EQ(reread->getPart(PartName(u"/\xE9.xml")).getContentType(), ContentType(u"text/x-e"));
  // The item is stored under the URI form of the name, which is what comes back.
  EXPECT_EQ(reread->getPart(PartName(u"/\xE9.xml")).getName().toString(), u"/%C3%A9.xml");
  EXPECT_EQ(reread->getPart(PartName(u"/\xE9.xml")).getName(), PartName(u"/\xE9.xml"));
}

}  // namespace
}  // namespace model
}  // namespace opc
