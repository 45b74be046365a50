// Reading a manifest from a source that can be given again: documents of any size read without
// the parser through a window, and every document that the reader gives up on read again by the
// parser from its first byte, with the outcome that a single reading has.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

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
using opc::vkservices::FileSystemTree;
using opcvk_test::manifestTreeShapeOf;
using opcvk_test::MemoryInputStream;

constexpr char kHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
    "<fileEntries xmlns=\"http://schemas.opcvkservices.org/package/2013/filesystemManifest\" "
    "createdByEncoding=\"UTF-8\" createdByPlatform=\"linux-x86-64\" version=\"2.0\">\n";
constexpr char kTail[] = "</fileEntries>\n";

// The i-th entry of a generated document: names of many lengths, with characters of two and
// three bytes and references among them, so that window ends fall everywhere inside elements.
std::string entry(int i) {
  std::string name = "/d" + std::to_string(i % 7) + "/";
  for (int k = 0; k < (i * 37) % 150; ++k) {
    static char const* const kPieces[] = {"a", "\xC3\xA9", "&amp;", "\xE6\x97\xA5", "&#x42;", "z"};
    name += kPieces[(i + k) % 6];
  }
  name += std::to_string(i);
  return "  <fileEntry content=\"/fsroot/" + std::to_string(i) +
         "\" date=\"2021-03-04T05:06:07.5Z\" name=\"" + name + "\" permissions=\"0644\" type=\"" +
         (i % 3 == 0 ? "Folder" : "File") + "\"/>\n";
}

// `count` generated entries.
std::string entries(int from, int count) {
  std::string text;
  for (int i = from; i < from + count; ++i) text += entry(i);
  return text;
}

std::string document(std::string const& body) { return kHead + body + kTail; }

using Outcome = opcvk_test::ManifestReadOutcome;
using opcvk_test::manifestReadOutcomeOf;

// The outcome of the parser alone.
Outcome parsed(std::string const& xml) {
  static FileSystemManifestXml manifest;
  return manifestReadOutcomeOf([&](FileSystemTree& tree) {
    MemoryInputStream source(xml);
    manifest.readValidating(source, tree);
  });
}

// A document that can be given again: `first` is its stream, and reopen() makes each further
// one anew, reading `chunk` bytes at most per call and failing after `failAgainAfter` bytes
// when that is set.
struct Reopenable {
  explicit Reopenable(std::string text, std::size_t readSize = 4093)
      : xml(std::move(text)), chunk(readSize), first(xml, chunk) {}

  FileSystemManifestXml::Reopen reopen() {
    return [this]() -> opc::InputStream& {
      ++reopens;
      again = std::make_unique<MemoryInputStream>(xml, chunk);
      if (failAgainAfter != 0) again->failAfter(failAgainAfter);
      return *again;
    };
  }

  std::string const xml;
  std::size_t const chunk;
  MemoryInputStream first;
  std::unique_ptr<MemoryInputStream> again;
  std::size_t failAgainAfter = 0;
  int reopens = 0;
};

TEST(FileSystemManifestXmlStreamTest, ReadsADocumentLargerThanTheWindowWithoutTheParser) {
  std::string const xml = document(entries(0, 9000));
  ASSERT_GT(xml.size(), std::size_t{2} << 20);
  Outcome const reference = parsed(xml);
  ASSERT_EQ(reference.error, "");
  ASSERT_EQ(reference.leaves, 9000u);
  for (std::size_t const window : {std::size_t{2048}, std::size_t{4099}, std::size_t{1} << 20}) {
    FileSystemManifestXml manifest(window);
    Reopenable source(xml);
    Outcome const outcome = manifestReadOutcomeOf(
        [&](FileSystemTree& tree) { manifest.read(source.first, tree, source.reopen()); });
    EXPECT_EQ(outcome.error, "") << window;
    EXPECT_TRUE(outcome.shape == reference.shape) << window;
    EXPECT_EQ(manifest.parserReads(), 0u) << window;
    EXPECT_EQ(source.reopens, 0) << window;
    EXPECT_EQ(source.first.opens, 1);
    EXPECT_EQ(source.first.closes, 1);
  }
}

TEST(FileSystemManifestXmlStreamTest, ReadsADocumentOfAKnownSizeAsAnyOther) {
  std::string const xml = document(entries(0, 9000));
  Outcome const reference = parsed(xml);
  ASSERT_EQ(reference.error, "");
  // Sizes that fit in one window of their own, that are the document's, that are smaller or
  // larger than it (a size that the archive declares wrongly), and that are past any window.
  for (std::uint64_t const size :
       {std::uint64_t{xml.size()}, std::uint64_t{xml.size() - 100}, std::uint64_t{xml.size() + 100},
        std::uint64_t{100}, std::uint64_t{1} << 40}) {
    FileSystemManifestXml manifest(2048);
    Reopenable source(xml);
    Outcome const outcome = manifestReadOutcomeOf(
        [&](FileSystemTree& tree) { manifest.read(source.first, tree, source.reopen(), size); });
    EXPECT_EQ(outcome.error, "") << size;
    EXPECT_TRUE(outcome.shape == reference.shape) << size;
    EXPECT_EQ(manifest.parserReads(), 0u) << size;
    EXPECT_EQ(source.reopens, 0) << size;
  }
}

