// Writing manifests, and trees that come back whole through a write and a read.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_io.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/optional/optional_io.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/xml/xml_exceptions.h>

#include "contracts/model/xml_engine/xml_engine.h"
#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using boost::posix_time::ptime;
using opc::model::InvalidPartContent;
using opc::model::detail::XmlNode;
using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemNodeType;
using opc::vkservices::FileSystemTree;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;
using Attributes = std::map<std::u16string, std::u16string>;

constexpr auto kUnknown = opc::Perms::unknown;
ptime const kNoTime{boost::posix_time::not_a_date_time};
ptime const kTime{boost::gregorian::date(2024, 6, 11), boost::posix_time::hours(10)};

opc::Perms::Perms_tag perms(unsigned value) { return static_cast<opc::Perms::Perms_tag>(value); }

// A written document as plain data: the root's namespace and attributes, and each child
// element's local name, namespace and attributes.  Namespace declarations count among the
// attributes, as "xmlns" or "xmlns:<prefix>".
struct Parsed {
  std::u16string rootName;
  std::u16string rootNamespace;
  Attributes root;
  std::vector<std::u16string> entryNames;
  std::vector<std::u16string> entryNamespaces;
  std::vector<Attributes> entries;
};

Attributes attributesOf(XmlNode const& element) {
  Attributes result;
  for (auto const& attribute : element.attributes) result[attribute.first] = attribute.second;
  for (auto const& declaration : element.namespaceDeclarations) {
    std::u16string const name =
        declaration.first.empty() ? u"xmlns" : u"xmlns:" + declaration.first;
    result[name] = declaration.second;
  }
  return result;
}

// Parses without validation, so that the test sees what was written, not what a schema
// lets through.
Parsed parse(std::string const& xml) {
  auto reader = opc::model::detail::xmlEngine().makeTreeReader({});
  MemoryInputStream source(xml);
  XmlNode const root = reader->read(source, false, u"", u"");
  Parsed parsed;
  parsed.rootName = root.localName;
  parsed.rootNamespace = root.namespaceURI;
  parsed.root = attributesOf(root);
  for (XmlNode const& child : root.children) {
    parsed.entryNames.push_back(child.localName);
    parsed.entryNamespaces.push_back(child.namespaceURI);
    parsed.entries.push_back(attributesOf(child));
  }
  return parsed;
}

std::string written(FileSystemManifestXml& manifest, FileSystemTree const& tree, bool v1 = false) {
  MemoryOutputStream target;
  if (v1) {
    manifest.writeV1(tree, target);
  } else {
    manifest.write(tree, target);
  }
  EXPECT_GE(target.flushes, 1);
  EXPECT_EQ(target.closes, 0);
  return target.bytes;
}

// Everything of a tree that a reader can observe, in one comparable value.
struct Observed {
  std::u16string platform, encoding, version;
  std::vector<std::u16string> leaves;
  std::vector<FileSystemNodeType> types;
  std::vector<std::u16string> contents;
  std::vector<boost::optional<opc::Perms::Perms_tag>> permissions;
  std::vector<boost::optional<ptime>> times;
  std::map<std::u16string, std::vector<std::u16string>> children;

  explicit Observed(FileSystemTree const& tree)
      : platform(tree.getPlatform()), encoding(tree.getEncoding()), version(tree.getVersion()) {
    std::vector<std::u16string> pending{u"/"};
    while (!pending.empty()) {
      std::u16string const path = pending.back();
      pending.pop_back();
      for (FileSystemNode const& child : tree.childNodes(path)) {
        children[path].push_back(child.getPathName());
        pending.push_back(child.getPathName());
      }
    }
    for (FileSystemNode const& node : tree.leafNodes()) {
      leaves.push_back(node.getPathName());
      types.push_back(node.getType());
      contents.push_back(node.getContentName());
      permissions.push_back(node.getPermissions());
      times.push_back(node.getLastModifiedTime());
    }
  }
};

void expectSame(Observed const& a, Observed const& b) {
  EXPECT_EQ(a.platform, b.platform);
  EXPECT_EQ(a.encoding, b.encoding);
  EXPECT_EQ(a.version, b.version);
  EXPECT_EQ(a.leaves, b.leaves);
  EXPECT_EQ(a.types, b.types);
  EXPECT_EQ(a.contents, b.contents);
  EXPECT_EQ(a.permissions, b.permissions);
  EXPECT_EQ(a.times, b.times);
}

class FileSystemManifestXmlWriteTest : public ::testing::Test {
 protected:
  // Writes `tree`, reads the text into a new tree and returns that.
  FileSystemTree roundTrip(FileSystemTree const& tree, bool v1 = false) {
    std::string const xml = written(manifest_, tree, v1);
    FileSystemTree result;
    MemoryInputStream source(xml);
    manifest_.read(source, result);
    return result;
  }

