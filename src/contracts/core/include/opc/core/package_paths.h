// Helpers over package paths: absolute, "/"-separated, case-sensitive UTF-16 text.
#ifndef OPC_CORE_PACKAGE_PATHS_H_
#define OPC_CORE_PACKAGE_PATHS_H_

#include <string>

#include <opc/core/export.h>

namespace opc {
namespace detail {

// The parent of a package path: everything before the last "/", or "/" when the last "/"
// is the first character.  "/a/b" gives "/a", "/a" gives "/", "/" gives "/".  A path with a
// trailing slash has an empty last component: "/a/" gives "/a".  A text without any "/"
// (not a package path) gives the empty string, and so does the empty string.
OPC_CORE_EXPORT std::u16string getParentPath(std::u16string const& path);

// The last component of a package path: everything after the last "/".  "/a/b" gives "b",
// "/" and "/a/" give "", and a text without "/" is returned as it is.
OPC_CORE_EXPORT std::u16string getFilename(std::u16string const& path);

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_PACKAGE_PATHS_H_
