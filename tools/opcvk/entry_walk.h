// The entries below a path of a package file system, for the listings.
#ifndef TOOLS_OPCVK_ENTRY_WALK_H_
#define TOOLS_OPCVK_ENTRY_WALK_H_

#include <string>
#include <vector>

#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

struct WalkedEntry {
  opc::vkservices::FileSystemEntry entry;
  std::u16string path;
  std::u16string name;
  // 0 for the entries right below the starting folder.
  int depth;
};

// Every entry below the entry at `path` (raising the library's FileSystemEntryNotFound if there
// is none), the entry itself not included, as a tree shows them: depth first, the entries of
// each folder ordered by name (UTF-16).  An entry at `path` that is not a folder and has nothing
// below it comes out alone, at depth 0.
std::vector<WalkedEntry> walkEntries(opc::vkservices::FileSystemManager& files,
                                     std::u16string const& path);

// Reorders `entries` by full path (UTF-16), the order of the library's own lists.
void sortByPath(std::vector<WalkedEntry>& entries);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_ENTRY_WALK_H_
