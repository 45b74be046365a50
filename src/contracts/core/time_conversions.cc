#include <cstddef>
#include <cstdint>
#include <string>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/time_conversions.h>

namespace opc {
namespace {

namespace gregorian = boost::gregorian;
namespace posix_time = boost::posix_time;

constexpr int kFirstYear = 1400;
constexpr int kLastYear = 9999;
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
constexpr std::int64_t kMicrosecondsPerDay = 86400 * kMicrosecondsPerSecond;

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int year, int month) {
  static int const kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// The days from 1970-01-01 to this date of the proleptic Gregorian calendar, negative before
// it: the count of whole 400-year eras from 0000-03-01, and the day within the era, with the
// year taken to begin in March so that a leap day falls at its end.
std::int64_t daysSince1970(int year, int month, int day) {
  int const y = month <= 2 ? year - 1 : year;
  int const era = y / 400;  // years from 1400 on are never negative
  int const yearOfEra = y - era * 400;
  int const dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  int const dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return static_cast<std::int64_t>(era) * 146097 + dayOfEra - 719468;
}

posix_time::ptime const& unixEpoch() {
  static posix_time::ptime const epoch(gregorian::date(1970, 1, 1));
  return epoch;
}

// The xsd:whiteSpace "collapse" facet of xsd:dateTime lets a reader ignore XML white space
// around the value; nothing else is white space to it.
bool isXmlSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; }

// A reader over the text that moves only forward and never reads past the end.  Each step
// checks its own input, so that a value reaches boost::gregorian only when it is known to
// be valid: the calendar raises for anything out of range.
class Reader {
 public:
  Reader(char16_t const* begin, char16_t const* end) : next_(begin), end_(end) {}

  bool atEnd() const { return next_ == end_; }
  bool peek(char16_t c) const { return next_ != end_ && *next_ == c; }

  bool skip(char16_t c) {
    if (!peek(c)) return false;
    ++next_;
    return true;
  }

  bool isDigit() const { return next_ != end_ && *next_ >= u'0' && *next_ <= u'9'; }

  // Exactly `count` digits, within [low, high].
  bool number(int count, int low, int high, int& value) {
    value = 0;
    for (int k = 0; k < count; ++k) {
      if (!isDigit()) return false;
      value = value * 10 + (*next_++ - u'0');
    }
    return value >= low && value <= high;
  }

  // One or more digits after the decimal point, as microseconds: digits beyond the sixth
  // are read and dropped, so that any precision that a writer uses is accepted.
  bool fraction(std::int64_t& microseconds) {
    if (!isDigit()) return false;
    microseconds = 0;
    int digits = 0;
    for (; isDigit(); ++next_) {
      if (digits < 6) {
        microseconds = microseconds * 10 + (*next_ - u'0');
        ++digits;
      }
    }
    for (; digits < 6; ++digits) microseconds *= 10;
    return true;
  }

