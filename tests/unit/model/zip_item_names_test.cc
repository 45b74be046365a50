#include <string>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/model/zip_item_names.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartName;
using opc::model::PartName;
using opc::model::partNameFromZipItemName;
using opc::model::toZipItemName;

struct MappingCase {
  std::u16string partName;
  std::string itemName;
};

class ZipItemNamesTest : public ::testing::TestWithParam<MappingCase> {};

TEST_P(ZipItemNamesTest, MapsBothWays) {
  MappingCase const& c = GetParam();
  EXPECT_EQ(toZipItemName(PartName(c.partName)), c.itemName);
  PartName const back = partNameFromZipItemName(c.itemName);
  EXPECT_EQ(back.toString(), c.partName);
}

INSTANTIATE_TEST_SUITE_P(Table, ZipItemNamesTest,
                         ::testing::Values(MappingCase{u"/a", "a"},
                                           MappingCase{u"/_rels/.rels", "_rels/.rels"},
                                           MappingCase{u"/word/document.xml", "word/document.xml"},
                                           MappingCase{u"/fsroot/a%20b.txt", "fsroot/a%20b.txt"},
                                           MappingCase{u"/fsroot/%C3%A9.txt", "fsroot/%C3%A9.txt"},
                                           MappingCase{u"/A/B.XML", "A/B.XML"}));

class ZipItemNamesNonAsciiTest : public ::testing::TestWithParam<MappingCase> {};

// Non-ASCII names are written in their URI form and come back as the same part name.
TEST_P(ZipItemNamesNonAsciiTest, WritesTheUriFormAndReadsBackTheSameName) {
  MappingCase const& c = GetParam();
  PartName const name(c.partName);
  EXPECT_EQ(toZipItemName(name), c.itemName);
  PartName const back = partNameFromZipItemName(c.itemName);
  EXPECT_EQ(back, name);
  EXPECT_EQ(toZipItemName(back), c.itemName);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ZipItemNamesNonAsciiTest,
    ::testing::Values(MappingCase{u"/\u00e9t\u00e9.xml", "%C3%A9t%C3%A9.xml"},
                      MappingCase{u"/\u65e5\u672c/\u8a9e", "%E6%97%A5%E6%9C%AC/%E8%AA%9E"},
                      MappingCase{u"/\U0001F600", "%F0%9F%98%80"},
                      MappingCase{u"/docs/\u00e9%20x.xml", "docs/%C3%A9%20x.xml"}));

TEST(ZipItemNamesTest, ReadsRawUtf8ItemNamesOfOtherWritersAsTheirIriForm) {
  PartName const name = partNameFromZipItemName("\xC3\xA9t\xC3\xA9.xml");
  EXPECT_EQ(name.toString(), u"/\u00e9t\u00e9.xml");
  EXPECT_EQ(name, PartName(u"/%C3%A9t%C3%A9.xml"));
  EXPECT_EQ(toZipItemName(name), "%C3%A9t%C3%A9.xml");
}

TEST(ZipItemNamesTest, EquivalentSpellingsMapToOneItemName) {
  // The two spellings are one part name, so they must not become two items.
  PartName const iri = partNameFromZipItemName("\xC3\xA9");
  PartName const uri = partNameFromZipItemName("%C3%A9");
  EXPECT_EQ(iri, uri);
  EXPECT_EQ(toZipItemName(iri), "%C3%A9");
  EXPECT_EQ(toZipItemName(uri), "%C3%A9");
}

struct InvalidCase {
  std::string itemName;
  std::string message;
};

class ZipItemNamesInvalidTest : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(ZipItemNamesInvalidTest, RefusesItemsThatAreNoParts) {
  EXPECT_THROW_MESSAGE(partNameFromZipItemName(GetParam().itemName), InvalidPartName,
                       GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ZipItemNamesInvalidTest,
    ::testing::Values(
        InvalidCase{"[Content_Types].xml",
                    "Invalid part name \"/[Content_Types].xml\": character "
                    "\"[\" is not allowed"},
        InvalidCase{"word/", "Invalid part name \"/word/\": a part name must not end with \"/\""},
        InvalidCase{"", "Invalid part name \"/\": a part name must not end with \"/\""},
        InvalidCase{"/a", "Invalid part name \"//a\": empty segments are not allowed"},
        InvalidCase{"a\\b", "Invalid part name \"/a\\b\": character \"\\\" is not allowed"},
        InvalidCase{"a/../b", "Invalid part name \"/a/../b\": segment \"..\" is not allowed"},
        InvalidCase{"caf\xE9.xml",
                    "Invalid ZIP item name \"caf\\xE9.xml\": it is not well-formed UTF-8"},
        InvalidCase{"\xC0\xAF",
                    "Invalid ZIP item name \"\\xC0\\xAF\": it is not well-formed UTF-8"},
        InvalidCase{"\xED\xA0\x80",
                    "Invalid ZIP item name \"\\xED\\xA0\\x80\": it is not well-formed UTF-8"},
        InvalidCase{"\xF4\x90\x80\x80",
                    "Invalid ZIP item name \"\\xF4\\x90\\x80\\x80\": it is not well-formed UTF-8"},
        InvalidCase{"a\xE6\x97",
                    "Invalid ZIP item name \"a\\xE6\\x97\": it is not well-formed UTF-8"},
        InvalidCase{std::string("a\0b", 3),
                    "Invalid part name \"/a\\x00b\": character U+0000 is not allowed"}));

}  // namespace
