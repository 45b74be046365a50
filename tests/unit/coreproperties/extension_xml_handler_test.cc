#include "coreproperties/extension_xml_handler.h"

#include <string>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/schema_base.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartContent;
using opc::vkservices::CoreProperties;
using opc::vkservices::ExtensionXmlHandler;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

constexpr char kUUID[] = "0123abcd-4567-49ef-8123-456789abcdef";
constexpr char kRootMessage[] = "The expected extended core properties root element is not present";
constexpr char kUUIDFormatMessage[] =
    "UUID must have the format: hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh where h is a hexidecimal "
    "digit";

std::string ns() {
  return opc::detail::toUTF8String(opc::vkservices::SchemaBase) +
         "/package/2014/corePropertiesExtension";
}

std::string document(std::string const& body, std::string const& space = ns()) {
  return "<vkcoreProperties xmlns='" + space + "'>" + body + "</vkcoreProperties>";
}

std::string uuidOf(CoreProperties const& record) {
  return record.getUUID() ? opc::detail::toUTF8String(*record.getUUID()) : "(none)";
}

class ExtensionXmlHandlerTest : public ::testing::Test {
 protected:
  CoreProperties read(std::string const& text) {
    CoreProperties record;
    MemoryInputStream in(text);
    handler_.read(in, record);
    return record;
  }

  std::string write(CoreProperties const& record) {
    MemoryOutputStream out;
    handler_.write(record, out);
    EXPECT_EQ(out.closes, 0);
    return out.bytes;
  }

  ExtensionXmlHandler handler_;
};

TEST_F(ExtensionXmlHandlerTest, WritesTheUUID) {
  CoreProperties record;
  record.setUUID(opc::toString(kUUID));
  EXPECT_EQ(write(record),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<vkcoreProperties xmlns=\"" +
                ns() + "\">\n  <uuid>" + kUUID +
                "</uuid>\n"
                "</vkcoreProperties>\n");
}

TEST_F(ExtensionXmlHandlerTest, WritesAnEmptyDocumentElementWithoutUUID) {
  std::string const text = write(CoreProperties());
  EXPECT_EQ(text,
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<vkcoreProperties xmlns=\"" +
                ns() + "\"/>\n");
  EXPECT_EQ(uuidOf(read(text)), "(none)");
}

TEST_F(ExtensionXmlHandlerTest, ReadsWhatItWrote) {
  CoreProperties record;
  record.setUUID(opc::toString(kUUID));
  EXPECT_EQ(uuidOf(read(write(record))), kUUID);
}

TEST_F(ExtensionXmlHandlerTest, AnotherNamespaceIsRead) {
  EXPECT_EQ(uuidOf(read(document(std::string("<uuid>") + kUUID + "</uuid>", "urn:other"))), kUUID);
  EXPECT_EQ(
      uuidOf(read(std::string("<vkcoreProperties><uuid>") + kUUID + "</uuid></vkcoreProperties>")),
      kUUID);
}

TEST_F(ExtensionXmlHandlerTest, AnythingElseIsToleratedVersionIncluded) {
  EXPECT_EQ(uuidOf(read(document("<orvaneVersion>7.1</orvaneVersion><future a='1'><x/></future>"
                                 "<uuid>" +
                                 std::string(kUUID) + "</uuid><uuid>not looked at</uuid>"))),
            kUUID);
}

TEST_F(ExtensionXmlHandlerTest, NoUUIDLeavesTheRecordWithout) {
  EXPECT_EQ(uuidOf(read(document(""))), "(none)");
  EXPECT_EQ(uuidOf(read(document("<x><uuid>" + std::string(kUUID) + "</uuid></x>"))), "(none)");
}

TEST_F(ExtensionXmlHandlerTest, AnEmptyUUIDIsAMalformedOne) {
  EXPECT_THROW_MESSAGE(read(document("<uuid/>")), InvalidPartContent, kUUIDFormatMessage);
  EXPECT_THROW_MESSAGE(read(document("<uuid>{x}</uuid>")), InvalidPartContent, kUUIDFormatMessage);
}

TEST_F(ExtensionXmlHandlerTest, AnotherUUIDThanTheRecordsIsRefused) {
  CoreProperties record;
  record.setUUID(CoreProperties::getNilUUID());
  MemoryInputStream in(document(std::string("<uuid>") + kUUID + "</uuid>"));
  EXPECT_THROW_MESSAGE(handler_.read(in, record), InvalidPartContent,
                       "UUID is already set. It can not be overwritten");
}

TEST_F(ExtensionXmlHandlerTest, AnotherDocumentElementIsRefused) {
  EXPECT_THROW_MESSAGE(read("<coreProperties xmlns='" + ns() + "'/>"), InvalidPartContent,
                       kRootMessage);
  EXPECT_THROW_MESSAGE(read("<VKcoreProperties/>"), InvalidPartContent, kRootMessage);
  // The name is compared as written: a prefix makes it another name.
  EXPECT_THROW_MESSAGE(read("<p:vkcoreProperties xmlns:p='" + ns() + "'/>"), InvalidPartContent,
                       kRootMessage);
}

TEST_F(ExtensionXmlHandlerTest, MalformedDocumentsAreRefusedWithTheParsersText) {
  EXPECT_THROW_MESSAGE(read("<vkcoreProperties>"), InvalidPartContent,
                       "XML error at line 1, column 19: input ended before all started tags were "
                       "ended; last tag started is 'vkcoreProperties'");
  EXPECT_THROW(read(""), InvalidPartContent);
  EXPECT_THROW(read("<!DOCTYPE vkcoreProperties><vkcoreProperties/>"), InvalidPartContent);
}

TEST_F(ExtensionXmlHandlerTest, APartBeyondTheLimitIsRefusedWhileReading) {
  EXPECT_THROW_MESSAGE(read(document("<x>" + std::string(std::size_t{4} << 20, 'x') + "</x>")),
                       InvalidPartContent,
                       "The extended core properties part is larger than 4194304 bytes");
}

}  // namespace
