#include <string>

#include <gtest/gtest.h>
#include <xercesc/dom/DOMNamedNodeMap.hpp>

#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::XercesGuard;
using opc::model::XercesHelper;

class XmlElementsTest : public ::testing::Test {
 protected:
  xercesc::DOMElement* parse(std::string const& xml) {
    opcvk_test::MemoryInputStream in(xml);
    return XercesHelper::readDocumentFromStream(parser_.get(), in, false, u"", u"")
        ->getDocumentElement();
  }

  XercesGuard guard_;
  std::unique_ptr<xercesc::DOMLSParser, opc::model::XercesDeleter> parser_ =
      XercesHelper::createParser();
};

TEST_F(XmlElementsTest, GetElementGivesTheFirstChildOfThatLocalName) {
  auto* root = parse(
      "<r xmlns='urn:a' xmlns:p='urn:p'><x>1</x><p:name>2</p:name><name>3</name>"
      "<z><name>deep</name></z></r>");
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(XercesHelper::getElement(root, u"name"), text));
  EXPECT_EQ(u"2", text);
  ASSERT_TRUE(
      XercesHelper::getElementText(XercesHelper::getElementNS(root, u"urn:a", u"name"), text));
  EXPECT_EQ(u"3", text);
  ASSERT_TRUE(
      XercesHelper::getElementText(XercesHelper::getElementNS(root, u"urn:p", u"name"), text));
  EXPECT_EQ(u"2", text);
}

TEST_F(XmlElementsTest, GetElementOfAMissingChildNamesIt) {
  auto* root = parse("<r xmlns='urn:a'><z><missing/></z></r>");
  EXPECT_THROW_MESSAGE(XercesHelper::getElement(root, u"missing"), InvalidXMLDocument,
                       "XML error: element \"missing\" is missing in element \"r\"");
  EXPECT_THROW_MESSAGE(XercesHelper::getElementNS(root, u"urn:b", u"z"), InvalidXMLDocument,
                       "XML error: element \"z\" of the namespace \"urn:b\" is missing in "
                       "element \"r\"");
  EXPECT_THROW_MESSAGE(XercesHelper::getElement(nullptr, u"contentType"), InvalidXMLDocument,
                       "XML error: element \"contentType\" is missing");
}

TEST_F(XmlElementsTest, FindElementGivesTheFirstChildOfThatLocalNameOrNull) {
  auto* root = parse(
      "<r xmlns='urn:a' xmlns:p='urn:p'><z><name>deep</name></z><p:name>1</p:name>"
      "<name>2</name></r>");
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(XercesHelper::findElement(root, u"name"), text));
  EXPECT_EQ(u"1", text);
  EXPECT_EQ(XercesHelper::findElement(root, u"missing"), nullptr);
  EXPECT_EQ(XercesHelper::findElement(XercesHelper::getElement(root, u"name"), u"name"), nullptr);
  EXPECT_EQ(XercesHelper::findElement(nullptr, u"name"), nullptr);
}

TEST_F(XmlElementsTest, GetElementNSWithEmptyNamespaceFindsUnqualifiedChildren) {
  auto* root = parse("<r><a xmlns='urn:x'>q</a><a>u</a></r>");
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(XercesHelper::getElementNS(root, u"", u"a"), text));
  EXPECT_EQ(u"u", text);
}

TEST_F(XmlElementsTest, GetElementsKeepsDocumentOrderAndSkipsGrandchildren) {
  auto* root =
      parse("<r><e n='1'/><other/><e n='2'><e n='nested'/></e><!-- c --><e n='3'/>text</r>");
  auto found = XercesHelper::getElements(root, u"e");
  ASSERT_EQ(3u, found.size());
  std::u16string value;
  for (std::size_t i = 0; i < found.size(); ++i) {
    ASSERT_TRUE(XercesHelper::getElementAttribute(found[i], u"n", value));
    EXPECT_EQ(std::u16string(1, static_cast<char16_t>(u'1' + i)), value);
  }
}

TEST_F(XmlElementsTest, GetElementsWithoutSuchChildIsEmpty) {
  auto* root = parse("<r><a/><b><c/></b></r>");
  EXPECT_TRUE(XercesHelper::getElements(root, u"c").empty());
  EXPECT_TRUE(XercesHelper::getElements(root, u"A").empty());
  EXPECT_TRUE(XercesHelper::getElements(nullptr, u"a").empty());
}

TEST_F(XmlElementsTest, GetElementTextFalseWithoutText) {
  auto* root = parse("<r><empty/><pair></pair><child><x>t</x></child><sp> </sp></r>");
  std::u16string text = u"untouched";
  EXPECT_FALSE(XercesHelper::getElementText(XercesHelper::getElement(root, u"empty"), text));
  EXPECT_FALSE(XercesHelper::getElementText(XercesHelper::getElement(root, u"pair"), text));
  EXPECT_FALSE(XercesHelper::getElementText(XercesHelper::getElement(root, u"child"), text));
  EXPECT_FALSE(XercesHelper::getElementText(nullptr, text));
  EXPECT_EQ(u"untouched", text);
  ASSERT_TRUE(XercesHelper::getElementText(XercesHelper::getElement(root, u"sp"), text));
  EXPECT_EQ(u" ", text);
}

