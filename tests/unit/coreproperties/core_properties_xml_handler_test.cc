#include "coreproperties/core_properties_xml_handler.h"

#include <string>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/schema_base.h>

#include "coreproperties/core_properties_names.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartContent;
using opc::model::InvalidXMLSchema;
using opc::vkservices::CoreProperties;
using opc::vkservices::CorePropertiesXmlHandler;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

std::string ns() {
  return opc::detail::toUTF8String(opc::vkservices::SchemaBase) + "/package/2012/coreProperties";
}

std::string document(std::string const& body) {
  return "<?xml version='1.0' encoding='UTF-8'?><vkcoreProperties xmlns='" + ns() + "'>" + body +
         "</vkcoreProperties>";
}

std::string values(std::string const& type, std::string const& name, std::string const& release) {
  return "<contentType>" + type + "</contentType><contentTypeFriendlyName>" + name +
         "</contentTypeFriendlyName><orvaneRelease>" + release + "</orvaneRelease>";
}

class CorePropertiesXmlHandlerTest : public ::testing::Test {
 protected:
  CoreProperties read(std::string const& text) {
    CoreProperties record;
    MemoryInputStream in(text);
    handler_.read(in, record);
    EXPECT_EQ(in.opens, 1);
    EXPECT_GE(in.closes, 1);
    return record;
  }

  std::string write(CoreProperties const& record) {
    MemoryOutputStream out;
    handler_.write(record, out);
    EXPECT_EQ(out.closes, 0);
    return out.bytes;
  }

  CorePropertiesXmlHandler handler_;
};

TEST_F(CorePropertiesXmlHandlerTest, WritesTheThreeValuesInOrder) {
  CoreProperties const record(u"application/vnd.veltrance.foo.bar", u"Foo & <bar>", u"R2011a");
  EXPECT_EQ(write(record),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<vkcoreProperties xmlns=\"" +
                ns() +
                "\">\n"
                "  <contentType>application/vnd.veltrance.foo.bar</contentType>\n"
                "  <contentTypeFriendlyName>Foo &amp; &lt;bar&gt;</contentTypeFriendlyName>\n"
                "  <orvaneRelease>R2011a</orvaneRelease>\n"
                "</vkcoreProperties>\n");
}

TEST_F(CorePropertiesXmlHandlerTest, EscapesMarkupAndWritesOtherCharactersAsUTF8) {
  CoreProperties const record(u"application/vnd.veltrance.foo.bar",
                              u"A & <b> \"q\" 'a' ]]> \u00E9\u4E2D\U0001F600 end", u"R2011a");
  EXPECT_EQ(write(record),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<vkcoreProperties xmlns=\"" +
                ns() +
                "\">\n"
                "  <contentType>application/vnd.veltrance.foo.bar</contentType>\n"
                "  <contentTypeFriendlyName>A &amp; &lt;b&gt; \"q\" 'a' ]]&gt; "
                "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80 end</contentTypeFriendlyName>\n"
                "  <orvaneRelease>R2011a</orvaneRelease>\n"
                "</vkcoreProperties>\n");
}

TEST_F(CorePropertiesXmlHandlerTest, WritesEmptyValuesAsEmptyElements) {
  EXPECT_EQ(write(CoreProperties()),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<vkcoreProperties xmlns=\"" +
                ns() +
                "\">\n"
                "  <contentType/>\n"
                "  <contentTypeFriendlyName/>\n"
                "  <orvaneRelease/>\n"
                "</vkcoreProperties>\n");
}

TEST_F(CorePropertiesXmlHandlerTest, ReadsWhatItWrote) {
  CoreProperties const record(u"application/vnd.veltrance.foo.bar", u"Foo \u00E9 bar", u"R2011a");
  CoreProperties const back = read(write(record));
  EXPECT_EQ(back.getContentType(), record.getContentType());
  EXPECT_EQ(back.getContentTypeFriendlyName(), record.getContentTypeFriendlyName());
  EXPECT_EQ(back.getORVANERelease(), u"R2011a");
  EXPECT_TRUE(back.getORVANEReleaseInfo().isLegacy());
}

