#include "filesystem/file_system_manifest_xml_values.h"

#include <clocale>
#include <locale>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartContent;
using opc::vkservices::detail::printPermissions;
using opc::vkservices::detail::printPermissionsV1;
using opc::vkservices::detail::readDate;
using opc::vkservices::detail::readPermissions;

constexpr char kNotOctal[] = "Permissions are not a valid octal value";
constexpr char kNotDecimal[] = "Permissions are not a valid decimal value";
constexpr char kNotValid[] = "Permissions are not valid value";

opc::Perms::Perms_tag perms(unsigned value) { return static_cast<opc::Perms::Perms_tag>(value); }

struct ReadCase {
  std::u16string text;
  bool isV1;
  unsigned expected;
};

TEST(FileSystemManifestXmlValuesTest, ReadsPermissionsOfBothForms) {
  std::vector<ReadCase> const cases = {
      {u"0644", false, 0644},
      {u"0755", false, 0755},
      {u"07", false, 07},
      {u"00", false, 0},
      {u"0", false, 0},
      {u"0777", false, 0777},
      // Only the nine permission bits are kept, also of a value with type bits.
      {u"0100644", false, 0644},
      {u"07777", false, 0777},
      // Characters behind the number are not looked at.
      {u"0755x", false, 0755},
      {u"0755 ", false, 0755},
      {u"08", false, 0},  // the octal number ends before the 8
      {u"33188", true, 0644},
      {u"33261", true, 0755},
      {u"32768", true, 0},
      {u"16877", true, 0755},  // a folder's mode: the type bits go
      {u"420", true, 0644},    // a bare permission value in decimal
      {u"1", true, 1},
      {u"33188abc", true, 0644},
      {u"65535", true, 0777},
  };
  for (ReadCase const& c : cases) {
    EXPECT_EQ(readPermissions(c.text, c.isV1), perms(c.expected))
        << std::string(c.text.begin(), c.text.end()) << (c.isV1 ? " (V1)" : "");
  }
}

TEST(FileSystemManifestXmlValuesTest, EmptyPermissionsAreUnknownInBothForms) {
  EXPECT_EQ(readPermissions(u"", false), opc::Perms::unknown);
  EXPECT_EQ(readPermissions(u"", true), opc::Perms::unknown);
}

struct FailCase {
  std::u16string text;
  bool isV1;
  char const* message;
};

TEST(FileSystemManifestXmlValuesTest, RefusesPermissionsThatBreakTheRule) {
  std::vector<FailCase> const cases = {
      {u"755", false, kNotOctal},
      {u"644", false, kNotOctal},
      {u" 0755", false, kNotOctal},
      {u"x", false, kNotOctal},
      {u"-0", false, kNotOctal},
      {u"\u0660755", false, kNotOctal},  // an Arabic-Indic zero is not "0"
      {u"0", true, kNotDecimal},
      {u"0644", true, kNotDecimal},
      {u"00", true, kNotDecimal},
      {u"99999", true, kNotValid},  // beyond 16 bits
      {u"65536", true, kNotValid},
      {u"abc", true, kNotValid},
      {u"+", true, kNotValid},
      {u"0200000", false, kNotValid},  // 65536 in octal
      {u"0" + std::u16string(100000, u'7'), false, kNotValid},
      {u"1" + std::u16string(100000, u'0'), true, kNotValid},
  };
  for (FailCase const& c : cases) {
    EXPECT_THROW_MESSAGE(readPermissions(c.text, c.isV1), InvalidPartContent, c.message)
        << std::string(c.text.begin(), c.text.begin() + std::min<std::size_t>(c.text.size(), 20));
  }
}

TEST(FileSystemManifestXmlValuesTest, ReadingDoesNotDependOnTheGlobalLocale) {
  struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale const previous =
      std::locale::global(std::locale(std::locale::classic(), new Grouping));
  // With grouping, "33.188" would be one number in the global locale.
  EXPECT_EQ(readPermissions(u"33.188", true), perms(33 & 0777));
  EXPECT_EQ(printPermissionsV1(perms(0644)), u"33188");
  std::locale::global(previous);
}

TEST(FileSystemManifestXmlValuesTest, PrintsPermissionsWithALeadingZeroInOctal) {
  EXPECT_EQ(printPermissions(perms(0644)), u"0644");
  EXPECT_EQ(printPermissions(perms(0755)), u"0755");
  EXPECT_EQ(printPermissions(perms(07)), u"07");
  EXPECT_EQ(printPermissions(perms(0)), u"00");
  EXPECT_EQ(printPermissions(perms(0777)), u"0777");
}

TEST(FileSystemManifestXmlValuesTest, PrintsPermissionsOfTheOlderFormAsAFileMode) {
  EXPECT_EQ(printPermissionsV1(perms(0644)), u"33188");
  EXPECT_EQ(printPermissionsV1(perms(0755)), u"33261");
  EXPECT_EQ(printPermissionsV1(perms(0)), u"32768");
}

TEST(FileSystemManifestXmlValuesTest, EveryPrintedValueReadsBackInItsForm) {
  for (unsigned value = 0; value <= 0777; ++value) {
    ASSERT_EQ(readPermissions(printPermissions(perms(value)), false), perms(value)) << value;
    ASSERT_EQ(readPermissions(printPermissionsV1(perms(value)), true), perms(value)) << value;
  }
}

TEST(FileSystemManifestXmlValuesTest, ReadsDatesAndEmptyAsUnknown) {
  using boost::posix_time::ptime;
  EXPECT_TRUE(readDate(u"").is_not_a_date_time());
  EXPECT_EQ(readDate(u"2020-02-29T01:30:00Z"),
            ptime(boost::gregorian::date(2020, 2, 29), boost::posix_time::minutes(90)));
  EXPECT_EQ(readDate(u"2020-02-29T01:30:00.25Z"),
            ptime(boost::gregorian::date(2020, 2, 29),
                  boost::posix_time::minutes(90) + boost::posix_time::milliseconds(250)));
  EXPECT_EQ(readDate(u"2020-02-29T03:30:00+02:00"),
            ptime(boost::gregorian::date(2020, 2, 29), boost::posix_time::minutes(90)));
}

TEST(FileSystemManifestXmlValuesTest, RefusesDatesThatDoNotConvert) {
  for (char16_t const* text : {u"0001-01-01T00:00:00Z", u"10000-01-01T00:00:00Z",
                               u"1399-12-31T23:59:59Z", u"2020-02-30T00:00:00Z", u"yesterday"}) {
    EXPECT_THROW_MESSAGE(readDate(text), InvalidPartContent,
                         "Last modified date/time is not valid");
  }
}

}  // namespace
