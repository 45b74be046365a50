#include <foundation/release_info/invalid_release_info.h>

namespace foundation {
namespace release_info {

InvalidReleaseInfo::InvalidReleaseInfo(std::string const& message) : std::runtime_error(message) {}

InvalidReleaseInfo::InvalidReleaseInfo(InvalidReleaseInfo const& other) = default;

InvalidReleaseInfo& InvalidReleaseInfo::operator=(InvalidReleaseInfo const& other) = default;

InvalidReleaseInfo::~InvalidReleaseInfo() = default;

}  // namespace release_info
}  // namespace foundation