TEST_F(CorePropertiesXmlHandlerTest, RunningFamilyReadsAsTheRunningRecord) {
  std::string const family = opc::detail::toUTF8String(CoreProperties::getCurrentORVANERelease());
  CoreProperties const back =
      read(document(values("application/vnd.veltrance.foo.bar", "n", family)));
  EXPECT_FALSE(back.getORVANEReleaseInfo().isLegacy());
  EXPECT_EQ(back.getORVANEReleaseInfo(), CoreProperties::getCurrentORVANEReleaseInfo());
}

TEST_F(CorePropertiesXmlHandlerTest, AVersionElementIsToleratedAndDropped) {
  CoreProperties const back =
      read(document(values("application/vnd.veltrance.foo.bar", "n", "R2011a") +
                    "<orvaneVersion>7.1.0.123</orvaneVersion>"));
  EXPECT_EQ(back.getORVANERelease(), u"R2011a");
  EXPECT_EQ(write(back).find("orvaneVersion"), std::string::npos);
}

TEST_F(CorePropertiesXmlHandlerTest, AContentTypeOfTheWrongFormPassesTheSchemaButNotTheSetter) {
  EXPECT_THROW_MESSAGE(read(document(values("text/plain", "n", "R2011a"))), InvalidPartContent,
                       "Content type must have the format: "
                       "application/vnd.veltrance.<product>.<package-type>");
}

TEST_F(CorePropertiesXmlHandlerTest, SetterMessagesOfTheOtherValues) {
  EXPECT_THROW_MESSAGE(read(document(values("application/vnd.veltrance.a.b", " n", "R2011a"))),
                       InvalidPartContent, "Content type friendly name must be a non-empty string");
  EXPECT_THROW_MESSAGE(read(document(values("application/vnd.veltrance.a.b", "n", "r2011a"))),
                       InvalidPartContent,
                       "ORVANE release must have the format: R<four-digit-year>(a|b)");
}

TEST_F(CorePropertiesXmlHandlerTest, EmptyElementsSetNothing) {
  CoreProperties const back = read(document(values("", "", "")));
  EXPECT_EQ(back.getContentType(), u"");
  EXPECT_EQ(back.getContentTypeFriendlyName(), u"");
  EXPECT_EQ(back.getORVANERelease(), u"");
  EXPECT_FALSE(back.isValid());
}

TEST_F(CorePropertiesXmlHandlerTest, ElementsOutOfOrderAreRefusedByValidation) {
  std::string const text = document(
      "<contentTypeFriendlyName>n</contentTypeFriendlyName>"
      "<contentType>application/vnd.veltrance.a.b</contentType><orvaneRelease>R2011a"
      "</orvaneRelease>");
  EXPECT_THROW_MESSAGE(read(text), InvalidPartContent,
                       "XML error at line 1, column 290: element 'contentTypeFriendlyName' is not "
                       "allowed for content model '(contentType,contentTypeFriendlyName,"
                       "orvaneRelease,orvaneVersion?)'");
}

TEST_F(CorePropertiesXmlHandlerTest, MissingAndUnknownElementsAreRefused) {
  EXPECT_THROW(read(document("<contentType>application/vnd.veltrance.a.b</contentType>")),
               InvalidPartContent);
  EXPECT_THROW(read(document(values("application/vnd.veltrance.a.b", "n", "R2011a") + "<x/>")),
               InvalidPartContent);
  EXPECT_THROW(read(document(values("application/vnd.veltrance.a.b", "n", "R2011a") +
                             "<orvaneVersion/><orvaneVersion/>")),
               InvalidPartContent);
}

TEST_F(CorePropertiesXmlHandlerTest, AttributesAndAnotherNamespaceAreRefused) {
  EXPECT_THROW(read("<vkcoreProperties xmlns='" + ns() + "' a='1'>" +
                    values("application/vnd.veltrance.a.b", "n", "R2011a") + "</vkcoreProperties>"),
               InvalidPartContent);
  EXPECT_THROW(read("<vkcoreProperties xmlns='urn:other'>" +
                    values("application/vnd.veltrance.a.b", "n", "R2011a") + "</vkcoreProperties>"),
               InvalidPartContent);
}