TEST_F(XmlElementsTest, GetElementTextJoinsTextCdataAndCharacterReferences) {
  auto* root = parse("<r>a&amp;b<![CDATA[<c>]]>&#x1F600;<!-- no -->d<x>not</x>e</r>");
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(root, text));
  EXPECT_EQ(u"a&b<c>\U0001F600de", text);
}

TEST_F(XmlElementsTest, SetElementTextReplacesContent) {
  auto document = XercesHelper::createDocument();
  auto* root = XercesHelper::appendElementNS(document.get(), u"urn:a", u"r");
  XercesHelper::appendElementNS(root, u"urn:a", u"child");
  XercesHelper::setElementText(root, u"new");
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(root, text));
  EXPECT_EQ(u"new", text);
  EXPECT_TRUE(XercesHelper::getElements(root, u"child").empty());
  XercesHelper::setElementText(root, u"");
  EXPECT_FALSE(XercesHelper::getElementText(root, text));
  EXPECT_EQ(nullptr, root->getFirstChild());
  EXPECT_THROW_MESSAGE(XercesHelper::setElementText(nullptr, u"x"), InvalidXMLDocument,
                       "XML error: setting a text needs an element");
}

TEST_F(XmlElementsTest, MissingAttributeLeavesTheOutArgumentAlone) {
  auto* root = parse("<r present='v' empty=''/>");
  std::u16string value = u"untouched";
  EXPECT_FALSE(XercesHelper::getElementAttribute(root, u"absent", value));
  EXPECT_FALSE(XercesHelper::getElementAttribute(root, u"Present", value));
  EXPECT_FALSE(XercesHelper::getElementAttribute(nullptr, u"present", value));
  EXPECT_EQ(u"untouched", value);
  ASSERT_TRUE(XercesHelper::getElementAttribute(root, u"empty", value));
  EXPECT_EQ(u"", value);
  ASSERT_TRUE(XercesHelper::getElementAttribute(root, u"present", value));
  EXPECT_EQ(u"v", value);
}

TEST_F(XmlElementsTest, SetElementAttributeReplacesAndRejectsBadNames) {
  auto document = XercesHelper::createDocument();
  auto* root = XercesHelper::appendElementNS(document.get(), u"", u"r");
  XercesHelper::setElementAttribute(root, u"a", u"1");
  XercesHelper::setElementAttribute(root, u"a", u"2");
  std::u16string value;
  ASSERT_TRUE(XercesHelper::getElementAttribute(root, u"a", value));
  EXPECT_EQ(u"2", value);
  EXPECT_EQ(1u, root->getAttributes()->getLength());
  EXPECT_THROW_MESSAGE(XercesHelper::setElementAttribute(root, u"bad name", u"x"),
                       InvalidXMLDocument, "XML error: invalid or illegal XML character");
  EXPECT_THROW_MESSAGE(XercesHelper::setElementAttribute(nullptr, u"a", u"x"), InvalidXMLDocument,
                       "XML error: setting an attribute needs an element");
}

TEST_F(XmlElementsTest, AppendElementNSBuildsRootThenChildrenInOrder) {
  auto document = XercesHelper::createDocument();
  auto* root = XercesHelper::appendElementNS(document.get(), u"urn:a", u"root");
  EXPECT_EQ(root, document->getDocumentElement());
  EXPECT_EQ(std::u16string(u"urn:a"), root->getNamespaceURI());
  auto* first = XercesHelper::appendElementNS(root, u"urn:a", u"item");
  auto* second = XercesHelper::appendElementNS(root, u"", u"item");
  EXPECT_EQ(first, root->getFirstChild());
  EXPECT_EQ(second, root->getLastChild());
  EXPECT_EQ(nullptr, second->getNamespaceURI());
  auto* prefixed = XercesHelper::appendElementNS(root, u"urn:p", u"p:item");
  EXPECT_EQ(std::u16string(u"p"), prefixed->getPrefix());
  EXPECT_EQ(std::u16string(u"item"), prefixed->getLocalName());
}

TEST_F(XmlElementsTest, AppendElementNSRefusesASecondRootAndBadNames) {
  auto document = XercesHelper::createDocument();
  auto* root = XercesHelper::appendElementNS(document.get(), u"urn:a", u"root");
  EXPECT_THROW_MESSAGE(XercesHelper::appendElementNS(document.get(), u"urn:a", u"again"),
                       InvalidXMLDocument,
                       "XML error: the document has a document element already");
  EXPECT_THROW_MESSAGE(XercesHelper::appendElementNS(root, u"urn:a", u"1abc"), InvalidXMLDocument,
                       "XML error: invalid or illegal XML character");
  EXPECT_THROW_MESSAGE(XercesHelper::appendElementNS(root, u"", u"p:x"), InvalidXMLDocument,
                       "XML error: attempt is made to create or change an object in a way which is "
                       "incorrect with respect to namespaces");
  EXPECT_THROW_MESSAGE(
      XercesHelper::appendElementNS(static_cast<xercesc::DOMElement*>(nullptr), u"", u"x"),
      InvalidXMLDocument, "XML error: appending an element needs an element");
  EXPECT_THROW_MESSAGE(
      XercesHelper::appendElementNS(static_cast<xercesc::DOMDocument*>(nullptr), u"", u"x"),
      InvalidXMLDocument, "XML error: appending an element needs a document");
  EXPECT_EQ(nullptr, root->getFirstChild());
}

}  // namespace
