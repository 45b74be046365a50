// Documents written to attack a parser: none of them may load anything from outside, expand
// entities, bring their own grammar or exhaust the stack.
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"
#include "support/temp_dir.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::XercesGuard;
using opc::model::XercesHelper;

// Accepts exactly <strict xmlns="urn:example:strict"/>.
char const kStrictSchema[] =
    "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' targetNamespace='urn:example:strict'"
    " elementFormDefault='qualified' blockDefault='#all'>"
    "<xs:element name='strict'><xs:complexType/></xs:element></xs:schema>";

// Accepts anything in urn:example:strict and in urn:example:evil.
std::string laxSchema(std::string const& targetNamespace) {
  return "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' targetNamespace='" +
         targetNamespace +
         "' elementFormDefault='qualified'><xs:element name='strict'><xs:complexType>"
         "<xs:sequence><xs:any processContents='skip' minOccurs='0' maxOccurs='unbounded'/>"
         "</xs:sequence><xs:anyAttribute processContents='skip'/></xs:complexType></xs:element>"
         "<xs:element name='evil'><xs:complexType><xs:sequence><xs:any processContents='skip' "
         "minOccurs='0' maxOccurs='unbounded'/></xs:sequence></xs:complexType></xs:element>"
         "</xs:schema>";
}

class XmlHostileTest : public ::testing::Test {
 protected:
  void SetUp() override { XercesHelper::loadGrammar(parser_.get(), kStrictSchema, u"strict.xsd"); }

  xercesc::DOMDocument* read(std::string const& xml, bool validate) {
    opcvk_test::MemoryInputStream in(xml);
    return XercesHelper::readDocumentFromStream(parser_.get(), in, validate, u"", u"");
  }

  std::string writeFile(std::string const& name, std::string const& content) {
    std::string const path = dir_ / name;
    std::ofstream(path) << content;
    return path;
  }

  XercesGuard guard_;
  opcvk_test::TempDir dir_;
  std::unique_ptr<xercesc::DOMLSParser, opc::model::XercesDeleter> parser_ =
      XercesHelper::createParser();
};

TEST_F(XmlHostileTest, BillionLaughsIsRefusedAtTheDoctype) {
  std::string xml = "<?xml version='1.0'?>\n<!DOCTYPE lolz [\n <!ENTITY lol0 'lol'>\n";
  for (int i = 1; i < 10; ++i) {
    std::string const previous = "&lol" + std::to_string(i - 1) + ";";
    std::string value;
    for (int k = 0; k < 10; ++k) value += previous;
    xml += " <!ENTITY lol" + std::to_string(i) + " '" + value + "'>\n";
  }
  xml += "]>\n<lolz>&lol9;</lolz>";
  for (bool validate : {false, true}) {
    EXPECT_THROW_MESSAGE(read(xml, validate), InvalidXMLDocument,
                         "XML error at line 2, column 10: invalid document structure");
  }
}

TEST_F(XmlHostileTest, ExternalEntityIsNeverRead) {
  std::string const secret = writeFile("secret.txt", "TOP-SECRET");
  std::string const xml = "<?xml version='1.0'?>\n<!DOCTYPE r [<!ENTITY xxe SYSTEM 'file://" +
                          secret + "'>]>\n<r>&xxe;</r>";
  EXPECT_THROW_MESSAGE(read(xml, false), InvalidXMLDocument,
                       "XML error at line 2, column 10: invalid document structure");
  EXPECT_THROW_MESSAGE(
      read("<!DOCTYPE r [<!ENTITY xxe SYSTEM 'file:///etc/passwd'>]><r>&xxe;</r>", false),
      InvalidXMLDocument, "XML error at line 1, column 10: invalid document structure");
}

TEST_F(XmlHostileTest, ExternalDtdIsRefused) {
  std::string const dtd = writeFile("evil.dtd", "<!ENTITY e 'expanded'>");
  EXPECT_THROW_MESSAGE(read("<!DOCTYPE r SYSTEM 'file://" + dtd + "'><r>&e;</r>", false),
                       InvalidXMLDocument,
                       "XML error at line 1, column 10: invalid document structure");
  EXPECT_THROW_MESSAGE(read("<!DOCTYPE r PUBLIC '-//x//y' 'http://127.0.0.1:9/x.dtd'><r/>", false),
                       InvalidXMLDocument,
                       "XML error at line 1, column 10: invalid document structure");
}

TEST_F(XmlHostileTest, UndeclaredEntityIsAnError) {
  EXPECT_THROW_MESSAGE(read("<r>&undeclared;</r>", false), InvalidXMLDocument,
                       "XML error at line 1, column 16: entity 'undeclared' not found");
}

