// Package::visitParts: every part's name, size and content type, as getParts' handles tell
// them, in the same order, whether the package was read from an archive (for Read, without a
// record per part; for Modify) or made in memory, and however it changed since.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/package.h>
#include <opc/model/standard_part_info.h>

#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using opcvk_test::makeZip;

struct Seen {
  std::u16string name;
  std::uint64_t size;
  std::u16string type;
  bool operator==(Seen const& other) const {
    return name == other.name && size == other.size && type == other.type;
  }
};

void PrintTo(Seen const& seen, std::ostream* out) {
  *out << opc::toUDEString(seen.name) << " " << seen.size << " " << opc::toUDEString(seen.type);
}

std::vector<Seen> visited(Package const& package) {
  std::vector<Seen> seen;
  package.visitParts(
      [&seen](std::u16string const& name, std::uint64_t size, ContentType const& type) {
        seen.push_back({name, size, type.toString()});
      });
  return seen;
}

std::vector<Seen> throughHandles(Package const& package) {
  std::vector<Seen> seen;
  for (Part const& part : package.getParts()) {
    seen.push_back({part.getName().toString(), part.getSize(), part.getContentType().toString()});
  }
  return seen;
}

// The usual types, and one part of a type of its own.
std::string types() {
  std::string text = opcvk_test::minimalTypes();
  text.insert(text.rfind("</Types>"),
              "<Override PartName=\"/Docs/Special.txt\" ContentType=\"text/x-special\"/>");
  return text;
}

opcvk_test::Bytes someParts() {
  return makeZip({{"[Content_Types].xml", types()},
                  {"Docs/Readme.TXT", "read me"},
                  {"Docs/Special.txt", "special"},
                  {"_rels/.rels", opcvk_test::relationshipsXml("")},
                  {"data/_rels/a.xml.rels", opcvk_test::relationshipsXml("")},
                  {"data/a.xml", "<a/>"},
                  {"data/\xC3\xA9t\xC3\xA9%20.xml", "<summer/>"},
                  {"data/empty.xml", ""}});
}

std::vector<Seen> const kSomeParts = {
    {u"/Docs/Readme.TXT", 7, u"text/plain"},
    {u"/Docs/Special.txt", 7, u"text/x-special"},
    {u"/data/a.xml", 4, u"application/xml"},
    {u"/data/\u00E9t\u00E9%20.xml", 9, u"application/xml"},
    {u"/data/empty.xml", 0, u"application/xml"},
};

class PackageVisitPartsTest : public ::testing::TestWithParam<PackageAccess> {};

TEST_P(PackageVisitPartsTest, TellsWhatTheHandlesTellInTheArchivesOrder) {
  auto package = Package::openBuffer(someParts(), GetParam());
  EXPECT_EQ(visited(*package), kSomeParts);
  EXPECT_EQ(throughHandles(*package), kSomeParts);
  // Once the handles' records exist, from them: the same.
  EXPECT_EQ(visited(*package), kSomeParts);
}

TEST_P(PackageVisitPartsTest, TellsNothingOfAPackageWithoutParts) {
  auto package = Package::openBuffer(makeZip({{"[Content_Types].xml", types()}}), GetParam());
  EXPECT_TRUE(visited(*package).empty());
}

INSTANTIATE_TEST_SUITE_P(ReadAndModify, PackageVisitPartsTest,
                         ::testing::Values(PackageAccess::Read, PackageAccess::Modify));

TEST(PackageVisitPartsChangesTest, FollowsPartsMadeAndDeleted) {
  auto package = Package::openBuffer(someParts(), PackageAccess::Modify);
  package->deletePart(PartName(u"/data/a.xml"));
  Part made = package->createPart(
      PartName(u"/new/b.txt"), ContentType(u"text/plain"),
      interfaces::StandardPartInfo(interfaces::CompressionType::DeflateMetadata, 0));
  opcvk_test::writeAll(made.getOutputStream(), "twelve bytes");
  std::vector<Seen> const seen = visited(*package);
  EXPECT_EQ(seen, throughHandles(*package));
  ASSERT_EQ(seen.size(), kSomeParts.size());
  EXPECT_EQ(seen.back(), (Seen{u"/new/b.txt", 12, u"text/plain"}));
}

}  // namespace
}  // namespace model
}  // namespace opc
