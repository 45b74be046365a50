// Conversions between the UTF-16 paths of FileSystemOps and the bytes of a POSIX file system,
// private to libopccore.
//
// Linux file names are bytes; they are taken as UTF-8.  So that every name survives the trip
// through UTF-16, a byte that is not part of valid UTF-8 comes in as the lone surrogate
// U+DC80 + (byte - 0x80) and goes back out as the same byte.  Any other lone surrogate and
// the NUL character have no byte form.
#ifndef OPC_CORE_FILE_SYSTEM_OPS_UTF8_H_
#define OPC_CORE_FILE_SYSTEM_OPS_UTF8_H_

#include <string>

namespace opc {
namespace detail {

// Sets `out` to the file-system bytes of `path`; false (with `out` unspecified) if `path`
// holds NUL or a lone surrogate outside U+DC80..U+DCFF.
bool toFileSystemBytes(std::u16string const& path, std::string& out);

// The UTF-16 text of file-system bytes; never fails.
std::u16string fromFileSystemBytes(std::string const& bytes);

// Text of a path for a message, in the user's encoding like every message that names a path,
// with "?" for a NUL character.
std::string toMessageText(std::u16string const& path);

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_FILE_SYSTEM_OPS_UTF8_H_
