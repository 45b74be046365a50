// Item names of an archive: decoding from the bytes of a header, and the checks that keep a
// hostile name from escaping the package or colliding with another.
#ifndef OPC_MODEL_ZIP_ZIP_NAMES_H_
#define OPC_MODEL_ZIP_ZIP_NAMES_H_

#include <string>
#include <string_view>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// CP437 bytes to UTF-8: the encoding of names whose language-encoding flag is clear.
std::string cp437ToUtf8(std::string const& bytes);
// The same into `out`, replacing what it held and keeping its storage: names of plain ASCII,
// the usual case, are copied as they are.
void assignCp437AsUtf8(std::string_view bytes, std::string& out);

// Why `name` may not name an item of a package, or an empty string if it may: an absolute
// path, a drive letter, a ".." segment, a backslash or a NUL.
std::string nameProblem(std::string_view name);

// `name` with the ASCII letters in lower case, the key of the duplicate check.
std::string foldAsciiCase(std::string name);
// Whether the two names are equal once their ASCII letters are in lower case.
bool equalFoldingAsciiCase(std::string_view a, std::string_view b);

// The name in double quotes, as messages show it (through toUDEString).  Exported for the
// ZIP writer library.
OPC_MODEL_EXPORT std::string quoteName(std::string const& name);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_NAMES_H_
