// The plain writer and reader must give exactly what the engine's road gives: the same bytes
// written, the same trees read.  The engine is the reference in these tests, which compare
// both roads on many generated documents.
#include "xml_engine/plain_xml.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::detail::ReadAhead;
using opc::model::detail::readPlainXml;
using opc::model::detail::writePlainXml;
using opc::model::detail::writeXmlDocument;
using opc::model::detail::xmlEngine;
using opc::model::detail::XmlNode;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

constexpr char16_t kCp[] =
    u"http://schemas.openxmlformats.org/package/2006/metadata/core-properties";
constexpr char16_t kDc[] = u"http://purl.org/dc/elements/1.1/";
constexpr char16_t kDcTerms[] = u"http://purl.org/dc/terms/";
constexpr char16_t kXsi[] = u"http://www.w3.org/2001/XMLSchema-instance";
constexpr char16_t kXmlns[] = u"http://www.w3.org/2000/xmlns/";
constexpr char16_t kXml[] = u"http://www.w3.org/XML/1998/namespace";
constexpr char16_t kOwn[] = u"http://schemas.example.org/package/2012/coreProperties";

std::string engineBytes(XmlNode const& root) {
  MemoryOutputStream out;
  xmlEngine().write(root, true, out);
  return out.bytes;
}

// Random texts of the kinds that values hold.
class Texts {
 public:
  explicit Texts(unsigned seed) : random_(seed) {}

  std::u16string next() {
    std::u16string text;
    std::size_t const length = pick(8) == 0 ? pick(600) : pick(24);
    int const kind = static_cast<int>(pick(6));
    for (std::size_t i = 0; i < length; ++i) text += character(kind);
    return text;
  }

  std::size_t pick(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }

 private:
  std::u16string character(int kind) {
    static constexpr char16_t kSpecial[] = u"<&>\"' ]=;#:/";
    static constexpr char16_t kOdd[] = {0x09,   0x0A,   0x0D,   0x01,   0x1F,   0x7F,
                                        0x85,   0x9F,   0xA0,   0x2028, 0x2029, 0xFFFE,
                                        0xFFFF, 0xFEFF, 0xD800, 0xDC00};
    std::size_t const roll = pick(100);
    if (kind == 0 || roll < 50) return std::u16string(1, static_cast<char16_t>(u'a' + pick(26)));
    if (roll < 65) return std::u16string(1, kSpecial[pick(sizeof kSpecial / 2 - 1)]);
    if (roll < 75) return std::u16string(1, static_cast<char16_t>(0xE0 + pick(0x700)));
    if (roll < 85) return std::u16string(1, static_cast<char16_t>(0x4E00 + pick(0x5000)));
    if (roll < 92) {
      std::uint32_t const c = 0x10000 + static_cast<std::uint32_t>(pick(0xFFFFF));
      return {static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)),
              static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF))};
    }
    if (kind < 3) return u" ";
    return std::u16string(1, kOdd[pick(sizeof kOdd / 2)]);
  }

  std::mt19937 random_;
};

XmlNode leaf(std::u16string ns, std::u16string name, std::u16string text) {
  XmlNode node;
  node.namespaceURI = std::move(ns);
  node.name = std::move(name);
  node.text = std::move(text);
  return node;
}

