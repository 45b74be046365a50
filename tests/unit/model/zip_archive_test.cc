// The reader of the ZIP container: valid archives of every shape read back exactly, and each
// hostile archive is refused with the exception and message that name the item and problem.
#include "zip/zip_archive.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "support/zip_builder.h"
#include "unit/model/package_test_support.h"

namespace {

using opc::model::InvalidPackage;
using opc::model::InvalidPartContent;
using opc::model::PackageLimits;
using opc::model::detail::ZipArchive;
using opc::model::detail::ZipEntry;
using opcvk_test::ZipBuilder;
using opcvk_test::ZipBuilderItem;

std::unique_ptr<ZipArchive> openBytes(std::string const& bytes,
                                      PackageLimits const& limits = PackageLimits()) {
  auto buffer = std::make_shared<std::vector<unsigned char> const>(bytes.begin(), bytes.end());
  return ZipArchive::open(opc::model::detail::openBufferSource(buffer), limits);
}

std::unique_ptr<ZipArchive> openBuilt(ZipBuilder const& builder,
                                      PackageLimits const& limits = PackageLimits()) {
  return openBytes(builder.buildString(), limits);
}

std::string readEntry(ZipArchive const& archive, ZipEntry const& entry, std::size_t chunk = 4096) {
  auto stream = archive.openEntry(entry);
  stream->open();
  std::string result;
  std::vector<unsigned char> buffer(chunk);
  while (!stream->isDone()) {
    std::size_t const n = stream->read(buffer.data(), buffer.size());
    result.append(reinterpret_cast<char const*>(buffer.data()), n);
    if (n == 0) break;
  }
  EXPECT_TRUE(stream->isDone());
  stream->close();
  return result;
}

std::string text(std::size_t size) {
  return opcvk_test::numberedLines(size, "line ", 97, " of some text; ");
}

TEST(ZipArchiveTest, ReadsStoredAndDeflatedItems) {
  ZipBuilder builder;
  builder.add("[Content_Types].xml", "<Types/>", 0);
  builder.add("word/document.xml", text(100000), 8);
  builder.add("empty-stored", "", 0);
  builder.add("empty-deflated", "", 8);
  auto archive = openBuilt(builder);
  ASSERT_EQ(archive->entries().size(), 4u);
  EXPECT_EQ(readEntry(*archive, archive->entries()[0]), "<Types/>");
  EXPECT_EQ(readEntry(*archive, archive->entries()[1]), text(100000));
  EXPECT_EQ(readEntry(*archive, archive->entries()[1], 1), text(100000));
  EXPECT_EQ(readEntry(*archive, archive->entries()[2]), "");
  EXPECT_EQ(readEntry(*archive, archive->entries()[3]), "");
  ZipEntry const& entry = archive->entries()[1];
  EXPECT_EQ(entry.name, "word/document.xml");
  EXPECT_EQ(entry.method, 8);
  EXPECT_EQ(entry.uncompressedSize, 100000u);
  EXPECT_EQ(entry.crc32, opcvk_test::crc32Of(text(100000)));
  EXPECT_EQ(entry.dataOffset, 0u);  // not known until the local header is read
  EXPECT_EQ(archive->locate(entry).dataOffset, entry.localHeaderOffset + 30 + entry.name.size());
}

TEST(ZipArchiveTest, FindsItemsByExactName) {
  ZipBuilder builder;
  builder.add("a.xml", "a");
  builder.add("b/c.xml", "c");
  auto archive = openBuilt(builder);
  EXPECT_EQ(archive->find("a.xml"), 0);
  EXPECT_EQ(archive->find("b/c.xml"), 1);
  EXPECT_EQ(archive->find("A.xml"), -1);
  EXPECT_EQ(archive->find(""), -1);
}

TEST(ZipArchiveTest, StreamIsDoneRightAfterTheLastByteAndOutlivesTheArchive) {
  ZipBuilder builder;
  builder.add("a", "hello", 8);
  auto archive = openBuilt(builder);
  auto stream = archive->openEntry(archive->entries()[0]);
  archive.reset();
  unsigned char buffer[16];
  EXPECT_FALSE(stream->isDone());
  EXPECT_EQ(stream->read(buffer, sizeof buffer), 5u);
  EXPECT_TRUE(stream->isDone());
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 5), "hello");
  EXPECT_EQ(stream->read(buffer, sizeof buffer), 0u);
}