// Reads `xml` from a source that can be given again, in a window of `window`, and expects the
// parser's outcome, from a second reading of the whole document.
void expectParserOutcome(std::string const& xml, std::size_t window, Outcome const& reference) {
  FileSystemManifestXml manifest(window);
  Reopenable source(xml, 1000);
  Outcome const outcome = manifestReadOutcomeOf(
      [&](FileSystemTree& tree) { manifest.read(source.first, tree, source.reopen()); });
  EXPECT_EQ(outcome.error, reference.error);
  EXPECT_TRUE(outcome.shape == reference.shape);
  EXPECT_EQ(manifest.parserReads(), 1u);
  ASSERT_EQ(source.reopens, 1);
  EXPECT_EQ(source.first.closes, 1);
  EXPECT_EQ(source.again->opens, 1);
  EXPECT_EQ(source.again->closes, 1);
  EXPECT_TRUE(source.again->isDone());
}

TEST(FileSystemManifestXmlStreamTest, GivesUpAfterTheFirstWindowAndTheParserReadsFromTheStart) {
  std::string const xml =
      document(entries(0, 3000) + "<!-- left to the parser -->\n" + entries(3000, 100));
  Outcome const reference = parsed(xml);
  ASSERT_EQ(reference.error, "");
  ASSERT_EQ(reference.leaves, 3100u);
  expectParserOutcome(xml, 4096, reference);
}

TEST(FileSystemManifestXmlStreamTest, GivesUpAfterABadValueAndTellsTheParsersVerdict) {
  // The bad value comes before the reader gives up, and is told as the parser tells it: with
  // the entries before it in the tree.
  std::string const bad = R"(<fileEntry name="/bad" content="/x" type="File" permissions="755"/>)"
                          "\n";
  std::string const xml =
      document(entries(0, 2000) + bad + entries(2000, 500) + "<?pi x?>" + entries(2500, 10));
  Outcome const reference = parsed(xml);
  ASSERT_NE(reference.error.find(": Permissions are not a valid octal value"), std::string::npos);
  ASSERT_EQ(reference.leaves, 2000u);
  expectParserOutcome(xml, 4096, reference);

  // A fault of the document after the give-up wins over the bad value, tree as it was.
  std::string const faulty = document(entries(0, 2000) + bad + entries(2000, 500) +
                                      "<fileEntry name=\"/c\" content=\"/x\" type=\"Device\"/>");
  Outcome const verdict = parsed(faulty);
  ASSERT_NE(verdict.error.find("value 'Device' not in enumeration"), std::string::npos);
  ASSERT_EQ(verdict.leaves, 0u);
  expectParserOutcome(faulty, 4096, verdict);
}

TEST(FileSystemManifestXmlStreamTest, ReadsElementsLongerThanHalfTheWindowWithoutTheParser) {
  // Elements of 200 to 250 bytes in a window of 256, cut by the window's end at every offset.
  std::string body;
  for (int i = 0; i < 40; ++i) {
    body += "<fileEntry name=\"/" + std::string(150 + i, static_cast<char>('a' + i % 26)) +
            "\" content=\"/x\" type=\"File\"/>\n";
  }
  std::string const xml = document(body);
  Outcome const reference = parsed(xml);
  ASSERT_EQ(reference.error, "");
  ASSERT_EQ(reference.leaves, 40u);
  FileSystemManifestXml manifest(256);
  Reopenable source(xml);
  Outcome const outcome = manifestReadOutcomeOf(
      [&](FileSystemTree& tree) { manifest.read(source.first, tree, source.reopen()); });
  EXPECT_EQ(outcome.error, "");
  EXPECT_TRUE(outcome.shape == reference.shape);
  EXPECT_EQ(manifest.parserReads(), 0u);
  EXPECT_EQ(source.reopens, 0);
}

TEST(FileSystemManifestXmlStreamTest, LeavesAnElementLongerThanTheWindowToTheParser) {
  std::string const xml = document(entries(0, 20) + "<fileEntry name=\"/" + std::string(300, 'n') +
                                   "\" content=\"/x\" type=\"File\"/>");
  Outcome const reference = parsed(xml);
  ASSERT_EQ(reference.error, "");
  expectParserOutcome(xml, 256, reference);
}

