// How the manifest prints and parses the values of an entry: permissions and dates.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_VALUES_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_VALUES_H_

#include <string>
#include <string_view>

#include <boost/date_time/posix_time/ptime.hpp>

#include <opc/core/perms.h>

namespace opc {
namespace vkservices {
namespace detail {

// The permissions of a `permissions` attribute.  An empty text gives Perms::unknown.
//
// The current form writes "0" and octal digits; the older form (`isV1`) writes the decimal
// digits of a file mode, which never begin with "0".  The text is narrowed to ASCII and an
// unsigned 16-bit number is extracted in that base, in the classic locale; characters behind
// the number are ignored ("0755x" is 0755).  Only the nine permission bits of the number are
// kept, which drops the file-type bits of a file mode.  Raises opc::model::InvalidPartContent:
//  - "Permissions are not a valid octal value" if the current form does not begin with "0";
//  - "Permissions are not a valid decimal value" if the older form begins with "0";
//  - "Permissions are not valid value" if no number can be extracted or it exceeds 65535.
opc::Perms::Perms_tag readPermissions(std::u16string_view text, bool isV1);

// "0" followed by the value in octal, without padding: 0644 gives "0644", 0 gives "00".
std::u16string printPermissions(opc::Perms::Perms_tag permissions);

// The older form: the decimal digits of the value plus 32768, the bit of a regular file in a
// file mode, whatever the kind of the entry: 0644 gives "33188", 0 gives "32768".
std::u16string printPermissionsV1(opc::Perms::Perms_tag permissions);

// The time of a `date` attribute, or not_a_date_time for an empty text.  Raises
// opc::model::InvalidPartContent "Last modified date/time is not valid" for a text that
// does not convert (which the schema lets through only for years outside 1400..9999).
boost::posix_time::ptime readDate(std::u16string_view text);
// The same, with `scratch` as the room for the text's copy, so that a reader of many entries
// reuses one.
boost::posix_time::ptime readDate(std::u16string_view text, std::u16string& scratch);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_VALUES_H_