TEST(ZipArchiveTest, DecodesNamesWithoutUtf8FlagAsCp437) {
  ZipBuilder builder;
  builder.add(
      "caf\x82/\x81"
      "ber",
      "x");  // CP437: e acute, u diaeresis
  builder.add("na\xC3\xAFve", "y").flags = 0x0800;
  auto archive = openBuilt(builder);
  EXPECT_EQ(archive->entries()[0].name,
            "caf\xC3\xA9/\xC3\xBC"
            "ber");
  EXPECT_EQ(archive->entries()[1].name, "na\xC3\xAFve");
}

TEST(ZipArchiveTest, HonoursUnicodePathExtraFieldThatMatchesTheName) {
  std::string const raw = "caf\x82";
  std::string const utf8 = "caf\xC3\xA9-real";
  auto field = [&](std::uint32_t crc) {
    std::string extra = "\x75\x70";
    std::size_t const length = 5 + utf8.size();
    extra += static_cast<char>(length & 0xFF);
    extra += static_cast<char>(length >> 8);
    extra += '\x01';
    for (int i = 0; i < 4; ++i) extra += static_cast<char>((crc >> (8 * i)) & 0xFF);
    return extra + utf8;
  };
  ZipBuilder builder;
  builder.add(raw, "x").centralExtra = field(opcvk_test::crc32Of(raw));
  builder.add("other", "y").centralExtra = field(0x12345678);  // stale: ignored
  auto archive = openBuilt(builder);
  EXPECT_EQ(archive->entries()[0].name, utf8);
  EXPECT_EQ(archive->entries()[1].name, "other");
}

TEST(ZipArchiveTest, ReadsZip64ExtraFieldsAndEndRecords) {
  ZipBuilder builder;
  builder.add("a", text(5000), 8).zip64 = true;
  builder.add("b", "bee", 0).zip64 = true;
  builder.zip64End = true;
  builder.comment = "a comment with a fake PK\x05\x06 inside";
  auto archive = openBuilt(builder);
  ASSERT_EQ(archive->entries().size(), 2u);
  EXPECT_EQ(readEntry(*archive, archive->entries()[0]), text(5000));
  EXPECT_EQ(readEntry(*archive, archive->entries()[1]), "bee");
}

TEST(ZipArchiveTest, ReadsSizesAbove4GiBFromZip64Fields) {
  // A run of zeros declared as 5 GiB: the sizes must come through whole; reading stops with
  // "fewer bytes" since the data really holds 5 MiB of zeros.
  std::uint64_t const declared = std::uint64_t{5} << 30;
  ZipBuilder builder;
  ZipBuilderItem& item = builder.add("big", std::string(5u << 20, '\0'), 8);
  item.zip64 = true;
  item.uncompressedSize = declared;
  item.data = std::string(5u << 20, '\0');
  (void)item;
  PackageLimits limits;
  auto archive = openBuilt(builder, limits);
  EXPECT_EQ(archive->entries()[0].uncompressedSize, declared);
  EXPECT_EQ(archive->entries()[0].compressedSize, 5u << 20);
}

// ---------------------------------------------------------------------------------------
// Hostile archives, refused at open.

struct HostileCase {
  char const* what;
  std::function<std::string()> bytes;
  std::string message;
  PackageLimits limits = PackageLimits();
};

ZipBuilder twoItems() {
  ZipBuilder builder;
  builder.add("a.xml", "first item");
  builder.add("b.xml", "second item");
  return builder;
}

