// Manifests made to attack the reader: each is refused cleanly, or read within bounds.
#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/xml/xml_exceptions.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_tree.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartContent;
using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemTree;
using opcvk_test::MemoryInputStream;

constexpr char kNamespace[] = "http://schemas.opcvkservices.org/package/2013/filesystemManifest";
constexpr char kRoot[] = R"(createdByPlatform="p" createdByEncoding="e" version="2.0")";
constexpr std::size_t kHuge = 8 * 1024 * 1024;

std::string document(std::string const& entries, std::string const& prolog = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + prolog + "<fileEntries xmlns=\"" +
         std::string(kNamespace) + "\" " + kRoot + ">\n" + entries + "\n</fileEntries>\n";
}

class FileSystemManifestXmlHostileTest : public ::testing::Test {
 protected:
  void read(std::string const& xml) {
    MemoryInputStream source(xml, 64 * 1024);
    manifest_.read(source, tree_);
  }

  FileSystemManifestXml manifest_;
  FileSystemTree tree_;
};

TEST_F(FileSystemManifestXmlHostileTest, RefusesADocumentTypeDeclaration) {
  EXPECT_THROW_MESSAGE(read(document("", "<!DOCTYPE fileEntries>\n")), InvalidPartContent,
                       "XML error at line 2, column 10: invalid document structure");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesEntityExpansion) {
  std::string prolog = "<!DOCTYPE fileEntries [\n<!ENTITY a0 \"lol\">\n";
  for (int i = 1; i < 10; ++i) {
    std::string const previous = "&a" + std::to_string(i - 1) + ";";
    std::string expansion;
    for (int j = 0; j < 10; ++j) expansion += previous;
    prolog += "<!ENTITY a" + std::to_string(i) + " \"" + expansion + "\">\n";
  }
  prolog += "]>\n";
  EXPECT_THROW_MESSAGE(
      read(document(R"(<fileEntry name="/&a9;" content="" type="Folder"/>)", prolog)),
      InvalidPartContent, "XML error at line 2, column 10: invalid document structure");
  EXPECT_TRUE(tree_.leafNodes().empty());
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesAnExternalEntity) {
  EXPECT_THROW_MESSAGE(
      read(document(R"(<fileEntry name="/&x;" content="" type="Folder"/>)",
                    "<!DOCTYPE fileEntries [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>\n")),
      InvalidPartContent, "XML error at line 2, column 10: invalid document structure");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesAnUndeclaredEntity) {
  EXPECT_THROW_MESSAGE(read(document(R"(<fileEntry name="/&x;" content="" type="Folder"/>)")),
                       InvalidPartContent, "XML error at line 3, column 22: entity 'x' not found");
}

// A document cannot bring a grammar of its own: the cached one decides.
TEST_F(FileSystemManifestXmlHostileTest, IgnoresASchemaLocationOfTheDocument) {
  std::string const xml =
      "<?xml version=\"1.0\"?>\n<fileEntries xmlns=\"" + std::string(kNamespace) +
      "\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\"" +
      kNamespace + " file:///nonexistent/permissive.xsd\" " + kRoot +
      ">\n<fileEntry name=\"/a\" content=\"\" type=\"Folder\" extra=\"1\"/>\n</fileEntries>";
  EXPECT_THROW_MESSAGE(
      read(xml), InvalidPartContent,
      "XML error at line 3, column 58: attribute 'extra' is not declared for element 'fileEntry'");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesATypeSubstitution) {
  EXPECT_THROW_MESSAGE(
      read(document(
          R"(<fileEntry xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xsi:type="xsd:anyType" name="/a" content="" type="Folder"><x/></fileEntry>)")),
      InvalidPartContent,
      "XML error at line 3, column 169: type 'xsd:anyType' specified in 'xsi:type' cannot be "
      "resolved");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesDeepNestingWithoutExhaustingTheStack) {
  std::string nested;
  for (int i = 0; i < 100000; ++i) nested += "<fileEntry>";
  EXPECT_THROW_MESSAGE(read(document(nested)), InvalidPartContent,
                       "XML error at line 3, column 12: missing required attribute 'name'");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesANullCharacter) {
  std::string xml = document(R"(<fileEntry name="/a" content="" type="Folder"/>)");
  xml[xml.find("/a") + 1] = '\0';
  EXPECT_THROW_MESSAGE(read(xml), InvalidPartContent,
                       "XML error at line 3, column 20: unexpected end of input");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesAHugeNameInBoundedTime) {
  std::string const name = "/" + std::string(kHuge, 'n');
  auto const start = std::chrono::steady_clock::now();
  EXPECT_THROW_MESSAGE(
      read(document("<fileEntry name=\"" + name + "\" content=\"/fsroot/a\" type=\"File\"/>")),
      opc::Exception,
      "A node name of 8388609 characters is longer than the limit of 32767:/" +
          std::string(63, 'n') + "...");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_TRUE(tree_.leafNodes().empty());
}

