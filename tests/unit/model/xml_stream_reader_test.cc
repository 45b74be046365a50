// The streaming reader: what it hands to a handler, how it validates, which failure wins, and
// that the protections of the tree parser hold on it too.
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_reader.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::XmlStreamElement;
using opc::model::XmlStreamHandler;
using opc::model::XmlStreamReader;
using opcvk_test::MemoryInputStream;

char const kSchema[] = R"(<?xml version="1.0" encoding="UTF-8" standalone="no"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" targetNamespace="urn:example:list"
    xmlns="urn:example:list" elementFormDefault="qualified" attributeFormDefault="unqualified"
    blockDefault="#all">
  <xs:complexType name="entryType">
    <xs:simpleContent>
      <xs:extension base="xs:string">
        <xs:attribute name="size" type="xs:unsignedInt" use="required"/>
        <xs:attribute name="kind" type="xs:string" default="plain"/>
        <xs:attribute name="note" type="xs:string"/>
      </xs:extension>
    </xs:simpleContent>
  </xs:complexType>
  <xs:element name="list">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="entry" type="entryType" minOccurs="0" maxOccurs="unbounded"/>
        <xs:element name="group" minOccurs="0" maxOccurs="unbounded">
          <xs:complexType>
            <xs:sequence>
              <xs:element ref="group" minOccurs="0" maxOccurs="unbounded"/>
            </xs:sequence>
          </xs:complexType>
        </xs:element>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
  <xs:element name="group">
    <xs:complexType>
      <xs:sequence>
        <xs:element ref="group" minOccurs="0" maxOccurs="unbounded"/>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
</xs:schema>
)";

std::string list(std::string const& body) {
  return "<?xml version=\"1.0\"?>\n<list xmlns=\"urn:example:list\">\n" + body + "\n</list>\n";
}

// Records what it is told, as text: "start:<depth>:<local name>:<ns>:<n attributes>" and
// "end:<depth>"; can be told to throw at the nth start.
class Recorder : public XmlStreamHandler {
 public:
  void startElement(XmlStreamElement const& element) override {
    ++starts;
    if (starts == throwAt) throw std::runtime_error("refused element " + std::to_string(starts));
    events.push_back("start:" + std::to_string(element.depth) + ":" +
                     std::string(element.localName.begin(), element.localName.end()) + ":" +
                     std::string(element.namespaceURI.begin(), element.namespaceURI.end()) + ":" +
                     std::to_string(element.attributes->size()));
    if (std::u16string_view const* size = element.findAttribute(u"size")) {
      sizes.emplace_back(*size);
    }
    if (std::u16string_view const* note = element.findAttribute(u"note")) {
      notes.emplace_back(*note);
    }
    if (std::u16string_view const* kind = element.findAttribute(u"kind")) {
      kinds.emplace_back(*kind);
    }
  }
  void endElement(std::size_t depth) override { events.push_back("end:" + std::to_string(depth)); }

  int starts = 0;
  int throwAt = -1;
  std::vector<std::string> events;
  std::vector<std::u16string> sizes;
  std::vector<std::u16string> notes;
  std::vector<std::u16string> kinds;
};

class XmlStreamReaderTest : public ::testing::Test {
 protected:
  void SetUp() override { reader_.loadGrammar(kSchema, u"list.xsd"); }

  // The parser is given bytes as the stream gives them; the column of an encoding error
  // depends on how far it had decoded, so chunks are left whole unless a test says so.
  void read(std::string const& xml, Recorder& recorder,
            std::size_t chunk = std::numeric_limits<std::size_t>::max()) {
    MemoryInputStream in(xml, chunk);
    reader_.read(in, recorder);
  }

  XmlStreamReader reader_;
};

