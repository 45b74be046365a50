// Times of files and entries: boost::posix_time::ptime in UTC, and their xsd:dateTime text.
#ifndef OPC_CORE_TIME_CONVERSIONS_H_
#define OPC_CORE_TIME_CONVERSIONS_H_

#include <string>

#include <boost/date_time/posix_time/ptime.hpp>

#include <opc/core/export.h>

namespace opc {

// The current time in UTC, with microseconds.
OPC_CORE_EXPORT boost::posix_time::ptime getCurrentTime();

// The xsd:dateTime text of a UTC time: "YYYY-MM-DDThh:mm:ss[.ffffff]Z", with the fraction
// written only when it is not zero and without trailing zeros.  Gives the empty string for
// a time that has no text form (not_a_date_time, infinities).
OPC_CORE_EXPORT std::u16string convertTimeToString(boost::posix_time::ptime time);

// Reads an xsd:dateTime text back into a UTC time.  Accepts every lexical form that
// writers produce: any number of fraction digits (kept to the microsecond, the rest
// truncated), a time-zone offset "+hh:mm"/"-hh:mm" (converted to UTC), "Z", or no zone
// (taken as UTC), and "24:00:00" as the end of the day.  Gives not_a_date_time for any other
// text and for dates outside 1400..9999 after conversion to UTC; never raises.
OPC_CORE_EXPORT boost::posix_time::ptime convertStringToTime(std::u16string const& text);

}  // namespace opc

#endif  // OPC_CORE_TIME_CONVERSIONS_H_