std::string withItem(std::function<void(opcvk_test::ZipBuilderItem&)> change) {
  ZipBuilder builder = twoItems();
  change(builder.items[1]);
  return builder.buildString();
}

std::string withArchive(std::function<void(ZipBuilder&)> change) {
  ZipBuilder builder = twoItems();
  change(builder);
  return builder.buildString();
}

std::string namedItem(std::string const& name) {
  ZipBuilder builder;
  builder.add(name, "x");
  return builder.buildString();
}

// Item "b" whose central header points into the data of item "a", where a complete local
// header and data of "b" sit: every header is valid, only the ranges overlap.
std::string overlappingItems() {
  ZipBuilder inner;
  inner.add("b", "bomb", 0);
  std::string const innerBytes = inner.buildString().substr(0, 30 + 1 + 4);
  ZipBuilder builder;
  builder.add("a", innerBytes, 0);
  ZipBuilderItem& b = builder.add("b", "bomb", 0);
  b.localHeaderOffset = 30 + 1;
  return builder.buildString();
}

PackageLimits limitsWith(std::function<void(PackageLimits&)> change) {
  PackageLimits limits;
  change(limits);
  return limits;
}

class ZipArchiveHostileTest : public ::testing::TestWithParam<HostileCase> {};

TEST_P(ZipArchiveHostileTest, IsRefusedAtOpen) {
  HostileCase const& c = GetParam();
  std::string const bytes = c.bytes();
  EXPECT_THROW_MESSAGE(openBytes(bytes, c.limits), InvalidPackage, c.message) << c.what;
}

std::string const kNoEnd =
    "Invalid ZIP archive: no end of central directory record was found (not a ZIP archive, or "
    "truncated)";