TEST_F(XmlStreamReaderTest, HandsOverElementsInDocumentOrderWithTheirAttributes) {
  Recorder recorder;
  read(list("<entry size='1' note='a &amp; b'>text</entry><!-- c --><?pi x?>"
            "<entry size=' 22 '/><group><group/></group>"),
       recorder, 7);
  EXPECT_EQ(recorder.events,
            (std::vector<std::string>{
                "start:0:list:urn:example:list:1", "start:1:entry:urn:example:list:3", "end:1",
                "start:1:entry:urn:example:list:2", "end:1", "start:1:group:urn:example:list:0",
                "start:2:group:urn:example:list:0", "end:2", "end:1", "end:0"}));
  // Values come as the tree parser stores them: the blanks that the grammar's type ignores
  // when it validates stay.
  EXPECT_EQ(recorder.sizes, (std::vector<std::u16string>{u"1", u" 22 "}));
  EXPECT_EQ(recorder.notes, std::vector<std::u16string>{u"a & b"});
  // Defaults of the grammar are attributes like the others.
  EXPECT_EQ(recorder.kinds, (std::vector<std::u16string>{u"plain", u"plain"}));
}

TEST_F(XmlStreamReaderTest, FindsAttributesByQualifiedNameOnly) {
  class Finder : public XmlStreamHandler {
   public:
    void startElement(XmlStreamElement const& element) override {
      if (element.depth != 1) return;
      EXPECT_EQ(element.findAttribute(u"xx"), nullptr);
      EXPECT_EQ(element.findAttribute(u"siz"), nullptr);
      ASSERT_NE(element.findAttribute(u"note"), nullptr);
      EXPECT_TRUE(element.findAttribute(u"note")->empty());
      found = true;
    }
    bool found = false;
  } finder;
  MemoryInputStream in(list("<entry size='1' note=''/>"));
  reader_.read(in, finder);
  EXPECT_TRUE(finder.found);
}

TEST_F(XmlStreamReaderTest, OpensAndClosesTheStreamOnce) {
  Recorder recorder;
  MemoryInputStream in(list(""));
  reader_.read(in, recorder);
  EXPECT_EQ(in.opens, 1);
  EXPECT_EQ(in.closes, 1);
}

TEST_F(XmlStreamReaderTest, AnInvalidDocumentFailsWithTheParsersText) {
  Recorder recorder;
  EXPECT_THROW_MESSAGE(read(list("<entry size='1'/><entry size='x'/>"), recorder),
                       InvalidXMLDocument,
                       "XML error at line 3, column 35: value 'x' does not match regular "
                       "expression facet '[+\\-]?[0-9]+'");
  // The elements before the fault were handed over.
  EXPECT_EQ(recorder.sizes, std::vector<std::u16string>{u"1"});
}

TEST_F(XmlStreamReaderTest, ADocumentOfNoLoadedGrammarFails) {
  Recorder recorder;
  EXPECT_THROW_MESSAGE(read("<other xmlns='urn:example:other'/>", recorder), InvalidXMLDocument,
                       "XML error at line 1, column 35: no declaration found for element "
                       "'other'");
  EXPECT_TRUE(recorder.events.empty());
}

// The same messages as the tree parser gives, for the same documents.
TEST_F(XmlStreamReaderTest, FailsAsTheTreeParserFails) {
  opc::model::XercesGuard guard;
  auto parser = opc::model::XercesHelper::createParser();
  opc::model::XercesHelper::loadGrammar(parser.get(), kSchema, u"list.xsd");
  std::vector<std::string> const broken = {
      "",
      "not XML",
      list("<entry size='1'>").substr(0, 60),
      list("<entry/>"),
      list("<entry size='1' size='2'/>"),
      list("<entry size='1'><x/></entry>"),
      list("<group/><entry size='1'/>"),
      list("") + "<list xmlns='urn:example:list'/>",
      "<!DOCTYPE list>" + list(""),
      list("<entry size='1' note='&x;'/>"),
      list("<entry size='1' note='&#1;'/>"),
      list("<entry size='1' note='\xff'/>"),
  };
  for (std::string const& xml : broken) {
    std::string expected;
    try {
      MemoryInputStream in(xml);
      opc::model::XercesHelper::readDocumentFromStream(parser.get(), in, true, u"", u"");
      ADD_FAILURE() << "the tree parser accepted: " << xml;
    } catch (InvalidXMLDocument const& e) {
      expected = e.what();
    }
    Recorder recorder;
    EXPECT_THROW_MESSAGE(read(xml, recorder), InvalidXMLDocument, expected) << xml;
  }
}