  FileSystemManifestXml manifest_;
  FileSystemTree tree_;
};

TEST_F(FileSystemManifestXmlWriteTest, WritesAnEmptyFileSystemAsARootWithItsThreeAttributes) {
  tree_.setPlatform(u"win64");
  tree_.setEncoding(u"windows-1252");
  std::string const xml = written(manifest_, tree_);
  Parsed const parsed = parse(xml);
  EXPECT_EQ(parsed.rootName, u"fileEntries");
  EXPECT_EQ(parsed.rootNamespace,
            u"http://schemas.opcvkservices.org/package/2013/filesystemManifest");
  EXPECT_EQ(parsed.root, (Attributes{{u"xmlns", parsed.rootNamespace},
                                     {u"createdByPlatform", u"win64"},
                                     {u"createdByEncoding", u"windows-1252"},
                                     {u"version", u"2.0"}}));
  EXPECT_TRUE(parsed.entries.empty());
}

TEST_F(FileSystemManifestXmlWriteTest, WritesAStandaloneUTF8Document) {
  std::string const xml = written(manifest_, tree_);
  std::string const declaration = xml.substr(0, xml.find("?>") + 2);
  EXPECT_EQ(declaration.rfind("<?xml version=\"1.0\" ", 0), 0u) << xml;
  EXPECT_NE(declaration.find(" encoding=\"UTF-8\""), std::string::npos) << xml;
  EXPECT_NE(declaration.find(" standalone=\"yes\""), std::string::npos) << xml;
}

TEST_F(FileSystemManifestXmlWriteTest, WritesOneEntryPerLeafInKeyOrder) {
  tree_.addNode(FileSystemNode::makeFileNode(u"/b/z.txt", u"/fsroot/b/z.txt", perms(0644), kTime));
  tree_.addNode(FileSystemNode::makeLinkNode(u"/B", u"b/z.txt", perms(0777), kNoTime));
  tree_.addNode(FileSystemNode::makeFolderNode(u"/a", kUnknown, kTime));
  tree_.addNode(FileSystemNode::makeFolderNode(u"/b/c", perms(0), kNoTime));
  Parsed const parsed = parse(written(manifest_, tree_));
  ASSERT_EQ(parsed.entries.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(parsed.entryNames[i], u"fileEntry");
    EXPECT_EQ(parsed.entryNamespaces[i], parsed.rootNamespace);
  }
  EXPECT_EQ(parsed.entries[0], (Attributes{{u"name", u"/B"},
                                           {u"content", u"b/z.txt"},
                                           {u"type", u"SymLink"},
                                           {u"permissions", u"0777"}}));
  // A folder's content is empty in the document, although its content name is its path.
  EXPECT_EQ(parsed.entries[1], (Attributes{{u"name", u"/a"},
                                           {u"content", u""},
                                           {u"type", u"Folder"},
                                           {u"date", u"2024-06-11T10:00:00Z"}}));
  EXPECT_EQ(
      parsed.entries[2],
      (Attributes{
          {u"name", u"/b/c"}, {u"content", u""}, {u"type", u"Folder"}, {u"permissions", u"00"}}));
  EXPECT_EQ(parsed.entries[3], (Attributes{{u"name", u"/b/z.txt"},
                                           {u"content", u"/fsroot/b/z.txt"},
                                           {u"type", u"File"},
                                           {u"permissions", u"0644"},
                                           {u"date", u"2024-06-11T10:00:00Z"}}));
}

TEST_F(FileSystemManifestXmlWriteTest, PrintsTheVersionAsTheTreeHoldsIt) {
  tree_.setVersion(u"3.7");
  EXPECT_EQ(parse(written(manifest_, tree_)).root.at(u"version"), u"3.7");
  EXPECT_EQ(roundTrip(tree_).getVersion(), u"3.7");
}

TEST_F(FileSystemManifestXmlWriteTest, AnEmptyFileSystemComesBack) {
  tree_.setPlatform(u"p");
  tree_.setEncoding(u"e");
  FileSystemTree const back = roundTrip(tree_);
  expectSame(Observed(back), Observed(tree_));
  EXPECT_TRUE(back.leafNodes().empty());
}

