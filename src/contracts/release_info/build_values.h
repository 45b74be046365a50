// The running product's release, fixed when the library is configured (build_values.cc.in).
// Internal to libvkrelease_info.
#ifndef FOUNDATION_RELEASE_INFO_BUILD_VALUES_H_
#define FOUNDATION_RELEASE_INFO_BUILD_VALUES_H_

namespace foundation {
namespace release_info {
namespace detail {

// "R", the year of the configure date and "a" (January to June) or "b" (July to December).
extern char const kBuildReleaseFamily[];
// The project's four-part version, such as "1.0.0.0".
extern char const kBuildVersion[];
// The configure date, "YYYY-MM-DD" (UTC).
extern char const kBuildDate[];

}  // namespace detail
}  // namespace release_info
}  // namespace foundation

#endif  // FOUNDATION_RELEASE_INFO_BUILD_VALUES_H_
