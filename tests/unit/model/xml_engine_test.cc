// The engine must read and write exactly as the XercesHelper road does: the same trees, the
// same bytes, the same messages.  The road itself is the reference in these tests.
#include "xml_engine/xml_engine.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::XercesGuard;
using opc::model::XercesHelper;
using opc::model::detail::xmlEngine;
using opc::model::detail::XmlGrammar;
using opc::model::detail::XmlNode;
using opc::model::detail::XmlReaderSettings;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

char const kSchema[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" targetNamespace="urn:example:list"
    xmlns="urn:example:list" elementFormDefault="qualified" attributeFormDefault="unqualified">
  <xs:complexType name="entryType">
    <xs:simpleContent>
      <xs:extension base="xs:string">
        <xs:attribute name="size" type="xs:unsignedInt" use="required"/>
        <xs:attribute name="kind" type="xs:string" default="plain"/>
      </xs:extension>
    </xs:simpleContent>
  </xs:complexType>
  <xs:element name="list">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="entry" type="entryType" minOccurs="0" maxOccurs="unbounded"/>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
</xs:schema>
)";

XmlReaderSettings listSettings() {
  XmlReaderSettings settings;
  settings.grammars.push_back(XmlGrammar{kSchema, u"list.xsd"});
  return settings;
}

XmlNode readTree(std::string const& xml, XmlReaderSettings const& settings = XmlReaderSettings(),
                 bool validate = false, std::u16string const& ns = u"") {
  MemoryInputStream in(xml);
  return xmlEngine().makeTreeReader(settings)->read(in, validate, u"", ns);
}

// The message that the XercesHelper road gives for the same document.
std::string roadMessage(std::string const& xml, bool validate, std::u16string const& systemId,
                        std::u16string const& ns) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  if (validate) XercesHelper::loadGrammar(parser.get(), kSchema, u"list.xsd");
  MemoryInputStream in(xml);
  try {
    XercesHelper::readDocumentFromStream(parser.get(), in, validate, systemId, ns);
  } catch (InvalidXMLDocument const& e) {
    return e.what();
  }
  return "no failure";
}

XmlNode node(std::u16string ns, std::u16string name) {
  XmlNode result;
  result.namespaceURI = std::move(ns);
  result.name = std::move(name);
  return result;
}

TEST(XmlEngineTest, TreeReaderKeepsNamesNamespacesAndAttributesInNameOrder) {
  XmlNode const root = readTree(
      "<p:r xmlns:p='urn:p' xmlns='urn:d' xmlns:q='urn:q' b='2' a='1' q:c='3'>"
      "<e z='' y='x &amp; y'/><q:f/></p:r>");
  EXPECT_EQ(u"urn:p", root.namespaceURI);
  EXPECT_EQ(u"p:r", root.name);
  EXPECT_EQ(u"r", root.localName);
  using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;
  EXPECT_EQ((Pairs{{u"a", u"1"}, {u"b", u"2"}, {u"q:c", u"3"}}), root.attributes);
  EXPECT_EQ((std::vector<std::u16string>{u"", u"", u"urn:q"}), root.attributeNamespaces);
  EXPECT_EQ((Pairs{{u"", u"urn:d"}, {u"p", u"urn:p"}, {u"q", u"urn:q"}}),
            root.namespaceDeclarations);
  ASSERT_EQ(2u, root.children.size());
  EXPECT_EQ(u"urn:d", root.children[0].namespaceURI);
  EXPECT_EQ(u"e", root.children[0].localName);
  EXPECT_EQ((Pairs{{u"y", u"x & y"}, {u"z", u""}}), root.children[0].attributes);
  EXPECT_TRUE(root.children[0].attributeNamespaces.empty());
  EXPECT_TRUE(root.children[0].namespaceDeclarations.empty());
  EXPECT_EQ(u"q:f", root.children[1].name);
  EXPECT_EQ(u"f", root.children[1].localName);
  EXPECT_EQ(u"urn:q", root.children[1].namespaceURI);
}

TEST(XmlEngineTest, TreeReaderJoinsTextAndKeepsTheRunsAfterEachChild) {
  XmlNode const root =
      readTree("<r>one<a>inner</a> two <!-- c --><![CDATA[<three>]]><b/><?pi x?>four</r>");
  EXPECT_EQ(u"one two <three>four", root.text);
  ASSERT_EQ(2u, root.children.size());
  EXPECT_EQ(u"inner", root.children[0].text);
  EXPECT_EQ(u" two <three>", root.children[0].tail);
  EXPECT_EQ(u"four", root.children[1].tail);
  EXPECT_EQ(u"", root.children[1].text);
}