// A document of the shape of the standard core properties part, with random values.
XmlNode standardDocument(Texts& texts) {
  XmlNode root;
  root.namespaceURI = kCp;
  root.name = u"cp:coreProperties";
  for (auto const& [name, uri] : {std::pair<char16_t const*, char16_t const*>{u"xmlns:dc", kDc},
                                  {u"xmlns:dcterms", kDcTerms},
                                  {u"xmlns:xsi", kXsi}}) {
    root.attributes.emplace_back(name, uri);
    root.attributeNamespaces.emplace_back(kXmlns);
  }
  if (texts.pick(2)) root.children.push_back(leaf(kCp, u"cp:category", texts.next()));
  if (texts.pick(2)) {
    XmlNode created = leaf(kDcTerms, u"dcterms:created", u"2024-05-17T10:20:30Z");
    created.attributes.emplace_back(u"xsi:type", u"dcterms:W3CDTF");
    created.attributeNamespaces.emplace_back(kXsi);
    root.children.push_back(std::move(created));
  }
  if (texts.pick(2)) root.children.push_back(leaf(kDc, u"dc:creator", texts.next()));
  if (texts.pick(2)) {
    XmlNode keywords = leaf(kCp, u"cp:keywords", u"");
    std::size_t const count = texts.pick(4);
    for (std::size_t i = 0; i < count; ++i) {
      XmlNode value = leaf(kCp, u"cp:value", texts.next());
      if (texts.pick(2)) {
        value.attributes.emplace_back(u"xml:lang", texts.pick(2) ? u"en-GB" : texts.next());
        value.attributeNamespaces.emplace_back(kXml);
      }
      keywords.children.push_back(std::move(value));
    }
    root.children.push_back(std::move(keywords));
  }
  if (texts.pick(2)) root.children.push_back(leaf(kDc, u"dc:title", texts.next()));
  return root;
}

// A document of the shape of the library's own parts: a default namespace and plain children.
XmlNode ownDocument(Texts& texts) {
  XmlNode root;
  root.namespaceURI = kOwn;
  root.name = u"vkcoreProperties";
  std::size_t const count = texts.pick(5);
  for (std::size_t i = 0; i < count; ++i) {
    root.children.push_back(leaf(kOwn, texts.pick(2) ? u"contentType" : u"uuid", texts.next()));
  }
  if (texts.pick(4) == 0) root.attributes.emplace_back(u"note", texts.next());
  return root;
}

// The same tree, field by field, so that a difference names itself.
void expectSameTree(XmlNode const& expected, XmlNode const& actual, std::string const& where) {
  SCOPED_TRACE(where);
  EXPECT_EQ(expected.namespaceURI, actual.namespaceURI);
  EXPECT_EQ(expected.name, actual.name);
  EXPECT_EQ(expected.localName, actual.localName);
  EXPECT_EQ(expected.attributes, actual.attributes);
  EXPECT_EQ(expected.attributeNamespaces, actual.attributeNamespaces);
  EXPECT_EQ(expected.namespaceDeclarations, actual.namespaceDeclarations);
  EXPECT_EQ(expected.text, actual.text);
  EXPECT_EQ(expected.tail, actual.tail);
  ASSERT_EQ(expected.children.size(), actual.children.size());
  for (std::size_t i = 0; i < expected.children.size(); ++i) {
    expectSameTree(expected.children[i], actual.children[i], where);
  }
}

// Writes `root` both ways; counts the documents the plain writer took.
void compareWriters(XmlNode const& root, std::size_t& taken) {
  std::string plain;
  bool const plainTook = writePlainXml(root, true, plain);
  std::string engine;
  bool engineTook = true;
  try {
    engine = engineBytes(root);
  } catch (opc::model::InvalidXMLDocument const&) {
    engineTook = false;
  }
  if (!plainTook) return;
  ++taken;
  ASSERT_TRUE(engineTook) << "the plain writer took a document that the engine refuses";
  ASSERT_EQ(engine, plain);
}

// Reads `bytes` both ways; counts the documents the plain reader took.
void compareReaders(std::string const& bytes, std::size_t& taken) {
  XmlNode plain;
  bool const plainTook =
      readPlainXml(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size(), plain);
  if (!plainTook) return;
  ++taken;
  MemoryInputStream in(bytes);
  XmlNode engine;
  try {
    engine = xmlEngine().makeTreeReader({})->read(in, false, u"", u"");
  } catch (opc::model::InvalidXMLDocument const& e) {
    FAIL() << "the plain reader took a document that the parser refuses: " << e.what() << "\n"
           << bytes;
  }
  expectSameTree(engine, plain, bytes);
}

