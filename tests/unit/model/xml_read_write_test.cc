#include <string>

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
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

char16_t const kNamespace[] = u"urn:example:manifest";
char16_t const kOtherNamespace[] = u"urn:example:other";

class XmlReadWriteTest : public ::testing::Test {
 protected:
  // Builds a document with a default namespace, a second namespace, attributes and text.
  std::unique_ptr<xercesc::DOMDocument, opc::model::XercesDeleter> buildDocument() {
    auto document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    auto* root = XercesHelper::appendElementNS(document.get(), kNamespace, u"fileEntries");
    XercesHelper::setElementAttribute(root, u"version", u"2.0");
    auto* first = XercesHelper::appendElementNS(root, kNamespace, u"fileEntry");
    XercesHelper::setElementAttribute(first, u"name", u"/a/b.txt");
    XercesHelper::setElementText(first, u"first");
    auto* second = XercesHelper::appendElementNS(root, kNamespace, u"fileEntry");
    XercesHelper::setElementAttribute(second, u"name", u"/c");
    auto* extra = XercesHelper::appendElementNS(root, kOtherNamespace, u"o:extra");
    XercesHelper::setElementText(extra, u"other");
    return document;
  }

  std::string write(xercesc::DOMDocument* document) {
    MemoryOutputStream out;
    XercesHelper::writeDocumentToStream(writer_.get(), document, out);
    EXPECT_EQ(0, out.closes);
    return out.bytes;
  }

  xercesc::DOMDocument* read(std::string const& bytes, bool validate = false) {
    MemoryInputStream in(bytes);
    return XercesHelper::readDocumentFromStream(parser_.get(), in, validate, u"", u"");
  }

  XercesGuard guard_;
  std::unique_ptr<xercesc::DOMLSParser, opc::model::XercesDeleter> parser_ =
      XercesHelper::createParser();
  std::unique_ptr<xercesc::DOMLSSerializer, opc::model::XercesDeleter> writer_ =
      XercesHelper::createPrettyPrintingWriter();
};

TEST_F(XmlReadWriteTest, WritesUtf8DeclarationStandaloneAndIndentation) {
  auto document = buildDocument();
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
      "<fileEntries xmlns=\"urn:example:manifest\" version=\"2.0\">\n"
      "  <fileEntry name=\"/a/b.txt\">first</fileEntry>\n"
      "  <fileEntry name=\"/c\"/>\n"
      "  <o:extra xmlns:o=\"urn:example:other\">other</o:extra>\n"
      "</fileEntries>\n",
      write(document.get()));
}

TEST_F(XmlReadWriteTest, DocumentNotMarkedStandaloneSaysNo) {
  auto document = XercesHelper::createDocument();
  XercesHelper::appendElementNS(document.get(), kNamespace, u"root");
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>\n"
      "<root xmlns=\"urn:example:manifest\"/>\n",
      write(document.get()));
}

TEST_F(XmlReadWriteTest, RoundTripKeepsNamespacesNamesAttributesAndText) {
  auto document = buildDocument();
  xercesc::DOMDocument* back = read(write(document.get()));
  xercesc::DOMElement* root = back->getDocumentElement();
  EXPECT_EQ(std::u16string(kNamespace), root->getNamespaceURI());
  EXPECT_EQ(std::u16string(u"fileEntries"), root->getLocalName());
  EXPECT_TRUE(back->getXmlStandalone());
  std::u16string value;
  ASSERT_TRUE(XercesHelper::getElementAttribute(root, u"version", value));
  EXPECT_EQ(u"2.0", value);
  auto entries = XercesHelper::getElements(root, u"fileEntry");
  ASSERT_EQ(2u, entries.size());
  ASSERT_TRUE(XercesHelper::getElementAttribute(entries[0], u"name", value));
  EXPECT_EQ(u"/a/b.txt", value);
  ASSERT_TRUE(XercesHelper::getElementText(entries[0], value));
  EXPECT_EQ(u"first", value);
  ASSERT_TRUE(XercesHelper::getElementAttribute(entries[1], u"name", value));
  EXPECT_EQ(u"/c", value);
  auto* extra = XercesHelper::getElementNS(root, kOtherNamespace, u"extra");
  EXPECT_EQ(std::u16string(u"o"), extra->getPrefix());
  ASSERT_TRUE(XercesHelper::getElementText(extra, value));
  EXPECT_EQ(u"other", value);
}

