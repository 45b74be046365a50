// W3CDTF dates: a small hand-written scanner, since the forms are few and fixed-width and a
// general ISO 8601 parser would accept far more than the format allows.
#include "w3cdtf.h"

#include <cstddef>
#include <cstdint>
#include <exception>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/time_conversions.h>

namespace opc {
namespace model {
namespace detail {

namespace {

bool isXmlSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; }

// Reads exactly `count` ASCII digits at `pos`.
class Scanner {
 public:
  explicit Scanner(std::u16string const& text) : text_(text) {}

  bool digits(std::size_t count, int& value) {
    if (text_.size() - pos_ < count) return false;
    value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      char16_t c = text_[pos_ + i];
      if (c < u'0' || c > u'9') return false;
      value = value * 10 + (c - u'0');
    }
    pos_ += count;
    return true;
  }

  bool literal(char16_t c) {
    if (atEnd() || text_[pos_] != c) return false;
    ++pos_;
    return true;
  }

  bool peekDigit() const { return !atEnd() && text_[pos_] >= u'0' && text_[pos_] <= u'9'; }
  bool atEnd() const { return pos_ == text_.size(); }
  char16_t peek() const { return text_[pos_]; }

 private:
  std::u16string const& text_;
  std::size_t pos_ = 0;
};

boost::optional<boost::gregorian::date> makeDate(int year, int month, int day) {
  if (month < 1 || month > 12 || day < 1) return boost::none;
  if (year < 1400 || year > 9999) return boost::none;
  if (day > boost::gregorian::gregorian_calendar::end_of_month_day(
                static_cast<unsigned short>(year), static_cast<unsigned short>(month))) {
    return boost::none;
  }
  return boost::gregorian::date(static_cast<unsigned short>(year),
                                static_cast<unsigned short>(month),
                                static_cast<unsigned short>(day));
}

// The zone designator, as minutes east of UTC.  No designator at all counts as UTC.
bool zone(Scanner& scanner, int& offsetMinutes) {
  offsetMinutes = 0;
  if (scanner.atEnd()) return true;
  if (scanner.literal(u'Z')) return scanner.atEnd();
  int sign = 0;
  if (scanner.literal(u'+')) {
    sign = 1;
  } else if (scanner.literal(u'-')) {
    sign = -1;
  } else {
    return false;
  }
  int hours = 0;
  int minutes = 0;
  if (!scanner.digits(2, hours) || !scanner.literal(u':') || !scanner.digits(2, minutes)) {
    return false;
  }
  if (hours > 23 || minutes > 59 || !scanner.atEnd()) return false;
  offsetMinutes = sign * (hours * 60 + minutes);
  return true;
}

}  // namespace

boost::optional<boost::posix_time::ptime> parseW3cdtf(std::u16string const& raw) {
  std::size_t first = 0;
  std::size_t last = raw.size();
  while (first < last && isXmlSpace(raw[first])) ++first;
  while (last > first && isXmlSpace(raw[last - 1])) --last;
  std::u16string const text = raw.substr(first, last - first);

  Scanner scanner(text);
  int year = 0;
  int month = 1;
  int day = 1;
  bool fullDate = false;
  if (!scanner.digits(4, year)) return boost::none;
  if (scanner.literal(u'-')) {
    if (!scanner.digits(2, month)) return boost::none;
    if (scanner.literal(u'-')) {
      if (!scanner.digits(2, day)) return boost::none;
      fullDate = true;
    }
  }
  boost::optional<boost::gregorian::date> date = makeDate(year, month, day);
  if (!date) return boost::none;
  if (scanner.atEnd()) return boost::posix_time::ptime(*date);
  // A time needs the full date before it.
  if (!fullDate || !scanner.literal(u'T')) return boost::none;

  int hour = 0;
  int minute = 0;
  int second = 0;
  std::int64_t micros = 0;
  if (!scanner.digits(2, hour) || !scanner.literal(u':') || !scanner.digits(2, minute)) {
    return boost::none;
  }
  if (scanner.literal(u':')) {
    if (!scanner.digits(2, second)) return boost::none;
    if (scanner.literal(u'.')) {
      if (!scanner.peekDigit()) return boost::none;
      int position = 0;
      while (scanner.peekDigit()) {
        int digit = 0;
        scanner.digits(1, digit);
        // Digits past the microsecond are read and dropped.
        if (position < 6) micros = micros * 10 + digit;
        ++position;
      }
      for (; position < 6; ++position) micros *= 10;
    }
  }
  if (hour > 23 || minute > 59 || second > 59) return boost::none;
  int offsetMinutes = 0;
  if (!zone(scanner, offsetMinutes)) return boost::none;

  try {
    boost::posix_time::ptime local(
        *date, boost::posix_time::hours(hour) + boost::posix_time::minutes(minute) +
                   boost::posix_time::seconds(second) + boost::posix_time::microseconds(micros));
    boost::posix_time::ptime utc = local - boost::posix_time::minutes(offsetMinutes);
    if (utc.is_special() || utc.date().year() < 1400 || utc.date().year() > 9999) {
      return boost::none;
    }
    return utc;
  } catch (std::exception const&) {
    // The zone carried the instant out of the calendar's range.
    return boost::none;
  }
}

std::u16string formatW3cdtf(boost::posix_time::ptime time) {
  // The fraction keeps every digit of the clock's resolution.  Cut to its last non-zero digit it
  // can have four, and readers that take the first 19 characters as the time read the six that
  // follow (".1234Z") as a zone offset and drop the date.
  boost::posix_time::time_duration const day = time.time_of_day();
  std::int64_t const fraction = day.fractional_seconds();
  std::u16string text =
      opc::convertTimeToString(time - boost::posix_time::time_duration(0, 0, 0, fraction));
  if (fraction == 0) return text;
  std::u16string digits(
      static_cast<std::size_t>(boost::posix_time::time_duration::num_fractional_digits()), u'0');
  std::int64_t rest = fraction;
  for (auto place = digits.rbegin(); place != digits.rend() && rest != 0; ++place, rest /= 10) {
    *place = static_cast<char16_t>(u'0' + rest % 10);
  }
  text.insert(text.size() - 1, u"." + digits);
  return text;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
