// The date and time fields of ZIP headers (the MS-DOS format: local time, two-second steps,
// years 1980 to 2107).  Private to libopcmodel.
#ifndef OPC_MODEL_ZIP_ZIP_DOS_TIME_H_
#define OPC_MODEL_ZIP_ZIP_DOS_TIME_H_

#include <cstdint>
#include <ctime>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

struct DosTime {
  std::uint16_t time;
  std::uint16_t date;
};

// The DOS date and time of a UTC time, held to the range that DOS dates can carry:
// 1980-01-01 00:00:00 to 2107-12-31 23:59:58, in steps of two seconds.
OPC_MODEL_EXPORT DosTime dosTimeOf(std::int64_t seconds);

// The DOS date and time of `when` in the local time zone, as archivers write the time of an
// item they make, held to the same range.
DosTime localDosTimeOf(std::time_t when);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_DOS_TIME_H_
