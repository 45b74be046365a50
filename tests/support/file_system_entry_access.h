// The test seam of FileSystemEntry: wraps a node as the manager would, and reads the content
// name that only the manager may see.  It exists in the tests alone, so that the library has
// no such hook.
#ifndef TESTS_SUPPORT_FILE_SYSTEM_ENTRY_ACCESS_H_
#define TESTS_SUPPORT_FILE_SYSTEM_ENTRY_ACCESS_H_

#include <string>

#include <opc/vkservices/file_system_entry.h>

#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {
namespace detail {

class FileSystemEntryAccess {
 public:
  static FileSystemEntry make(FileSystemNode const& node) { return FileSystemEntry(node); }
  static std::u16string contentName(FileSystemEntry const& entry) { return entry.getContentName(); }
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // TESTS_SUPPORT_FILE_SYSTEM_ENTRY_ACCESS_H_