 private:
  char16_t const* next_;
  char16_t const* end_;
};

// "yyyy-mm-ddThh:mm:ss": the date and time of day have exactly these digits at these places,
// so they are read without checking for the end of the text before every character.
constexpr std::ptrdiff_t kFixedLength = 19;

// The value of the `Width` digits from `at`, or false if another character stands there.
// Each digit is checked and added on its own, without a loop: a manifest reads a time per
// entry, and a loop over the fields and their widths cost twice what the text does.
template <int Width>
bool fixedDigits(char16_t const* at, int& value) {
  unsigned digits[Width];
  unsigned outside = 0;
  for (int k = 0; k < Width; ++k) {
    digits[k] = static_cast<unsigned>(at[k]) - u'0';
    outside |= digits[k] > 9 ? 1u : 0u;
  }
  value = 0;
  for (int k = 0; k < Width; ++k) value = value * 10 + static_cast<int>(digits[k]);
  return outside == 0;
}

// The six numbers of the fixed part at the start of [begin, end), none of them checked
// against its range yet; false if the text is shorter or another character stands anywhere.
bool readFixedFields(char16_t const* begin, char16_t const* end, int (&fields)[6]) {
  if (end - begin < kFixedLength || begin[4] != u'-' || begin[7] != u'-' || begin[10] != u'T' ||
      begin[13] != u':' || begin[16] != u':') {
    return false;
  }
  return fixedDigits<4>(begin, fields[0]) && fixedDigits<2>(begin + 5, fields[1]) &&
         fixedDigits<2>(begin + 8, fields[2]) && fixedDigits<2>(begin + 11, fields[3]) &&
         fixedDigits<2>(begin + 14, fields[4]) && fixedDigits<2>(begin + 17, fields[5]);
}

// The zone offset in minutes east of UTC, which is 0 for "Z" and for no zone at all.
bool readZone(Reader& reader, int& offsetMinutes) {
  offsetMinutes = 0;
  if (reader.atEnd() || reader.skip(u'Z')) return true;
  int sign = 0;
  if (reader.skip(u'+')) {
    sign = 1;
  } else if (reader.skip(u'-')) {
    sign = -1;
  } else {
    return false;
  }
  int hours = 0;
  int minutes = 0;
  if (!reader.number(2, 0, 14, hours) || !reader.skip(u':') || !reader.number(2, 0, 59, minutes)) {
    return false;
  }
  if (hours == 14 && minutes != 0) return false;
  offsetMinutes = sign * (hours * 60 + minutes);
  return true;
}

// The digits of `value`, zero-padded to `width` characters as printf's "%0*ld" does (a minus
// sign counts towards the width).  Written out by hand: a manifest prints a time per entry,
// and the formatting machinery of printf costs more than the rest of the entry.
void appendDigits(std::u16string& out, long value, int width) {
  char16_t digits[24];
  int count = 0;
  unsigned long magnitude =
      value < 0 ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
  do {
    digits[count++] = static_cast<char16_t>(u'0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  int const sign = value < 0 ? 1 : 0;
  if (sign != 0) out.push_back(u'-');
  for (int pad = count + sign; pad < width; ++pad) out.push_back(u'0');
  while (count > 0) out.push_back(digits[--count]);
}

}  // namespace

posix_time::ptime getCurrentTime() { return posix_time::microsec_clock::universal_time(); }

std::u16string convertTimeToString(posix_time::ptime time) {
  if (time.is_special()) return std::u16string();
  gregorian::date const date = time.date();
  posix_time::time_duration const day = time.time_of_day();
  std::u16string out;
  out.reserve(32);
  appendDigits(out, date.year(), 4);
  out.push_back(u'-');
  appendDigits(out, date.month(), 2);
  out.push_back(u'-');
  appendDigits(out, date.day(), 2);
  out.push_back(u'T');
  appendDigits(out, day.hours(), 2);
  out.push_back(u':');
  appendDigits(out, day.minutes(), 2);
  out.push_back(u':');
  appendDigits(out, day.seconds(), 2);
  // The fraction in the clock's own resolution (microseconds unless Boost is configured for
  // nanoseconds), cut after its last non-zero digit.
  long fraction = static_cast<long>(day.fractional_seconds());
  if (fraction != 0) {
    int digits = posix_time::time_duration::num_fractional_digits();
    while (fraction % 10 == 0) {
      fraction /= 10;
      --digits;
    }
    out.push_back(u'.');
    appendDigits(out, fraction, digits);
  }
  out.push_back(u'Z');
  return out;
}

posix_time::ptime convertStringToTime(std::u16string const& text) {
  posix_time::ptime const invalid(posix_time::not_a_date_time);
  char16_t const* begin = text.data();
  char16_t const* end = begin + text.size();
  while (begin != end && isXmlSpace(*begin)) ++begin;
  while (end != begin && isXmlSpace(end[-1])) --end;

  // A year of more than four digits, or a negative one, lies outside the calendar; reading
  // exactly four digits and then demanding "-" rejects both.
  int fields[6];
  if (!readFixedFields(begin, end, fields)) return invalid;
  int const year = fields[0];
  int const month = fields[1];
  int const day = fields[2];
  int const hours = fields[3];
  int const minutes = fields[4];
  int const seconds = fields[5];
  if (year < kFirstYear || year > kLastYear || month < 1 || month > 12 || day < 1 ||
      day > daysInMonth(year, month) || hours > 24 || minutes > 59 || seconds > 59) {
    return invalid;
  }
  Reader reader(begin + kFixedLength, end);
  std::int64_t microseconds = 0;
  if (reader.skip(u'.') && !reader.fraction(microseconds)) return invalid;
  // "24:00:00" is the end of the day, the same instant as 00:00:00 of the next.
  if (hours == 24 && (minutes != 0 || seconds != 0 || microseconds != 0)) return invalid;
  int offsetMinutes = 0;
  if (!readZone(reader, offsetMinutes) || !reader.atEnd()) return invalid;

  // The calendar bounds, checked before any arithmetic: the time of day moves by at most 14
  // hours either way (plus one day for "24:00:00"), so the date moves by at most one day,
  // and that day must still lie within the calendar.
  std::int64_t const inDay =
      ((hours * 60LL + minutes - offsetMinutes) * 60 + seconds) * kMicrosecondsPerSecond +
      microseconds;
  bool const firstDay = year == kFirstYear && month == 1 && day == 1;
  bool const lastDay = year == kLastYear && month == 12 && day == 31;
  if ((inDay < 0 && firstDay) || (inDay >= kMicrosecondsPerDay && lastDay)) return invalid;

  // Then one count of microseconds from 1970, whose day count is plain arithmetic on the
  // proleptic Gregorian calendar: building the date from checked year, month and day values
  // and adding the shift as a second date step cost more than reading the text.
  return unixEpoch() +
         posix_time::microseconds(daysSince1970(year, month, day) * kMicrosecondsPerDay + inDay);
}

}  // namespace opc
