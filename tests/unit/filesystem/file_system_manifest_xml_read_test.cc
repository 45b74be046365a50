// Reading manifests of both forms: what lands in the tree, and how bad values are refused.
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_io.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/optional/optional_io.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/xml/xml_exceptions.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using boost::posix_time::ptime;
using opc::model::InvalidPartContent;
using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;
using opc::vkservices::FileSystemTree;
using opcvk_test::MemoryInputStream;

constexpr char kNamespace[] = "http://schemas.opcvkservices.org/package/2013/filesystemManifest";
constexpr char kNamespaceV1[] =
    "http://schemas.opcvkservices.org/orvane/compiler/2011/fileManifest";
constexpr char kRoot[] =
    R"(createdByPlatform="linux-x86-64" createdByEncoding="UTF-8" version="2.0")";
constexpr char kRootV1[] = R"(platform="win64" encoding="windows-1252")";

std::string document(std::string const& entries, std::string const& rootAttributes = kRoot,
                     std::string const& ns = kNamespace) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<fileEntries xmlns=\"" +
         ns + "\" " + rootAttributes + ">\n" + entries + "</fileEntries>\n";
}

std::string documentV1(std::string const& entries, std::string const& rootAttributes = kRootV1) {
  return document(entries, rootAttributes, kNamespaceV1);
}

std::vector<std::u16string> leafPaths(FileSystemTree const& tree) {
  std::vector<std::u16string> paths;
  for (FileSystemNode const& node : tree.leafNodes()) paths.push_back(node.getPathName());
  return paths;
}

ptime at(int year, int month, int day, int seconds) {
  return ptime(boost::gregorian::date(year, month, day), boost::posix_time::seconds(seconds));
}

class FileSystemManifestXmlReadTest : public ::testing::Test {
 protected:
  void read(std::string const& xml) {
    MemoryInputStream source(xml);
    manifest_.read(source, tree_);
  }

  FileSystemManifestXml manifest_;
  FileSystemTree tree_;
};

TEST_F(FileSystemManifestXmlReadTest, ReadsTheDocumentStrings) {
  read(document("", R"(createdByPlatform="win64" createdByEncoding="windows-1252" version="2.0")"));
  EXPECT_EQ(tree_.getPlatform(), u"win64");
  EXPECT_EQ(tree_.getEncoding(), u"windows-1252");
  EXPECT_EQ(tree_.getVersion(), u"2.0");
  EXPECT_TRUE(tree_.leafNodes().empty());
  EXPECT_TRUE(tree_.hasNode(u"/"));
}

