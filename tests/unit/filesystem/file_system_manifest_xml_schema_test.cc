// The schemas of both forms, their caching, and documents that break them or attack the
// parser.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/schema_base.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_tree.h"
#include "filesystem/manifest_schemas.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartContent;
using opc::model::InvalidXMLSchema;
using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemTree;
using opcvk_test::MemoryInputStream;
namespace detail = opc::vkservices::detail;

constexpr char kNamespace[] = "http://schemas.opcvkservices.org/package/2013/filesystemManifest";
constexpr char kNamespaceV1[] =
    "http://schemas.opcvkservices.org/orvane/compiler/2011/fileManifest";
constexpr char kRoot[] = R"(createdByPlatform="p" createdByEncoding="e" version="2.0")";
constexpr char kRootV1[] = R"(platform="p" encoding="e")";
constexpr char kEntry[] = R"(<fileEntry name="/a" content="/fsroot/a" type="File"/>)";

// One line for the declaration, one for the root, the entries from line 3.
std::string document(std::string const& entries, std::string const& rootAttributes = kRoot,
                     std::string const& ns = kNamespace) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<fileEntries xmlns=\"" + ns + "\" " +
         rootAttributes + ">\n" + entries + "\n</fileEntries>\n";
}

std::string documentV1(std::string const& entries, std::string const& rootAttributes = kRootV1) {
  return document(entries, rootAttributes, kNamespaceV1);
}

TEST(FileSystemManifestXmlSchemaTest, SchemaBaseIsTheProjectsOwnPrefix) {
  static_assert(sizeof(opc::vkservices::SchemaBase) / sizeof(char16_t) == 33,
                "SchemaBase is usable in constant expressions");
  EXPECT_EQ(std::u16string(opc::vkservices::SchemaBase), u"http://schemas.opcvkservices.org");
}

TEST(FileSystemManifestXmlSchemaTest, NamesAreBuiltFromSchemaBase) {
  EXPECT_EQ(detail::kManifestNamespace.str(),
            u"http://schemas.opcvkservices.org/package/2013/filesystemManifest");
  EXPECT_EQ(detail::kManifestRelationshipType.str(),
            u"http://schemas.opcvkservices.org/package/2013/relationships/filesystemManifest");
  EXPECT_EQ(detail::kManifestNamespaceV1.str(),
            u"http://schemas.opcvkservices.org/orvane/compiler/2011/fileManifest");
  EXPECT_EQ(detail::kManifestRelationshipTypeV1.str(),
            u"http://schemas.opcvkservices.org/orvane/compiler/2011/relationships/fileManifest");
  EXPECT_EQ(std::u16string(detail::kManifestNamespace.c_str()), detail::kManifestNamespace.str());
}

TEST(FileSystemManifestXmlSchemaTest, JoinsASCIITextsOfAnyWidth) {
  constexpr auto joined = detail::joinASCII<char>(u"ab", "", U"c", "de");
  static_assert(joined.size() == 5, "four texts of 2, 0, 1 and 2 characters");
  EXPECT_EQ(joined.str(), "abcde");
  EXPECT_EQ(joined.c_str()[5], '\0');
}

