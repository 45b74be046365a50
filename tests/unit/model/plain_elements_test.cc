#include "xml/plain_elements.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <xercesc/util/PlatformUtils.hpp>

#include "support/byte_streams.h"
#include "xml_engine/xml_engine.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr char16_t kNamespace[] = u"urn:test:plain";
PlainElementKind const kKinds[] = {{u"Default", {u"Extension", u"ContentType"}},
                                   {u"Override", {u"PartName", u"ContentType"}}};
PlainDocumentShape const kShape{u"Types", kNamespace, kKinds, 2};

std::string const kHead = "<Types xmlns=\"urn:test:plain\">";

bool readsPlain(std::string const& text, std::vector<PlainElement>& elements) {
  return readPlainElements(reinterpret_cast<unsigned char const*>(text.data()), text.size(), kShape,
                           elements);
}

// The elements that the parser's road finds, or none if the parser refuses the document.
bool parses(std::string const& text, std::vector<PlainElement>& elements) {
  auto reader = xmlEngine().makeTreeReader(XmlReaderSettings());
  opcvk_test::MemoryInputStream stream(text);
  try {
    XmlNode const root = reader->read(stream, false, u"", kNamespace);
    if (root.localName != u"Types") return false;
    elements = plainElementsOf(root, kShape);
    return true;
  } catch (opc::Exception const&) {
    return false;
  }
}

TEST(PlainElementsTest, ReadsWhatTheParserFindsInPlainDocuments) {
  std::string const documents[] = {
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n" + kHead +
          "\n  <Default ContentType=\"text/plain\" Extension=\"txt\"/>\n"
          "  <Override ContentType=\"a/b\" PartName=\"/x\"/>\n</Types>\n",
      "<?xml version='1.0'?>" + kHead + "</Types>",
      "<Types xmlns='urn:test:plain'/>",
      kHead + "<Override PartName='/a' ContentType='x/y'/><Default Extension='e'/></Types >",
      kHead + "<Default Extension=\"&lt;&gt;&amp;&quot;&apos;&#x41;&#66;&#9;&#x10000;\"/></Types>",
      kHead + "<Default Extension=\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\" ContentType = ''/>" +
          "</Types>",
      kHead + "<Default Extension=\"a>b\" /><Default/></Types>",
  };
  for (std::string const& document : documents) {
    std::vector<PlainElement> plain;
    std::vector<PlainElement> parsed;
    ASSERT_TRUE(readsPlain(document, plain)) << document;
    ASSERT_TRUE(parses(document, parsed)) << document;
    EXPECT_EQ(parsed, plain) << document;
  }
}

TEST(PlainElementsTest, KeepsTheKindsApartInDocumentOrder) {
  std::vector<PlainElement> elements;
  ASSERT_TRUE(readsPlain(kHead + "<Override PartName='/1'/><Default Extension='a'/>"
                                 "<Override PartName='/2'/><Default Extension='b'/></Types>",
                         elements));
  ASSERT_EQ(4u, elements.size());
  EXPECT_EQ(u"a", *elements[0].values[0]);
  EXPECT_EQ(u"b", *elements[1].values[0]);
  EXPECT_EQ(u"/1", *elements[2].values[0]);
  EXPECT_EQ(u"/2", *elements[3].values[0]);
  EXPECT_EQ(1u, elements[3].kind);
  EXPECT_FALSE(elements[3].values[1]);
}

TEST(PlainElementsTest, GivesUpOnEverythingElse) {
  std::string const documents[] = {
      "",
      "\xEF\xBB\xBF" + kHead + "</Types>",
      " <?xml version=\"1.0\"?>" + kHead + "</Types>",
      "<?xml version=\"1.1\"?>" + kHead + "</Types>",
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + kHead + "</Types>",
      "<!DOCTYPE Types>" + kHead + "</Types>",
      "<!-- a -->" + kHead + "</Types>",
      kHead + "<!-- a --></Types>",
      kHead + "<?pi?></Types>",
      kHead + "text</Types>",
      kHead + "<![CDATA[x]]></Types>",
      "<Types xmlns=\"urn:test:other\"></Types>",
      "<Types></Types>",
      "<Types xmlns=\"urn:test:plain\" a=\"b\"></Types>",
      "<t:Types xmlns:t=\"urn:test:plain\"></t:Types>",
      "<Typesx xmlns=\"urn:test:plain\"></Typesx>",
      kHead + "<Default></Default></Types>",
      kHead + "<Other/></Types>",
      kHead + "<Default Other=\"x\"/></Types>",
      kHead + "<Default Extension=\"a\" Extension=\"b\"/></Types>",
      kHead + "<Default Extension=\"a\"ContentType=\"b\"/></Types>",
      kHead + "<Default xmlns=\"urn:test:plain\"/></Types>",
      kHead + "<Default Extension=\"a\tb\"/></Types>",
      kHead + "<Default Extension=\"a\nb\"/></Types>",
      kHead + "<Default Extension=\"a<b\"/></Types>",
      kHead + "<Default Extension=\"&nbsp;\"/></Types>",
      kHead + "<Default Extension=\"&#0;\"/></Types>",
      kHead + "<Default Extension=\"&#xD800;\"/></Types>",
      kHead + "<Default Extension=\"&#000000065;\"/></Types>",
      kHead + "<Default Extension=\"\xC0\xAF\"/></Types>",
      kHead + "<Default Extension=\"\xED\xA0\x80\"/></Types>",
      kHead + "<Default Extension=\"\x01\"/></Types>",
      kHead + "<Default Extension=\"a\"/>",
      kHead + "<Default Extension=\"a\"/></Types><x/>",
      kHead + "</Types>junk",
  };
  for (std::string const& document : documents) {
    std::vector<PlainElement> elements;
    EXPECT_FALSE(readsPlain(document, elements)) << document;
  }
}

TEST(PlainElementsTest, StreamIsClosedAfterAPlainDocument) {
  opcvk_test::MemoryInputStream stream(kHead + "<Default Extension='a'/></Types>", 5);
  std::vector<PlainElement> elements;
  EXPECT_TRUE(readPlainElements(stream, 2, kShape, elements));
  EXPECT_EQ(1u, elements.size());
  EXPECT_EQ(1, stream.opens);
  EXPECT_EQ(1, stream.closes);
}

TEST(PlainElementsTest, StreamThatFailsIsLeftToTheParser) {
  opcvk_test::MemoryInputStream stream(kHead + "<Default Extension='a'/></Types>");
  stream.failAfter(10);
  std::vector<PlainElement> elements;
  EXPECT_FALSE(readPlainElements(stream, 100, kShape, elements));
  EXPECT_EQ(1, stream.closes);
}

TEST(PlainElementsTest, NeedsNoXmlLibrary) {
  std::vector<PlainElement> elements;
  ASSERT_TRUE(readsPlain(kHead + "<Default Extension='a'/></Types>", elements));
  EXPECT_EQ(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager);
}

}  // namespace
}  // namespace detail
}  // namespace model
}  // namespace opc