TEST_F(CorePropertiesXmlHandlerTest, APrefixedDocumentIsTheSameDocument) {
  CoreProperties const back =
      read("<p:vkcoreProperties xmlns:p='" + ns() +
           "'><p:contentType>application/vnd.veltrance.a.b</p:contentType>"
           "<p:contentTypeFriendlyName>n</p:contentTypeFriendlyName>"
           "<p:orvaneRelease>R2011a</p:orvaneRelease></p:vkcoreProperties>");
  EXPECT_EQ(back.getContentType(), u"application/vnd.veltrance.a.b");
}

TEST_F(CorePropertiesXmlHandlerTest, MalformedDocumentsAndDocumentTypesAreRefused) {
  EXPECT_THROW(read(""), InvalidPartContent);
  EXPECT_THROW(read(document("<contentType>")), InvalidPartContent);
  EXPECT_THROW(read("<!DOCTYPE vkcoreProperties [<!ENTITY e 'x'>]>" +
                    document(values("&e;", "n", "R2011a"))),
               InvalidPartContent);
}

TEST_F(CorePropertiesXmlHandlerTest, AValueBeforeARefusedOneStaysSet) {
  CoreProperties record;
  MemoryInputStream in(document(values("application/vnd.veltrance.a.b", "n", "bad")));
  EXPECT_THROW(handler_.read(in, record), InvalidPartContent);
  EXPECT_EQ(record.getContentType(), u"application/vnd.veltrance.a.b");
  EXPECT_EQ(record.getContentTypeFriendlyName(), u"n");
}

TEST_F(CorePropertiesXmlHandlerTest, APartBeyondTheLimitIsRefusedWhileReading) {
  std::string const text = document(
      values("application/vnd.veltrance.a.b", std::string(std::size_t{4} << 20, 'n'), "R2011a"));
  EXPECT_THROW_MESSAGE(read(text), InvalidPartContent,
                       "The core properties part is larger than 4194304 bytes");
}

TEST_F(CorePropertiesXmlHandlerTest, AFailingStreamPassesThrough) {
  CoreProperties record;
  MemoryInputStream in(document(values("application/vnd.veltrance.a.b", "n", "R2011a")), 16);
  in.failAfter(20);
  EXPECT_THROW_MESSAGE(handler_.read(in, record), opc::Exception, "injected read failure");
}

TEST_F(CorePropertiesXmlHandlerTest, TheHandlerReadsAgainAfterAFailure) {
  EXPECT_THROW(read("<broken"), InvalidPartContent);
  EXPECT_EQ(read(document(values("application/vnd.veltrance.a.b", "n", "R2011a"))).getContentType(),
            u"application/vnd.veltrance.a.b");
}

TEST_F(CorePropertiesXmlHandlerTest, AValueThatXmlCannotCarryFailsToWrite) {
  CoreProperties record(u"application/vnd.veltrance.a.b", u"a\u0001b", u"R2011a");
  MemoryOutputStream out;
  EXPECT_THROW(handler_.write(record, out), InvalidPartContent);
}

TEST(CorePropertiesSchemaTest, TheSchemaHasTheAttributesItPromises) {
  std::string const schema = opc::vkservices::detail::coreSchemaText();
  EXPECT_NE(schema.find("targetNamespace=\"" + ns() + "\""), std::string::npos);
  EXPECT_NE(schema.find("elementFormDefault=\"qualified\""), std::string::npos);
  EXPECT_NE(schema.find("attributeFormDefault=\"unqualified\""), std::string::npos);
  EXPECT_NE(schema.find("blockDefault=\"#all\""), std::string::npos);
}

TEST(CorePropertiesSchemaTest, ASchemaThatDoesNotLoadIsAnInvalidXMLSchema) {
  EXPECT_THROW_MESSAGE(
      opc::vkservices::detail::makeCoreReader("<xsd:schema"), InvalidXMLSchema,
      "Schema could not be loaded: XML error in vkcoreProperties.xsd at line 1, column 12: "
      "unexpected end of input");
}

}  // namespace
