#include <string>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <opc/model/core_properties.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using opc::model::CoreProperties;
using opc::model::CorePropertiesXml;
using opc::model::InvalidPartContent;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;
using opcvk_test::throwsWithMessage;

std::string const kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
    "<cp:coreProperties "
    "xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
    "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:dcterms=\"http://purl.org/dc/terms/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";

// A document with the usual declarations around `body`.
std::string document(std::string const& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<cp:coreProperties "
         "xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
         "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
         "xmlns:dcterms=\"http://purl.org/dc/terms/\" "
         "xmlns:mc=\"http://schemas.openxmlformats.org/markup-compatibility/2006\" "
         "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
         "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">" +
         body + "</cp:coreProperties>";
}

CoreProperties read(std::string const& bytes) {
  MemoryInputStream in(bytes, 7);
  CoreProperties properties = CorePropertiesXml::read(in);
  EXPECT_EQ(1, in.opens);
  EXPECT_EQ(1, in.closes);
  return properties;
}

std::string write(CoreProperties const& properties) {
  MemoryOutputStream out;
  CorePropertiesXml::write(properties, out);
  EXPECT_EQ(0, out.closes);
  return out.bytes;
}

CoreProperties fullRecord() {
  CoreProperties properties;
  properties.setCategory(u"Reports");
  properties.setContentStatus(u"Draft");
  properties.setContentType(u"Whitepaper");
  properties.setCreated(time_from_string("2024-05-17 10:20:30"));
  properties.setCreator(u"Zoë Ångström");
  properties.setDescription(u"Line one\nline two & <three>");
  properties.setIdentifier(u"urn:isbn:0451450523");
  properties.setKeywords({{u"alpha", u""}, {u"Straße", u"de-DE"}});
  properties.setLanguage(u"en-GB");
  properties.setLastModifiedBy(u"editor");
  properties.setLastPrinted(time_from_string("2023-01-02 03:04:05.250"));
  properties.setModified(time_from_string("2024-06-01 00:00:00"));
  properties.setRevision(u"7");
  properties.setSubject(u"Subject");
  properties.setTitle(u"Title 日本");
  properties.setVersion(u"1.0");
  return properties;
}

TEST(CorePropertiesXmlTest, WritesEveryPropertyInFixedOrderWithTypedDates) {
  EXPECT_EQ(
      kHead +
          ">\n"
          "  <cp:category>Reports</cp:category>\n"
          "  <cp:contentStatus>Draft</cp:contentStatus>\n"
          "  <cp:contentType>Whitepaper</cp:contentType>\n"
          "  <dcterms:created xsi:type=\"dcterms:W3CDTF\">2024-05-17T10:20:30Z</dcterms:created>\n"
          "  <dc:creator>Zoë Ångström</dc:creator>\n"
          "  <dc:description>Line one\nline two &amp; &lt;three&gt;</dc:description>\n"
          "  <dc:identifier>urn:isbn:0451450523</dc:identifier>\n"
          "  <cp:keywords>\n"
          "    <cp:value>alpha</cp:value>\n"
          "    <cp:value xml:lang=\"de-DE\">Straße</cp:value>\n"
          "  </cp:keywords>\n"
          "  <dc:language>en-GB</dc:language>\n"
          "  <cp:lastModifiedBy>editor</cp:lastModifiedBy>\n"
          "  <cp:lastPrinted>2023-01-02T03:04:05.250000Z</cp:lastPrinted>\n"
          "  <dcterms:modified "
          "xsi:type=\"dcterms:W3CDTF\">2024-06-01T00:00:00Z</dcterms:modified>\n"
          "  <cp:revision>7</cp:revision>\n"
          "  <dc:subject>Subject</dc:subject>\n"
          "  <dc:title>Title 日本</dc:title>\n"
          "  <cp:version>1.0</cp:version>\n"
          "</cp:coreProperties>\n",
      write(fullRecord()));
}

TEST(CorePropertiesXmlTest, EmptyRecordIsEmptyDocumentElement) {
  EXPECT_EQ(kHead + "/>\n", write(CoreProperties()));
  EXPECT_EQ(CoreProperties(), read(write(CoreProperties())));
}

TEST(CorePropertiesXmlTest, EveryPropertySurvivesWriteAndRead) {
  CoreProperties const properties = fullRecord();
  EXPECT_EQ(properties, read(write(properties)));
}

