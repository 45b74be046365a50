#include "filesystem/file_system_manifest_xml_values.h"

#include <cstdint>
#include <ios>
#include <locale>
#include <sstream>

#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>
#include <opc/model/xml/xml_exceptions.h>

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// The bit that marks a regular file in a file mode, which the older form adds to every value.
constexpr unsigned long kRegularFileBit = 0100000;

// The value of text made of digits of `base` alone and short enough not to overflow, or -1
// for anything else, which the stream then reads with all its rules.  Nearly every value a
// manifest holds is such text, and a stream per entry costs more than the rest of the entry.
long plainDigits(std::u16string_view text, unsigned base) {
  if (text.empty() || text.size() > 6) return -1;
  long value = 0;
  for (char16_t const c : text) {
    if (c < u'0' || c >= u'0' + base) return -1;
    value = value * static_cast<long>(base) + (c - u'0');
  }
  return value;
}

// The digits of `value` in `base`, without padding: 0 gives "0".
std::u16string digits(unsigned long value, unsigned base) {
  char16_t buffer[24];
  char16_t* end = buffer + sizeof(buffer) / sizeof(buffer[0]);
  char16_t* begin = end;
  do {
    *--begin = static_cast<char16_t>(u'0' + value % base);
    value /= base;
  } while (value != 0);
  return std::u16string(begin, end);
}

}  // namespace

opc::Perms::Perms_tag readPermissions(std::u16string_view text, bool isV1) {
  if (text.empty()) {
    return opc::Perms::unknown;
  }
  bool const leadingZero = text.front() == u'0';
  if (isV1 && leadingZero) {
    throw opc::model::InvalidPartContent("Permissions are not a valid decimal value");
  }
  if (!isV1 && !leadingZero) {
    throw opc::model::InvalidPartContent("Permissions are not a valid octal value");
  }
  long const plain = plainDigits(text, isV1 ? 10 : 8);
  if (plain >= 0 && plain <= 0xFFFF) {
    return static_cast<opc::Perms::Perms_tag>(plain & opc::Perms::perms_mask);
  }
  std::istringstream stream(opc::toASCIIString(std::u16string(text)));
  // The classic locale: a locale with digit grouping must not change what a digit is.
  stream.imbue(std::locale::classic());
  std::uint16_t value = 0;
  stream >> (isV1 ? std::dec : std::oct) >> value;
  if (stream.fail() || stream.bad()) {
    throw opc::model::InvalidPartContent("Permissions are not valid value");
  }
  return static_cast<opc::Perms::Perms_tag>(value & opc::Perms::perms_mask);
}

std::u16string printPermissions(opc::Perms::Perms_tag permissions) {
  return u"0" + digits(static_cast<unsigned long>(permissions), 8);
}

std::u16string printPermissionsV1(opc::Perms::Perms_tag permissions) {
  return digits(static_cast<unsigned long>(permissions) + kRegularFileBit, 10);
}

boost::posix_time::ptime readDate(std::u16string_view text) {
  std::u16string scratch;
  return readDate(text, scratch);
}

boost::posix_time::ptime readDate(std::u16string_view text, std::u16string& scratch) {
  if (text.empty()) {
    return boost::posix_time::ptime(boost::posix_time::not_a_date_time);
  }
  scratch.assign(text);
  boost::posix_time::ptime const time = opc::convertStringToTime(scratch);
  if (time.is_not_a_date_time()) {
    throw opc::model::InvalidPartContent("Last modified date/time is not valid");
  }
  return time;
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