TEST_F(FileSystemManifestXmlWriteTest, FilesLinksFoldersAndEveryPermissionComeBack) {
  unsigned const values[] = {0, 01, 07, 0400, 0644, 0755, 0777, 0111, 0222, 0444, 0640, 0700};
  int index = 0;
  for (unsigned value : values) {
    std::u16string const n = opc::toString(std::to_string(index++));
    tree_.addNode(
        FileSystemNode::makeFileNode(u"/files/f" + n, u"/fsroot/f" + n, perms(value), kTime));
    tree_.addNode(
        FileSystemNode::makeLinkNode(u"/links/l" + n, u"../files/f" + n, perms(value), kNoTime));
    tree_.addNode(FileSystemNode::makeFolderNode(u"/folders/d" + n, perms(value), kTime));
  }
  tree_.addNode(FileSystemNode::makeFileNode(u"/unknown", u"/fsroot/u", kUnknown, kNoTime));
  FileSystemTree const back = roundTrip(tree_);
  expectSame(Observed(back), Observed(tree_));
  // Siblings come back in the order of the document, which is the order of the keys.
  auto sorted = [](std::map<std::u16string, std::vector<std::u16string>> children) {
    for (auto& entry : children) std::sort(entry.second.begin(), entry.second.end());
    return children;
  };
  EXPECT_EQ(Observed(back).children, sorted(Observed(tree_).children));
}

TEST_F(FileSystemManifestXmlWriteTest, TimesComeBackWithTheirFractions) {
  using boost::gregorian::date;
  using boost::posix_time::microseconds;
  std::vector<ptime> const times = {
      kTime,
      kTime + microseconds(1),
      kTime + microseconds(500000),
      kTime + microseconds(123456),
      ptime(date(1400, 1, 1)),
      ptime(date(9999, 12, 31), boost::posix_time::hours(24) - microseconds(1)),
      ptime(date(1970, 1, 1)),
      ptime(date(2000, 2, 29), boost::posix_time::hours(23)),
  };
  for (std::size_t i = 0; i < times.size(); ++i) {
    tree_.addNode(FileSystemNode::makeFileNode(u"/t" + opc::toString(std::to_string(i)),
                                               u"/fsroot/t", perms(0644), times[i]));
  }
  tree_.addNode(FileSystemNode::makeFileNode(u"/none", u"/fsroot/n", perms(0644), kNoTime));
  FileSystemTree const back = roundTrip(tree_);
  expectSame(Observed(back), Observed(tree_));
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_EQ(*back.findNode(u"/t" + opc::toString(std::to_string(i))).getLastModifiedTime(),
              times[i]);
  }
  EXPECT_FALSE(back.findNode(u"/none").getLastModifiedTime());
}

TEST_F(FileSystemManifestXmlWriteTest, NamesWithMarkupAndNonASCIICharactersComeBack) {
  std::vector<std::u16string> const names = {u"/<",
                                             u"/&",
                                             u"/\"",
                                             u"/'",
                                             u"/>",
                                             u"/&amp;",
                                             u"/<b>bold</b>",
                                             u"/]]>",
                                             u"/\u00FCber/\u00E9t\u00E9",
                                             u"/\u65E5\u672C\u8A9E",
                                             u"/\U0001F600 emoji",
                                             u"/ lead and trail ",
                                             u"/tab\there",
                                             u"/line\nfeed",
                                             u"/cr\rreturn",
                                             u"/a  b",
                                             u"/\u00A0nbsp",
                                             u"/\uFFFD"};
  for (std::u16string const& name : names) {
    tree_.addNode(FileSystemNode::makeFileNode(name, u"/fsroot" + name, perms(0600), kTime));
  }
  tree_.addNode(FileSystemNode::makeLinkNode(u"/link", u"../\"q\" & <t>\t\n", perms(0777), kTime));
  tree_.setPlatform(u"plat\"form<&>");
  tree_.setEncoding(u"\u00FC");
  FileSystemTree const back = roundTrip(tree_);
  expectSame(Observed(back), Observed(tree_));
  for (std::u16string const& name : names) {
    EXPECT_TRUE(back.hasNode(name)) << opc::toUDEString(name);
  }
}

TEST_F(FileSystemManifestXmlWriteTest, InnerFoldersLoseTheirPermissionsAndDate) {
  tree_.addNode(FileSystemNode::makeFolderNode(u"/a", perms(0700), kTime));
  tree_.addNode(FileSystemNode::makeFileNode(u"/a/b", u"/fsroot/b", perms(0644), kTime));
  Parsed const parsed = parse(written(manifest_, tree_));
  ASSERT_EQ(parsed.entries.size(), 1u);
  EXPECT_EQ(parsed.entries[0].at(u"name"), u"/a/b");
  FileSystemTree const back = roundTrip(tree_);
  FileSystemNode const folder = back.findNode(u"/a");
  EXPECT_EQ(folder.getType(), FileSystemNodeType::Folder);
  EXPECT_FALSE(folder.getPermissions());
  EXPECT_FALSE(folder.getLastModifiedTime());
  EXPECT_EQ(*back.findNode(u"/a/b").getPermissions(), perms(0644));
}

