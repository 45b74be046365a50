// The streaming writer: the same bytes as the tree serializer, and its refusals.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <opc/core/exception.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_writer.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidXMLDocument;
using opc::model::XercesHelper;
using opc::model::XmlStreamWriter;
using opcvk_test::MemoryOutputStream;

// An element to write both ways: namespace, name, attributes in the order they are set,
// children.
struct Element {
  std::u16string ns;
  std::u16string name;
  std::vector<std::pair<std::u16string, std::u16string>> attributes;
  std::vector<Element> children;
};

void build(xercesc::DOMDocument* document, xercesc::DOMElement* parent, Element const& element) {
  xercesc::DOMElement* made =
      parent == nullptr ? XercesHelper::appendElementNS(document, element.ns, element.name)
                        : XercesHelper::appendElementNS(parent, element.ns, element.name);
  for (auto const& attribute : element.attributes) {
    XercesHelper::setElementAttribute(made, attribute.first, attribute.second);
  }
  for (Element const& child : element.children) build(document, made, child);
}

std::string serialized(Element const& root) {
  opc::model::XercesGuard guard;
  auto document = XercesHelper::createDocument();
  document->setXmlStandalone(true);
  build(document.get(), nullptr, root);
  auto serializer = XercesHelper::createPrettyPrintingWriter();
  MemoryOutputStream out;
  XercesHelper::writeDocumentToStream(serializer.get(), document.get(), out);
  return out.bytes;
}

void stream(XmlStreamWriter& writer, Element const& element) {
  writer.startElement(element.ns, element.name);
  for (auto const& attribute : element.attributes) {
    writer.attribute(attribute.first, attribute.second);
  }
  for (Element const& child : element.children) stream(writer, child);
  writer.endElement();
}

std::string streamed(Element const& root, MemoryOutputStream& out) {
  XmlStreamWriter writer(out);
  writer.startDocument();
  stream(writer, root);
  writer.endDocument();
  return out.bytes;
}

std::string streamed(Element const& root) {
  MemoryOutputStream out;
  return streamed(root, out);
}

Element leaf(std::u16string ns, std::u16string name,
             std::vector<std::pair<std::u16string, std::u16string>> attributes = {}) {
  return Element{std::move(ns), std::move(name), std::move(attributes), {}};
}

TEST(XmlStreamWriterTest, WritesTheBytesOfTheTreeSerializer) {
  std::u16string const ns = u"urn:example:a";
  std::vector<Element> const documents = {
      leaf(ns, u"empty"),
      leaf(u"", u"plain", {{u"b", u"2"}, {u"a", u"1"}}),
      Element{
          ns,
          u"root",
          {{u"version", u"2.0"}, {u"createdBy", u"x"}, {u"Zeta", u"upper first"}},
          {leaf(ns, u"child", {{u"name", u"/a"}, {u"content", u""}, {u"type", u"File"}}),
           leaf(ns, u"child"),
           Element{ns,
                   u"inner",
                   {},
                   {leaf(ns, u"deep", {{u"x", u"1"}}), leaf(u"urn:other", u"foreign")}},
           leaf(u"", u"none"),
           leaf(ns, u"last", {{u"v", u"&<>\"'\t\n\r ]]> \u00FC\u65E5\U0001F600\u007F\u0085"}})}},
      Element{u"", u"top", {}, {leaf(ns, u"in"), leaf(ns, u"again")}},
  };
  for (Element const& document : documents) {
    EXPECT_EQ(streamed(document), serialized(document));
  }
}

TEST(XmlStreamWriterTest, SettingAnAttributeTwiceKeepsTheLastValue) {
  MemoryOutputStream out;
  XmlStreamWriter writer(out);
  writer.startDocument();
  writer.startElement(u"", u"a");
  writer.attribute(u"x", u"first");
  writer.attribute(u"y", u"1");
  writer.attribute(u"x", u"second");
  writer.endElement();
  writer.endDocument();
  EXPECT_EQ(out.bytes,
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
            "<a x=\"second\" y=\"1\"/>\n");
}