// Every folder of a path is a node, whose path a listing spells out: a name of 100,000 levels
// in 200,000 bytes would ask for 10^10 units of paths; it is longer than any path can be.
TEST_F(FileSystemManifestXmlHostileTest, RefusesANameOfAHundredThousandLevels) {
  std::string name;
  for (int i = 0; i < 100000; ++i) name += "/d";
  std::string shown;
  for (int i = 0; i < 32; ++i) shown += "/d";
  EXPECT_THROW_MESSAGE(
      read(document("<fileEntry name=\"/a\" content=\"\" type=\"Folder\"/>\n<fileEntry name=\"" +
                    name + "\" content=\"\" type=\"Folder\"/>")),
      opc::Exception,
      "A node name of 200000 characters is longer than the limit of 32767:" + shown + "...");
  // The entries before the refused one stay, as with any refused entry.
  EXPECT_EQ(tree_.leafNodes().size(), 1u);
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesANameDeeperThanTheLimit) {
  std::string name;
  for (int i = 0; i < 2049; ++i) name += "/d";
  std::string shown;
  for (int i = 0; i < 32; ++i) shown += "/d";
  EXPECT_THROW_MESSAGE(
      read(document("<fileEntry name=\"" + name + "\" content=\"\" type=\"Folder\"/>")),
      opc::Exception,
      "A node name of 2049 levels is deeper than the limit of 2048:" + shown + "...");
  EXPECT_TRUE(tree_.leafNodes().empty());
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesAHugeRelativeName) {
  try {
    read(document("<fileEntry name=\"" + std::string(kHuge, 'n') +
                  "\" content=\"/fsroot/a\" type=\"File\"/>"));
    ADD_FAILURE() << "a relative name was accepted";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(std::string(e.what()).rfind("A node name must begin with \"/\":nnnn", 0), 0u);
  }
  EXPECT_TRUE(tree_.leafNodes().empty());
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesHugePermissions) {
  EXPECT_THROW_MESSAGE(read(document("<fileEntry name=\"/a\" content=\"\" type=\"Folder\" "
                                     "permissions=\"0" +
                                     std::string(kHuge, '7') + "\"/>")),
                       InvalidPartContent, "Permissions are not valid value");
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesAHugeDate) {
  EXPECT_THROW(read(document("<fileEntry name=\"/a\" content=\"\" type=\"Folder\" date=\"" +
                             std::string(kHuge, '9') + "-01-01T00:00:00Z\"/>")),
               InvalidPartContent);
}

TEST_F(FileSystemManifestXmlHostileTest, RefusesAHugeUnknownAttribute) {
  EXPECT_THROW_MESSAGE(
      read(document("<fileEntry name=\"/a\" content=\"\" type=\"Folder\" x=\"" +
                    std::string(kHuge, 'x') + "\"/>")),
      InvalidPartContent,
      "XML error at line 3, column 8388661: attribute 'x' is not declared for element 'fileEntry'");
}

TEST_F(FileSystemManifestXmlHostileTest, ReadsCommentsProcessingInstructionsAndCDATA) {
  read(
      document("<!-- c --><?pi data?><fileEntry name=\"/a\" content=\"/fsroot/a\" "
               "type=\"File\"><![CDATA[<not markup>]]></fileEntry><!-- d -->",
               "<!-- before -->\n"));
  EXPECT_TRUE(tree_.hasNode(u"/a"));
}

}  // namespace