TEST_F(XmlReadWriteTest, NonAsciiTextAndAttributesRoundTrip) {
  // Latin, Greek, CJK, a character outside the BMP, markup characters and line ends.
  std::u16string const text = u"caf\u00e9 \u03a9 \u4e2d\u6587 \U0001F600 <&>\"' a\tb\nc";
  std::u16string const attribute = u"\u00fc\u00df \U00010348 <&>\"'";
  auto document = XercesHelper::createDocument();
  auto* root = XercesHelper::appendElementNS(document.get(), kNamespace, u"r\u00e9sum\u00e9");
  XercesHelper::setElementText(root, text);
  XercesHelper::setElementAttribute(root, u"n\u00e4me", attribute);
  std::string const bytes = write(document.get());
  // UTF-8 on the wire: U+1F600 is F0 9F 98 80.
  EXPECT_NE(std::string::npos, bytes.find("\xF0\x9F\x98\x80"));

  xercesc::DOMElement* back = read(bytes)->getDocumentElement();
  EXPECT_EQ(std::u16string(u"r\u00e9sum\u00e9"), back->getLocalName());
  std::u16string value;
  ASSERT_TRUE(XercesHelper::getElementText(back, value));
  EXPECT_EQ(text, value);
  ASSERT_TRUE(XercesHelper::getElementAttribute(back, u"n\u00e4me", value));
  EXPECT_EQ(attribute, value);
}

TEST_F(XmlReadWriteTest, CarriageReturnsAndLeadingSpacesSurvive) {
  std::u16string const text = u"  line1\r\nline2\r  ";
  auto document = XercesHelper::createDocument();
  auto* root = XercesHelper::appendElementNS(document.get(), kNamespace, u"root");
  XercesHelper::setElementText(root, text);
  XercesHelper::setElementAttribute(root, u"a", u"x\r\ny\tz");
  xercesc::DOMElement* back = read(write(document.get()))->getDocumentElement();
  std::u16string value;
  ASSERT_TRUE(XercesHelper::getElementText(back, value));
  EXPECT_EQ(text, value);
  ASSERT_TRUE(XercesHelper::getElementAttribute(back, u"a", value));
  EXPECT_EQ(u"x\r\ny\tz", value);
}

TEST_F(XmlReadWriteTest, CharactersThatXmlCannotHoldFailTheWrite) {
  for (std::u16string const& bad :
       {std::u16string(u"a\u0001b"), std::u16string(1, char16_t(0xD800)),
        std::u16string(u"\uFFFE")}) {
    auto document = XercesHelper::createDocument();
    auto* root = XercesHelper::appendElementNS(document.get(), kNamespace, u"root");
    XercesHelper::setElementText(root, bad);
    MemoryOutputStream out;
    EXPECT_THROW_MESSAGE(XercesHelper::writeDocumentToStream(writer_.get(), document.get(), out),
                         InvalidXMLDocument, "XML error: invalid or illegal XML character");
  }
}

TEST_F(XmlReadWriteTest, ReadsInPiecesAndOpensAndClosesTheStream) {
  std::string bytes = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><root xmlns=\"urn:x\">";
  for (int i = 0; i < 2000; ++i) {
    bytes += "<item>" + std::to_string(i) + "</item>";
  }
  bytes += "</root>";
  MemoryInputStream in(bytes, 7);
  auto* document = XercesHelper::readDocumentFromStream(parser_.get(), in, false, u"", u"");
  EXPECT_EQ(1, in.opens);
  EXPECT_EQ(1, in.closes);
  EXPECT_GT(in.reads, 1000);
  EXPECT_EQ(bytes.size(), in.position());
  auto items = XercesHelper::getElements(document->getDocumentElement(), u"item");
  ASSERT_EQ(2000u, items.size());
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(items[1999], text));
  EXPECT_EQ(u"1999", text);
}

TEST_F(XmlReadWriteTest, ReadsUtf16WithByteOrderMark) {
  std::u16string const xml = u"\uFEFF<root xmlns=\"urn:x\">\u00e9\U0001F600</root>";
  std::string bytes;
  for (char16_t unit : xml) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(read(bytes)->getDocumentElement(), text));
  EXPECT_EQ(u"\u00e9\U0001F600", text);
}

TEST_F(XmlReadWriteTest, MalformedDocumentFailsWithPosition) {
  MemoryInputStream in("<root>\n  <a></b>\n</root>");
  EXPECT_THROW_MESSAGE(XercesHelper::readDocumentFromStream(parser_.get(), in, false, u"", u""),
                       InvalidXMLDocument,
                       "XML error at line 2, column 8: expected end of tag 'a'");
  EXPECT_EQ(1, in.closes);
}