INSTANTIATE_TEST_SUITE_P(
    Cases, ZipArchiveHostileTest,
    ::testing::Values(
        HostileCase{"empty file", [] { return std::string(); }, kNoEnd},
        HostileCase{"not a ZIP", [] { return std::string(100, 'x'); }, kNoEnd},
        HostileCase{"truncated tail",
                    [] {
                      std::string b = twoItems().buildString();
                      return b.substr(0, b.size() - 5);
                    },
                    kNoEnd},
        HostileCase{"comment cut short",
                    [] { return withArchive([](ZipBuilder& z) { z.commentLength = 40; }); },
                    kNoEnd},
        HostileCase{"truncated head",
                    [] {
                      std::string b = twoItems().buildString();
                      return b.substr(40);
                    },
                    "Invalid ZIP archive: its central directory lies outside the file"},
        HostileCase{"directory beyond the file",
                    [] { return withArchive([](ZipBuilder& z) { z.directoryOffset = 1u << 30; }); },
                    "Invalid ZIP archive: its central directory lies outside the file"},
        HostileCase{"count larger than the directory",
                    [] { return withArchive([](ZipBuilder& z) { z.declaredCount = 3; }); },
                    "Invalid ZIP archive: its central directory of 102 bytes cannot hold the 3 "
                    "items that its end record declares"},
        HostileCase{"count smaller than the directory",
                    [] { return withArchive([](ZipBuilder& z) { z.declaredCount = 1; }); },
                    "Invalid ZIP archive: its central directory holds more than the 1 items that "
                    "its end record declares"},
        HostileCase{"spanning disks",
                    [] { return withArchive([](ZipBuilder& z) { z.diskNumber = 1; }); },
                    "Invalid ZIP archive: archives that span several disks are not supported"},
        HostileCase{"item on another disk",
                    [] { return withItem([](auto& i) { i.diskNumberStart = 2; }); },
                    "Invalid ZIP archive: archives that span several disks are not supported"},
        HostileCase{"bad ZIP64 end record",
                    [] {
                      return withArchive([](ZipBuilder& z) {
                        z.zip64End = true;
                        z.zip64RecordSignature = 0x12345678;
                      });
                    },
                    "Invalid ZIP archive: its ZIP64 end of central directory record has a bad "
                    "signature"},
        HostileCase{"bad central signature",
                    [] { return withItem([](auto& i) { i.centralSignature = 0x02014b51; }); },
                    "Invalid ZIP archive: central directory header 2 has a bad signature"},
        HostileCase{"too many items", [] { return twoItems().buildString(); },
                    "Invalid ZIP archive: it holds 2 items, more than the limit of 1 parts",
                    limitsWith([](PackageLimits& l) { l.maxPartCount = 1; })},
        HostileCase{"exact duplicate",
                    [] {
                      return withItem([](auto& i) {
                        i.name = "a.xml";
                        i.localName = "a.xml";
                      });
                    },
                    "Invalid ZIP item \"a.xml\": another item has the same name"},
        HostileCase{"duplicate without regard to case",
                    [] { return withItem([](auto& i) { i.name = "A.XML"; }); },
                    "Invalid ZIP item \"A.XML\": its name equals that of item \"a.xml\" without "
                    "regard to case"},
        HostileCase{"dot-dot segment", [] { return namedItem("../evil"); },
                    "Invalid ZIP item \"../evil\": its name holds a \"..\" segment"},
        HostileCase{"inner dot-dot segment", [] { return namedItem("a/../../evil"); },
                    "Invalid ZIP item \"a/../../evil\": its name holds a \"..\" segment"},
        HostileCase{"trailing dot-dot", [] { return namedItem("a/.."); },
                    "Invalid ZIP item \"a/..\": its name holds a \"..\" segment"},
        HostileCase{"absolute", [] { return namedItem("/etc/passwd"); },
                    "Invalid ZIP item \"/etc/passwd\": its name is an absolute path"},
        HostileCase{"backslash", [] { return namedItem("a\\..\\b"); },
                    "Invalid ZIP item \"a\\..\\b\": its name holds a backslash"},
        HostileCase{"drive letter", [] { return namedItem("C:/x"); },
                    "Invalid ZIP item \"C:/x\": its name starts with a drive letter"},
        HostileCase{"NUL", [] { return namedItem(std::string("a\0b", 3)); },
                    "Invalid ZIP item \"a?b\": its name holds a NUL character"},
        HostileCase{"NUL before backslash", [] { return namedItem(std::string("a\\b\0", 4)); },
                    "Invalid ZIP item \"a\\b?\": its name holds a NUL character"},
        HostileCase{"backslash before absolute", [] { return namedItem("/a\\b"); },
                    "Invalid ZIP item \"/a\\b\": its name holds a backslash"},
        HostileCase{"absolute before dot-dot", [] { return namedItem("/../x"); },
                    "Invalid ZIP item \"/../x\": its name is an absolute path"},
        HostileCase{"drive letter before dot-dot", [] { return namedItem("C:/../x"); },
                    "Invalid ZIP item \"C:/../x\": its name starts with a drive letter"},
        HostileCase{"empty name", [] { return namedItem(""); },
                    "Invalid ZIP item \"\": its name is empty"},
        HostileCase{"encrypted", [] { return withItem([](auto& i) { i.flags = 1; }); },
                    "Invalid ZIP item \"b.xml\": it is encrypted"},
        HostileCase{"unknown method", [] { return withItem([](auto& i) { i.method = 12; }); },
                    "Invalid ZIP item \"b.xml\": its compression method 12 is not supported"},
        HostileCase{"local header beyond the data",
                    [] { return withItem([](auto& i) { i.localHeaderOffset = 1000000; }); },
                    "Invalid ZIP item \"b.xml\": its local header at offset 1000000 lies "
                    "outside the data of the archive"},
        HostileCase{"data into the central directory",
                    [] { return withItem([](auto& i) { i.compressedSize = 100; }); },
                    "Invalid ZIP item \"b.xml\": its data of 100 bytes runs past the start of "
                    "the central directory"},
        HostileCase{"overlapping items", overlappingItems,
                    "Invalid ZIP item \"b\": its bytes overlap those of item \"a\""},
        HostileCase{"stored sizes differ",
                    [] {
                      return withItem([](auto& i) {
                        i.method = 0;
                        i.uncompressedSize = 5;
                      });
                    },
                    "Invalid ZIP item \"b.xml\": it is stored, but its size of 11 bytes differs "
                    "from its uncompressed size of 5 bytes"},
        HostileCase{"missing ZIP64 field",
                    [] { return withItem([](auto& i) { i.compressedSize = 0xFFFFFFFFu; }); },
                    "Invalid ZIP item \"b.xml\": its ZIP64 extra field is missing"},
        HostileCase{"too large", [] { return twoItems().buildString(); },
                    "Invalid ZIP item \"a.xml\": its uncompressed size of 10 bytes exceeds the "
                    "limit of 9 bytes",
                    limitsWith([](PackageLimits& l) { l.maxPartSize = 9; })},
        HostileCase{"compression ratio of a bomb",
                    [] {
                      return withItem([](auto& i) {
                        i.data = std::string(100, '\x03');
                        i.uncompressedSize = 2u << 20;
                      });
                    },
                    "Invalid ZIP item \"b.xml\": its compression ratio of 20971:1 exceeds the "
                    "limit of 1100:1"},
        HostileCase{"nothing compressed into something",
                    [] {
                      return withItem([](auto& i) {
                        i.data = std::string();
                        i.uncompressedSize = 2u << 20;
                      });
                    },
                    "Invalid ZIP item \"b.xml\": its compression ratio of 2097152:1 exceeds the "
                    "limit of 1100:1"}),
    [](::testing::TestParamInfo<HostileCase> const& p) {
      std::string name;
      for (char c : std::string(p.param.what)) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      }
      return name;
    });

