// The handler of the cipher data document on its own: order, appending, and what it writes.
#include "cipherdata/cipher_data_xml_handler.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/stream_adaptors.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "unit/cipherdata/cipher_data_test_support.h"

namespace opcvk_test {
namespace {

using opc::vkservices::CipherDataXmlHandler;
using opc::vkservices::CipherEntry;

std::vector<CipherEntry> readText(CipherDataXmlHandler& handler, std::string const& text,
                                  std::vector<CipherEntry> entries = {}) {
  Bytes const bytes = bytesOf(text);
  opc::ByteArrayInAdaptor in(bytes);
  handler.read(in, entries);
  return entries;
}

std::string writeText(CipherDataXmlHandler& handler, std::vector<CipherEntry> const& entries) {
  Bytes bytes;
  opc::ByteArrayOutAdaptor out(bytes);
  handler.write(entries, out);
  return std::string(bytes.begin(), bytes.end());
}

TEST(CipherDataXmlHandlerTest, ReadAppendsEntriesInDocumentOrder) {
  CipherDataXmlHandler handler;
  std::vector<CipherEntry> const before{CipherEntry(byID(u"kept"), {1}, u"k", {1})};
  auto const entries =
      readText(handler,
               cipherDocument(cipherEntryXml(selectorXml("/a", "ByID", "second"), "AQ==") +
                              cipherEntryXml(selectorXml("/", "ByType", "third"), "Ag==")),
               before);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].getSalt(), u"k");
  EXPECT_TRUE(entries[1].getRelationshipSelector() == byID(u"second", u"/a"));
  EXPECT_EQ(entries[1].getHash(), Bytes{1});
  EXPECT_TRUE(entries[2].getRelationshipSelector() == byType(u"third"));
  EXPECT_EQ(entries[2].getHash(), Bytes{2});
}

TEST(CipherDataXmlHandlerTest, WrittenDocumentReadsBackInTheSameOrder) {
  CipherDataXmlHandler handler;
  std::vector<CipherEntry> const written{
      CipherEntry(byType(u"z"), {0xFF, 0}, u"salt one", {1, 2, 3}),
      CipherEntry(byID(u"a", u"/p/q.xml"), std::vector<unsigned char>(40, 7), u"two", {4}),
      CipherEntry(byType(u"m"), {3}, u"three", std::vector<unsigned char>(16, 9))};
  std::string const text = writeText(handler, written);
  EXPECT_LT(text.find("Value=\"z\""), text.find("Value=\"a\""));
  EXPECT_LT(text.find("Value=\"a\""), text.find("Value=\"m\""));
  auto const read = readText(handler, text);
  ASSERT_EQ(read.size(), written.size());
  for (std::size_t i = 0; i < read.size(); ++i) {
    EXPECT_TRUE(read[i].getRelationshipSelector() == written[i].getRelationshipSelector());
    EXPECT_EQ(read[i].getHash(), written[i].getHash());
    EXPECT_EQ(read[i].getSalt(), written[i].getSalt());
    EXPECT_EQ(read[i].getIV(), written[i].getIV());
  }
}

TEST(CipherDataXmlHandlerTest, ElementsOfAnEntryAreWrittenInTheirOrder) {
  CipherDataXmlHandler handler;
  std::string const text = writeText(handler, {CipherEntry(byType(u"t"), {1}, u"s", {2})});
  std::size_t const selector = text.find("<RelationshipSelector");
  std::size_t const hash = text.find("<Hash>");
  std::size_t const salt = text.find("<Salt>");
  std::size_t const iv = text.find("<IV>");
  ASSERT_NE(iv, std::string::npos) << text;
  EXPECT_LT(selector, hash);
  EXPECT_LT(hash, salt);
  EXPECT_LT(salt, iv);
}

TEST(CipherDataXmlHandlerTest, WritesTheDocumentByteForByte) {
  CipherDataXmlHandler handler;
  std::string const text = writeText(
      handler,
      {CipherEntry(byType(u"http://x/y?a=1&b=<2>\"'"), {0xFF, 0},
                   u"salt & <one> \"q\" '\u00E9\U0001F600\t\r\n", {1, 2, 3}),
       CipherEntry(byID(u"rId7", u"/p/q.xml"), std::vector<unsigned char>(40, 7), u"two", {4})});
  // Attributes come in the order of their names; a carriage return in a text is kept as a
  // reference, so that a reader gets it back rather than a line end.
  EXPECT_EQ(text,
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<CipherData xmlns=\"" +
                cipherNamespace() +
                "\">\n"
                "  <CipherEntry>\n"
                "    <RelationshipSelector SelectorType=\"ByType\" SourceURI=\"/\" "
                "Value=\"http://x/y?a=1&amp;b=&lt;2>&quot;'\"/>\n"
                "    <Hash>/wA=</Hash>\n"
                "    <Salt>salt &amp; &lt;one&gt; \"q\" '\xC3\xA9\xF0\x9F\x98\x80\t&#xD;\n"
                "</Salt>\n"
                "    <IV>AQID</IV>\n"
                "  </CipherEntry>\n"
                "  <CipherEntry>\n"
                "    <RelationshipSelector SelectorType=\"ByID\" SourceURI=\"/p/q.xml\" "
                "Value=\"rId7\"/>\n"
                "    <Hash>BwcHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBwcHBw==</Hash>\n"
                "    <Salt>two</Salt>\n"
                "    <IV>BA==</IV>\n"
                "  </CipherEntry>\n"
                "</CipherData>\n");
}

TEST(CipherDataXmlHandlerTest, DocumentOfNoEntriesIsOneTheReaderRefuses) {
  CipherDataXmlHandler handler;
  std::string const text = writeText(handler, {});
  EXPECT_EQ(text,
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<CipherData xmlns=\"" +
                cipherNamespace() + "\"/>\n");
  EXPECT_THROW(readText(handler, text), opc::model::InvalidPartContent);
}

TEST(CipherDataXmlHandlerTest, EntriesReadBeforeAFailureStayAppended) {
  CipherDataXmlHandler handler;
  std::vector<CipherEntry> entries;
  Bytes const bytes = bytesOf(cipherDocument(cipherEntryXml(selectorXml()) + cipherEntryXml("")));
  opc::ByteArrayInAdaptor in(bytes);
  EXPECT_THROW_MESSAGE(handler.read(in, entries), opc::model::InvalidPartContent,
                       "XML signature: RelationshipSelector is not present.");
  EXPECT_EQ(entries.size(), 1u);
}

}  // namespace
}  // namespace opcvk_test