TEST(XmlEngineTest, TreeReaderValidatesAgainstItsGrammarsAndAddsDefaults) {
  XmlNode const root = readTree("<list xmlns='urn:example:list'><entry size='1'>a</entry></list>",
                                listSettings(), true);
  ASSERT_EQ(1u, root.children.size());
  std::u16string kind;
  EXPECT_TRUE(opc::model::detail::getElementAttribute(&root.children[0], u"kind", kind));
  EXPECT_EQ(u"plain", kind);
}

TEST(XmlEngineTest, TreeReaderFailsInTheWordsOfTheParserRoad) {
  struct Case {
    std::string xml;
    bool validate;
    std::u16string systemId;
    std::u16string ns;
  };
  std::vector<Case> const cases = {
      {"<root>\n  <a></b>\n</root>", false, u"", u""},
      {"<root>", false, u"manifest.xml", u""},
      {"", false, u"", u""},
      {"<p:r xmlns:p='urn:y'/>", false, u"part.xml", u"urn:x"},
      {"<r/>", false, u"", u"urn:x"},
      {"<!DOCTYPE r [<!ENTITY e 'x'>]><r>&e;</r>", false, u"", u""},
      {"<list xmlns='urn:example:list'><entry/></list>", true, u"", u""},
      {"<list xmlns='urn:example:list'><extra/></list>", true, u"doc.xml", u""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.xml);
    std::string const expected = roadMessage(c.xml, c.validate, c.systemId, c.ns);
    ASSERT_NE("no failure", expected);
    auto reader = xmlEngine().makeTreeReader(c.validate ? listSettings() : XmlReaderSettings());
    MemoryInputStream in(c.xml);
    EXPECT_THROW_MESSAGE(reader->read(in, c.validate, c.systemId, c.ns), InvalidXMLDocument,
                         expected);
    EXPECT_EQ(1, in.opens);
    EXPECT_EQ(1, in.closes);
  }
}

TEST(XmlEngineTest, TreeReaderPassesStreamFailuresAndServesTheNextDocument) {
  auto reader = xmlEngine().makeTreeReader(XmlReaderSettings());
  MemoryInputStream failing("<root><a>text</a><b>more text</b></root>", 5);
  failing.failAfter(12);
  EXPECT_THROW_MESSAGE(reader->read(failing, false, u"", u""), opc::Exception,
                       "injected read failure");
  EXPECT_EQ(1, failing.closes);
  MemoryInputStream good("<root><a/></root>");
  XmlNode const root = reader->read(good, false, u"", u"");
  EXPECT_EQ(1u, root.children.size());
  EXPECT_EQ(1, good.closes);
}

TEST(XmlEngineTest, GrammarThatDoesNotCompileFailsWhenTheReaderIsMade) {
  XmlReaderSettings settings;
  settings.grammars.push_back(XmlGrammar{"<xs:schema xmlns:xs='urn:not-a-schema'/>", u"bad.xsd"});
  EXPECT_THROW(xmlEngine().makeTreeReader(settings), InvalidXMLDocument);
  EXPECT_THROW(xmlEngine().makeEventReader(settings), InvalidXMLDocument);
}

class Recorder : public opc::model::XmlStreamHandler {
 public:
  void startElement(opc::model::XmlStreamElement const& element) override {
    seen.push_back(std::u16string(element.localName) + u"@" +
                   std::u16string(1, static_cast<char16_t>(u'0' + element.depth)));
    std::u16string_view const* kind = element.findAttribute(u"kind");
    if (kind != nullptr) seen.push_back(std::u16string(*kind));
  }
  void endElement(std::size_t depth) override {
    seen.push_back(u"/" + std::u16string(1, static_cast<char16_t>(u'0' + depth)));
  }
  std::vector<std::u16string> seen;
};

TEST(XmlEngineTest, EventReaderStreamsValidatedElements) {
  auto reader = xmlEngine().makeEventReader(listSettings());
  MemoryInputStream in("<list xmlns='urn:example:list'><entry size='1'/><entry size='2'/></list>");
  Recorder recorder;
  reader->read(in, recorder);
  EXPECT_EQ((std::vector<std::u16string>{u"list@0", u"entry@1", u"plain", u"/1", u"entry@1",
                                         u"plain", u"/1", u"/0"}),
            recorder.seen);
  MemoryInputStream invalid("<list xmlns='urn:example:list'><entry/></list>");
  Recorder ignored;
  EXPECT_THROW_MESSAGE(
      reader->read(invalid, ignored), InvalidXMLDocument,
      roadMessage("<list xmlns='urn:example:list'><entry/></list>", true, u"", u""));
}

