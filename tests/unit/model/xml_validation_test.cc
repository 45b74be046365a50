#include <string>

#include <gtest/gtest.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/model/xml/xerces_error_handler.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::InvalidXMLSchema;
using opc::model::XercesErrorHandler;
using opc::model::XercesGuard;
using opc::model::XercesHelper;

char const kSchema[] = R"(<?xml version="1.0" encoding="UTF-8" standalone="no"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" targetNamespace="urn:example:list"
    xmlns="urn:example:list" elementFormDefault="qualified" attributeFormDefault="unqualified"
    blockDefault="#all">
  <xs:complexType name="entryType">
    <xs:simpleContent>
      <xs:extension base="xs:string">
        <xs:attribute name="size" type="xs:unsignedInt" use="required"/>
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

class XmlValidationTest : public ::testing::Test {
 protected:
  void SetUp() override { XercesHelper::loadGrammar(parser_.get(), kSchema, u"list.xsd"); }

  xercesc::DOMDocument* read(std::string const& xml, bool validate) {
    opcvk_test::MemoryInputStream in(xml);
    return XercesHelper::readDocumentFromStream(parser_.get(), in, validate, u"", u"");
  }

  XercesGuard guard_;
  std::unique_ptr<xercesc::DOMLSParser, opc::model::XercesDeleter> parser_ =
      XercesHelper::createParser();
};

TEST_F(XmlValidationTest, ValidDocumentPasses) {
  auto* document = read(
      "<list xmlns='urn:example:list'><entry size='1'>a</entry><entry size='2'/></list>", true);
  EXPECT_EQ(2u, XercesHelper::getElements(document->getDocumentElement(), u"entry").size());
  EXPECT_NE(nullptr, read("<list xmlns='urn:example:list'/>", true));
}

TEST_F(XmlValidationTest, UndeclaredElementFailsWhenValidatingAndPassesOtherwise) {
  std::string const xml = "<list xmlns='urn:example:list'><entry size='1'/><extra/></list>";
  EXPECT_THROW_MESSAGE(read(xml, true), InvalidXMLDocument,
                       "XML error at line 1, column 57: no declaration found for element 'extra'");
  EXPECT_NE(nullptr, read(xml, false));
}

TEST_F(XmlValidationTest, ForeignElementInsideDeclaredContentFails) {
  EXPECT_THROW_MESSAGE(
      read("<list xmlns='urn:example:list'><x:entry xmlns:x='urn:other' size='1'/></list>", true),
      InvalidXMLDocument,
      "XML error at line 1, column 71: no declaration found for element 'x:entry'");
}

TEST_F(XmlValidationTest, DocumentOfAnotherNamespaceFails) {
  EXPECT_THROW_MESSAGE(read("<list xmlns='urn:example:other'/>", true), InvalidXMLDocument,
                       "XML error at line 1, column 34: no declaration found for element 'list'");
  EXPECT_THROW_MESSAGE(read("<list/>", true), InvalidXMLDocument,
                       "XML error at line 1, column 8: no declaration found for element 'list'");
}

TEST_F(XmlValidationTest, TypeAndOccurrenceRulesApply) {
  EXPECT_THROW(read("<list xmlns='urn:example:list'><entry size='x'/></list>", true),
               InvalidXMLDocument);
  EXPECT_THROW(read("<list xmlns='urn:example:list'><entry/></list>", true), InvalidXMLDocument);
  EXPECT_THROW(read("<list xmlns='urn:example:list'><entry size='1' other=''/></list>", true),
               InvalidXMLDocument);
  EXPECT_NE(nullptr, read("<list xmlns='urn:example:list'><entry size='x'/></list>", false));
}

TEST_F(XmlValidationTest, XsiTypeCannotReplaceADeclaredType) {
  EXPECT_THROW(read("<list xmlns='urn:example:list' "
                    "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
                    "xsi:type='entryType'/>",
                    true),
               InvalidXMLDocument);
}

TEST_F(XmlValidationTest, GrammarStaysCachedAcrossFailures) {
  EXPECT_THROW(read("<list xmlns='urn:example:list'><bad/></list>", true), InvalidXMLDocument);
  EXPECT_THROW(read("<list", true), InvalidXMLDocument);
  EXPECT_NE(nullptr, read("<list xmlns='urn:example:list'><entry size='3'/></list>", true));
}

TEST(XmlGrammarTest, BrokenSchemaFailsWithTheParserText) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  std::string const schema =
      "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' targetNamespace='urn:t'>\n"
      "  <xs:element name='a' type='xs:nosuch'/>\n"
      "</xs:schema>";
  EXPECT_THROW_MESSAGE(XercesHelper::loadGrammar(parser.get(), schema, u"broken.xsd"),
                       InvalidXMLDocument,
                       "XML error in broken.xsd at line 2, column 42: type 'http://www.w3.org/"
                       "2001/XMLSchema:nosuch' not found");
}