TEST(FileSystemManifestXmlStreamTest, RefusesABadValueFarIntoTheDocumentWithoutTheParser) {
  std::string const xml = document(
      entries(0, 2000) + R"(<fileEntry name="/bad" content="/x" type="File" permissions="755"/>)" +
      entries(2000, 2000));
  FileSystemManifestXml manifest(4096);
  Reopenable source(xml);
  FileSystemTree tree;
  EXPECT_THROW_MESSAGE(manifest.read(source.first, tree, source.reopen()), InvalidPartContent,
                       "Permissions are not a valid octal value");
  EXPECT_EQ(tree.leafNodes().size(), 2000u);
  EXPECT_FALSE(tree.hasNode(u"/bad"));
  EXPECT_EQ(manifest.parserReads(), 0u);
  EXPECT_EQ(source.reopens, 0);
  // Read whole and closed before the refusal is told.
  EXPECT_TRUE(source.first.isDone());
  EXPECT_EQ(source.first.closes, 1);
}

// A failure among the first 4 MiB is told from the first reading, as when they were held before
// anything read them: whether or not the reader gave up before it.
TEST(FileSystemManifestXmlStreamTest, TellsAFailureOfTheFirstReadingWithoutASecondOne) {
  std::string const plain = document(entries(0, 3000));
  std::string const commented = document("<!-- c -->" + entries(0, 3000));
  for (std::string const& xml : {plain, commented}) {
    FileSystemManifestXml manifest(4096);
    Reopenable source(xml);
    source.first.failAfter(100000);
    FileSystemTree tree;
    EXPECT_THROW_MESSAGE(manifest.read(source.first, tree, source.reopen()), opc::Exception,
                         "injected read failure");
    EXPECT_TRUE(tree.leafNodes().empty());
    EXPECT_EQ(tree.getVersion(), u"2.0");
    EXPECT_EQ(source.reopens, 0);
    EXPECT_EQ(source.first.closes, 1);

    // The same as on the road that reads the source once.
    MemoryInputStream once(xml, 4093);
    once.failAfter(100000);
    FileSystemTree other;
    EXPECT_THROW_MESSAGE(manifest.read(once, other), opc::Exception, "injected read failure");
  }
}

// Further on, the parser reads the document again and meets the failure where the source has
// it, unless a fault of the document comes first: as on the road that reads the source once.
TEST(FileSystemManifestXmlStreamTest, LeavesAFailureBeyondTheHeldBytesToTheParser) {
  std::string const plain = document(entries(0, 30000));
  ASSERT_GT(plain.size(), std::size_t{5} << 20);
  std::size_t const failure = plain.size() - 100000;
  std::string const faulty = document(entries(0, 29000) + "<fileEntry/>" + entries(29000, 1000));
  for (std::string const& xml : {plain, faulty}) {
    MemoryInputStream once(xml, 4093);
    once.failAfter(failure);
    FileSystemManifestXml manifest;
    Outcome const reference =
        manifestReadOutcomeOf([&](FileSystemTree& tree) { manifest.read(once, tree); });
    ASSERT_NE(reference.error, "");

    Reopenable source(xml);
    source.first.failAfter(failure);
    source.failAgainAfter = failure;
    Outcome const outcome = manifestReadOutcomeOf(
        [&](FileSystemTree& tree) { manifest.read(source.first, tree, source.reopen()); });
    EXPECT_EQ(outcome.error, reference.error);
    EXPECT_TRUE(outcome.shape == reference.shape);
    EXPECT_EQ(outcome.leaves, 0u);
    EXPECT_EQ(source.reopens, 1);
    EXPECT_EQ(source.first.closes, 1);
  }
}

TEST(FileSystemManifestXmlStreamTest, LetsAFailureOfTheSecondReadingPassThrough) {
  std::string const xml = document("<!-- c -->" + entries(0, 100));
  FileSystemManifestXml manifest;
  Reopenable source(xml);
  source.failAgainAfter = 2000;
  FileSystemTree tree;
  EXPECT_THROW_MESSAGE(manifest.read(source.first, tree, source.reopen()), opc::Exception,
                       "injected read failure");
  EXPECT_TRUE(tree.leafNodes().empty());
  EXPECT_EQ(tree.getVersion(), u"2.0");
  EXPECT_EQ(source.reopens, 1);
  EXPECT_EQ(source.first.closes, 1);
  EXPECT_EQ(source.again->closes, 1);

  // A source that cannot be given again says so in its own words.
  FileSystemTree other;
  MemoryInputStream first(xml);
  EXPECT_THROW_MESSAGE(manifest.read(first, other,
                                     []() -> opc::InputStream& {
                                       throw opc::Exception("no second reading",
                                                            boost::system::error_code());
                                     }),
                       opc::Exception, "no second reading");
  EXPECT_TRUE(other.leafNodes().empty());
  EXPECT_EQ(first.closes, 1);
}

}  // namespace
