#include <string>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>

namespace {

using boost::gregorian::date;
using boost::posix_time::hours;
using boost::posix_time::microseconds;
using boost::posix_time::minutes;
using boost::posix_time::ptime;
using boost::posix_time::seconds;
using opc::convertStringToTime;
using opc::convertTimeToString;

ptime at(int year, int month, int day, int h, int m, int s, long us = 0) {
  return ptime(date(static_cast<unsigned short>(year), static_cast<unsigned short>(month),
                    static_cast<unsigned short>(day)),
               hours(h) + minutes(m) + seconds(s) + microseconds(us));
}

std::string narrow(std::u16string const& text) { return opc::toASCIIString(text); }

// --- Writing and reading back ----------------------------------------------------------

struct WrittenCase {
  ptime time;
  std::u16string text;
};

class TimeRoundTripTest : public ::testing::TestWithParam<WrittenCase> {};

TEST_P(TimeRoundTripTest, WritesTheCanonicalFormAndReadsItBack) {
  WrittenCase const& c = GetParam();
  EXPECT_EQ(narrow(convertTimeToString(c.time)), narrow(c.text));
  EXPECT_EQ(convertStringToTime(convertTimeToString(c.time)), c.time);
}

INSTANTIATE_TEST_SUITE_P(
    Table, TimeRoundTripTest,
    ::testing::Values(
        WrittenCase{at(2026, 11, 21, 10, 20, 30), u"2026-11-21T10:20:30Z"},
        WrittenCase{at(1400, 1, 1, 0, 0, 0), u"1400-01-01T00:00:00Z"},
        WrittenCase{at(9999, 12, 31, 23, 59, 59, 999999), u"9999-12-31T23:59:59.999999Z"},
        WrittenCase{at(1970, 1, 1, 0, 0, 0), u"1970-01-01T00:00:00Z"},
        WrittenCase{at(2024, 2, 29, 12, 0, 0), u"2024-02-29T12:00:00Z"},
        WrittenCase{at(2000, 2, 29, 23, 59, 59), u"2000-02-29T23:59:59Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 500000), u"2026-01-02T03:04:05.5Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 120000), u"2026-01-02T03:04:05.12Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 123000), u"2026-01-02T03:04:05.123Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 123400), u"2026-01-02T03:04:05.1234Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 123450), u"2026-01-02T03:04:05.12345Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 123456), u"2026-01-02T03:04:05.123456Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 1), u"2026-01-02T03:04:05.000001Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 10), u"2026-01-02T03:04:05.00001Z"},
        WrittenCase{at(2026, 1, 2, 3, 4, 5, 100000), u"2026-01-02T03:04:05.1Z"},
        WrittenCase{at(1999, 12, 31, 23, 59, 59, 900001), u"1999-12-31T23:59:59.900001Z"}));

TEST(TimeConversionsTest, SpecialTimesHaveNoText) {
  EXPECT_EQ(convertTimeToString(ptime(boost::posix_time::not_a_date_time)), u"");
  EXPECT_EQ(convertTimeToString(ptime(boost::posix_time::pos_infin)), u"");
  EXPECT_EQ(convertTimeToString(ptime(boost::posix_time::neg_infin)), u"");
}

TEST(TimeConversionsTest, CurrentTimeIsUtcNowAndRoundTrips) {
  ptime const before = boost::posix_time::second_clock::universal_time();
  ptime const now = opc::getCurrentTime();
  ptime const after = boost::posix_time::second_clock::universal_time();
  ASSERT_FALSE(now.is_special());
  EXPECT_GE(now, before);
  EXPECT_LT(now, after + seconds(1));
  EXPECT_EQ(convertStringToTime(convertTimeToString(now)), now);
}

TEST(TimeConversionsTest, EveryMicrosecondOfASecondRoundTrips) {
  ptime const base = at(2031, 7, 14, 6, 30, 15);
  for (long us = 0; us < 1000000; us += 997) {
    ptime const t = base + microseconds(us);
    ASSERT_EQ(convertStringToTime(convertTimeToString(t)), t) << us;
  }
}

TEST(TimeConversionsTest, EveryDayOfALeapYearRoundTrips) {
  for (ptime t = at(2028, 1, 1, 23, 59, 59, 999999); t < at(2029, 1, 1, 0, 0, 0); t += hours(24)) {
    ASSERT_EQ(convertStringToTime(convertTimeToString(t)), t) << narrow(convertTimeToString(t));
  }
}

