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

INSTANTIATE_TEST_SUITE_P(
    Table, ZipItemNamesTest,
    ::testing::Values(MappingCase{u"/a", "a"}, MappingCase{u"/_rels/.rels", "_rels/.rels"},
                      MappingCase{u"/word/document.xml", "word/document.xml"},
                      MappingCase{u"/fsroot/a%20b.txt", "fsroot/a%20b.txt"},
                      MappingCase{u"/fsroot/%C3%A9.txt", "fsroot/%C3%A9.txt"},
                      MappingCase{u"/\u00e9t\u00e9.xml", "\xC3\xA9t\xC3\xA9.xml"},
                      MappingCase{u"/\u65e5\u672c/\u8a9e", "\xE6\x97\xA5\xE6\x9C\xAC/\xE8\xAA\x9E"},
                      MappingCase{u"/\U0001F600", "\xF0\x9F\x98\x80"},
                      MappingCase{u"/A/B.XML", "A/B.XML"}));

TEST(ZipItemNamesTest, KeepsEquivalentSpellingsApart) {
  // The two spellings are one part name, but each maps back to its own text.
  PartName const iri = partNameFromZipItemName("\xC3\xA9");
  PartName const uri = partNameFromZipItemName("%C3%A9");
  EXPECT_EQ(iri, uri);
  EXPECT_EQ(toZipItemName(iri), "\xC3\xA9");
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