// ---------------------------------------------------------------------------------------
// Hostile local headers, refused when their item is first read or copied: opening reads the
// central directory only.

class ZipArchiveLocalHeaderTest : public ::testing::TestWithParam<HostileCase> {};

TEST_P(ZipArchiveLocalHeaderTest, IsRefusedWhenTheItemIsFirstRead) {
  HostileCase const& c = GetParam();
  std::string const bytes = c.bytes();
  std::unique_ptr<ZipArchive> archive = openBytes(bytes, c.limits);
  ASSERT_EQ(archive->entries().size(), 2u);
  EXPECT_EQ(readEntry(*archive, archive->entries()[0]), "first item");
  ZipEntry const& bad = archive->entries()[1];
  EXPECT_THROW_MESSAGE(archive->locate(bad), InvalidPackage, c.message) << c.what;
  EXPECT_THROW_MESSAGE(archive->openEntry(bad), InvalidPackage, c.message) << c.what;
  // Each time: nothing of a failed check is kept.
  EXPECT_THROW_MESSAGE(archive->openEntry(bad), InvalidPackage, c.message) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZipArchiveLocalHeaderTest,
    ::testing::Values(
        HostileCase{"encrypted locally", [] { return withItem([](auto& i) { i.localFlags = 1; }); },
                    "Invalid ZIP item \"b.xml\": it is encrypted"},
        HostileCase{"local method differs",
                    [] { return withItem([](auto& i) { i.localMethod = 0; }); },
                    "Invalid ZIP item \"b.xml\": its local header gives compression method 0, "
                    "the central directory 8"},
        HostileCase{"local name differs",
                    [] { return withItem([](auto& i) { i.localName = "c.xml"; }); },
                    "Invalid ZIP item \"b.xml\": its local header gives another name"},
        HostileCase{"bad local signature",
                    [] { return withItem([](auto& i) { i.localSignature = 0x04034b51; }); },
                    "Invalid ZIP item \"b.xml\": its local header has a bad signature"}),
    [](::testing::TestParamInfo<HostileCase> const& p) {
      std::string name;
      for (char c : std::string(p.param.what)) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      }
      return name;
    });