TEST(CorePropertiesXmlTest, DateFractionsAreWrittenInEveryDigit) {
  // Readers that take the first 19 characters as the time and a six-character tail as a zone
  // offset must never meet a tail of six: the fraction is written in full or not at all.
  struct Case {
    char const* time;
    char const* text;
  };
  Case const cases[] = {
      {"2024-05-17 10:20:30", "2024-05-17T10:20:30Z"},
      {"2024-05-17 10:20:30.500", "2024-05-17T10:20:30.500000Z"},
      {"2024-05-17 10:20:30.123400", "2024-05-17T10:20:30.123400Z"},
      {"2024-05-17 10:20:30.123450", "2024-05-17T10:20:30.123450Z"},
      {"2024-05-17 10:20:30.000001", "2024-05-17T10:20:30.000001Z"},
      {"2024-05-17 10:20:30.999999", "2024-05-17T10:20:30.999999Z"},
  };
  for (auto const& c : cases) {
    CoreProperties properties;
    properties.setCreated(time_from_string(c.time));
    std::string const bytes = write(properties);
    EXPECT_NE(std::string::npos, bytes.find(std::string(">") + c.text + "<")) << bytes;
    CoreProperties const back = read(bytes);
    ASSERT_TRUE(back.getCreated()) << c.time;
    EXPECT_EQ(time_from_string(c.time), *back.getCreated()) << c.time;
  }
}

TEST(CorePropertiesXmlTest, EmptyTextsStayPresentAndEmpty) {
  CoreProperties properties;
  properties.setTitle(u"");
  properties.setRevision(u"");
  properties.setKeywords({});
  CoreProperties const back = read(write(properties));
  EXPECT_EQ(properties, back);
  ASSERT_TRUE(back.getTitle());
  EXPECT_EQ(u"", *back.getTitle());
  ASSERT_TRUE(back.getKeywords());
  EXPECT_TRUE(back.getKeywords()->empty());
  EXPECT_FALSE(back.getCreator());
}

TEST(CorePropertiesXmlTest, TextKeepsWhitespaceAndCarriageReturns) {
  CoreProperties properties;
  properties.setTitle(u"  padded\t");
  properties.setDescription(u"a\r\nb\rc");
  EXPECT_EQ(properties, read(write(properties)));
}

TEST(CorePropertiesXmlTest, KeywordListsSurviveWriteAndRead) {
  std::vector<CoreProperties::Keywords> const lists = {
      {{u"one, two; three", u""}},
      {{u"only", u"en"}},
      {{u"", u""}},
      {{u"a", u""}, {u"b", u""}},
      {{u" spaced ", u"fr"}, {u"x", u""}},
  };
  for (auto const& keywords : lists) {
    CoreProperties properties;
    properties.setKeywords(keywords);
    CoreProperties const back = read(write(properties));
    ASSERT_TRUE(back.getKeywords());
    EXPECT_EQ(keywords, *back.getKeywords());
  }
}

TEST(CorePropertiesXmlTest, SinglePlainKeywordIsWrittenAsText) {
  CoreProperties properties;
  properties.setKeywords({{u"one, two", u""}});
  EXPECT_EQ(kHead + ">\n  <cp:keywords>one, two</cp:keywords>\n</cp:coreProperties>\n",
            write(properties));
}

TEST(CorePropertiesXmlTest, ReadsKeywordsInEveryForm) {
  struct Case {
    char const* body;
    CoreProperties::Keywords expected;
  };
  Case const cases[] = {
      {"<cp:keywords>one; two</cp:keywords>", {{u"one; two", u""}}},
      {"<cp:keywords xml:lang=\"en\">plain</cp:keywords>", {{u"plain", u"en"}}},
      {"<cp:keywords/>", {}},
      {"<cp:keywords xml:lang=\"en\">first <cp:value xml:lang=\"de\">zwei</cp:value> third "
       "<cp:value>four</cp:value></cp:keywords>",
       {{u"first", u"en"}, {u"zwei", u"de"}, {u"third", u"en"}, {u"four", u"en"}}},
      {"<cp:keywords>\n  <cp:value>a</cp:value>\n  <cp:value/>\n</cp:keywords>",
       {{u"a", u""}, {u"", u""}}},
      {"<cp:keywords><![CDATA[x<y]]></cp:keywords>", {{u"x<y", u""}}},
  };
  for (auto const& c : cases) {
    CoreProperties const properties = read(document(c.body));
    ASSERT_TRUE(properties.getKeywords()) << c.body;
    EXPECT_EQ(c.expected, *properties.getKeywords()) << c.body;
  }
}