TEST(XmlGrammarTest, SchemaThatIsNotWellFormedFails) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  EXPECT_THROW_MESSAGE(XercesHelper::loadGrammar(parser.get(), "<xs:schema", u"cut.xsd"),
                       InvalidXMLDocument,
                       "XML error in cut.xsd at line 1, column 11: unexpected end of input");
  EXPECT_THROW(XercesHelper::loadGrammar(parser.get(), "", u"empty.xsd"), InvalidXMLDocument);
}

// The way the library's readers load their schema: the parser's own loadGrammar under a
// handler, with the failure turned into InvalidXMLSchema.
TEST(XmlGrammarTest, DirectLoadGrammarRaisesAndCallersReportInvalidSchema) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  parser->getDomConfig()->setParameter(xercesc::XMLUni::fgXercesUseCachedGrammarInParse, true);
  std::string const schema = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'><x/>";
  auto load = [&] {
    try {
      xercesc::Wrapper4InputSource input(new xercesc::MemBufInputSource(
          reinterpret_cast<XMLByte const*>(schema.data()), schema.size(), u"bad.xsd", false));
      XercesErrorHandler handler;
      parser->getDomConfig()->setParameter(xercesc::XMLUni::fgDOMErrorHandler, &handler);
      parser->loadGrammar(&input, xercesc::Grammar::SchemaGrammarType, true);
      parser->getDomConfig()->setParameter(xercesc::XMLUni::fgDOMErrorHandler,
                                           static_cast<void const*>(nullptr));
    } catch (InvalidXMLDocument const& e) {
      parser->getDomConfig()->setParameter(xercesc::XMLUni::fgDOMErrorHandler,
                                           static_cast<void const*>(nullptr));
      throw InvalidXMLSchema(std::string("Schema could not be loaded: ") + e.what());
    }
  };
  EXPECT_THROW_MESSAGE(load(), InvalidXMLSchema,
                       "Schema could not be loaded: XML error in bad.xsd at line 1, column 60: "
                       "input ended before all started tags were ended; last tag started is "
                       "'xs:schema'");
}

TEST(XmlGrammarTest, DirectLoadGrammarWithoutHandlerStillRaises) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  std::string const schema = "<notaschema/>";
  xercesc::Wrapper4InputSource input(new xercesc::MemBufInputSource(
      reinterpret_cast<XMLByte const*>(schema.data()), schema.size(), u"n.xsd", false));
  EXPECT_THROW(parser->loadGrammar(&input, xercesc::Grammar::SchemaGrammarType, true),
               InvalidXMLDocument);
}

TEST(XmlGrammarTest, TwoSchemasServeTheirOwnNamespaces) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  XercesHelper::loadGrammar(parser.get(), kSchema, u"list.xsd");
  XercesHelper::loadGrammar(
      parser.get(),
      "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' targetNamespace='urn:v1' "
      "elementFormDefault='qualified'><xs:element name='old' type='xs:string'/></xs:schema>",
      u"v1.xsd");
  opcvk_test::MemoryInputStream current("<list xmlns='urn:example:list'/>");
  EXPECT_NE(nullptr, XercesHelper::readDocumentFromStream(parser.get(), current, true, u"", u""));
  opcvk_test::MemoryInputStream old("<old xmlns='urn:v1'>text</old>");
  EXPECT_NE(nullptr, XercesHelper::readDocumentFromStream(parser.get(), old, true, u"", u""));
}

TEST(XmlGrammarTest, OnlySchemaGrammarsAndNoLocationsAreLoaded) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  std::string const dtd = "<!ELEMENT a EMPTY>";
  xercesc::Wrapper4InputSource input(new xercesc::MemBufInputSource(
      reinterpret_cast<XMLByte const*>(dtd.data()), dtd.size(), u"a.dtd", false));
  EXPECT_THROW_MESSAGE(parser->loadGrammar(&input, xercesc::Grammar::DTDGrammarType, true),
                       InvalidXMLDocument, "XML error: only XML schema grammars can be loaded");
  EXPECT_THROW_MESSAGE(
      parser->loadGrammar(u"file:///tmp/x.xsd", xercesc::Grammar::SchemaGrammarType, true),
      InvalidXMLDocument, "XML error: loading from the URI \"file:///tmp/x.xsd\" is not allowed");
  EXPECT_THROW_MESSAGE(
      parser->loadGrammar("http://example.com/x.xsd", xercesc::Grammar::SchemaGrammarType, true),
      InvalidXMLDocument,
      "XML error: loading from the URI \"http://example.com/x.xsd\" is not allowed");
}

}  // namespace
