// What the library reads of an entry without the copies that its public getters make.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_ENTRY_ACCESS_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_ENTRY_ACCESS_H_

#include <cstdint>
#include <string>

#include <opc/vkservices/file_system_entry.h>

namespace opc {
namespace vkservices {
namespace detail {

class FileSystemEntryAccess {
 public:
  // The path name of `entry` (as getPathName()), valid as long as `entry` or a copy of it
  // lives: the queries that take an entry look its path up without copying it first.
  static std::u16string const& pathOf(FileSystemEntry const& entry);
  // The record and tree generation that the entry was made from (see FileSystemNode); a
  // generation of 0 means none.
  static std::uint32_t recordOf(FileSystemEntry const& entry);
  static std::uint64_t generationOf(FileSystemEntry const& entry);
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_ENTRY_ACCESS_H_
