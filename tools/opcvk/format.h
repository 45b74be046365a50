// Text forms of entry facts for the listings of opcvk: permissions, times, sizes and rates.
// Pure functions of their arguments, so that the listings read the same on every machine.
#ifndef TOOLS_OPCVK_FORMAT_H_
#define TOOLS_OPCVK_FORMAT_H_

#include <cstdint>
#include <string>

#include <boost/date_time/posix_time/ptime.hpp>

#include <opc/core/perms.h>

namespace opcvk {

// "rwxr-xr-x" for 0755, in the manner of `ls -l` (set-user-ID, set-group-ID and sticky bits
// shown as s/S and t/T); "?????????" when the permissions are unknown (65535).
std::string permissionsText(opc::Perms::Perms_tag permissions);

// "0644" for 0644: octal, at least four digits.  Empty when the permissions are unknown.
std::string permissionsOctal(opc::Perms::Perms_tag permissions);

// "2026-11-21 10:00:00.123456" (UTC, to the microsecond, 26 characters); "-" followed by 25
// blanks when the time is unknown (not_a_date_time, or an infinity), so that columns line up.
std::string timeText(boost::posix_time::ptime const& time);

// "2026-11-21T10:00:00.123456Z"; empty when the time is unknown.
std::string timeIso(boost::posix_time::ptime const& time);

// The size right-aligned in 12 columns (wider if it needs more).
std::string sizeColumn(std::uint64_t size);

// permissionsText, timeText and sizeColumn appended to `out`: a listing of many thousands of
// lines writes each line into one text that it keeps, rather than making three per line.
void appendPermissionsText(std::string& out, opc::Perms::Perms_tag permissions);
void appendTimeText(std::string& out, boost::posix_time::ptime const& time);
void appendSizeColumn(std::string& out, std::uint64_t size);

// The columns of a long line before its path, appended to `out` in one step: `kind`, then
// permissionsText, sizeColumn and timeText, each followed by two blanks.
void appendLongColumns(std::string& out, char kind, opc::Perms::Perms_tag permissions,
                       std::uint64_t size, boost::posix_time::ptime const& time);

// A byte count for people: "512 B", "1.5 KiB", "12.3 MiB", "2.0 GiB".
std::string bytesText(std::uint64_t bytes);

// A duration for people: "0:07", "12:34", "1:02:03".
std::string durationText(double seconds);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_FORMAT_H_
