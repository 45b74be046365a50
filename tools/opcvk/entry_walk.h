// The entries below a path of a package file system, for the listings.
#ifndef TOOLS_OPCVK_ENTRY_WALK_H_
#define TOOLS_OPCVK_ENTRY_WALK_H_

#include <functional>
#include <string>
#include <string_view>

#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

struct WalkedEntry {
  opc::vkservices::FileSystemEntry entry;
  std::u16string path;
  // The last component of `path` (as entry.getBaseName()): a view into `path`, so that a copy
  // of a walked entry must not outlive the original.
  std::u16string_view name;
  // 0 for the entries right below the starting folder.
  int depth;
};

enum class WalkOrder {
  // By full path (UTF-16 code units), the order of the library's own lists: "/a", "/a.txt",
  // "/a/x" ("." sorts before "/").
  kByPath,
  // As a tree shows them: depth first, the entries of each folder by name (UTF-16), each
  // folder followed by what it holds.
  kAsTree,
};

// Calls `visit` for every entry below the entry at `path` (raising the library's
// FileSystemEntryNotFound if there is none), the entry itself not included, in `order`.  An
// entry at `path` that is not a folder and has nothing below it comes out alone, at depth 0.
//
// Entries are handed over as they are found: the walk holds the children of the folders on
// the way down that still have entries to come, and nothing else, so that its memory grows
// with the width of the tree and the length of its paths, not with the number of entries
// (nor with the square of the depth of a chain of folders).  The entry passed to `visit` is valid
// during the call.
void walkEntries(opc::vkservices::FileSystemManager& files, std::u16string const& path,
                 WalkOrder order, std::function<void(WalkedEntry const&)> const& visit);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_ENTRY_WALK_H_