TEST(PlainXmlTest, WritesTheEngineBytesForRandomStandardDocuments) {
  Texts texts(1);
  std::size_t taken = 0;
  for (int i = 0; i < 1500; ++i) {
    compareWriters(standardDocument(texts), taken);
    if (HasFatalFailure()) return;
  }
  // Most documents have values of ordinary characters: the plain road is the common one.
  EXPECT_GT(taken, 400u);
}

TEST(PlainXmlTest, WritesTheEngineBytesForRandomOwnDocuments) {
  Texts texts(2);
  std::size_t taken = 0;
  for (int i = 0; i < 1500; ++i) {
    compareWriters(ownDocument(texts), taken);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(taken, 400u);
}

TEST(PlainXmlTest, WritesTheEngineBytesForTheSpecialCharacters) {
  std::size_t taken = 0;
  for (std::u16string const text : {u"<&>\"'", u"a]]>b", u" lead", u"trail ", u"x  y",
                                    u"\u00e9\u4e2d", u"\U0001F600", u"\u00a0", u"\ufeff"}) {
    XmlNode root = leaf(kOwn, u"r", u"");
    root.children.push_back(leaf(kOwn, u"v", text));
    root.attributes.emplace_back(u"a", text);
    compareWriters(root, taken);
  }
  EXPECT_EQ(taken, 9u);
}

TEST(PlainXmlTest, LeavesUncertainDocumentsToTheEngine) {
  std::string out;
  XmlNode root = leaf(kOwn, u"r", u"");
  root.children.push_back(leaf(kOwn, u"v", u"line\nfeed"));
  EXPECT_FALSE(writePlainXml(root, true, out));
  root.children.back().text = u"bad\x01";
  EXPECT_FALSE(writePlainXml(root, true, out));
  root.children.back().text = u"   ";
  EXPECT_FALSE(writePlainXml(root, true, out));
  EXPECT_FALSE(writePlainXml(leaf(kOwn, u"r", u"x"), false, out));
  EXPECT_FALSE(writePlainXml(leaf(kOwn, u"\u00e9l\u00e9ment", u"x"), true, out));
}

TEST(PlainXmlTest, WriteDocumentRaisesTheEngineErrorForAnUnwritableValue) {
  XmlNode root = leaf(kOwn, u"r", u"bad\x01");
  MemoryOutputStream plain;
  std::string message;
  try {
    engineBytes(root);
  } catch (opc::model::InvalidXMLDocument const& e) {
    message = e.what();
  }
  ASSERT_FALSE(message.empty());
  EXPECT_THROW_MESSAGE(writeXmlDocument(root, true, plain), opc::model::InvalidXMLDocument,
                       message);
}

TEST(PlainXmlTest, WriteDocumentWritesOnceAndFlushes) {
  MemoryOutputStream out;
  writeXmlDocument(leaf(kOwn, u"r", u"x"), true, out);
  EXPECT_EQ(out.bytes, engineBytes(leaf(kOwn, u"r", u"x")));
  EXPECT_EQ(out.flushes, 1);
  EXPECT_EQ(out.closes, 0);
}

TEST(PlainXmlTest, ReadsWhatTheEngineReadsFromWrittenDocuments) {
  Texts texts(3);
  std::size_t taken = 0;
  for (int i = 0; i < 1500; ++i) {
    XmlNode const root = i % 2 ? standardDocument(texts) : ownDocument(texts);
    std::string bytes;
    try {
      bytes = engineBytes(root);
    } catch (opc::model::InvalidXMLDocument const&) {
      continue;
    }
    compareReaders(bytes, taken);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(taken, 800u);
}

TEST(PlainXmlTest, ReadsWhatTheEngineReadsFromHandWrittenDocuments) {
  char const* const documents[] = {
      "<a/>",
      "<?xml version='1.0' encoding='utf-8'?><a>x</a>",
      "<?xml version=\"1.0\" standalone=\"no\" ?>\n<a  b = 'v' >x&amp;y&#x1F600;&#65;</a>\n",
      "<p:a xmlns:p='urn:p' xmlns='urn:d'><b p:z='1' y='2' p:c='3'>t</b>tail<p:c/>\n</p:a>",
      "<a xmlns='urn:d'><b xmlns=''>x</b><c xmlns:q='urn:q'><q:d xml:lang='en'/></c></a>",
      "<a>\t\n x <b>&lt;&gt;&quot;&apos;</b> y </a>",
      "<cp:coreProperties xmlns:cp=\"urn:cp\" xmlns:dc=\"urn:dc\"><dc:title>T</dc:title>"
      "<cp:keywords xml:lang=\"de\">a <cp:value xml:lang=\"en\">b</cp:value> c</cp:keywords>"
      "</cp:coreProperties>",
      "<a b='x' a='y' xmlns:z='urn:z' z:b='q'/>",
  };
  std::size_t taken = 0;
  for (char const* document : documents) {
    compareReaders(document, taken);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(taken, sizeof documents / sizeof documents[0]);
}

TEST(PlainXmlTest, LeavesOddDocumentsToTheParser) {
  char const* const documents[] = {
      "\xEF\xBB\xBF<a/>",
      "<!DOCTYPE a><a/>",
      "<a><!-- c --></a>",
      "<a><![CDATA[x]]></a>",
      "<?xml version='1.1'?><a/>",
      "<?xml version='1.0' encoding='ISO-8859-1'?><a/>",
      "<a>x\r\ny</a>",
      "<a b='x\ny'/>",
      "<a>&nbsp;</a>",
      "<a>x]]>y</a>",
      "<p:a/>",
      "<a xmlns:p=''/>",
      "<a b='1' b='2'/>",
      "<a xmlns:p='urn:x' xmlns:q='urn:x' p:b='1' q:b='2'/>",
      "<a><?pi x?></a>",
      "<a></b>",
      "<a/><b/>",
      "<a>\xC3</a>",
      "<a>&#0;</a>",
      "<\xC3\xA9/>",
  };
  for (char const* document : documents) {
    XmlNode root;
    std::string const bytes(document);
    EXPECT_FALSE(
        readPlainXml(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size(), root))
        << document;
  }
}

TEST(PlainXmlTest, ReadAheadHoldsAWholeStreamAndClosesIt) {
  MemoryInputStream in("<a>x</a>", 3);
  ReadAhead ahead(in, 100);
  ASSERT_TRUE(ahead.complete());
  EXPECT_EQ(std::string(ahead.bytes().begin(), ahead.bytes().end()), "<a>x</a>");
  EXPECT_EQ(in.opens, 1);
  ahead.close();
  EXPECT_EQ(in.closes, 1);
}

TEST(PlainXmlTest, ReadAheadReplaysAFailureWhereTheStreamRaisedIt) {
  MemoryInputStream in("<a>xyz</a>", 2);
  in.failAfter(5);
  ReadAhead ahead(in, 100);
  EXPECT_FALSE(ahead.complete());
  opc::InputStream& replay = ahead.replay();
  replay.open();
  unsigned char buffer[16];
  std::size_t total = 0;
  try {
    for (;;) {
      std::size_t const got = replay.read(buffer, sizeof buffer);
      if (got == 0) break;
      total += got;
    }
    FAIL() << "the failure was not replayed";
  } catch (opc::Exception const& e) {
    EXPECT_STREQ(e.what(), "injected read failure");
  }
  EXPECT_EQ(total, 4u);
  replay.close();
  EXPECT_EQ(in.closes, 1);
}

TEST(PlainXmlTest, ReadAheadGoesOnWithTheStreamPastItsLimit) {
  std::string const bytes(10000, 'x');
  MemoryInputStream in(bytes, 1000);
  ReadAhead ahead(in, 2500);
  EXPECT_FALSE(ahead.complete());
  opc::InputStream& replay = ahead.replay();
  replay.open();
  std::string read;
  unsigned char buffer[700];
  for (;;) {
    std::size_t const got = replay.read(buffer, sizeof buffer);
    if (got == 0) break;
    read.append(reinterpret_cast<char const*>(buffer), got);
  }
  EXPECT_EQ(read, bytes);
  EXPECT_EQ(in.opens, 1);
}

}  // namespace