TEST_F(FileSystemManifestXmlWriteTest, ANameThatXMLCannotHoldIsRefused) {
  tree_.addNode(FileSystemNode::makeFileNode(u"/bad\u0001name", u"/fsroot/x", kUnknown, kNoTime));
  MemoryOutputStream target;
  EXPECT_THROW_MESSAGE(manifest_.write(tree_, target), InvalidPartContent,
                       "XML error: invalid or illegal XML character");
}

TEST_F(FileSystemManifestXmlWriteTest, LetsAFailureOfTheStreamPassThrough) {
  tree_.addNode(FileSystemNode::makeFileNode(u"/a", u"/fsroot/a", kUnknown, kNoTime));
  MemoryOutputStream target;
  target.failAfter(10);
  EXPECT_THROW_MESSAGE(manifest_.write(tree_, target), opc::Exception, "injected write failure");
  // The object stays usable.
  MemoryOutputStream second;
  manifest_.write(tree_, second);
  EXPECT_EQ(parse(second.bytes).entries.size(), 1u);
}

// The older form, as writeV1 prints it and the reader reads it back.

TEST_F(FileSystemManifestXmlWriteTest, WritesTheOlderForm) {
  tree_.setPlatform(u"win64");
  tree_.setEncoding(u"windows-1252");
  tree_.addNode(FileSystemNode::makeFileNode(u"/d/f", u"/fsroot/d/f", perms(0644), kTime));
  tree_.addNode(FileSystemNode::makeLinkNode(u"/l", u"d/f", perms(0755), kNoTime));
  tree_.addNode(FileSystemNode::makeFolderNode(u"/e", perms(0), kNoTime));
  Parsed const parsed = parse(written(manifest_, tree_, true));
  EXPECT_EQ(parsed.rootNamespace,
            u"http://schemas.opcvkservices.org/orvane/compiler/2011/fileManifest");
  EXPECT_EQ(parsed.root, (Attributes{{u"xmlns", parsed.rootNamespace},
                                     {u"platform", u"win64"},
                                     {u"encoding", u"windows-1252"}}));
  ASSERT_EQ(parsed.entries.size(), 3u);
  EXPECT_EQ(parsed.entries[0], (Attributes{{u"name", u"/d/f"},
                                           {u"content", u"/fsroot/d/f"},
                                           {u"type", u"File"},
                                           {u"permissions", u"33188"},
                                           {u"date", u"2024-06-11T10:00:00Z"}}));
  // A folder keeps its own path as content, and gets the regular-file bit as well.
  EXPECT_EQ(parsed.entries[1], (Attributes{{u"name", u"/e"},
                                           {u"content", u"/e"},
                                           {u"type", u"Folder"},
                                           {u"permissions", u"32768"}}));
  EXPECT_EQ(parsed.entries[2], (Attributes{{u"name", u"/l"},
                                           {u"content", u"d/f"},
                                           {u"type", u"SymLink"},
                                           {u"permissions", u"33261"}}));
}

TEST_F(FileSystemManifestXmlWriteTest, TheOlderFormComesBackAsVersionOne) {
  tree_.setVersion(u"2.0");
  for (unsigned value : {0u, 07u, 0644u, 0755u, 0777u}) {
    std::u16string const n = opc::toString(std::to_string(value));
    tree_.addNode(FileSystemNode::makeFileNode(u"/f" + n, u"/fsroot/f" + n, perms(value), kTime));
  }
  tree_.addNode(FileSystemNode::makeLinkNode(u"/sub/link", u"/fsroot/link", kUnknown, kTime));
  tree_.addNode(FileSystemNode::makeFolderNode(u"/sub/empty \u00FC", perms(0750), kNoTime));
  FileSystemTree const back = roundTrip(tree_, true);
  Observed expected(tree_);
  expected.version = u"1.0";  // no version is written in the older form
  expectSame(Observed(back), expected);
}

// A folder given as "//f" is the folder "f" under the root in both forms: the older one writes
// a folder's content name, which must then be the path the tree keeps, not the text given.
TEST_F(FileSystemManifestXmlWriteTest, AFolderGivenWithTwoLeadingSlashesComesBackTheSame) {
  tree_.addNode(FileSystemNode::makeFolderNode(u"//f", perms(0755), kTime));
  for (bool const v1 : {false, true}) {
    SCOPED_TRACE(v1 ? "older form" : "current form");
    FileSystemTree const back = roundTrip(tree_, v1);
    Observed expected(tree_);
    if (v1) expected.version = u"1.0";
    expectSame(Observed(back), expected);
    EXPECT_EQ(back.findNode(u"/f").getContentName(), u"/f");
  }
}

}  // namespace