TEST(TimeConversionsTest, FirstAndLastDayOfEveryMonthOfTheCalendarAgreeWithItsDates) {
  // Every year of the calendar, leap years of the century rules included, and the days on
  // either side of each month's end, against boost's own date arithmetic.
  for (int year = 1400; year <= 9999; ++year) {
    for (int month = 1; month <= 12; ++month) {
      date const first(static_cast<unsigned short>(year), static_cast<unsigned short>(month), 1);
      date const last = first.end_of_month();
      for (date const day : {first, last}) {
        ptime const t(day, hours(13) + minutes(7) + seconds(5) + microseconds(42));
        ASSERT_EQ(convertStringToTime(convertTimeToString(t)), t) << narrow(convertTimeToString(t));
      }
    }
  }
}

TEST(TimeConversionsTest, ZonesMoveTheDateAcrossTheEdgesOfTheCalendar) {
  EXPECT_EQ(convertStringToTime(u"1400-01-01T10:00:00+10:00"), at(1400, 1, 1, 0, 0, 0));
  EXPECT_TRUE(convertStringToTime(u"1400-01-01T09:59:59+10:00").is_not_a_date_time());
  EXPECT_EQ(convertStringToTime(u"9999-12-31T23:59:59-00:00"), at(9999, 12, 31, 23, 59, 59));
  EXPECT_TRUE(convertStringToTime(u"9999-12-31T24:00:00Z").is_not_a_date_time());
  EXPECT_TRUE(convertStringToTime(u"9999-12-31T20:00:00-04:00").is_not_a_date_time());
  EXPECT_EQ(convertStringToTime(u"2000-02-28T24:00:00Z"), at(2000, 2, 29, 0, 0, 0));
  EXPECT_EQ(convertStringToTime(u"2100-03-01T01:00:00+02:00"), at(2100, 2, 28, 23, 0, 0));
}

// --- Reading the forms of other writers ------------------------------------------------

struct ReadCase {
  std::u16string text;
  ptime time;
};

class ReadTimeTest : public ::testing::TestWithParam<ReadCase> {};