TEST(ZipArchiveTest, DotsThatAreNotADotDotSegmentAreAccepted) {
  for (std::string const name : {"..a", "a..", "a/.../b", "a/./b", "a/..b/c..", ".../..."}) {
    auto archive = openBytes(namedItem(name));
    EXPECT_EQ(archive->find(name), 0) << name;
  }
}

TEST(ZipArchiveTest, LongNamesAreToldTheirFirstProblemWhereverItStands) {
  // Names long enough to be looked at sixteen bytes at a time, and longer, each fault on
  // either side of a step and in the last bytes; the order of the messages is that of short
  // names.
  for (std::size_t pad = 12; pad <= 70; ++pad) {
    std::string const lead(pad, 'x');
    struct Case {
      std::string name;
      std::string shown;
      std::string problem;
    };
    std::vector<Case> const cases = {
        {lead + "/../b", lead + "/../b", "its name holds a \"..\" segment"},
        {lead + "/..", lead + "/..", "its name holds a \"..\" segment"},
        {"../" + lead, "../" + lead, "its name holds a \"..\" segment"},
        {lead + "\\b", lead + "\\b", "its name holds a backslash"},
        {lead + std::string("\0b", 2), lead + "?b", "its name holds a NUL character"},
        {lead + "\\" + std::string("\0", 1), lead + "\\?", "its name holds a NUL character"},
        {"/" + lead + "/../x", "/" + lead + "/../x", "its name is an absolute path"},
        {"C:/" + lead + "/../x", "C:/" + lead + "/../x", "its name starts with a drive letter"},
        {"/" + lead, "/" + lead, "its name is an absolute path"},
        {"c:" + lead, "c:" + lead, "its name starts with a drive letter"},
    };
    for (Case const& c : cases) {
      EXPECT_THROW_MESSAGE(openBytes(namedItem(c.name)), InvalidPackage,
                           "Invalid ZIP item \"" + c.shown + "\": " + c.problem);
    }
    for (std::string const& name : {lead + "..a", lead + "a..", lead + "/.../b", "..a/" + lead}) {
      EXPECT_EQ(openBytes(namedItem(name))->find(name), 0) << name;
    }
  }
}

// A name is looked up among those before it only once the next header is read: the faults of
// an archive are told in the order of its items all the same.
TEST(ZipArchiveTest, ADuplicateIsToldBeforeAFaultOfTheHeaderAfterIt) {
  ZipBuilder builder;
  builder.add("a.xml", "first");
  builder.add("A.XML", "second");
  builder.add("c.xml", "third").centralSignature = 0x02014b51;
  EXPECT_THROW_MESSAGE(openBytes(builder.buildString()), InvalidPackage,
                       "Invalid ZIP item \"A.XML\": its name equals that of item \"a.xml\" "
                       "without regard to case");
}

TEST(ZipArchiveTest, AFaultOfAHeaderIsToldBeforeADuplicateAfterIt) {
  ZipBuilder builder;
  builder.add("a.xml", "first");
  builder.add("b.xml", "second").method = 12;
  builder.add("A.XML", "third");
  EXPECT_THROW_MESSAGE(openBytes(builder.buildString()), InvalidPackage,
                       "Invalid ZIP item \"b.xml\": its compression method 12 is not supported");
}

TEST(ZipArchiveTest, ADuplicateIsToldBeforeALimitOfTheItemAfterIt) {
  ZipBuilder builder;
  builder.add("a.xml", "first");
  builder.add("a.xml", "second");
  builder.add("c.xml", std::string(4096, 'c'));
  EXPECT_THROW_MESSAGE(
      openBytes(builder.buildString(), limitsWith([](PackageLimits& l) { l.maxPartSize = 100; })),
      InvalidPackage, "Invalid ZIP item \"a.xml\": another item has the same name");
}

