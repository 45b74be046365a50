// W3CDTF, the profile of ISO 8601 in which core properties keep their dates.  Internal to
// libopcmodel.
#ifndef OPC_MODEL_CORE_PROPERTIES_W3CDTF_H_
#define OPC_MODEL_CORE_PROPERTIES_W3CDTF_H_

#include <string>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

namespace opc {
namespace model {
namespace detail {

// Reads the six W3CDTF forms: "YYYY", "YYYY-MM", "YYYY-MM-DD", "YYYY-MM-DDThh:mmTZD",
// "YYYY-MM-DDThh:mm:ssTZD" and "YYYY-MM-DDThh:mm:ss.sTZD" with one or more fraction digits
// (kept to the microsecond), where TZD is "Z", "+hh:mm" or "-hh:mm".  A time without TZD,
// which some writers produce, is taken as UTC.  A date alone gives its first instant in UTC.
// XML white space around the text is ignored.  Gives nothing for any other text, for fields
// out of range (month 13, 30 February, hour 24, second 60, zone beyond 23:59) and for
// instants outside 1400-01-01 .. 9999-12-31 after conversion to UTC.  Never throws.
boost::optional<boost::posix_time::ptime> parseW3cdtf(std::u16string const& text);

// "YYYY-MM-DDThh:mm:ss[.ffffff]Z", the fraction only when not zero, and then in as many digits
// as the clock resolves.  `time` must not be
// special.
std::u16string formatW3cdtf(boost::posix_time::ptime time);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_CORE_PROPERTIES_W3CDTF_H_
