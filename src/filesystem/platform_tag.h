// The tag of the platform this library was built for, shared by every place that names it:
// the manifest records which platform wrote a package, and the content type catalogue names
// the executables of each platform with the same words.
#ifndef SRC_FILESYSTEM_PLATFORM_TAG_H_
#define SRC_FILESYSTEM_PLATFORM_TAG_H_

namespace opc {
namespace vkservices {
namespace detail {

// Fixed at compile time.  64-bit Windows is "win64", 32-bit Windows "win32"; elsewhere the
// tag is "os-arch", such as "linux-x86-64" or "macos-aarch64".
#if defined(_WIN64)
#define OPCVK_PLATFORM_TAG u"win64"
#elif defined(_WIN32)
#define OPCVK_PLATFORM_TAG u"win32"
#else
#if defined(__linux__)
#define OPCVK_PLATFORM_OS u"linux"
#elif defined(__APPLE__)
#define OPCVK_PLATFORM_OS u"macos"
#elif defined(__FreeBSD__)
#define OPCVK_PLATFORM_OS u"freebsd"
#else
#define OPCVK_PLATFORM_OS u"unknown"
#endif
#if defined(__x86_64__)
#define OPCVK_PLATFORM_ARCH u"x86-64"
#elif defined(__aarch64__)
#define OPCVK_PLATFORM_ARCH u"aarch64"
#elif defined(__i386__)
#define OPCVK_PLATFORM_ARCH u"x86"
#elif defined(__arm__)
#define OPCVK_PLATFORM_ARCH u"arm"
#elif defined(__riscv) && __riscv_xlen == 64
#define OPCVK_PLATFORM_ARCH u"riscv64"
#elif defined(__powerpc64__) && defined(__LITTLE_ENDIAN__)
#define OPCVK_PLATFORM_ARCH u"ppc64le"
#elif defined(__s390x__)
#define OPCVK_PLATFORM_ARCH u"s390x"
#else
#define OPCVK_PLATFORM_ARCH u"unknown"
#endif
#define OPCVK_PLATFORM_TAG OPCVK_PLATFORM_OS u"-" OPCVK_PLATFORM_ARCH
#endif

inline constexpr char16_t kPlatformTag[] = OPCVK_PLATFORM_TAG;

#undef OPCVK_PLATFORM_TAG
#undef OPCVK_PLATFORM_OS
#undef OPCVK_PLATFORM_ARCH

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_PLATFORM_TAG_H_