TEST(ZipArchiveTest, NamesThatDifferInCaseAtAnyPlaceAreOneName) {
  // Long enough for whole steps of eight bytes and a tail; each place in turn in capitals.
  std::string const name = "folder/sub_dir/name-of.item";
  for (std::size_t at = 0; at < name.size(); ++at) {
    std::string other = name;
    if (other[at] < 'a' || other[at] > 'z') continue;
    other[at] = static_cast<char>(other[at] - 'a' + 'A');
    ZipBuilder builder;
    builder.add(name, "first");
    builder.add(other, "second");
    EXPECT_THROW_MESSAGE(openBytes(builder.buildString()), InvalidPackage,
                         "Invalid ZIP item \"" + other + "\": its name equals that of item \"" +
                             name + "\" without regard to case")
        << at;
  }
}

TEST(ZipArchiveTest, NamesThatDifferOnlyBeyondAsciiAreTwoNames) {
  // Only ASCII letters fold: bytes above 0x7F that differ by the case bit stay apart, and
  // so do the characters next to the letters ('@' beside 'A', '[' beside 'Z').
  ZipBuilder builder;
  for (std::string const name :
       {"items/caf\xC3\xA9-long-name.xml", "items/caf\xC3\x89-long-name.xml", "items/a@b[c`d{e.xml",
        "items/a`b{c@d[e.xml"}) {
    builder.add(name, "x");
    builder.items.back().flags = 0x0800;
  }
  auto archive = openBytes(builder.buildString());
  EXPECT_EQ(archive->size(), 4u);
}

TEST(ZipArchiveTest, OpeningReadsNoLocalHeader) {
  ZipBuilder builder = twoItems();
  builder.items[0].localSignature = 0;
  builder.items[1].localSignature = 0;
  std::unique_ptr<ZipArchive> archive = openBuilt(builder);
  EXPECT_EQ(archive->entries().size(), 2u);
  EXPECT_EQ(archive->entries()[0].dataOffset, 0u);
  EXPECT_THROW_MESSAGE(archive->locate(archive->entries()[0]), InvalidPackage,
                       "Invalid ZIP item \"a.xml\": its local header has a bad signature");
}

TEST(ZipArchiveTest, LocatingFindsTheDataBehindTheExtraField) {
  ZipBuilder builder = twoItems();
  builder.items[1].localExtra = std::string(
      "\x99\x99\x04\x00"
      "abcd",
      8);
  std::unique_ptr<ZipArchive> archive = openBuilt(builder);
  ZipEntry const located = archive->locate(archive->entries()[1]);
  EXPECT_EQ(located.dataOffset, archive->entries()[1].localHeaderOffset + 30 + 5 + 8);
  EXPECT_EQ(readEntry(*archive, archive->entries()[1]), "second item");
}

// The first item's extra field makes its data run into the header of the second, which
// opening cannot see: the check comes when the first item is read.
TEST(ZipArchiveTest, AnExtraFieldThatRunsIntoTheNextItemIsRefusedWhenRead) {
  ZipBuilder builder;
  builder.add("a", "data", 0).localExtra = std::string(
      "\x99\x99\x04\x00"
      "abcd",
      8);
  ZipBuilderItem& b = builder.add("b", "bomb", 0);
  b.localHeaderOffset = 30 + 1 + 4;
  std::unique_ptr<ZipArchive> archive = openBuilt(builder);
  EXPECT_THROW_MESSAGE(archive->openEntry(archive->entries()[0]), InvalidPackage,
                       "Invalid ZIP item \"b\": its bytes overlap those of item \"a\"");
}

