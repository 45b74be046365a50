// The XML library is loaded only when a document needs the parser, and a failure to load it
// is told.  The cases run in the order written when the program runs them together: those
// that must not load it come first.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/package.h>
#include <opc/model/xml/xerces_retainer.h>

#include "support/process_maps.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"
#include "xml_engine/xml_engine.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::Bytes;

using opcvk_test::isMapped;
using opcvk_test::rerunWithLibraryCopies;
using opcvk_test::xmlLibraryLoaded;

// The child of LoadFailureNamesTheLibraryAndTheLoadersReason, started as this program with
// the variable set, runs before any test: it asks for the engine where the XML library
// cannot be found, writes the message to the file that the variable names, and ends.
constexpr char kChildVariable[] = "OPCVK_TEST_XML_LOAD_FAILURE_OUT";

int runAsChild() {
  char const* out = std::getenv(kChildVariable);
  if (out == nullptr) return 0;
  {
    std::ofstream text(out);
    try {
      detail::xmlEngine();
      text << "loaded";
    } catch (opc::Exception const& e) {
      text << e.what();
    }
  }
  std::_Exit(0);
}

int const kRunAsChild = runAsChild();

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

TEST(XmlLibraryLoadingTest, PackageIsSavedAndReadAgainWithoutTheXmlLibrary) {
  ASSERT_FALSE(xmlLibraryLoaded());
  auto created = Package::openBuffer({}, PackageAccess::Create);
  interfaces::StandardPartInfo const info(interfaces::CompressionType::DeflateMetadata, 0);
  Part part = created->createPart(PartName(u"/docs/a.txt"), ContentType(u"text/x-special"), info);
  created->createPart(PartName(u"/b.txt"), ContentType(u"text/plain"), info);
  created->createInternalRelationship(u"http://example.com/rel/main", URI(u"/docs/a.txt"), u"r1");
  part.createInternalRelationship(u"http://example.com/rel/next", URI(u"/b.txt"), u"n1");
  created->save();
  expectReadAsWritten(created->getBuffer());
  EXPECT_FALSE(xmlLibraryLoaded());
}

TEST(XmlLibraryLoadingTest, DocumentThatNeedsTheParserLoadsItAndReadsTheSame) {
  // A comment and line breaks of CRLF: the strict reader leaves the document to the parser.
  expectReadAsWritten(package(types("<!-- not plain -->\r\n")));
  EXPECT_TRUE(isMapped("libopcmodel_xml"));
  EXPECT_TRUE(isMapped("libxerces-c"));
}

TEST(XmlLibraryLoadingTest, LoadFailureNamesTheLibraryAndTheLoadersReason) {
  // libopcmodel copied alone into a folder that the loader searches first: the XML library
  // is neither beside it nor anywhere the loader looks.
  opcvk_test::TempDir folder;
  std::filesystem::path const where(folder.path());
  std::string const out = (where / "message.txt").string();
  ASSERT_EQ("", rerunWithLibraryCopies(where.string(), {"libopcmodel.so.", "libopccore.so."},
                                       kChildVariable, out));
  std::ifstream text(out);
  std::string message;
  std::getline(text, message);
  EXPECT_EQ(
      "The XML library libopcmodel_xml.so.1 could not be loaded: libopcmodel_xml.so.1: cannot "
      "open shared object file: No such file or directory",
      message);
}

TEST(XmlLibraryLoadingTest, EngineIsLoadedOnceForTheProcess) {
  detail::XmlEngine& engine = detail::xmlEngine();
  EXPECT_EQ(&engine, &detail::xmlEngine());
  EXPECT_TRUE(isMapped("libopcmodel_xml"));
}

}  // namespace
}  // namespace model
}  // namespace opc
