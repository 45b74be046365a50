// Text conversions between the command line, the terminal, JSON and the library's UTF-16.
#ifndef TOOLS_OPCVK_PATHS_H_
#define TOOLS_OPCVK_PATHS_H_

#include <string>

namespace opcvk {

// A real path or any other argument, from the locale's encoding to UTF-16, as the library
// reads real paths back.
std::u16string fromArgument(std::string const& argument);

// A package path given on the command line: "/" is put in front of a path that lacks it, so
// that "a/b" names "/a/b" for lookups as it does for the library's create operations.
// Backslashes are left for the library to read as "/".
std::u16string packagePathArgument(std::string const& argument);

// UTF-16 for the terminal, in the locale's encoding (as the library writes paths in its
// messages).
std::string displayText(std::u16string const& text);

// UTF-16 as UTF-8, whatever the locale: the text of JSON output.
std::string utf8Text(std::u16string const& text);

// `parent` and `name` joined with one "/": "/m" and "x" give "/m/x", "/" and "x" give "/x".
std::u16string joinPackagePath(std::u16string const& parent, std::u16string const& name);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PATHS_H_