TEST_P(ReadTimeTest, ReadsAsUtc) {
  ReadCase const& c = GetParam();
  EXPECT_EQ(convertStringToTime(c.text), c.time) << narrow(c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ReadTimeTest,
    ::testing::Values(
        ReadCase{u"2026-11-21T10:20:30Z", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30+00:00", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30-00:00", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30+02:00", at(2026, 11, 21, 8, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30-05:30", at(2026, 11, 21, 15, 50, 30)},
        ReadCase{u"2026-11-21T00:10:00+01:00", at(2026, 11, 20, 23, 10, 0)},
        ReadCase{u"2026-12-31T20:00:00-05:00", at(2027, 1, 1, 1, 0, 0)},
        ReadCase{u"2024-03-01T01:00:00+14:00", at(2024, 2, 29, 11, 0, 0)},
        ReadCase{u"2023-03-01T01:00:00+14:00", at(2023, 2, 28, 11, 0, 0)},
        ReadCase{u"2026-11-21T10:20:30-14:00", at(2026, 11, 22, 0, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30.5Z", at(2026, 11, 21, 10, 20, 30, 500000)},
        ReadCase{u"2026-11-21T10:20:30.0Z", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30.000000000Z", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"2026-11-21T10:20:30.123456789Z", at(2026, 11, 21, 10, 20, 30, 123456)},
        ReadCase{u"2026-11-21T10:20:30.9999999999999+01:00", at(2026, 11, 21, 9, 20, 30, 999999)},
        ReadCase{u"2026-11-21T24:00:00", at(2026, 11, 22, 0, 0, 0)},
        ReadCase{u"2026-11-21T24:00:00.000Z", at(2026, 11, 22, 0, 0, 0)},
        ReadCase{u"2026-12-31T24:00:00Z", at(2027, 1, 1, 0, 0, 0)},
        ReadCase{u"2026-11-21T24:00:00+02:00", at(2026, 11, 21, 22, 0, 0)},
        ReadCase{u"  2026-11-21T10:20:30Z\n", at(2026, 11, 21, 10, 20, 30)},
        ReadCase{u"\t\r\n2026-11-21T10:20:30Z \t", at(2026, 11, 21, 10, 20, 30)},
        // Near the ends of the calendar, offsets that stay inside it.
        ReadCase{u"1400-01-01T10:00:00+10:00", at(1400, 1, 1, 0, 0, 0)},
        ReadCase{u"1400-01-02T00:00:00+14:00", at(1400, 1, 1, 10, 0, 0)},
        ReadCase{u"9999-12-31T09:59:59.999999-14:00", at(9999, 12, 31, 23, 59, 59, 999999)},
        ReadCase{u"9999-12-30T24:00:00Z", at(9999, 12, 31, 0, 0, 0)},
        // The end of the last day, seen from a zone ahead of UTC, is still inside it.
        ReadCase{u"9999-12-31T24:00:00+14:00", at(9999, 12, 31, 10, 0, 0)}));

// --- Texts that are not xsd:dateTime, or lie outside the calendar -----------------------

class InvalidTimeTest : public ::testing::TestWithParam<std::u16string> {};

TEST_P(InvalidTimeTest, GivesNotADateTimeWithoutRaising) {
  ptime result;
  EXPECT_NO_THROW(result = convertStringToTime(GetParam())) << narrow(GetParam());
  EXPECT_TRUE(result.is_not_a_date_time()) << narrow(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Table, InvalidTimeTest,
    ::testing::Values(
        u"", u" ", u"garbage", u"Z", u"T", u"2026", u"2026-11-21", u"2026-11-21T", u"2026-11-21Z",
        u"10:20:30", u"2026-11-21T10:20", u"2026-11-21T10:20Z", u"2026-11-21T10:20:3",
        u"2026-11-21t10:20:30Z", u"2026-11-21T10:20:30z", u"2026-11-21 10:20:30Z",
        u"2026-11-21T10:20:30ZZ", u"2026-11-21T10:20:30Z garbage", u"x2026-11-21T10:20:30Z",
        // Fields of the wrong width or with signs.
        u"26-11-21T10:20:30Z", u"02026-11-21T10:20:30Z", u"12026-11-21T10:20:30Z",
        u"+2026-11-21T10:20:30Z", u"-2026-11-21T10:20:30Z", u"2026-1-21T10:20:30Z",
        u"2026-11-1T10:20:30Z", u"2026-11-21T1:20:30Z", u"2026-11-21T10:2:30Z",
        u"2026-11-21T10:20:30.Z", u"2026-11-21T10:20:30.", u"2026-11-21T10:20:30,5Z",
        u"2026-11-21T10:20:30.5.5Z", u"2026-11-21T10:20:30.-5Z",
        u"\uff12\uff10\uff12\uff16-11-21T10:20:30Z",
        // Values out of range.
        u"2026-00-21T10:20:30Z", u"2026-13-21T10:20:30Z", u"2026-11-00T10:20:30Z",
        u"2026-11-31T10:20:30Z", u"2026-02-30T00:00:00Z", u"2026-02-29T00:00:00Z",
        u"1900-02-29T00:00:00Z", u"2026-04-31T00:00:00Z", u"2026-11-32T00:00:00Z",
        u"2026-11-21T25:00:00Z", u"2026-11-21T23:60:00Z", u"2026-11-21T23:59:60Z",
        u"2026-11-21T24:00:01Z", u"2026-11-21T24:01:00Z", u"2026-11-21T24:00:00.000001Z",
        // Zones.
        u"2026-11-21T10:20:30+15:00", u"2026-11-21T10:20:30+14:01", u"2026-11-21T10:20:30-14:30",
        u"2026-11-21T10:20:30+02:60", u"2026-11-21T10:20:30+0200", u"2026-11-21T10:20:30+02",
        u"2026-11-21T10:20:30+2:00", u"2026-11-21T10:20:30 +02:00", u"2026-11-21T10:20:30UTC",
        u"2026-11-21T10:20:30+02:00Z",
        // Outside the calendar of boost::gregorian, before or after the zone is applied.
        u"0000-01-01T00:00:00Z", u"0001-01-01T00:00:00Z", u"1399-12-31T23:59:59Z",
        u"10000-01-01T00:00:00Z", u"1400-01-01T00:00:00+00:01", u"1400-01-01T13:59:59+14:00",
        u"9999-12-31T23:59:59-00:01", u"9999-12-31T10:00:00-14:00", u"9999-12-31T24:00:00Z"));

TEST(TimeConversionsTest, InvalidTextsBesideValidOnesStillFail) {
  // Embedded NUL: the whole text counts, not a C string's prefix.
  std::u16string const withNul(u"2026-11-21T10:20:30Z\0", 21);
  EXPECT_TRUE(convertStringToTime(withNul).is_not_a_date_time());
  EXPECT_EQ(convertStringToTime(withNul.substr(0, 20)), at(2026, 11, 21, 10, 20, 30));
}

}  // namespace