TEST_F(XmlReadWriteTest, SystemIdNamesTheDocumentInMessages) {
  MemoryInputStream in("<root>");
  EXPECT_THROW_MESSAGE(
      XercesHelper::readDocumentFromStream(parser_.get(), in, false, u"manifest.xml", u""),
      InvalidXMLDocument,
      "XML error in manifest.xml at line 1, column 7: input ended before all started tags "
      "were ended; last tag started is 'root'");
}

TEST_F(XmlReadWriteTest, EmptyStreamFails) {
  MemoryInputStream in("");
  EXPECT_THROW_MESSAGE(XercesHelper::readDocumentFromStream(parser_.get(), in, false, u"", u""),
                       InvalidXMLDocument,
                       "XML error at line 1, column 1: invalid document structure");
}

TEST_F(XmlReadWriteTest, ExpectedNamespaceIsEnforced) {
  MemoryInputStream good("<r xmlns='urn:x'/>");
  EXPECT_NE(nullptr,
            XercesHelper::readDocumentFromStream(parser_.get(), good, false, u"", u"urn:x"));
  MemoryInputStream bad("<p:r xmlns:p='urn:y'/>");
  EXPECT_THROW_MESSAGE(
      XercesHelper::readDocumentFromStream(parser_.get(), bad, false, u"part.xml", u"urn:x"),
      InvalidXMLDocument,
      "XML error in part.xml: the document element \"p:r\" is in the namespace \"urn:y\", not "
      "\"urn:x\"");
  EXPECT_EQ(1, bad.closes);
  MemoryInputStream none("<r/>");
  EXPECT_THROW_MESSAGE(
      XercesHelper::readDocumentFromStream(parser_.get(), none, false, u"", u"urn:x"),
      InvalidXMLDocument,
      "XML error: the document element \"r\" is in the namespace \"\", not \"urn:x\"");
}

TEST_F(XmlReadWriteTest, ReadFailureOfTheStreamPassesUnchanged) {
  MemoryInputStream in("<root><a>text</a><b>more text</b></root>", 5);
  in.failAfter(12);
  EXPECT_THROW_MESSAGE(XercesHelper::readDocumentFromStream(parser_.get(), in, false, u"", u""),
                       opc::Exception, "injected read failure");
  EXPECT_EQ(1, in.closes);
}

TEST_F(XmlReadWriteTest, WriteFailureOfTheStreamPassesUnchanged) {
  auto document = buildDocument();
  MemoryOutputStream out;
  out.failAfter(10);
  EXPECT_THROW_MESSAGE(XercesHelper::writeDocumentToStream(writer_.get(), document.get(), out),
                       opc::Exception, "injected write failure");
  EXPECT_TRUE(out.bytes.empty());
}

TEST_F(XmlReadWriteTest, WriterIsFlushedButNotClosed) {
  auto document = buildDocument();
  MemoryOutputStream out;
  XercesHelper::writeDocumentToStream(writer_.get(), document.get(), out);
  EXPECT_GE(out.flushes, 1);
  EXPECT_EQ(0, out.closes);
}

TEST_F(XmlReadWriteTest, ParserServesManyDocumentsAfterFailures) {
  EXPECT_THROW(read("<a>"), InvalidXMLDocument);
  std::u16string text;
  ASSERT_TRUE(XercesHelper::getElementText(read("<a>fine</a>")->getDocumentElement(), text));
  EXPECT_EQ(u"fine", text);
  parser_->resetDocumentPool();
  ASSERT_TRUE(XercesHelper::getElementText(read("<a>again</a>")->getDocumentElement(), text));
  EXPECT_EQ(u"again", text);
}

TEST_F(XmlReadWriteTest, NullArgumentsAreRefused) {
  MemoryInputStream in("<a/>");
  EXPECT_THROW_MESSAGE(XercesHelper::readDocumentFromStream(nullptr, in, false, u"", u""),
                       InvalidXMLDocument, "XML error: no parser was given");
  EXPECT_EQ(0, in.opens);
  MemoryOutputStream out;
  EXPECT_THROW_MESSAGE(XercesHelper::writeDocumentToStream(writer_.get(), nullptr, out),
                       InvalidXMLDocument, "XML error: no document was given");
  auto document = buildDocument();
  EXPECT_THROW_MESSAGE(XercesHelper::writeDocumentToStream(nullptr, document.get(), out),
                       InvalidXMLDocument, "XML error: no serializer was given");
}

}  // namespace
