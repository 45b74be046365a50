// The XML library is loaded only when a document needs the parser.  The cases run in the
// order written when the program runs them together: those that must not load it come first.
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <opc/model/package.h>
#include <opc/model/xml/xerces_retainer.h>

#include "unit/model/package_test_support.h"
#include "xml_engine/xml_engine.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::Bytes;

// Whether a file of the process's mappings has that name in its path.
bool mapped(std::string const& name) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    if (line.find(name) != std::string::npos) return true;
  }
  return false;
}

bool xmlLibraryLoaded() { return mapped("libopcmodel_xml") || mapped("libxerces-c"); }

std::string const kTypesNamespace = "http://schemas.openxmlformats.org/package/2006/content-types";
std::string const kRelationshipType = "http://example.com/rel/main";

std::string types(std::string const& between) {
  return "<Types xmlns=\"" + kTypesNamespace + "\">" + between +
         "<Default Extension=\"rels\" "
         "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
         "<Default Extension=\"txt\" ContentType=\"text/plain\"/>"
         "<Override PartName=\"/docs/a.txt\" ContentType=\"text/x-special\"/>"
         "</Types>";
}

Bytes package(std::string const& typesXml) {
  return opcvk_test::makeZip(
      {{"[Content_Types].xml", typesXml},
       {"_rels/.rels",
        opcvk_test::relationshipsXml("<Relationship Id=\"r1\" Type=\"" + kRelationshipType +
                                     "\" Target=\"/docs/a.txt\"/>")},
       {"docs/a.txt", "alpha"},
       {"b.txt", "beta"}});
}

// What a reader of the package sees of its content types and relationships.
void expectReadAsWritten(Bytes const& bytes) {
  auto const opened = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_EQ(ContentType(u"text/x-special"),
            opened->getPart(PartName(u"/docs/a.txt")).getContentType());
  EXPECT_EQ(ContentType(u"text/plain"), opened->getPart(PartName(u"/b.txt")).getContentType());
  auto const relationships =
      opened->getRelationshipsByType(u"http://example.com/rel/main").getEntries();
  ASSERT_EQ(1u, relationships.size());
  EXPECT_EQ(u"r1", relationships[0].getID());
  EXPECT_EQ(u"/docs/a.txt", relationships[0].getTargetURI().toString());
}

TEST(XmlLibraryLoadingTest, ARetainerAloneLoadsNothing) {
  ASSERT_FALSE(xmlLibraryLoaded());
  { XercesRetainer retainer; }
  EXPECT_FALSE(xmlLibraryLoaded());
}

TEST(XmlLibraryLoadingTest, PlainPackageIsReadWithoutTheXmlLibrary) {
  ASSERT_FALSE(xmlLibraryLoaded());
  expectReadAsWritten(package(types("")));
  EXPECT_FALSE(xmlLibraryLoaded());
}

TEST(XmlLibraryLoadingTest, DocumentThatNeedsTheParserLoadsItAndReadsTheSame) {
  // A comment and line breaks of CRLF: the strict reader leaves the document to the parser.
  expectReadAsWritten(package(types("<!-- not plain -->\r\n")));
  EXPECT_TRUE(mapped("libopcmodel_xml"));
  EXPECT_TRUE(mapped("libxerces-c"));
}

TEST(XmlLibraryLoadingTest, EngineIsLoadedOnceForTheProcess) {
  detail::XmlEngine& engine = detail::xmlEngine();
  EXPECT_EQ(&engine, &detail::xmlEngine());
  EXPECT_TRUE(mapped("libopcmodel_xml"));
}

}  // namespace
}  // namespace model
}  // namespace opc