TEST_F(FileSystemManifestXmlReadTest, ReadsFilesLinksAndFoldersWithTheirValues) {
  read(document(
      R"(<fileEntry name="/docs/a.txt" content="/fsroot/docs/a.txt" type="File" permissions="0644" date="2021-03-04T05:06:07Z"/>
<fileEntry name="/docs/link" content="../a.txt" type="SymLink" permissions="0777"/>
<fileEntry name="/empty" content="" type="Folder" permissions="0700" date="2000-01-01T00:00:00.5Z"/>
)"));
  EXPECT_EQ(leafPaths(tree_),
            (std::vector<std::u16string>{u"/docs/a.txt", u"/docs/link", u"/empty"}));

  FileSystemNode const file = tree_.findNode(u"/docs/a.txt");
  EXPECT_EQ(file.getType(), FileSystemNodeType::File);
  EXPECT_EQ(file.getContentName(), u"/fsroot/docs/a.txt");
  EXPECT_EQ(file.getPermissions(), boost::make_optional(opc::Perms::Perms_tag(0644)));
  EXPECT_EQ(file.getLastModifiedTime(),
            boost::make_optional(at(2021, 3, 4, 5 * 3600 + 6 * 60 + 7)));

  FileSystemNode const link = tree_.findNode(u"/docs/link");
  EXPECT_EQ(link.getType(), FileSystemNodeType::SymLink);
  EXPECT_EQ(link.getContentName(), u"../a.txt");
  EXPECT_EQ(link.getPermissions(), boost::make_optional(opc::Perms::Perms_tag(0777)));
  EXPECT_FALSE(link.getLastModifiedTime());

  FileSystemNode const folder = tree_.findNode(u"/empty");
  EXPECT_EQ(folder.getType(), FileSystemNodeType::Folder);
  EXPECT_EQ(folder.getContentName(), u"/empty");
  EXPECT_EQ(folder.getPermissions(), boost::make_optional(opc::Perms::Perms_tag(0700)));
  EXPECT_EQ(folder.getLastModifiedTime(),
            boost::make_optional(at(2000, 1, 1, 0) + boost::posix_time::milliseconds(500)));
}

TEST_F(FileSystemManifestXmlReadTest, MakesMissingParentsAsFoldersWithoutPermissionsOrDate) {
  read(document(
      R"(<fileEntry name="/a/b/c.txt" content="/fsroot/c" type="File" permissions="0600" date="2021-03-04T05:06:07Z"/>
)"));
  for (char16_t const* path : {u"/a", u"/a/b"}) {
    ASSERT_TRUE(tree_.hasNode(path));
    FileSystemNode const folder = tree_.findNode(path);
    EXPECT_EQ(folder.getType(), FileSystemNodeType::Folder);
    EXPECT_FALSE(folder.getPermissions());
    EXPECT_FALSE(folder.getLastModifiedTime());
  }
  EXPECT_EQ(tree_.childNodes(u"/a").size(), 1u);
}

TEST_F(FileSystemManifestXmlReadTest, KeepsTheOrderOfTheDocumentAmongSiblings) {
  read(document(R"(<fileEntry name="/b" content="/fsroot/b" type="File"/>
<fileEntry name="/a" content="/fsroot/a" type="File"/>
<fileEntry name="/C" content="/fsroot/C" type="File"/>
)"));
  std::vector<std::u16string> children;
  for (FileSystemNode const& node : tree_.childNodes(u"/")) children.push_back(node.getPathName());
  EXPECT_EQ(children, (std::vector<std::u16string>{u"/b", u"/a", u"/C"}));
}

TEST_F(FileSystemManifestXmlReadTest, IgnoresTheContentOfAFolder) {
  read(document(R"(<fileEntry name="/f" content="/fsroot/something" type="Folder"/>
)"));
  EXPECT_EQ(tree_.findNode(u"/f").getContentName(), u"/f");
}

TEST_F(FileSystemManifestXmlReadTest, ReadsAFolderNamedWithTwoLeadingSlashesUnderTheRoot) {
  read(document(R"(<fileEntry name="//f" content="" type="Folder" permissions="0755"/>
)"));
  FileSystemNode const folder = tree_.findNode(u"/f");
  EXPECT_EQ(folder.getPathName(), u"/f");
  EXPECT_EQ(folder.getContentName(), u"/f");
}

TEST_F(FileSystemManifestXmlReadTest, ReadsEmptyOrMissingPermissionsAndDateAsUnknown) {
  read(document(R"(<fileEntry name="/empty" content="/fsroot/1" type="File" permissions="" date=""/>
<fileEntry name="/missing" content="/fsroot/2" type="File"/>
)"));
  for (char16_t const* path : {u"/empty", u"/missing"}) {
    FileSystemNode const node = tree_.findNode(path);
    EXPECT_FALSE(node.getPermissions());
    EXPECT_FALSE(node.getLastModifiedTime());
  }
}

TEST_F(FileSystemManifestXmlReadTest, ReadsEveryLexicalFormOfADate) {
  read(document(
      R"(<fileEntry name="/zone" content="/fsroot/1" type="File" date="2021-03-04T07:06:07+02:00"/>
<fileEntry name="/nozone" content="/fsroot/2" type="File" date="2021-03-04T05:06:07"/>
<fileEntry name="/micro" content="/fsroot/3" type="File" date="2021-03-04T05:06:07.123456Z"/>
<fileEntry name="/blank" content="/fsroot/4" type="File" date=" 2021-03-04T05:06:07Z "/>
)"));
  ptime const base = at(2021, 3, 4, 5 * 3600 + 6 * 60 + 7);
  EXPECT_EQ(*tree_.findNode(u"/zone").getLastModifiedTime(), base);
  EXPECT_EQ(*tree_.findNode(u"/nozone").getLastModifiedTime(), base);
  EXPECT_EQ(*tree_.findNode(u"/micro").getLastModifiedTime(),
            base + boost::posix_time::microseconds(123456));
  EXPECT_EQ(*tree_.findNode(u"/blank").getLastModifiedTime(), base);
}

TEST_F(FileSystemManifestXmlReadTest, IgnoresTheTextOfAnEntry) {
  read(document(R"(<fileEntry name="/a" content="/fsroot/a" type="File">some text</fileEntry>
)"));
  EXPECT_EQ(tree_.findNode(u"/a").getContentName(), u"/fsroot/a");
}

TEST_F(FileSystemManifestXmlReadTest, ReadsNamesWithCharacterAndEntityReferences) {
  read(document(
      R"(<fileEntry name="/&lt;&amp;&gt;&quot;&apos;/&#xFC;ber/&#x1F600;.txt" content="/fsroot/%C3%BC" type="File"/>
<fileEntry name="/日本/ü" content="ziel" type="SymLink"/>
)"));
  EXPECT_TRUE(tree_.hasNode(u"/<&>\"'/\u00FCber/\U0001F600.txt"));
  EXPECT_EQ(tree_.findNode(u"/\u65E5\u672C/\u00FC").getContentName(), u"ziel");
}

TEST_F(FileSystemManifestXmlReadTest, RefusesPermissionsWithoutLeadingZeroAndKeepsWhatWasRead) {
  EXPECT_THROW_MESSAGE(
      read(document(R"(<fileEntry name="/first" content="/fsroot/1" type="File" permissions="0644"/>
<fileEntry name="/second" content="/fsroot/2" type="File" permissions="755"/>
<fileEntry name="/third" content="/fsroot/3" type="File"/>
)")),
      InvalidPartContent, "Permissions are not a valid octal value");
  EXPECT_EQ(leafPaths(tree_), (std::vector<std::u16string>{u"/first"}));
}

TEST_F(FileSystemManifestXmlReadTest, RefusesPermissionsBeyondSixteenBits) {
  EXPECT_THROW_MESSAGE(
      read(document(R"(<fileEntry name="/a" content="/fsroot/1" type="File" permissions="0377777"/>
)")),
      InvalidPartContent, "Permissions are not valid value");
}

TEST_F(FileSystemManifestXmlReadTest, RefusesADateOutsideTheRangeOfTimes) {
  EXPECT_THROW_MESSAGE(
      read(document(
          R"(<fileEntry name="/a" content="/fsroot/1" type="File" date="2021-01-01T00:00:00Z"/>
<fileEntry name="/b" content="/fsroot/2" type="File" date="0001-01-01T00:00:00Z"/>
)")),
      InvalidPartContent, "Last modified date/time is not valid");
  EXPECT_EQ(leafPaths(tree_), (std::vector<std::u16string>{u"/a"}));
}

TEST_F(FileSystemManifestXmlReadTest, ReadsALaterVersionByTheRulesOfTheCurrentForm) {
  read(document(R"(<fileEntry name="/a" content="/fsroot/a" type="File" permissions="0640"/>
)",
                R"(createdByPlatform="p" createdByEncoding="e" version="3.7")"));
  EXPECT_EQ(tree_.getVersion(), u"3.7");
  EXPECT_EQ(tree_.getPlatform(), u"p");
  EXPECT_EQ(*tree_.findNode(u"/a").getPermissions(), opc::Perms::Perms_tag(0640));
}

TEST_F(FileSystemManifestXmlReadTest, KeepsTheVersionTextAsWritten) {
  read(document("", R"(createdByPlatform="p" createdByEncoding="e" version="02.00")"));
  EXPECT_EQ(tree_.getVersion(), u"02.00");
}

TEST_F(FileSystemManifestXmlReadTest, RefusesTwoEntriesOfTheSameName) {
  EXPECT_THROW_MESSAGE(read(document(R"(<fileEntry name="/a" content="/fsroot/1" type="File"/>
<fileEntry name="/a" content="" type="Folder"/>
)")),
                       opc::Exception, "A node already exists with the name:/a");
  EXPECT_EQ(tree_.findNode(u"/a").getType(), FileSystemNodeType::File);
}

TEST_F(FileSystemManifestXmlReadTest, RefusesAnEntryForAFolderThatWasMadeOnTheWay) {
  EXPECT_THROW_MESSAGE(read(document(R"(<fileEntry name="/a/b" content="/fsroot/1" type="File"/>
<fileEntry name="/a" content="" type="Folder" permissions="0700"/>
)")),
                       opc::Exception, "A node already exists with the name:/a");
}

TEST_F(FileSystemManifestXmlReadTest, RefusesAnEntryForTheRoot) {
  EXPECT_THROW_MESSAGE(read(document(R"(<fileEntry name="/" content="" type="Folder"/>
)")),
                       opc::Exception, "A node already exists with the name:/");
}

TEST_F(FileSystemManifestXmlReadTest, PassesANameWithoutLeadingSlashToTheTreeWhichRefusesIt) {
  EXPECT_THROW_MESSAGE(read(document(R"(<fileEntry name="a/b" content="/fsroot/1" type="File"/>
)")),
                       opc::Exception, "A node name must begin with \"/\":a/b");
  EXPECT_THROW_MESSAGE(read(document(R"(<fileEntry name="" content="/fsroot/1" type="File"/>
)")),
                       opc::Exception, "A node name must begin with \"/\":");
  EXPECT_TRUE(tree_.leafNodes().empty());
}

TEST_F(FileSystemManifestXmlReadTest, LetsAFailureOfTheStreamPassThrough) {
  MemoryInputStream source(document(R"(<fileEntry name="/a" content="/fsroot/1" type="File"/>
)"),
                           16);
  source.failAfter(40);
  EXPECT_THROW_MESSAGE(manifest_.read(source, tree_), opc::Exception, "injected read failure");
  EXPECT_TRUE(tree_.leafNodes().empty());
  EXPECT_EQ(source.opens, 1);
  EXPECT_EQ(source.closes, 1);
}

TEST_F(FileSystemManifestXmlReadTest, ReadsTheSameObjectManyTimes) {
  for (int i = 0; i < 3; ++i) {
    FileSystemTree tree;
    MemoryInputStream source(document(R"(<fileEntry name="/a" content="/fsroot/1" type="File"/>
)"));
    manifest_.read(source, tree);
    EXPECT_EQ(leafPaths(tree), (std::vector<std::u16string>{u"/a"}));
    MemoryInputStream bad("<fileEntries");
    FileSystemTree other;
    EXPECT_THROW(manifest_.read(bad, other), InvalidPartContent);
  }
}

// The older form: no version, platform and encoding, decimal file modes, names that may lack
// the leading slash.

TEST_F(FileSystemManifestXmlReadTest, ReadsTheOlderForm) {
  read(documentV1(
      R"(<fileEntry name="/docs/a.txt" content="/fsroot/docs/a.txt" type="File" permissions="33188" date="2012-05-06T07:08:09Z"/>
<fileEntry name="docs/link" content="/fsroot/links/1" type="SymLink" permissions="41471"/>
<fileEntry name="/empty" content="/empty" type="Folder" permissions="16877"/>
)"));
  EXPECT_EQ(tree_.getVersion(), u"1.0");
  EXPECT_EQ(tree_.getPlatform(), u"win64");
  EXPECT_EQ(tree_.getEncoding(), u"windows-1252");
  EXPECT_EQ(leafPaths(tree_),
            (std::vector<std::u16string>{u"/docs/a.txt", u"/docs/link", u"/empty"}));

  FileSystemNode const file = tree_.findNode(u"/docs/a.txt");
  EXPECT_EQ(*file.getPermissions(), opc::Perms::Perms_tag(0644));
  EXPECT_EQ(*file.getLastModifiedTime(), at(2012, 5, 6, 7 * 3600 + 8 * 60 + 9));
  // A link's content is still the name of the part that holds its target: converting it is
  // the manager's work.
  FileSystemNode const link = tree_.findNode(u"/docs/link");
  EXPECT_EQ(link.getType(), FileSystemNodeType::SymLink);
  EXPECT_EQ(link.getContentName(), u"/fsroot/links/1");
  EXPECT_EQ(*link.getPermissions(), opc::Perms::Perms_tag(0777));
  EXPECT_EQ(*tree_.findNode(u"/empty").getPermissions(), opc::Perms::Perms_tag(0755));
}

TEST_F(FileSystemManifestXmlReadTest, OlderFormRefusesALeadingZero) {
  EXPECT_THROW_MESSAGE(
      read(documentV1(R"(<fileEntry name="/a" content="/fsroot/1" type="File" permissions="0"/>
)")),
      InvalidPartContent, "Permissions are not a valid decimal value");
}

TEST_F(FileSystemManifestXmlReadTest, OlderFormRefusesPermissionsBeyondSixteenBits) {
  EXPECT_THROW_MESSAGE(
      read(documentV1(R"(<fileEntry name="/a" content="/fsroot/1" type="File" permissions="99999"/>
)")),
      InvalidPartContent, "Permissions are not valid value");
}

TEST_F(FileSystemManifestXmlReadTest, OlderFormReadsEmptyPermissionsAndDateAsUnknown) {
  read(documentV1(R"(<fileEntry name="a" content="/fsroot/1" type="File" permissions="" date=""/>
)"));
  FileSystemNode const node = tree_.findNode(u"/a");
  EXPECT_FALSE(node.getPermissions());
  EXPECT_FALSE(node.getLastModifiedTime());
}

TEST_F(FileSystemManifestXmlReadTest, OlderFormWithAnEmptyNameEndsOutOfRange) {
  EXPECT_THROW(read(documentV1(R"(<fileEntry name="" content="/fsroot/1" type="File"/>
)")),
               std::out_of_range);
}

TEST_F(FileSystemManifestXmlReadTest, OlderFormRefusesADuplicateMadeByTheAddedSlash) {
  EXPECT_THROW_MESSAGE(read(documentV1(R"(<fileEntry name="/a" content="/fsroot/1" type="File"/>
<fileEntry name="a" content="/fsroot/2" type="File"/>
)")),
                       opc::Exception, "A node already exists with the name:/a");
}

// The version alone decides the rules: a document of the current namespace that says "1.0"
// is read as the older form, whose root attributes it does not have.
TEST_F(FileSystemManifestXmlReadTest, VersionOneInTheCurrentNamespaceIsReadByTheOlderRules) {
  read(document(R"(<fileEntry name="a" content="/fsroot/1" type="File" permissions="33188"/>
)",
                R"(createdByPlatform="p" createdByEncoding="e" version="1.0")"));
  EXPECT_EQ(tree_.getVersion(), u"1.0");
  EXPECT_EQ(tree_.getPlatform(), u"");
  EXPECT_EQ(tree_.getEncoding(), u"");
  EXPECT_EQ(*tree_.findNode(u"/a").getPermissions(), opc::Perms::Perms_tag(0644));
}

}  // namespace
