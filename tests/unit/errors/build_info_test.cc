#include <cstring>
#include <regex>
#include <string>

#include <boost/date_time/gregorian/gregorian.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <opc/vkservices/version.h>

namespace {

TEST(BuildInfoTest, VersionIsFourDecimalNumbers) {
  ASSERT_NE(opcvkservices_version, nullptr);
  EXPECT_TRUE(
      std::regex_match(opcvkservices_version, std::regex("(0|[1-9][0-9]*)(\\.(0|[1-9][0-9]*)){3}")))
      << opcvkservices_version;
}

TEST(BuildInfoTest, VersionIsTheProjectVersion) {
  EXPECT_STREQ(opcvkservices_version, OPCVK_EXPECTED_VERSION);
}

TEST(BuildInfoTest, BuildDateHasEnglishMonthTwoDigitDayAndYear) {
  ASSERT_NE(opcvkservices_build_date, nullptr);
  EXPECT_TRUE(std::regex_match(
      opcvkservices_build_date,
      std::regex("(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [0-3][0-9] [0-9]{4}")))
      << opcvkservices_build_date;
}

TEST(BuildInfoTest, BuildDateIsARealDayNotInTheFuture) {
  std::string const text = opcvkservices_build_date;
  ASSERT_EQ(text.size(), 11u) << text;
  static char const* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  unsigned short month = 0;
  for (unsigned short i = 0; i < 12; ++i) {
    if (text.compare(0, 3, kMonths[i]) == 0) month = static_cast<unsigned short>(i + 1);
  }
  ASSERT_NE(month, 0) << text;
  int const day = std::stoi(text.substr(4, 2));
  int const year = std::stoi(text.substr(7, 4));
  // Building the date checks it: a day that the month does not have raises.
  boost::gregorian::date const built(static_cast<unsigned short>(year), month,
                                     static_cast<unsigned short>(day));
  // The date is taken in UTC when the library is configured.
  boost::gregorian::date const today = boost::posix_time::second_clock::universal_time().date();
  EXPECT_LE(built, today) << text;
}

}  // namespace