TEST_F(XmlHostileTest, SchemaLocationOfADocumentIsIgnored) {
  std::string const lax = writeFile("lax.xsd", laxSchema("urn:example:strict"));
  std::string const evil = writeFile("evil.xsd", laxSchema("urn:example:evil"));
  // The document names a lax schema for the namespace of the cached one: the cached grammar
  // still decides.
  std::string const same =
      "<strict xmlns='urn:example:strict' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
      "xsi:schemaLocation='urn:example:strict file://" +
      lax + "'><smuggled/></strict>";
  EXPECT_THROW_MESSAGE(read(same, true), InvalidXMLDocument,
                       "XML error at line 1, column " +
                           std::to_string(same.find("<smuggled/>") + 12) +
                           ": no declaration found for element 'smuggled'");
  // A document of a namespace without cached grammar cannot validate through its own.
  std::string const other =
      "<evil xmlns='urn:example:evil' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
      "xsi:schemaLocation='urn:example:evil file://" +
      evil + "'/>";
  EXPECT_THROW_MESSAGE(read(other, true), InvalidXMLDocument,
                       "XML error at line 1, column " + std::to_string(other.size() + 1) +
                           ": no declaration found for element 'evil'");
  std::string const noNamespace =
      "<strict xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
      "xsi:noNamespaceSchemaLocation='file://" +
      lax + "'/>";
  EXPECT_THROW_MESSAGE(read(noNamespace, true), InvalidXMLDocument,
                       "XML error at line 1, column " + std::to_string(noNamespace.size() + 1) +
                           ": no declaration found for element 'strict'");
  // Nor does a parse without validation leave that grammar behind for the next document.
  EXPECT_NE(nullptr, read(other, false));
  EXPECT_THROW(read(other, true), InvalidXMLDocument);
  EXPECT_NE(nullptr, read("<strict xmlns='urn:example:strict'/>", true));
}

TEST_F(XmlHostileTest, SchemaIncludeOrImportByLocationIsNotLoaded) {
  std::string const included = writeFile(
      "included.xsd",
      "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' targetNamespace='urn:inc' "
      "elementFormDefault='qualified'><xs:element name='extra' type='xs:string'/></xs:schema>");
  std::string const schema =
      "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' targetNamespace='urn:inc' "
      "elementFormDefault='qualified'><xs:include schemaLocation='file://" +
      included + "'/><xs:element name='base' type='xs:string'/></xs:schema>";
  auto parser = XercesHelper::createParser();
  try {
    XercesHelper::loadGrammar(parser.get(), schema, u"inc.xsd");
  } catch (InvalidXMLDocument const&) {
    return;  // Refusing the whole schema is as good as ignoring the include.
  }
  opcvk_test::MemoryInputStream in("<extra xmlns='urn:inc'>x</extra>");
  EXPECT_THROW_MESSAGE(XercesHelper::readDocumentFromStream(parser.get(), in, true, u"", u""),
                       InvalidXMLDocument,
                       "XML error at line 1, column 24: no declaration found for element 'extra'");
}

TEST_F(XmlHostileTest, XIncludeIsNotProcessed) {
  std::string const secret = writeFile("secret.xml", "<secret>TOP-SECRET</secret>");
  auto* document = read("<r xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='file://" +
                            secret + "'/></r>",
                        false);
  auto* root = document->getDocumentElement();
  EXPECT_TRUE(XercesHelper::getElements(root, u"secret").empty());
  EXPECT_EQ(1u, XercesHelper::getElements(root, u"include").size());
}

TEST_F(XmlHostileTest, DeeplyNestedDocumentFailsCleanly) {
  std::string xml;
  for (int i = 0; i < 100000; ++i) xml += "<a>";
  for (int i = 0; i < 100000; ++i) xml += "</a>";
  EXPECT_THROW_MESSAGE(read(xml, false), InvalidXMLDocument,
                       "XML error at line 1, column 772: elements are nested deeper than 256 "
                       "levels");
  // Validation stops it even earlier, at the first undeclared element.
  EXPECT_THROW_MESSAGE(read(xml, true), InvalidXMLDocument,
                       "XML error at line 1, column 4: no declaration found for element 'a'");
  // Declared elements nested too deep stop at the limit as well.
  std::string declared;
  for (int i = 0; i < 100000; ++i) declared += "<strict xmlns='urn:example:strict'>";
  EXPECT_THROW(read(declared, true), InvalidXMLDocument);
  // The parser is still usable.
  EXPECT_NE(nullptr, read("<strict xmlns='urn:example:strict'/>", true));
}

TEST_F(XmlHostileTest, NestingUpToTheLimitIsAccepted) {
  std::string xml;
  for (int i = 0; i < 256; ++i) xml += "<a>";
  xml += "<b/>";
  for (int i = 0; i < 255; ++i) xml += "</a>";
  EXPECT_THROW(read(xml + "</a>", false), InvalidXMLDocument);  // <b/> is level 257
  std::string fits;
  for (int i = 0; i < 255; ++i) fits += "<a>";
  fits += "<b/>";
  for (int i = 0; i < 255; ++i) fits += "</a>";
  EXPECT_NE(nullptr, read(fits, false));
}

TEST_F(XmlHostileTest, ParseFromAUriIsRefused) {
  std::string const file = writeFile("doc.xml", "<strict xmlns='urn:example:strict'/>");
  EXPECT_THROW_MESSAGE(parser_->parseURI(("file://" + file).c_str()), InvalidXMLDocument,
                       "XML error: loading from the URI \"file://" + file + "\" is not allowed");
  EXPECT_THROW_MESSAGE(parser_->parseURI(u"http://127.0.0.1:9/x.xml"), InvalidXMLDocument,
                       "XML error: loading from the URI \"http://127.0.0.1:9/x.xml\" is not "
                       "allowed");
}

TEST_F(XmlHostileTest, ProcessingInstructionsAndCommentsAreHarmless) {
  auto* document = read(
      "<?xml-stylesheet href='file:///etc/passwd'?><!-- x --><strict "
      "xmlns='urn:example:strict'><?pi data?></strict>",
      true);
  EXPECT_NE(nullptr, document);
}

}  // namespace
