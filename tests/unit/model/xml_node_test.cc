#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "xml_engine/xml_engine.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::detail::XmlNode;

XmlNode element(std::u16string name, std::u16string localName) {
  XmlNode node;
  node.name = std::move(name);
  node.localName = std::move(localName);
  return node;
}

// <p:root><p:entry n="1">one</p:entry><other/><entry n="2"/></p:root>
XmlNode sample() {
  XmlNode root = element(u"p:root", u"root");
  XmlNode first = element(u"p:entry", u"entry");
  first.attributes = {{u"n", u"1"}};
  first.text = u"one";
  root.children.push_back(first);
  root.children.push_back(element(u"other", u"other"));
  XmlNode second = element(u"entry", u"entry");
  second.attributes = {{u"n", u"2"}, {u"empty", u""}};
  root.children.push_back(second);
  return root;
}

TEST(XmlNodeTest, GetElementFindsTheFirstChildByLocalName) {
  XmlNode const root = sample();
  XmlNode const& found = opc::model::detail::getElement(&root, u"entry");
  EXPECT_EQ(&root.children[0], &found);
}

TEST(XmlNodeTest, GetElementNamesTheMissingElementAndItsParent) {
  XmlNode const root = sample();
  EXPECT_THROW_MESSAGE(opc::model::detail::getElement(&root, u"absent"), InvalidXMLDocument,
                       "XML error: element \"absent\" is missing in element \"p:root\"");
  EXPECT_THROW_MESSAGE(opc::model::detail::getElement(nullptr, u"absent"), InvalidXMLDocument,
                       "XML error: element \"absent\" is missing");
}

TEST(XmlNodeTest, GetElementDoesNotMatchTheQualifiedName) {
  XmlNode const root = sample();
  EXPECT_EQ(nullptr, opc::model::detail::findElement(&root, u"p:entry"));
}

TEST(XmlNodeTest, FindElementGivesNullWhenAbsent) {
  XmlNode const root = sample();
  EXPECT_EQ(&root.children[1], opc::model::detail::findElement(&root, u"other"));
  EXPECT_EQ(nullptr, opc::model::detail::findElement(&root, u"absent"));
  EXPECT_EQ(nullptr, opc::model::detail::findElement(nullptr, u"entry"));
}

TEST(XmlNodeTest, GetElementsKeepsDocumentOrderAndSkipsOtherNames) {
  XmlNode const root = sample();
  std::vector<XmlNode const*> const found = opc::model::detail::getElements(&root, u"entry");
  ASSERT_EQ(2u, found.size());
  EXPECT_EQ(&root.children[0], found[0]);
  EXPECT_EQ(&root.children[2], found[1]);
  EXPECT_TRUE(opc::model::detail::getElements(&root, u"absent").empty());
  EXPECT_TRUE(opc::model::detail::getElements(nullptr, u"entry").empty());
}

TEST(XmlNodeTest, GetElementTextLeavesTheTextAloneWhenThereIsNone) {
  XmlNode const root = sample();
  std::u16string text = u"before";
  EXPECT_FALSE(opc::model::detail::getElementText(&root.children[1], text));
  EXPECT_FALSE(opc::model::detail::getElementText(nullptr, text));
  EXPECT_EQ(u"before", text);
  EXPECT_TRUE(opc::model::detail::getElementText(&root.children[0], text));
  EXPECT_EQ(u"one", text);
}

TEST(XmlNodeTest, GetElementAttributeTellsAbsentFromEmpty) {
  XmlNode const root = sample();
  std::u16string value = u"before";
  EXPECT_FALSE(opc::model::detail::getElementAttribute(&root.children[2], u"absent", value));
  EXPECT_FALSE(opc::model::detail::getElementAttribute(nullptr, u"n", value));
  EXPECT_EQ(u"before", value);
  EXPECT_TRUE(opc::model::detail::getElementAttribute(&root.children[2], u"n", value));
  EXPECT_EQ(u"2", value);
  EXPECT_TRUE(opc::model::detail::getElementAttribute(&root.children[2], u"empty", value));
  EXPECT_EQ(u"", value);
}

TEST(XmlNodeTest, AttributeNamespaceIsEmptyWhenNoneIsKept) {
  XmlNode node = sample().children[2];
  EXPECT_EQ(u"", opc::model::detail::attributeNamespace(node, 1));
  node.attributeNamespaces = {u"", u"urn:x"};
  EXPECT_EQ(u"urn:x", opc::model::detail::attributeNamespace(node, 1));
}

}  // namespace
