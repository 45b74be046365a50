// Times of files and entries: boost::posix_time::ptime in UTC, and their xsd:dateTime text.
#ifndef OPC_CORE_TIME_CONVERSIONS_H_
#define OPC_CORE_TIME_CONVERSIONS_H_

#include <string>

#include <boost/date_time/posix_time/ptime.hpp>

#include <opc/core/export.h>

namespace opc {

// The current time in UTC, with microseconds.  Thread-safe.
OPC_CORE_EXPORT boost::posix_time::ptime getCurrentTime();

// The xsd:dateTime text of a UTC time: "YYYY-MM-DDThh:mm:ss[.ffffff]Z", with the fraction
// written only when it is not zero and without trailing zeros.  Gives the empty string for
// a time that has no text form (not_a_date_time, infinities).  convertStringToTime reads
// every text it writes back to the same time.  Thread-safe; does not depend on the locale.
OPC_CORE_EXPORT std::u16string convertTimeToString(boost::posix_time::ptime time);

// Reads an xsd:dateTime text back into a UTC time.  Accepts every lexical form that
// writers produce: "YYYY-MM-DDThh:mm:ss", then one or more fraction digits after "." (kept
// to the microsecond, the rest truncated), then a time-zone offset "+hh:mm"/"-hh:mm" of at
// most 14:00 (converted to UTC), "Z", or no zone (taken as UTC); "24:00:00" is the end of
// the day, i.e. 00:00:00 of the next one.  XML white space around the text is ignored.
// Gives not_a_date_time for any other text (a date alone, a field of the wrong width or out
// of range, a day the month lacks, a second 60, lower-case "t" or "z", anything after the
// zone) and for times outside 1400-01-01 .. 9999-12-31 after conversion to UTC.  Never
// raises.  Thread-safe; does not depend on the locale.
OPC_CORE_EXPORT boost::posix_time::ptime convertStringToTime(std::u16string const& text);

}  // namespace opc

#endif  // OPC_CORE_TIME_CONVERSIONS_H_
