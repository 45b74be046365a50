#include "zip_dos_time.h"

#include <algorithm>

namespace opc {
namespace model {
namespace detail {

DosTime dosTimeOf(std::int64_t seconds) {
  constexpr std::int64_t kFirst = 315532800;  // 1980-01-01 00:00:00
  constexpr std::int64_t kLast = 4354819198;  // 2107-12-31 23:59:58
  seconds = std::min(std::max(seconds, kFirst), kLast);
  std::int64_t const days = seconds / 86400;
  std::int64_t const second = seconds % 86400;
  // Civil date from days since 1970-01-01 (the proleptic Gregorian calendar), in eras of 400
  // years that begin on 0000-03-01.
  std::int64_t const shifted = days + 719468;
  std::int64_t const era = shifted / 146097;
  std::int64_t const dayOfEra = shifted - era * 146097;
  std::int64_t const yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  std::int64_t const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  std::int64_t const monthFromMarch = (5 * dayOfYear + 2) / 153;
  std::int64_t const day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
  std::int64_t const month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  std::int64_t const year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
  DosTime result;
  result.date = static_cast<std::uint16_t>(((year - 1980) << 9) | (month << 5) | day);
  result.time = static_cast<std::uint16_t>(((second / 3600) << 11) | ((second / 60 % 60) << 5) |
                                           (second % 60 / 2));
  return result;
}

DosTime localDosTimeOf(std::time_t when) {
  std::tm fields{};
  if (localtime_r(&when, &fields) == nullptr) return dosTimeOf(static_cast<std::int64_t>(when));
  // The local time's fields written as if they were UTC: dosTimeOf only splits them.
  std::int64_t const days = [&] {
    std::int64_t const y = fields.tm_year + 1900 - (fields.tm_mon < 2 ? 1 : 0);
    std::int64_t const era = (y >= 0 ? y : y - 399) / 400;
    std::int64_t const yearOfEra = y - era * 400;
    std::int64_t const m = fields.tm_mon + 1;
    std::int64_t const dayOfYear = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + fields.tm_mday - 1;
    std::int64_t const dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
  }();
  return dosTimeOf(days * 86400 + fields.tm_hour * 3600 + fields.tm_min * 60 +
                   std::min(fields.tm_sec, 59));
}

}  // namespace detail
}  // namespace model
}  // namespace opc
