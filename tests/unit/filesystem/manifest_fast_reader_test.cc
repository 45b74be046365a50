// The reader of the plain manifest form that goes without the validating parser: which
// documents it takes, that it fills the tree exactly as the parser's road does, and that every
// other document goes to the parser with the outcome it has always had.
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/time_conversions.h>
#include <opc/model/xml/xml_exceptions.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"
#include "support/manifest_tree_shape.h"

namespace {

using opc::model::InvalidPartContent;
using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;
using opc::vkservices::FileSystemTree;
using opcvk_test::manifestTreeShapeOf;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

constexpr char kNamespace[] = "http://schemas.opcvkservices.org/package/2013/filesystemManifest";
constexpr char kNamespaceV1[] =
    "http://schemas.opcvkservices.org/orvane/compiler/2011/fileManifest";
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";
constexpr char kRoot[] =
    R"(createdByEncoding="UTF-8" createdByPlatform="linux-x86-64" version="2.0")";
constexpr char kEntry[] =
    R"(<fileEntry content="/fsroot/a" date="2021-03-04T05:06:07.5Z" name="/a" permissions="0644" type="File"/>)";

std::string document(std::string const& entries, std::string const& rootAttributes = kRoot,
                     std::string const& head = kDeclaration) {
  return head + "<fileEntries xmlns=\"" + kNamespace + "\" " + rootAttributes + ">\n" + entries +
         "\n</fileEntries>\n";
}

using Outcome = opcvk_test::ManifestReadOutcome;
using opcvk_test::manifestReadOutcomeOf;

// Reads `xml` with read() from a source that can be given again; returns whether the parser
// read it, which it does from a second stream, once.  Every stream is opened and closed once.
bool readStreaming(FileSystemManifestXml& manifest, std::string const& xml, Outcome& outcome) {
  std::size_t const before = manifest.parserReads();
  std::unique_ptr<MemoryInputStream> second;
  MemoryInputStream source(xml, 7);
  outcome = manifestReadOutcomeOf([&](FileSystemTree& tree) {
    manifest.read(source, tree, [&]() -> opc::InputStream& {
      EXPECT_FALSE(second) << xml;
      second = std::make_unique<MemoryInputStream>(xml, 5);
      return *second;
    });
  });
  bool const parsed = manifest.parserReads() != before;
  EXPECT_EQ(parsed, second != nullptr) << xml;
  EXPECT_EQ(source.opens, 1) << xml;
  EXPECT_EQ(source.closes, 1) << xml;
  if (second) {
    EXPECT_EQ(second->closes, 1) << xml;
  }
  return parsed;
}

// Reads `xml` with read() on every road and with the parser alone, and expects one outcome of
// all; returns whether read() took the parser.
bool readBothWays(FileSystemManifestXml& manifest, std::string const& xml, Outcome& outcome) {
  std::size_t const before = manifest.parserReads();
  outcome = manifestReadOutcomeOf([&](FileSystemTree& tree) {
    MemoryInputStream source(xml, 7);
    manifest.read(source, tree);
  });
  bool const parsed = manifest.parserReads() != before;
  Outcome const reference = manifestReadOutcomeOf([&](FileSystemTree& tree) {
    MemoryInputStream source(xml);
    manifest.readValidating(source, tree);
  });
  EXPECT_EQ(outcome.error, reference.error) << xml;
  EXPECT_TRUE(outcome.shape == reference.shape) << xml;

  // The stream road, in a window that every element here fits into and in the smallest one.
  static FileSystemManifestXml large;
  static FileSystemManifestXml small(256);
  for (FileSystemManifestXml* windowed : {&large, &small}) {
    std::string const window = windowed == &large ? "large window: " : "small window: ";
    Outcome streamed;
    bool const streamParsed = readStreaming(*windowed, xml, streamed);
    if (windowed == &large) {
      EXPECT_EQ(streamParsed, parsed) << xml;
    }
    EXPECT_EQ(streamed.error, reference.error) << window << xml;
    EXPECT_TRUE(streamed.shape == reference.shape) << window << xml;
  }
  return parsed;
}

struct Case {
  char const* what;
  std::string xml;
};

std::string caseName(::testing::TestParamInfo<Case> const& param) { return param.param.what; }

class ManifestFastReaderAcceptTest : public ::testing::TestWithParam<Case> {};

TEST_P(ManifestFastReaderAcceptTest, ReadsWithoutTheParserAsTheParserWould) {
  FileSystemManifestXml manifest;
  Outcome outcome;
  EXPECT_FALSE(readBothWays(manifest, GetParam().xml, outcome));
  EXPECT_EQ(outcome.error, "");
}

std::vector<Case> const kAccepted = {
    {"WriterForm", document(kEntry)},
    {"EmptyRoot", document("")},
    {"SelfClosedRoot",
     std::string(kDeclaration) + "<fileEntries xmlns=\"" + kNamespace + "\" " + kRoot + "/>"},
    {"NoDeclaration", document(kEntry, kRoot, "")},
    {"ShortDeclaration", document(kEntry, kRoot, "<?xml version='1.0'?>")},
    {"DeclarationWithoutStandalone",
     document(kEntry, kRoot, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n")},
    {"SingleQuotesAndSpaces",
     document("<fileEntry  name = '/a\"b' content='' type='Folder' ></fileEntry >\r\n\t",
              "createdByPlatform='p'\ncreatedByEncoding = 'e' version='2'")},
    {"PredefinedEntities",
     document(R"(<fileEntry name="/&lt;&gt;&amp;&quot;&apos;" content="/x" type="File"/>)")},
    {"CharacterReferences",
     document(
         R"(<fileEntry name="/&#65;&#x42;&#x00063;&#9;&#10;&#13;&#x1F600;" content="/c" type="File"/>)")},
    {"NonASCIINames",
     document("<fileEntry name=\"/\xC3\xA9t\xC3\xA9/\xE6\x97\xA5\xE6\x9C\xAC/\xF0\x9F\x98\x80\" "
              "content=\"/fsroot/\xC3\xA9\" type=\"File\"/>")},
    {"RunsOfTwoThreeAndFourByteCharacters",
     document("<fileEntry name=\"/\xD0\xBE\xD1\x82\xD1\x87\xD1\x91\xD1\x82_\xE4\xB8\xAD\xE6\x96\x87"
              "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD\xC3\xBC\xF0\x9F\x9A\x80\xE2\x98\x95"
              "\xC2\x80\xDF\xBF\" content=\"/fsroot/\xC3\xA9\xE2\x82\xAC\" type=\"File\"/>")},
    {"DeleteAndC1Controls",
     document("<fileEntry name=\"/\x7F\xC2\x80\xC2\x9F\xEF\xBB\xBF\xEF\xBF\xBD\" content=\"/x\" "
              "type=\"File\"/>")},
    {"Links", document(R"(<fileEntry name="/l" content="../a b/c" type="SymLink"/>)")},
    {"EmptyPermissionsAndDate",
     document(R"(<fileEntry name="/a" content="/x" type="File" permissions="" date=""/>)")},
    {"DatesOfEveryForm",
     document(R"(<fileEntry name="/a" content="/x" type="File" date="2020-02-29T23:59:59"/>
<fileEntry name="/b" content="/x" type="File" date="1999-12-31T00:00:00Z"/>
<fileEntry name="/c" content="/x" type="File" date="2021-06-30T12:00:00.123456789012Z"/>)")},
    {"LaterVersion",
     document(kEntry, R"(createdByEncoding="e" createdByPlatform="p" version="3.7")")},
    {"VersionOfTheOlderFormInTheCurrentNamespace",
     document(R"(<fileEntry name="a" content="/x" type="File" permissions="33188"/>)",
              R"(createdByEncoding="e" createdByPlatform="p" version="1.0")")},
    {"VersionWithZeros",
     document("", R"(createdByEncoding="" createdByPlatform="" version="02.00")")},
    {"MultiByteCharactersAtTheEdgesOfTheirForms",
     document("<fileEntry name=\"/\xC2\x80\xDF\xBF\xE0\xA0\x80\xE1\x80\x80\xEC\xBF\xBF\xED\x9F\xBF"
              "\xEE\x80\x80\xEF\xBF\xBD\xF0\x90\x80\x80\xF4\x8F\xBF\xBD\" content=\"/x\" "
              "type=\"File\"/>")},
    {"AttributesInTheWritersOrderAndInOthers",
     document(R"(<fileEntry content="/x" date="" name="/a" permissions="0644" type="File"/>
<fileEntry type="File" permissions="0644" name="/b" date="" content="/x"/>
<fileEntry content="/x" name="/c" type="SymLink"/>
<fileEntry name="/d" type="File" content="/x" date="2021-03-04T05:06:07Z"/>)",
              R"(version="2.0" createdByPlatform="p" createdByEncoding="e")")},
};

INSTANTIATE_TEST_SUITE_P(Documents, ManifestFastReaderAcceptTest, ::testing::ValuesIn(kAccepted),
                         caseName);

class ManifestFastReaderFallbackTest : public ::testing::TestWithParam<Case> {};

TEST_P(ManifestFastReaderFallbackTest, LeavesTheDocumentToTheParser) {
  FileSystemManifestXml manifest;
  Outcome outcome;
  EXPECT_TRUE(readBothWays(manifest, GetParam().xml, outcome));
}

std::string const kRootTag =
    std::string("<fileEntries xmlns=\"") + kNamespace + "\" " + kRoot + ">";

std::vector<Case> const kFallbacks = {
    {"Comment", document(std::string("<!-- c -->") + kEntry)},
    {"CommentBeforeTheRoot", document(kEntry, kRoot, std::string(kDeclaration) + "<!-- c -->")},
    {"ProcessingInstruction", document(std::string("<?pi x?>") + kEntry)},
    {"DocumentType", document(kEntry, kRoot, std::string(kDeclaration) + "<!DOCTYPE fileEntries>")},
    {"CDATAInAnEntry",
     document(R"(<fileEntry name="/a" content="/x" type="File"><![CDATA[x]]></fileEntry>)")},
    {"TextInAnEntry",
     document(R"(<fileEntry name="/a" content="/x" type="File">text</fileEntry>)")},
    {"TextAmongEntries", document(std::string("text") + kEntry)},
    {"ByteOrderMark", "\xEF\xBB\xBF" + document(kEntry)},
    {"SpaceBeforeTheDeclaration", " " + document(kEntry)},
    {"OtherEncoding", document("<fileEntry name=\"/\xE9\" content=\"\" type=\"Folder\"/>", kRoot,
                               "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>")},
    {"Version11", document(kEntry, kRoot, "<?xml version=\"1.1\"?>")},
    {"PrefixedRoot",
     std::string(kDeclaration) + "<m:fileEntries xmlns:m=\"" + kNamespace + "\" " + kRoot + "/>"},
    {"SecondNamespaceDeclaration", document(kEntry, std::string(kRoot) + R"( xmlns:x="urn:x")")},
    {"SchemaInstanceAttribute",
     document(kEntry,
              std::string(kRoot) +
                  R"( xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:type="x")")},
    {"RawTabInAValue", document("<fileEntry name=\"/a\tb\" content=\"/x\" type=\"File\"/>")},
    {"RawLineFeedInAValue", document("<fileEntry name=\"/a\nb\" content=\"/x\" type=\"File\"/>")},
    {"RawCarriageReturnLineFeed",
     document("<fileEntry name=\"/a\r\nb\" content=\"/x\" type=\"File\"/>")},
    {"LessThanInAValue", document(R"(<fileEntry name="/a<b" content="/x" type="File"/>)")},
    {"UnknownEntity", document(R"(<fileEntry name="/a&nbsp;" content="/x" type="File"/>)")},
    {"UpperCaseHexReference", document(R"(<fileEntry name="/&#X41;" content="/x" type="File"/>)")},
    {"LongReference", document(R"(<fileEntry name="/&#000000065;" content="/x" type="File"/>)")},
    {"ReferenceOfANonCharacter",
     document(R"(<fileEntry name="/&#xFFFE;" content="/x" type="File"/>)")},
    {"ReferenceBeyondUnicode",
     document(R"(<fileEntry name="/&#x110000;" content="/x" type="File"/>)")},
    {"OverlongUTF8", document("<fileEntry name=\"/\xC0\xAF\" content=\"/x\" type=\"File\"/>")},
    {"EncodedSurrogate",
     document("<fileEntry name=\"/\xED\xA0\x80\" content=\"/x\" type=\"File\"/>")},
    {"TruncatedUTF8", document("<fileEntry name=\"/\xE6\x97\" content=\"/x\" type=\"File\"/>")},
    {"RawNonCharacterAfterARun",
     document("<fileEntry name=\"/\xC3\xA9\xEF\xBF\xBE\" content=\"/x\" type=\"File\"/>")},
    {"OverlongThreeByteUTF8AfterARun",
     document("<fileEntry name=\"/\xE6\x97\xA5\xE0\x9F\xBF\" content=\"/x\" type=\"File\"/>")},
    {"RawNonCharacterFFFF",
     document("<fileEntry name=\"/a\xEF\xBF\xBF\" content=\"/x\" type=\"File\"/>")},
    {"TwoByteLeadBeforeAnAsciiByte",
     document("<fileEntry name=\"/\xC3\x41\" content=\"/x\" type=\"File\"/>")},
    {"ThreeByteLeadBeforeAnAsciiByte",
     document("<fileEntry name=\"/\xE6\x97\x41\" content=\"/x\" type=\"File\"/>")},
    {"ContinuationByteAfterARun",
     document("<fileEntry name=\"/\xC3\xA9\x80\" content=\"/x\" type=\"File\"/>")},
    {"TruncatedUTF8AfterARun",
     document("<fileEntry name=\"/\xC3\xA9\xE6\x97\" content=\"/x\" type=\"File\"/>")},
    {"ControlCharacter", document("<fileEntry name=\"/\x01\" content=\"/x\" type=\"File\"/>")},
    {"DateWithOffset",
     document(
         R"(<fileEntry name="/a" content="/x" type="File" date="2021-01-01T00:30:00+01:00"/>)")},
    {"DateAtTwentyFour",
     document(R"(<fileEntry name="/a" content="/x" type="File" date="2021-01-01T24:00:00"/>)")},
    {"DateOfADayThatIsNot",
     document(R"(<fileEntry name="/a" content="/x" type="File" date="2021-02-29T00:00:00"/>)")},
    {"DateOfYearZero",
     document(R"(<fileEntry name="/a" content="/x" type="File" date="0000-01-01T00:00:00"/>)")},
    {"DateOfFiveDigits",
     document(R"(<fileEntry name="/a" content="/x" type="File" date="12021-01-01T00:00:00"/>)")},
    {"DateWithSpaces",
     document(R"(<fileEntry name="/a" content="/x" type="File" date=" 2021-01-01T00:00:00"/>)")},
    {"DateWithoutTime",
     document(R"(<fileEntry name="/a" content="/x" type="File" date="2021-01-01"/>)")},
    {"TypeWithASpace", document(R"(<fileEntry name="/a" content="/x" type="File "/>)")},
    {"VersionWithSign",
     document("", R"(createdByEncoding="e" createdByPlatform="p" version="+2")")},
    {"VersionOfAFraction",
     document("", R"(createdByEncoding="e" createdByPlatform="p" version=".5")")},
    {"VersionWithSpace",
     document("", R"(createdByEncoding="e" createdByPlatform="p" version="2 ")")},
    {"VersionNotDecimal",
     document("", R"(createdByEncoding="e" createdByPlatform="p" version="2.0.1")")},
    {"MissingVersion", document(kEntry, R"(createdByEncoding="e" createdByPlatform="p")")},
    {"DuplicateAttribute",
     document(R"(<fileEntry name="/a" name="/b" content="/x" type="File"/>)")},
    {"AttributesWithoutSpace", document(R"(<fileEntry name="/a"content="/x" type="File"/>)")},
    {"MissingType", document(R"(<fileEntry name="/a" content="/x"/>)")},
    {"AttributeNameLongerThanAKnownOne",
     document(R"(<fileEntry contents="/x" name="/a" type="File"/>)")},
    {"AttributeNameShorterThanAKnownOne",
     document(R"(<fileEntry conten="/x" name="/a" type="File"/>)")},
    {"DuplicateAttributeInTheWritersOrder",
     document(R"(<fileEntry content="/x" content="/y" name="/a" type="File"/>)")},
    {"UnknownEntryAttribute",
     document(R"(<fileEntry name="/a" content="/x" type="File" size="1"/>)")},
    {"NestedEntry",
     document(
         R"(<fileEntry name="/a" content="/x" type="File"><fileEntry name="/b" content="" type="Folder"/></fileEntry>)")},
    {"WrongEndTag", document(R"(<fileEntry name="/a" content="/x" type="File"></fileEntries>)")},
    {"OlderForm",
     std::string(kDeclaration) + "<fileEntries xmlns=\"" + kNamespaceV1 +
         R"(" platform="p" encoding="e"><fileEntry name="a" content="/x" type="File"/></fileEntries>)"},
    {"OtherNamespace", std::string(kDeclaration) + "<fileEntries xmlns=\"urn:x\" " + kRoot + "/>"},
    {"Truncated", document(kEntry).substr(0, 200)},
    {"SecondRoot", document("") + kRootTag + "</fileEntries>"},
    {"NulAfterTheRoot", document("") + std::string(1, '\0')},
    {"Empty", ""},
};

INSTANTIATE_TEST_SUITE_P(Documents, ManifestFastReaderFallbackTest, ::testing::ValuesIn(kFallbacks),
                         caseName);

// The values that the grammar lets through and the reader refuses come in document order, with
// the entries before the bad one kept, as on the parser's road.
TEST(ManifestFastReaderTest, RefusesBadValuesWithoutTheParserAsTheParserWould) {
  FileSystemManifestXml manifest;
  Outcome outcome;
  EXPECT_FALSE(readBothWays(manifest, document(std::string(kEntry) + R"(
<fileEntry name="/b" content="/x" type="File" permissions="755"/>
<fileEntry name="/c" content="/x" type="File" permissions="0x"/>)"),
                            outcome));
  EXPECT_NE(outcome.error.find(": Permissions are not a valid octal value"), std::string::npos);

  FileSystemTree tree;
  MemoryInputStream source(document(std::string(kEntry) + R"(
<fileEntry name="/b" content="/x" type="File" date="1300-01-01T00:00:00"/>)"));
  EXPECT_THROW_MESSAGE(manifest.read(source, tree), InvalidPartContent,
                       "Last modified date/time is not valid");
  EXPECT_TRUE(tree.hasNode(u"/a"));
  EXPECT_FALSE(tree.hasNode(u"/b"));
  EXPECT_EQ(source.closes, 1);

  FileSystemTree again;
  MemoryInputStream twice(document(std::string(kEntry) + kEntry));
  EXPECT_THROW_MESSAGE(manifest.read(twice, again), opc::Exception,
                       "A node already exists with the name:/a");
  EXPECT_EQ(manifest.parserReads(), 0u);
}

// A bad value before a fault of the document: the document's fault is what is told, and the
// tree is as it was, on both roads.
TEST(ManifestFastReaderTest, LetsAFaultOfTheDocumentWinOverAnEarlierBadValue) {
  FileSystemManifestXml manifest;
  Outcome outcome;
  EXPECT_TRUE(readBothWays(
      manifest, document(R"(<fileEntry name="/b" content="/x" type="File" permissions="755"/>
<fileEntry name="/c" content="/x" type="Device"/>)"),
      outcome));
  EXPECT_NE(outcome.error.find("value 'Device' not in enumeration"), std::string::npos);
  EXPECT_TRUE(outcome.shape == manifestTreeShapeOf(FileSystemTree()));
}

TEST(ManifestFastReaderTest, TakesWhatTheWriterWritesWithoutTheParser) {
  FileSystemTree tree;
  tree.setPlatform(u"linux-x86-64");
  tree.setEncoding(u"UTF-8");
  boost::posix_time::ptime const date(boost::gregorian::date(2023, 4, 15),
                                      boost::posix_time::microseconds(80076095442));
  tree.addEntry(FileSystemNodeType::File, u"/d\u00E9j\u00E0/a & <b>.txt", u"/fsroot/x",
                opc::Perms::Perms_tag(0644), date);
  tree.addEntry(FileSystemNodeType::SymLink, u"/d\u00E9j\u00E0/l\"'", u"../a & <b>.txt",
                opc::Perms::Perms_tag(0777), boost::posix_time::not_a_date_time);
  tree.addEntry(FileSystemNodeType::Folder, u"/empty \U0001F600", u"", opc::Perms::Perms_tag(0),
                date);
  FileSystemManifestXml manifest;
  MemoryOutputStream target;
  manifest.write(tree, target);
  std::string const& written = target.bytes;

  FileSystemTree read;
  MemoryInputStream source(written);
  manifest.read(source, read);
  EXPECT_EQ(manifest.parserReads(), 0u);
  EXPECT_TRUE(manifestTreeShapeOf(read) == manifestTreeShapeOf(tree)) << written;
  EXPECT_EQ(source.opens, 1);
  EXPECT_EQ(source.closes, 1);
}

// A document too large to be held whole streams through the parser once, its first bytes
// from memory and the rest from the source, which is opened and closed once.
TEST(ManifestFastReaderTest, StreamsALargeDocumentThroughTheParserFromItsFirstByte) {
  std::string const longName(2000, 'n');
  std::string entries;
  for (int i = 0; i < 2200; ++i) {
    entries += R"(<fileEntry name="/)" + std::to_string(i) + longName +
               R"(" content="/x" type="File" permissions="0640"/>)" + "\n";
  }
  std::string const xml = document(entries);
  ASSERT_GT(xml.size(), 4u << 20);
  FileSystemManifestXml manifest;
  FileSystemTree tree;
  MemoryInputStream source(xml, 100000);
  manifest.read(source, tree);
  EXPECT_EQ(manifest.parserReads(), 1u);
  EXPECT_EQ(tree.leafNodes().size(), 2200u);
  EXPECT_EQ(*tree.findNode(u"/2199" + std::u16string(2000, u'n')).getPermissions(),
            opc::Perms::Perms_tag(0640));
  EXPECT_EQ(source.opens, 1);
  EXPECT_EQ(source.closes, 1);
}

TEST(ManifestFastReaderTest, LetsAFailureOfTheStreamPassThroughWithTheTreeUntouched) {
  FileSystemManifestXml manifest;
  FileSystemTree tree;
  MemoryInputStream source(document(kEntry), 16);
  source.failAfter(40);
  EXPECT_THROW_MESSAGE(manifest.read(source, tree), opc::Exception, "injected read failure");
  EXPECT_TRUE(tree.leafNodes().empty());
  EXPECT_EQ(tree.getVersion(), u"2.0");
  EXPECT_EQ(source.closes, 1);
  EXPECT_EQ(manifest.parserReads(), 0u);
}

}  // namespace
