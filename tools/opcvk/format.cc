#include "format.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace opcvk {
namespace {

constexpr std::uint32_t kSetUserId = 04000;
constexpr std::uint32_t kSetGroupId = 02000;
constexpr std::uint32_t kSticky = 01000;

// The rwx text of each triple of permission bits.
constexpr char kTriples[8][4] = {"---", "--x", "-w-", "-wx", "r--", "r-x", "rw-", "rwx"};

// Puts the triple of `bits` at `to`; `special` replaces the x with `set` (or `unset` without
// execute).
void putTriple(char* to, std::uint32_t bits, bool special, char set, char unset) {
  std::memcpy(to, kTriples[bits], 3);
  if (special) to[2] = (bits & 1) != 0 ? set : unset;
}

bool isKnown(boost::posix_time::ptime const& time) { return !time.is_special(); }

// Writes the `width` lowest decimal digits of `value` ending just before `end`, with leading
// zeros; returns where they begin.
char* putDigits(char* end, std::uint64_t value, int width) {
  for (int i = 0; i < width; ++i) {
    *--end = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return end;
}

// Puts "2026-11-21 10:00:00.123456" (26 characters) at `to`, with `dateTimeSeparator` between
// date and time; returns what follows.  Written by hand: formatted printing costs more than
// the rest of a long line.
char* putTime(char* to, boost::posix_time::ptime const& time, char dateTimeSeparator) {
  // One conversion of the day number gives all three fields of the date.
  boost::gregorian::date::ymd_type const ymd = time.date().year_month_day();
  // The time of day of a known time lies in [0, 24 h).
  std::int64_t const ticks = time.time_of_day().ticks();
  std::int64_t const ticksPerSecond = boost::posix_time::time_duration::ticks_per_second();
  std::int64_t const seconds = ticks / ticksPerSecond;
  std::int64_t const micros = ticks % ticksPerSecond * 1000000 / ticksPerSecond;
  char* const end = to + 26;
  putDigits(end, static_cast<std::uint64_t>(micros), 6);
  end[-7] = '.';
  putDigits(end - 7, static_cast<std::uint64_t>(seconds % 60), 2);
  end[-10] = ':';
  putDigits(end - 10, static_cast<std::uint64_t>(seconds / 60 % 60), 2);
  end[-13] = ':';
  putDigits(end - 13, static_cast<std::uint64_t>(seconds / 3600), 2);
  end[-16] = dateTimeSeparator;
  putDigits(end - 16, ymd.day, 2);
  end[-19] = '-';
  putDigits(end - 19, ymd.month, 2);
  end[-22] = '-';
  // Years run from 1400 to 9999: always four digits.
  putDigits(end - 22, static_cast<std::uint64_t>(ymd.year), 4);
  return end;
}

// Puts the text of timeText (26 characters) at `to`; returns what follows.
char* putTimeText(char* to, boost::posix_time::ptime const& time) {
  if (isKnown(time)) return putTime(to, time, ' ');
  to[0] = '-';
  std::memset(to + 1, ' ', 25);
  return to + 26;
}

// Puts the text of permissionsText (9 characters) at `to`; returns what follows.
char* putPermissions(char* to, opc::Perms::Perms_tag permissions) {
  if (permissions == opc::Perms::unknown) {
    std::memset(to, '?', 9);
    return to + 9;
  }
  std::uint32_t const bits = permissions;
  putTriple(to, (bits >> 6) & 7, (bits & kSetUserId) != 0, 's', 'S');
  putTriple(to + 3, (bits >> 3) & 7, (bits & kSetGroupId) != 0, 's', 'S');
  putTriple(to + 6, bits & 7, (bits & kSticky) != 0, 't', 'T');
  return to + 9;
}

// Puts the text of sizeColumn (12 characters, up to 20 for the largest sizes) at `to`;
// returns what follows.
char* putSizeColumn(char* to, std::uint64_t size) {
  // 20 digits hold any 64-bit value.
  char digits[20];
  char* const end = digits + sizeof digits;
  char* first = end;
  do {
    *--first = static_cast<char>('0' + size % 10);
    size /= 10;
  } while (size != 0);
  auto const count = static_cast<std::size_t>(end - first);
  if (count < 12) {
    std::memset(to, ' ', 12 - count);
    to += 12 - count;
  }
  std::memcpy(to, first, count);
  return to + count;
}

}  // namespace

std::string permissionsText(opc::Perms::Perms_tag permissions) {
  std::string out;
  appendPermissionsText(out, permissions);
  return out;
}

std::string permissionsOctal(opc::Perms::Perms_tag permissions) {
  if (permissions == opc::Perms::unknown) return std::string();
  char text[16];
  std::snprintf(text, sizeof text, "%04" PRIo32, static_cast<std::uint32_t>(permissions));
  return text;
}

std::string timeText(boost::posix_time::ptime const& time) {
  std::string out;
  appendTimeText(out, time);
  return out;
}

std::string timeIso(boost::posix_time::ptime const& time) {
  if (!isKnown(time)) return std::string();
  char text[27];
  putTime(text, time, 'T');
  text[26] = 'Z';
  return std::string(text, sizeof text);
}

std::string sizeColumn(std::uint64_t size) {
  std::string out;
  appendSizeColumn(out, size);
  return out;
}

void appendPermissionsText(std::string& out, opc::Perms::Perms_tag permissions) {
  char text[9];
  out.append(text, static_cast<std::size_t>(putPermissions(text, permissions) - text));
}

void appendTimeText(std::string& out, boost::posix_time::ptime const& time) {
  char text[26];
  out.append(text, static_cast<std::size_t>(putTimeText(text, time) - text));
}

void appendSizeColumn(std::string& out, std::uint64_t size) {
  char text[20];
  out.append(text, static_cast<std::size_t>(putSizeColumn(text, size) - text));
}

void appendLongColumns(std::string& out, char kind, opc::Perms::Perms_tag permissions,
                       std::uint64_t size, boost::posix_time::ptime const& time) {
  char text[1 + 9 + 2 + 20 + 2 + 26 + 2];
  char* to = text;
  *to++ = kind;
  to = putPermissions(to, permissions);
  *to++ = ' ';
  *to++ = ' ';
  to = putSizeColumn(to, size);
  *to++ = ' ';
  *to++ = ' ';
  to = putTimeText(to, time);
  *to++ = ' ';
  *to++ = ' ';
  out.append(text, static_cast<std::size_t>(to - text));
}

std::string bytesText(std::uint64_t bytes) {
  static char const* const kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  char text[32];
  if (bytes < 1024) {
    std::snprintf(text, sizeof text, "%" PRIu64 " B", bytes);
    return text;
  }
  double value = static_cast<double>(bytes) / 1024.0;
  std::size_t unit = 0;
  // Round first, so that 1023.96 KiB shows as "1.0 MiB" and not as "1024.0 KiB".
  while (std::round(value * 10.0) >= 1024.0 * 10.0 && unit + 1 < std::size(kUnits)) {
    value /= 1024.0;
    ++unit;
  }
  std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string durationText(double seconds) {
  if (!(seconds >= 0.0)) seconds = 0.0;
  // Beyond 100 hours a number says nothing more than "very long".
  if (seconds > 360000.0) seconds = 360000.0;
  auto const total = static_cast<std::uint64_t>(std::llround(seconds));
  std::uint64_t const hours = total / 3600;
  std::uint64_t const minutes = total / 60 % 60;
  std::uint64_t const rest = total % 60;
  char text[32];
  if (hours > 0) {
    std::snprintf(text, sizeof text, "%" PRIu64 ":%02" PRIu64 ":%02" PRIu64, hours, minutes, rest);
  } else {
    std::snprintf(text, sizeof text, "%" PRIu64 ":%02" PRIu64, minutes, rest);
  }
  return text;
}

}  // namespace opcvk