TEST(XmlStreamWriterTest, RefusesWhatXmlCannotHold) {
  std::vector<std::u16string> const bad = {std::u16string(u"a\0b", 3),
                                           u"\u0001",
                                           u"\u001F",
                                           u"\uFFFE",
                                           u"\uFFFF",
                                           std::u16string(1, char16_t(0xD800)),
                                           std::u16string(1, char16_t(0xDC00)),
                                           std::u16string{char16_t(0xDC00), char16_t(0xD800)},
                                           std::u16string{u'a', char16_t(0xD83D), u'b'}};
  for (std::u16string const& value : bad) {
    MemoryOutputStream out;
    XmlStreamWriter writer(out);
    writer.startDocument();
    writer.startElement(u"", u"a");
    EXPECT_THROW_MESSAGE(writer.attribute(u"v", value), InvalidXMLDocument,
                         "XML error: invalid or illegal XML character");
  }
  MemoryOutputStream out;
  XmlStreamWriter writer(out);
  writer.startDocument();
  EXPECT_THROW_MESSAGE(writer.startElement(u"", u"a b"), InvalidXMLDocument,
                       "XML error: invalid or illegal XML character");
  EXPECT_THROW_MESSAGE(writer.startElement(u"", u""), InvalidXMLDocument,
                       "XML error: invalid or illegal XML character");
  writer.startElement(u"", u"a");
  EXPECT_THROW_MESSAGE(writer.attribute(u"x=\"1\"", u""), InvalidXMLDocument,
                       "XML error: invalid or illegal XML character");
}

TEST(XmlStreamWriterTest, RefusesCallsOutOfOrder) {
  {
    MemoryOutputStream out;
    XmlStreamWriter writer(out);
    EXPECT_THROW_MESSAGE(writer.startElement(u"", u"a"), InvalidXMLDocument,
                         "XML error: an element was started before the document");
    writer.startDocument();
    EXPECT_THROW_MESSAGE(writer.startDocument(), InvalidXMLDocument,
                         "XML error: the document was started already");
    EXPECT_THROW_MESSAGE(writer.attribute(u"x", u""), InvalidXMLDocument,
                         "XML error: an attribute was set outside a start tag");
    EXPECT_THROW_MESSAGE(writer.endElement(), InvalidXMLDocument,
                         "XML error: an element was ended that was not started");
    EXPECT_THROW_MESSAGE(writer.endDocument(), InvalidXMLDocument,
                         "XML error: the document ended before its document element");
    writer.startElement(u"", u"a");
    writer.startElement(u"", u"b");
    EXPECT_THROW_MESSAGE(writer.endDocument(), InvalidXMLDocument,
                         "XML error: the document ended before its document element");
    writer.endElement();
    EXPECT_THROW_MESSAGE(writer.attribute(u"x", u""), InvalidXMLDocument,
                         "XML error: an attribute was set outside a start tag");
    writer.endElement();
    EXPECT_THROW_MESSAGE(writer.startElement(u"", u"c"), InvalidXMLDocument,
                         "XML error: a document has only one document element");
  }
  EXPECT_TRUE(true);
}

TEST(XmlStreamWriterTest, WritesInPiecesAndFlushesOnceAtTheEnd) {
  Element root{u"urn:example:a", u"root", {}, {}};
  for (int i = 0; i < 5000; ++i) {
    root.children.push_back(
        leaf(u"urn:example:a", u"entry", {{u"name", u"/folder/file" + std::u16string(30, u'x')}}));
  }
  MemoryOutputStream out;
  XmlStreamWriter writer(out);
  writer.startDocument();
  writer.startElement(root.ns, root.name);
  for (int i = 0; i < 2000; ++i) stream(writer, root.children[static_cast<std::size_t>(i)]);
  // Nothing is flushed before the end, but full pieces are handed over as they fill.
  EXPECT_GT(out.bytes.size(), 0u);
  EXPECT_EQ(out.flushes, 0);
  for (std::size_t i = 2000; i < root.children.size(); ++i) stream(writer, root.children[i]);
  writer.endElement();
  writer.endDocument();
  EXPECT_EQ(out.flushes, 1);
  EXPECT_EQ(out.closes, 0);
  EXPECT_EQ(out.bytes, serialized(root));
}

TEST(XmlStreamWriterTest, LetsAFailureOfTheStreamPassThrough) {
  Element root{u"", u"root", {}, {}};
  for (int i = 0; i < 3000; ++i) root.children.push_back(leaf(u"", u"entry", {{u"v", u"value"}}));
  MemoryOutputStream out;
  out.failAfter(1000);
  EXPECT_THROW_MESSAGE(streamed(root, out), opc::Exception, "injected write failure");
}

}  // namespace
