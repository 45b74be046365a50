// Files for spooled data that cannot outlive their descriptor.  Private to libopcmodel.
#ifndef OPC_MODEL_ZIP_UNNAMED_FILE_H_
#define OPC_MODEL_ZIP_UNNAMED_FILE_H_

#include <string>

namespace opc {
namespace model {
namespace detail {

// An unnamed file in `folder`, open for reading and writing, which disappears with its
// descriptor whatever happens to the process: made without a name where the file system can
// (O_TMPFILE), else created as "<folder>/<stem>XXXXXX" and unlinked at once.  Returns -1 with
// errno set on failure.
int createUnnamedFile(std::string const& folder, char const* stem);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_UNNAMED_FILE_H_