TEST_F(XmlStreamReaderTest, RefusesNestingDeeperThanTheLimit) {
  std::string open;
  std::string close;
  for (int i = 0; i < 256; ++i) {
    open += "<group>";
    close += "</group>";
  }
  Recorder deep;
  read(list(open.substr(0, open.size() - 7) + close.substr(0, close.size() - 8)), deep);
  EXPECT_EQ(deep.starts, 256);
  Recorder tooDeep;
  EXPECT_THROW_MESSAGE(read(list(open + close), tooDeep), InvalidXMLDocument,
                       "XML error at line 3, column 1793: elements are nested deeper than 256 "
                       "levels");
}

TEST_F(XmlStreamReaderTest, AHandlersRefusalComesAfterTheWholeDocumentWasChecked) {
  Recorder refusing;
  refusing.throwAt = 2;
  EXPECT_THROW_MESSAGE(read(list("<entry size='1'/><entry size='2'/><entry size='3'/>"), refusing),
                       std::runtime_error, "refused element 2");
  // Not called again once it refused.
  EXPECT_EQ(refusing.starts, 2);

  // A fault of the document later on wins over the refusal.
  Recorder refusingEarly;
  refusingEarly.throwAt = 2;
  EXPECT_THROW_MESSAGE(
      read(list("<entry size='1'/><entry size='2'/><entry size='x'/>"), refusingEarly),
      InvalidXMLDocument,
      "XML error at line 3, column 52: value 'x' does not match regular expression facet "
      "'[+\\-]?[0-9]+'");
}

TEST_F(XmlStreamReaderTest, AFailureOfTheStreamWinsAndTheStreamIsClosed) {
  Recorder refusing;
  refusing.throwAt = 2;
  MemoryInputStream in(list("<entry size='1'/><entry size='2'/><entry size='3'/>"), 4);
  in.failAfter(80);
  EXPECT_THROW_MESSAGE(reader_.read(in, refusing), opc::Exception, "injected read failure");
  EXPECT_EQ(in.closes, 1);
}

TEST_F(XmlStreamReaderTest, ReadsManyDocumentsInTurn) {
  for (int i = 0; i < 3; ++i) {
    Recorder good;
    read(list("<entry size='" + std::to_string(i) + "'/>"), good);
    EXPECT_EQ(good.sizes, std::vector<std::u16string>{std::u16string(1, char16_t(u'0' + i))});
    Recorder bad;
    EXPECT_THROW(read(list("<entry/>"), bad), InvalidXMLDocument);
  }
}

TEST(XmlStreamReaderGrammarTest, ASchemaThatDoesNotLoadFails) {
  XmlStreamReader reader;
  EXPECT_THROW_MESSAGE(reader.loadGrammar("<xs:schema", u"broken.xsd"), InvalidXMLDocument,
                       "XML error in broken.xsd at line 1, column 11: unexpected end of input");
}

TEST(XmlStreamReaderGrammarTest, AReaderWithoutGrammarsRefusesEveryDocument) {
  XmlStreamReader reader;
  Recorder recorder;
  MemoryInputStream in("<list xmlns='urn:example:list'/>");
  EXPECT_THROW_MESSAGE(reader.read(in, recorder), InvalidXMLDocument,
                       "XML error at line 1, column 33: no declaration found for element 'list'");
}

}  // namespace