TEST(FileSystemManifestXmlSchemaTest, SchemasAreStandaloneNoTextsOfTheirNamespace) {
  struct Case {
    std::string const& text;
    std::string ns;
  };
  for (Case const& c : {Case{detail::manifestSchemaText(), kNamespace},
                        Case{detail::manifestSchemaTextV1(), kNamespaceV1}}) {
    EXPECT_EQ(c.text.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>", 0), 0u);
    EXPECT_NE(c.text.find("targetNamespace=\"" + c.ns + "\""), std::string::npos);
    EXPECT_NE(c.text.find("xmlns=\"" + c.ns + "\""), std::string::npos);
    EXPECT_NE(c.text.find("elementFormDefault=\"qualified\""), std::string::npos);
    EXPECT_NE(c.text.find("attributeFormDefault=\"unqualified\""), std::string::npos);
    EXPECT_NE(c.text.find("blockDefault=\"#all\""), std::string::npos);
    EXPECT_EQ(c.text.find('\0'), std::string::npos);
  }
}

TEST(FileSystemManifestXmlSchemaTest, BothSchemasLoadIntoAFreshParser) {
  std::vector<opc::model::detail::XmlGrammar> const grammars = detail::manifestGrammars();
  ASSERT_EQ(grammars.size(), 2u);
  EXPECT_EQ(grammars[0].text, detail::manifestSchemaText());
  EXPECT_EQ(grammars[0].systemId, detail::kManifestSchemaId);
  EXPECT_EQ(grammars[1].text, detail::manifestSchemaTextV1());
  EXPECT_EQ(grammars[1].systemId, detail::kManifestSchemaIdV1);
  EXPECT_TRUE(detail::makeManifestReader({grammars[0]}) != nullptr);
  EXPECT_TRUE(detail::makeManifestReader({grammars[1]}) != nullptr);
  EXPECT_TRUE(detail::makeManifestReader(grammars) != nullptr);
}

TEST(FileSystemManifestXmlSchemaTest, ASchemaThatDoesNotLoadRaisesInvalidXMLSchema) {
  EXPECT_THROW_MESSAGE(detail::makeManifestReader({{"<xsd:schema", u"broken.xsd"}}),
                       InvalidXMLSchema,
                       "Schema could not be loaded: XML error in broken.xsd at line 1, column 12: "
                       "unexpected end of input");
  std::string const undefinedType =
      "<xsd:schema xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">\n"
      "<xsd:element name=\"a\" type=\"missingType\"/>\n"
      "</xsd:schema>\n";
  EXPECT_THROW_MESSAGE(detail::makeManifestReader({{undefinedType, u"types.xsd"}}),
                       InvalidXMLSchema,
                       "Schema could not be loaded: XML error in types.xsd at line 2, column 43: "
                       "type ':missingType' not found");
}

TEST(FileSystemManifestXmlSchemaTest, ConstructionMayBeRepeated) {
  for (int i = 0; i < 5; ++i) {
    FileSystemManifestXml manifest;
    FileSystemTree tree;
    MemoryInputStream source(document(kEntry));
    manifest.read(source, tree);
    EXPECT_TRUE(tree.hasNode(u"/a"));
  }
}

// One parser validates both forms, choosing the grammar by the namespace of the document.
TEST(FileSystemManifestXmlSchemaTest, OneObjectReadsBothFormsInTurn) {
  FileSystemManifestXml manifest;
  for (int i = 0; i < 3; ++i) {
    FileSystemTree current;
    MemoryInputStream currentSource(document(kEntry));
    manifest.read(currentSource, current);
    EXPECT_EQ(current.getVersion(), u"2.0");
    FileSystemTree older;
    MemoryInputStream olderSource(documentV1(kEntry));
    manifest.read(olderSource, older);
    EXPECT_EQ(older.getVersion(), u"1.0");
  }
}

struct Broken {
  char const* what;
  std::string xml;
  std::string message;
};

class FileSystemManifestXmlSchemaViolationTest : public ::testing::TestWithParam<Broken> {};

TEST_P(FileSystemManifestXmlSchemaViolationTest, IsRefusedWithTheParsersText) {
  FileSystemManifestXml manifest;
  FileSystemTree tree;
  MemoryInputStream source(GetParam().xml);
  EXPECT_THROW_MESSAGE(manifest.read(source, tree), InvalidPartContent, GetParam().message);
  EXPECT_TRUE(tree.leafNodes().empty());
  EXPECT_EQ(tree.getVersion(), u"2.0");  // nothing was read, not even the document strings
}

std::vector<Broken> const kBroken = {
    {"RootOfAnotherName",
     "<?xml version=\"1.0\"?>\n<entries xmlns=\"" + std::string(kNamespace) + "\" " + kRoot + "/>",
     "XML error at line 2, column 142: no declaration found for element 'entries'"},
    {"RootWithoutNamespace", "<?xml version=\"1.0\"?>\n<fileEntries " + std::string(kRoot) + "/>",
     "XML error at line 2, column 73: no declaration found for element 'fileEntries'"},
    {"RootOfUnknownNamespace", document(kEntry, kRoot, "urn:other"),
     "XML error at line 2, column 90: no declaration found for element 'fileEntries'"},
    {"MissingPlatform", document(kEntry, R"(createdByEncoding="e" version="2.0")"),
     "XML error at line 2, column 123: missing required attribute 'createdByPlatform'"},
    {"MissingEncoding", document(kEntry, R"(createdByPlatform="p" version="2.0")"),
     "XML error at line 2, column 123: missing required attribute 'createdByEncoding'"},
    {"MissingVersion", document(kEntry, R"(createdByPlatform="p" createdByEncoding="e")"),
     "XML error at line 2, column 131: missing required attribute 'version'"},
    {"VersionNotDecimal",
     document(kEntry, R"(createdByPlatform="p" createdByEncoding="e" version="2.0.1")"),
     "XML error at line 2, column 147: more than one decimal point encountered"},
    {"UnknownRootAttribute", document(kEntry, std::string(kRoot) + R"( extra="x")"),
     "XML error at line 2, column 155: attribute 'extra' is not declared for element "
     "'fileEntries'"},
    {"OlderRootAttributesInCurrentForm", document(kEntry, std::string(kRoot) + R"( platform="p")"),
     "XML error at line 2, column 158: attribute 'platform' is not declared for element "
     "'fileEntries'"},
    {"MissingName", document(R"(<fileEntry content="/fsroot/a" type="File"/>)"),
     "XML error at line 3, column 45: missing required attribute 'name'"},
    {"MissingContent", document(R"(<fileEntry name="/a" type="File"/>)"),
     "XML error at line 3, column 35: missing required attribute 'content'"},
    {"MissingType", document(R"(<fileEntry name="/a" content="/fsroot/a"/>)"),
     "XML error at line 3, column 43: missing required attribute 'type'"},
    {"TypeInLowerCase", document(R"(<fileEntry name="/a" content="/fsroot/a" type="file"/>)"),
     "XML error at line 3, column 55: value 'file' not in enumeration"},
    {"UnknownType", document(R"(<fileEntry name="/a" content="/fsroot/a" type="Device"/>)"),
     "XML error at line 3, column 57: value 'Device' not in enumeration"},
    {"DateWithoutTime",
     document(R"(<fileEntry name="/a" content="/fsroot/a" type="File" date="2021-01-01"/>)"),
     "XML error at line 3, column 73: value '2021-01-01' does not match any member types of the "
     "union"},
    {"DateInWords",
     document(R"(<fileEntry name="/a" content="/fsroot/a" type="File" date="yesterday"/>)"),
     "XML error at line 3, column 72: value 'yesterday' does not match any member types of the "
     "union"},
    {"UnknownEntryAttribute",
     document(R"(<fileEntry name="/a" content="/fsroot/a" type="File" size="3"/>)"),
     "XML error at line 3, column 64: attribute 'size' is not declared for element 'fileEntry'"},
    {"ElementInsideAnEntry",
     document(
         R"(<fileEntry name="/a" content="/fsroot/a" type="File"><fileEntry name="/b" content="" type="Folder"/></fileEntry>)"),
     "XML error at line 3, column 101: no declaration found for element 'fileEntry'"},
    {"OtherElementAmongEntries", document(std::string(kEntry) + "<folder/>"),
     "XML error at line 3, column 64: no declaration found for element 'folder'"},
    {"EntryWithoutNamespace",
     document(R"(<fileEntry xmlns="" name="/a" content="/fsroot/a" type="File"/>)"),
     "XML error at line 3, column 64: element 'fileEntry' must be qualified"},
    {"EntryOfTheOlderNamespace",
     document(R"(<v1:fileEntry xmlns:v1=")" + std::string(kNamespaceV1) +
              R"(" name="/a" content="/fsroot/a" type="File"/>)"),
     "XML error at line 3, column 136: no declaration found for element 'v1:fileEntry'"},
    {"OlderFormWithVersion", documentV1(kEntry, std::string(kRootV1) + R"( version="1.0")"),
     "XML error at line 2, column 129: attribute 'version' is not declared for element "
     "'fileEntries'"},
    {"OlderFormWithCurrentRootAttributes",
     documentV1(kEntry, R"(createdByPlatform="p" createdByEncoding="e")"),
     "XML error at line 2, column 133: attribute 'createdByPlatform' is not declared for element "
     "'fileEntries'"},
    {"OlderFormMissingPlatform", documentV1(kEntry, R"(encoding="e")"),
     "XML error at line 2, column 102: missing required attribute 'platform'"},
    {"OlderFormMissingEncoding", documentV1(kEntry, R"(platform="p")"),
     "XML error at line 2, column 102: missing required attribute 'encoding'"},
    {"OlderFormContentNotAURI",
     documentV1(R"(<fileEntry name="/a" content="http://[bad" type="File"/>)"),
     "XML error at line 3, column 57: value 'http://[bad' is invalid anyURI"},
    {"Empty", "", "XML error at line 1, column 1: invalid document structure"},
    {"NotXML", "this is not XML", "XML error at line 1, column 1: invalid document structure"},
    {"Truncated", document(kEntry).substr(0, 120),
     "XML error at line 2, column 82: unexpected end of input"},
    {"TwoRoots", document("") + "<fileEntries/>",
     "XML error at line 5, column 1: comment or processing instruction expected"},
    {"NotUTF8",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<fileEntries xmlns=\"" + std::string(kNamespace) +
         "\" " + kRoot +
         ">\n<fileEntry name=\"/\xff\" content=\"\" type=\"Folder\"/></fileEntries>",
     "XML error at line 1, column 39: invalid byte '?' at position 1 of a 6-byte sequence"},
    {"ControlCharacterReference",
     document(R"(<fileEntry name="/a&#1;" content="/fsroot/a" type="File"/>)"),
     "XML error at line 3, column 24: invalid character reference"},
};

INSTANTIATE_TEST_SUITE_P(Documents, FileSystemManifestXmlSchemaViolationTest,
                         ::testing::ValuesIn(kBroken),
                         [](::testing::TestParamInfo<Broken> const& param) {
                           return std::string(param.param.what);
                         });

}  // namespace
