// foundation::release_info::InvalidReleaseInfo: the one failure of the release-information
// library.
#ifndef FOUNDATION_RELEASE_INFO_INVALID_RELEASE_INFO_H_
#define FOUNDATION_RELEASE_INFO_INVALID_RELEASE_INFO_H_

#include <stdexcept>
#include <string>

#include <foundation/release_info/export.h>

namespace foundation {
namespace release_info {

// Release information that cannot be read or written.  The library stands apart from the
// opc family of exceptions: this class derives from std::runtime_error only, and what()
// returns the message as the thrower composed it.
class VKRELEASE_INFO_EXPORT InvalidReleaseInfo : public std::runtime_error {
 public:
  explicit InvalidReleaseInfo(std::string const& message);
  InvalidReleaseInfo(InvalidReleaseInfo const& other);
  InvalidReleaseInfo& operator=(InvalidReleaseInfo const& other);
  ~InvalidReleaseInfo() override;
};

}  // namespace release_info
}  // namespace foundation

#endif  // FOUNDATION_RELEASE_INFO_INVALID_RELEASE_INFO_H_
