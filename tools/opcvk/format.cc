#include "format.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <iterator>

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace opcvk {
namespace {

constexpr std::uint32_t kSetUserId = 04000;
constexpr std::uint32_t kSetGroupId = 02000;
constexpr std::uint32_t kSticky = 01000;

// One rwx triple; `special` replaces the x with `set` (or `unset` without execute).
void appendTriple(std::string& out, std::uint32_t bits, bool special, char set, char unset) {
  out += (bits & 4) ? 'r' : '-';
  out += (bits & 2) ? 'w' : '-';
  bool const execute = (bits & 1) != 0;
  if (special) {
    out += execute ? set : unset;
  } else {
    out += execute ? 'x' : '-';
  }
}

bool isKnown(boost::posix_time::ptime const& time) { return !time.is_special(); }

// The digits of the time of day and date, separated as `dateTimeSeparator` says.
std::string formatTime(boost::posix_time::ptime const& time, char dateTimeSeparator) {
  boost::gregorian::date const date = time.date();
  boost::posix_time::time_duration const day = time.time_of_day();
  std::int64_t const ticksPerSecond = boost::posix_time::time_duration::ticks_per_second();
  std::int64_t const micros = day.fractional_seconds() * 1000000 / ticksPerSecond;
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d%c%02d:%02d:%02d.%06" PRId64,
                static_cast<int>(date.year()), static_cast<int>(date.month()),
                static_cast<int>(date.day()), dateTimeSeparator, static_cast<int>(day.hours()),
                static_cast<int>(day.minutes()), static_cast<int>(day.seconds()), micros);
  return text;
}

}  // namespace

std::string permissionsText(opc::Perms::Perms_tag permissions) {
  if (permissions == opc::Perms::unknown) return "?????????";
  std::uint32_t const bits = permissions;
  std::string out;
  out.reserve(9);
  appendTriple(out, (bits >> 6) & 7, (bits & kSetUserId) != 0, 's', 'S');
  appendTriple(out, (bits >> 3) & 7, (bits & kSetGroupId) != 0, 's', 'S');
  appendTriple(out, bits & 7, (bits & kSticky) != 0, 't', 'T');
  return out;
}

std::string permissionsOctal(opc::Perms::Perms_tag permissions) {
  if (permissions == opc::Perms::unknown) return std::string();
  char text[16];
  std::snprintf(text, sizeof text, "%04" PRIo32, static_cast<std::uint32_t>(permissions));
  return text;
}

std::string timeText(boost::posix_time::ptime const& time) {
  if (!isKnown(time)) return "-" + std::string(25, ' ');
  return formatTime(time, ' ');
}

std::string timeIso(boost::posix_time::ptime const& time) {
  if (!isKnown(time)) return std::string();
  return formatTime(time, 'T') + "Z";
}

std::string sizeColumn(std::uint64_t size) {
  char text[32];
  std::snprintf(text, sizeof text, "%12" PRIu64, size);
  return text;
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
