// Export macro of the release-information library (libvkrelease_info).
//
// The library is built with hidden visibility: only declarations marked VKRELEASE_INFO_EXPORT
// are part of its ABI.  Classes are exported whole, the exception class included, so that
// its type information is unique across shared-library boundaries and `catch` works in
// callers.
#ifndef FOUNDATION_RELEASE_INFO_EXPORT_H_
#define FOUNDATION_RELEASE_INFO_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define VKRELEASE_INFO_EXPORT __attribute__((visibility("default")))
#else
#define VKRELEASE_INFO_EXPORT
#endif

#endif  // FOUNDATION_RELEASE_INFO_EXPORT_H_
