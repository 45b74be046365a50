#include "format.h"

#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

namespace {

using boost::posix_time::ptime;

opc::Perms::Perms_tag perms(unsigned value) { return static_cast<opc::Perms::Perms_tag>(value); }

TEST(FormatTest, PermissionsReadAsLsShowsThem) {
  struct Case {
    unsigned bits;
    char const* text;
  };
  std::vector<Case> const cases = {
      {0755, "rwxr-xr-x"},  {0640, "rw-r-----"},  {0, "---------"},
      {0777, "rwxrwxrwx"},  {04755, "rwsr-xr-x"}, {04644, "rwSr--r--"},
      {02750, "rwxr-s---"}, {01777, "rwxrwxrwt"}, {01776, "rwxrwxrwT"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.bits);
    EXPECT_EQ(opcvk::permissionsText(perms(c.bits)), c.text);
  }
}

TEST(FormatTest, UnknownPermissionsShowAsQuestionMarks) {
  EXPECT_EQ(opcvk::permissionsText(opc::Perms::unknown), "?????????");
  EXPECT_EQ(opcvk::permissionsOctal(opc::Perms::unknown), "");
}

TEST(FormatTest, OctalPermissionsHaveFourDigits) {
  EXPECT_EQ(opcvk::permissionsOctal(perms(0644)), "0644");
  EXPECT_EQ(opcvk::permissionsOctal(perms(0)), "0000");
  EXPECT_EQ(opcvk::permissionsOctal(perms(04755)), "4755");
}

TEST(FormatTest, TimeShowsMicrosecondsInUtc) {
  ptime const time = boost::posix_time::time_from_string("2021-03-04 05:06:07.123456");
  EXPECT_EQ(opcvk::timeText(time), "2021-03-04 05:06:07.123456");
  EXPECT_EQ(opcvk::timeIso(time), "2021-03-04T05:06:07.123456Z");
}

TEST(FormatTest, WholeSecondsStillShowSixDigits) {
  ptime const time = boost::posix_time::time_from_string("1999-12-31 23:59:59");
  EXPECT_EQ(opcvk::timeText(time), "1999-12-31 23:59:59.000000");
  EXPECT_EQ(opcvk::timeIso(time), "1999-12-31T23:59:59.000000Z");
}

TEST(FormatTest, UnknownTimeKeepsTheColumnWidth) {
  std::string const unknown = opcvk::timeText(ptime(boost::posix_time::not_a_date_time));
  EXPECT_EQ(unknown, "-" + std::string(25, ' '));
  EXPECT_EQ(unknown.size(),
            opcvk::timeText(boost::posix_time::time_from_string("2021-03-04 05:06:07")).size());
  EXPECT_EQ(opcvk::timeIso(ptime(boost::posix_time::not_a_date_time)), "");
  EXPECT_EQ(opcvk::timeText(ptime(boost::posix_time::pos_infin)), unknown);
}

TEST(FormatTest, SizesAreRightAlignedInTwelveColumns) {
  EXPECT_EQ(opcvk::sizeColumn(0), "           0");
  EXPECT_EQ(opcvk::sizeColumn(281), "         281");
  EXPECT_EQ(opcvk::sizeColumn(999999999999ULL), "999999999999");
  // A larger size widens its column rather than losing digits.
  EXPECT_EQ(opcvk::sizeColumn(1234567890123ULL), "1234567890123");
}

TEST(FormatTest, BytesForPeople) {
  EXPECT_EQ(opcvk::bytesText(0), "0 B");
  EXPECT_EQ(opcvk::bytesText(1023), "1023 B");
  EXPECT_EQ(opcvk::bytesText(1536), "1.5 KiB");
  EXPECT_EQ(opcvk::bytesText(1024 * 1024 - 1), "1.0 MiB");
  EXPECT_EQ(opcvk::bytesText(3ULL << 30), "3.0 GiB");
}

TEST(FormatTest, DurationsForPeople) {
  EXPECT_EQ(opcvk::durationText(0), "0:00");
  EXPECT_EQ(opcvk::durationText(7.4), "0:07");
  EXPECT_EQ(opcvk::durationText(754), "12:34");
  EXPECT_EQ(opcvk::durationText(3723), "1:02:03");
  EXPECT_EQ(opcvk::durationText(-5), "0:00");
}

}  // namespace

TEST(FormatTest, AppendingFormsAddToTheTextTheyAreGiven) {
  std::string line = "x";
  opcvk::appendPermissionsText(line, perms(04751));
  opcvk::appendPermissionsText(line, opc::Perms::unknown);
  opcvk::appendSizeColumn(line, 0);
  opcvk::appendSizeColumn(line, 18446744073709551615ULL);
  opcvk::appendTimeText(line, boost::posix_time::time_from_string("1400-01-01 00:00:00.000001"));
  opcvk::appendTimeText(line, ptime(boost::posix_time::not_a_date_time));
  opcvk::appendTimeText(line, boost::posix_time::time_from_string("9999-12-31 23:59:59.999999"));
  EXPECT_EQ(line,
            "xrwsr-x--x?????????           018446744073709551615"
            "1400-01-01 00:00:00.000001-                         "
            "9999-12-31 23:59:59.999999");
}

TEST(FormatTest, LongColumnsReadAsTheirFieldsWithTwoBlanksAfterEach) {
  std::string line = ">";
  opcvk::appendLongColumns(line, 'd', perms(01777), 1234567890123ULL,
                           boost::posix_time::time_from_string("2021-03-04 05:06:07.5"));
  opcvk::appendLongColumns(line, '-', opc::Perms::unknown, 7,
                           ptime(boost::posix_time::not_a_date_time));
  EXPECT_EQ(line,
            ">drwxrwxrwt  1234567890123  2021-03-04 05:06:07.500000  "
            "-?????????             7  -                           ");
}