TEST(ZipArchiveTest, AnExtraFieldThatRunsIntoTheDirectoryIsRefusedWhenRead) {
  ZipBuilder builder = twoItems();
  builder.items[1].localExtra = std::string(
      "\x99\x99\x04\x00"
      "abcd",
      8);
  builder.items[1].method = 0;
  builder.items[1].compressedSize = 11 + 8;
  builder.items[1].uncompressedSize = 11 + 8;
  std::unique_ptr<ZipArchive> archive = openBuilt(builder);
  EXPECT_THROW_MESSAGE(archive->openEntry(archive->entries()[1]), InvalidPackage,
                       "Invalid ZIP item \"b.xml\": its data of 19 bytes runs past the start of "
                       "the central directory");
}

TEST(ZipArchiveTest, AcceptsHighRatioBelowTheExemptSize) {
  ZipBuilder builder;
  builder.add("zeros", std::string(1000000, '\0'), 8);
  auto archive = openBuilt(builder);
  EXPECT_EQ(readEntry(*archive, archive->entries()[0]), std::string(1000000, '\0'));
}

// ---------------------------------------------------------------------------------------
// Data that disagrees with the directory, found while reading.

struct BadDataCase {
  char const* what;
  std::function<void(opcvk_test::ZipBuilderItem&)> change;
  std::string message;
};

class ZipArchiveBadDataTest : public ::testing::TestWithParam<BadDataCase> {};

TEST_P(ZipArchiveBadDataTest, FailsWhileReading) {
  ZipBuilder builder;
  ZipBuilderItem& item = builder.add("part.xml", "some content, some content", 8);
  GetParam().change(item);
  auto archive = openBuilt(builder);
  EXPECT_THROW_MESSAGE(readEntry(*archive, archive->entries()[0]), InvalidPartContent,
                       GetParam().message);
  EXPECT_THROW_MESSAGE(readEntry(*archive, archive->entries()[0], 1), InvalidPartContent,
                       GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZipArchiveBadDataTest,
    ::testing::Values(
        BadDataCase{"bad CRC", [](auto& i) { i.crc = 0xDEADBEEF; },
                    "Invalid ZIP item \"part.xml\": CRC-32 mismatch (the directory gives "
                    "0xDEADBEEF, the data 0xAB15E51C)"},
        BadDataCase{"bad CRC stored",
                    [](auto& i) {
                      i.method = 0;
                      i.crc = 1;
                    },
                    "Invalid ZIP item \"part.xml\": CRC-32 mismatch (the directory gives "
                    "0x00000001, the data 0xAB15E51C)"},
        BadDataCase{"more bytes than declared", [](auto& i) { i.uncompressedSize = 10; },
                    "Invalid ZIP item \"part.xml\": its data gives more than the 10 bytes "
                    "declared"},
        BadDataCase{"fewer bytes than declared", [](auto& i) { i.uncompressedSize = 40; },
                    "Invalid ZIP item \"part.xml\": its data gives 26 bytes, fewer than the 40 "
                    "declared"},
        BadDataCase{"corrupt deflate data", [](auto& i) { i.data = std::string(8, '\xFF'); },
                    "Invalid ZIP item \"part.xml\": its compressed data is corrupt (invalid "
                    "block type)"},
        BadDataCase{"truncated deflate data",
                    [](auto& i) {
                      std::string d = opcvk_test::deflateRaw(i.content);
                      i.data = d.substr(0, d.size() - 3);
                    },
                    "Invalid ZIP item \"part.xml\": its compressed data ends before the deflate "
                    "stream does"}),
    [](::testing::TestParamInfo<BadDataCase> const& p) {
      std::string name;
      for (char c : std::string(p.param.what)) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      }
      return name;
    });

TEST(ZipArchiveTest, OpensFilesAndReportsMissingOnes) {
  EXPECT_THROW_MESSAGE(opc::model::detail::openFileSource("/nonexistent/x.zip"),
                       opc::model::CouldNotOpenPackage,
                       "Could not open package \"/nonexistent/x.zip\": No such file or directory");
}

}  // namespace