TEST(CorePropertiesXmlTest, ReadsEveryW3cdtfFormAsUtc) {
  struct Case {
    char const* text;
    char const* expected;
  };
  Case const cases[] = {
      {"2024", "2024-01-01 00:00:00"},
      {"2024-05", "2024-05-01 00:00:00"},
      {"2024-05-17", "2024-05-17 00:00:00"},
      {"2024-05-17T10:20+02:00", "2024-05-17 08:20:00"},
      {"2024-05-17T10:20:30Z", "2024-05-17 10:20:30"},
      {"2024-05-17T10:20:30-05:30", "2024-05-17 15:50:30"},
      {"2024-05-17T10:20:30.25Z", "2024-05-17 10:20:30.250"},
      {"2024-05-17T10:20:30.1234567Z", "2024-05-17 10:20:30.123456"},
      {"2024-05-17T23:30:00-01:00", "2024-05-18 00:30:00"},
      {"2024-05-17T10:20:30", "2024-05-17 10:20:30"},
      {" \n2024-02-29T00:00:00Z\t", "2024-02-29 00:00:00"},
  };
  for (auto const& c : cases) {
    CoreProperties const properties =
        read(document(std::string("<dcterms:modified xsi:type=\"dcterms:W3CDTF\">") + c.text +
                      "</dcterms:modified><cp:lastPrinted>" + c.text + "</cp:lastPrinted>"));
    ASSERT_TRUE(properties.getModified()) << c.text;
    EXPECT_EQ(time_from_string(c.expected), *properties.getModified()) << c.text;
    ASSERT_TRUE(properties.getLastPrinted()) << c.text;
    EXPECT_EQ(time_from_string(c.expected), *properties.getLastPrinted()) << c.text;
  }
}

TEST(CorePropertiesXmlTest, RefusesDatesThatAreNotW3cdtf) {
  char const* const texts[] = {
      "",
      "yesterday",
      "24",
      "2024-5-17",
      "2024-13",
      "2023-02-29",
      "2024-05-17T24:00:00Z",
      "2024-05-17T10:60Z",
      "2024-05-17T10:20:60Z",
      "2024-05-17T10Z",
      "2024-05-17T10:20:30.Z",
      "2024-05-17T10:20:30+2:00",
      "2024-05-17T10:20:30+24:00",
      "2024-05-17T10:20:30Zjunk",
      "2024-05-17 10:20:30Z",
      "2024T10:20Z",
      "1399-12-31",
      "9999-12-31T23:00:00-05:00",
      "2024/05/17",
  };
  for (char const* text : texts) {
    EXPECT_TRUE(throwsWithMessage<InvalidPartContent>(
        [&] {
          read(document(std::string("<dcterms:created xsi:type=\"dcterms:W3CDTF\">") + text +
                        "</dcterms:created>"));
        },
        std::string("Core property dcterms:created is not a W3CDTF date: \"") + text + "\""))
        << text;
  }
}

TEST(CorePropertiesXmlTest, AcceptsTypedDatesUnderAnyPrefixAndUntypedDates) {
  CoreProperties const properties = read(
      "<p:coreProperties "
      "xmlns:p=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
      "xmlns:t=\"http://purl.org/dc/terms/\" xmlns:i=\"http://www.w3.org/2001/XMLSchema-instance\">"
      "<t:created i:type=\"t:W3CDTF\">2020-01-01T00:00:00Z</t:created>"
      "<t:modified>2021-01-01T00:00:00Z</t:modified></p:coreProperties>");
  EXPECT_EQ(time_from_string("2020-01-01 00:00:00"), *properties.getCreated());
  EXPECT_EQ(time_from_string("2021-01-01 00:00:00"), *properties.getModified());
}

