// A writer's parts are found by name among many, in any ASCII case, and keep their order
// through deletes from the middle, parts made again, saves and an update of the saved file:
// what is read back is exactly the parts that are left, with their names, types and bytes.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::readAll;
using opcvk_test::writeAll;

struct Entry {
  std::u16string name;
  std::u16string type;
  std::string bytes;
};

std::u16string nameOf(int i) {
  std::u16string const folder = i % 3 == 0 ? u"/Caf\u00e9/" : i % 3 == 1 ? u"/dir/sub/" : u"/";
  std::u16string const base = i % 5 == 0 ? u"\u6587\u4ef6" + opcvk_test::u16(std::to_string(i))
                                         : u"File" + opcvk_test::u16(std::to_string(i));
  return folder + base + u".Txt";
}

void create(Package& package, Entry const& entry) {
  Part part = package.createPart(PartName(entry.name), ContentType(entry.type),
                                 StandardPartInfo(CompressionType::DeflateContent, 0));
  writeAll(part.getOutputStream(), entry.bytes);
}

std::u16string upper(std::u16string text) {
  for (char16_t& c : text) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  return text;
}

// `phase` counts the checks; those after the first two read the saved file.
void expectParts(Package const& package, std::vector<Entry> const& expected, int phase) {
  SCOPED_TRACE(phase);
  std::vector<Part> const parts = package.getParts().getEntries();
  ASSERT_EQ(parts.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    // A name read back from the file is spelled as its item: what is not ASCII comes back
    // percent-encoded, which names the same part.
    if (phase <= 2) {
      EXPECT_EQ(parts[i].getName().toString(), expected[i].name) << i;
    }
    EXPECT_EQ(parts[i].getName(), PartName(expected[i].name)) << i;
    PartName const other(upper(expected[i].name));
    ASSERT_TRUE(package.hasPart(other)) << i;
    Part part = package.getPart(other);
    EXPECT_EQ(part.getName(), parts[i].getName()) << i;
    EXPECT_EQ(part.getName().toString(), parts[i].getName().toString()) << i;
    EXPECT_EQ(part.getContentType(), ContentType(expected[i].type)) << i;
    EXPECT_EQ(readAll(part.getInputStream()), expected[i].bytes) << i;
  }
}

TEST(PackagePartChurnTest, ManyPartsSurviveDeletesMadeAgainSavesAndAnUpdate) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "churn.zip";
  std::vector<Entry> expected;
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    for (int i = 0; i < 600; ++i) {
      expected.push_back({nameOf(i), i % 2 ? u"text/plain" : u"application/x-even",
                          "content " + std::to_string(i)});
      create(*package, expected.back());
    }
    // Every third part goes, from the middle as much as from the ends.
    std::vector<Entry> deleted;
    for (std::size_t i = expected.size(); i-- > 0;) {
      if (i % 3 != 1) continue;
      package->deletePart(PartName(upper(expected[i].name)));
      deleted.push_back(expected[i]);
      expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(i));
    }
    EXPECT_FALSE(package->hasPart(PartName(deleted.front().name)));
    EXPECT_THROW_MESSAGE(package->getPart(PartName(deleted.front().name)), PartNotFound,
                         "No part \"" + opc::detail::toUTF8String(deleted.front().name) +
                             "\" in the package \"" + path + "\"");
    // Half of them are made again, with other bytes and another type: they come last.
    for (std::size_t i = 0; i < deleted.size(); i += 2) {
      Entry again{deleted[i].name, u"application/x-again", "again " + std::to_string(i)};
      create(*package, again);
      expected.push_back(again);
    }
    expectParts(*package, expected, 1);
    package->save();
    // A second save after more changes.
    package->deletePart(PartName(expected[5].name));
    expected.erase(expected.begin() + 5);
    writeAll(package->getPart(PartName(expected[0].name)).getOutputStream(), "rewritten");
    expected[0].bytes = "rewritten";
    package->save();
    expectParts(*package, expected, 2);
  }
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
    expectParts(*package, expected, 3);
  }
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Modify);
    for (std::size_t i : {std::size_t{300}, std::size_t{7}, std::size_t{0}}) {
      package->deletePart(PartName(expected[i].name));
      expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(i));
    }
    Entry const added{u"/dir/sub/Added\u00e9.Txt", u"text/plain", "added"};
    create(*package, added);
    expected.push_back(added);
    EXPECT_THROW(create(*package, {upper(added.name), u"text/plain", "twice"}), InvalidPartName);
    package->save();
  }
  auto package = Package::open(opcvk_test::u16(path), PackageAccess::Read);
  expectParts(*package, expected, 4);
}

}  // namespace
}  // namespace model
}  // namespace opc
