// The XML text of a release record: its schema, reading and writing.  Internal to
// libvkrelease_info.
#ifndef FOUNDATION_RELEASE_INFO_RELEASE_INFO_XML_H_
#define FOUNDATION_RELEASE_INFO_RELEASE_INFO_XML_H_

#include <istream>
#include <string>

namespace foundation {
namespace release_info {
namespace detail {

// The fields of a record as the XML holds them.  `hasVersion` false is a legacy record,
// which has neither version nor build date.
struct ReleaseFields {
  std::string releaseFamily;
  bool hasVersion = false;
  std::string version;
  std::string buildDate;
};

// Reads and validates the text from `input` (see ReleaseInfo's class comment for the
// format); raises InvalidReleaseInfo for anything else.
ReleaseFields readReleaseXml(std::istream& input);

// The standalone UTF-8 document of `fields`.  Raises InvalidReleaseInfo if a value cannot
// be written.
std::string writeReleaseXml(ReleaseFields const& fields);

}  // namespace detail
}  // namespace release_info
}  // namespace foundation

#endif  // FOUNDATION_RELEASE_INFO_RELEASE_INFO_XML_H_