TEST(CorePropertiesXmlTest, RefusesDocumentsTheFormatForbids) {
  struct Case {
    std::string bytes;
    char const* message;
  };
  Case const cases[] = {
      {"<coreProperties/>",
       "The document element of core properties must be cp:coreProperties, "
       "not coreProperties"},
      {"<x:coreProperties xmlns:x=\"urn:other\"/>",
       "The document element of core properties must be cp:coreProperties, not "
       "{urn:other}coreProperties"},
      {document("<dc:title>a</dc:title><dc:title>b</dc:title>"),
       "Core property dc:title is given more than once"},
      {document("<cp:title>a</cp:title>"), "Unexpected element cp:title in core properties"},
      {document("<dc:created>2020</dc:created>"),
       "Unexpected element dc:created in core properties"},
      {document("<x:title xmlns:x=\"urn:x\">a</x:title>"),
       "Unexpected element {urn:x}title in core properties"},
      {document("<mc:AlternateContent/>"),
       "Markup compatibility element mc:AlternateContent is not allowed in core properties"},
      {document("<dc:title mc:Ignorable=\"x\">a</dc:title>"),
       "Markup compatibility attribute mc:Ignorable is not allowed in core properties"},
      {document("<dc:title xsi:type=\"xsd:string\">a</dc:title>"),
       "Attribute xsi:type is not allowed on dc:title"},
      {document("<cp:lastPrinted xsi:type=\"dcterms:W3CDTF\">2020</cp:lastPrinted>"),
       "Attribute xsi:type is not allowed on cp:lastPrinted"},
      {document("<dcterms:created xsi:type=\"xsd:dateTime\">2020</dcterms:created>"),
       "Core property dcterms:created must have xsi:type dcterms:W3CDTF, not \"xsd:dateTime\""},
      {document("<dcterms:modified xsi:type=\"W3CDTF\">2020</dcterms:modified>"),
       "Core property dcterms:modified must have xsi:type dcterms:W3CDTF, not \"W3CDTF\""},
      {document("<dc:title>a<b/></dc:title>"),
       "Core property dc:title must hold text only, not element b"},
      {document("<cp:keywords><dc:title/></cp:keywords>"),
       "Core property cp:keywords may hold only cp:value elements, not dc:title"},
      {document("<cp:keywords><cp:value><cp:value/></cp:value></cp:keywords>"),
       "Core property cp:value must hold text only, not element cp:value"},
      {document("stray<dc:title>a</dc:title>"), "Core properties hold text outside any property"},
  };
  for (auto const& c : cases) {
    EXPECT_TRUE(throwsWithMessage<InvalidPartContent>([&] { read(c.bytes); }, c.message))
        << c.bytes;
  }
}

TEST(CorePropertiesXmlTest, MalformedXmlAndDoctypeBecomeInvalidPartContent) {
  std::string const inputs[] = {
      "",
      "<cp:coreProperties",
      "<?xml version=\"1.0\"?><!DOCTYPE x [<!ENTITY e \"boom\">]><x>&e;</x>",
  };
  for (auto const& input : inputs) {
    MemoryInputStream in(input);
    EXPECT_THROW(CorePropertiesXml::read(in), InvalidPartContent) << input;
    EXPECT_EQ(1, in.closes) << input;
  }
}

TEST(CorePropertiesXmlTest, RefusesPartBeyondSizeLimitWithoutReadingOn) {
  std::string big = document("<dc:description>");
  big.resize(big.size() - std::string("</cp:coreProperties>").size());
  big += std::string(2 * CorePropertiesXml::kMaxPartSize, 'x');
  big += "</dc:description></cp:coreProperties>";
  MemoryInputStream in(big, 65536);
  EXPECT_TRUE(throwsWithMessage<InvalidPartContent>(
      [&] { CorePropertiesXml::read(in); }, "The core properties part is larger than 4 MiB"));
  EXPECT_LT(in.position(), big.size());
}

TEST(CorePropertiesXmlTest, StreamFailuresPassThrough) {
  std::string const bytes = write(fullRecord());
  MemoryInputStream in(bytes, 16);
  in.failAfter(100);
  EXPECT_TRUE(throwsWithMessage<opc::Exception>([&] { CorePropertiesXml::read(in); },
                                                "injected read failure"));
  MemoryOutputStream out;
  out.failAfter(10);
  EXPECT_TRUE(throwsWithMessage<opc::Exception>(
      [&] { CorePropertiesXml::write(fullRecord(), out); }, "injected write failure"));
}

TEST(CorePropertiesXmlTest, TextThatXmlCannotCarryIsRefusedOnWrite) {
  CoreProperties properties;
  properties.setTitle(std::u16string(u"bad ") + char16_t(1));
  MemoryOutputStream out;
  EXPECT_THROW(CorePropertiesXml::write(properties, out), InvalidPartContent);
}

}  // namespace