// The same document built through XercesHelper, as the writers did before the engine.
std::string roadBytes(bool standalone) {
  XercesGuard guard;
  auto document = XercesHelper::createDocument();
  if (standalone) document->setXmlStandalone(true);
  auto* root = XercesHelper::appendElementNS(document.get(), u"urn:a", u"a:root");
  root->setAttributeNS(u"http://www.w3.org/2000/xmlns/", u"xmlns:b", u"urn:b");
  XercesHelper::setElementAttribute(root, u"z", u"last & <first> \"quoted\"\ttab");
  XercesHelper::setElementAttribute(root, u"m", u"");
  auto* text = XercesHelper::appendElementNS(root, u"urn:b", u"b:text");
  XercesHelper::setElementText(text, u"caf\u00e9 < & >\r\n\U0001F600");
  text->setAttributeNS(u"http://www.w3.org/XML/1998/namespace", u"xml:lang", u"fr");
  auto* nested = XercesHelper::appendElementNS(root, u"urn:a", u"a:nested");
  XercesHelper::appendElementNS(nested, u"", u"plain");
  XercesHelper::appendElementNS(root, u"urn:c", u"other");
  auto writer = XercesHelper::createPrettyPrintingWriter();
  MemoryOutputStream out;
  XercesHelper::writeDocumentToStream(writer.get(), document.get(), out);
  return out.bytes;
}

XmlNode engineTree() {
  XmlNode root = node(u"urn:a", u"a:root");
  root.attributes = {
      {u"xmlns:b", u"urn:b"}, {u"z", u"last & <first> \"quoted\"\ttab"}, {u"m", u""}};
  root.attributeNamespaces = {u"http://www.w3.org/2000/xmlns/", u"", u""};
  XmlNode text = node(u"urn:b", u"b:text");
  text.text = u"caf\u00e9 < & >\r\n\U0001F600";
  text.attributes = {{u"xml:lang", u"fr"}};
  text.attributeNamespaces = {u"http://www.w3.org/XML/1998/namespace"};
  root.children.push_back(text);
  XmlNode nested = node(u"urn:a", u"a:nested");
  nested.children.push_back(node(u"", u"plain"));
  root.children.push_back(nested);
  root.children.push_back(node(u"urn:c", u"other"));
  return root;
}

TEST(XmlEngineTest, WriterGivesTheBytesOfTheParserRoad) {
  for (bool standalone : {true, false}) {
    SCOPED_TRACE(standalone);
    MemoryOutputStream out;
    xmlEngine().write(engineTree(), standalone, out);
    EXPECT_EQ(roadBytes(standalone), out.bytes);
    EXPECT_EQ(0, out.closes);
    EXPECT_LE(1, out.flushes);
  }
}

TEST(XmlEngineTest, WrittenTreeReadsBackTheSame) {
  MemoryOutputStream out;
  xmlEngine().write(engineTree(), true, out);
  XmlNode const back = readTree(out.bytes);
  XmlNode const expected = engineTree();
  EXPECT_EQ(expected.name, back.name);
  ASSERT_EQ(3u, back.children.size());
  EXPECT_EQ(expected.children[0].text, back.children[0].text);
  EXPECT_EQ(expected.children[0].attributes, back.children[0].attributes);
  EXPECT_EQ(u"plain", back.children[1].children.at(0).localName);
}

TEST(XmlEngineTest, WriterRefusesWhatXmlCannotHold) {
  XmlNode root = node(u"", u"root");
  root.text = std::u16string(1, u'\x01');
  MemoryOutputStream out;
  EXPECT_THROW(xmlEngine().write(root, true, out), InvalidXMLDocument);
  XmlNode badName = node(u"", u"no spaces");
  EXPECT_THROW(xmlEngine().write(badName, true, out), InvalidXMLDocument);
}

TEST(XmlEngineTest, WriterPassesStreamFailures) {
  MemoryOutputStream out;
  out.failAfter(10);
  EXPECT_THROW_MESSAGE(xmlEngine().write(engineTree(), true, out), opc::Exception,
                       "injected write failure");
}

TEST(XmlEngineTest, EngineIsOneForTheProcess) { EXPECT_EQ(&xmlEngine(), &xmlEngine()); }

}  // namespace
