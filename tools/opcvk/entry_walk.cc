#include "entry_walk.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

// Iterative, so that a package of absurd depth costs memory, not the stack.
void walkBelow(FileSystemManager& files, FileSystemEntry const& top,
               std::vector<WalkedEntry>& out) {
  std::vector<WalkedEntry> pending;
  auto pushChildren = [&](FileSystemEntry const& folder, int depth) {
    std::size_t const first = pending.size();
    for (FileSystemEntry const& child : files.getChildren(folder)) {
      pending.push_back({child, child.getPathName(), child.getBaseName(), depth});
    }
    // Reversed, so that the first name is taken from the back of the stack first.
    std::sort(pending.begin() + static_cast<std::ptrdiff_t>(first), pending.end(),
              [](WalkedEntry const& a, WalkedEntry const& b) { return a.name > b.name; });
  };
  pushChildren(top, 0);
  while (!pending.empty()) {
    WalkedEntry next = std::move(pending.back());
    pending.pop_back();
    out.push_back(next);
    // Only folders hold entries in a package made by the library, but a crafted manifest can
    // put a file below a link; it is listed like any other entry.
    if (next.entry.isFolder() || files.hasChildren(next.entry)) {
      pushChildren(next.entry, next.depth + 1);
    }
  }
}

}  // namespace

std::vector<WalkedEntry> walkEntries(FileSystemManager& files, std::u16string const& path) {
  FileSystemEntry const top = files.getEntry(path);
  std::vector<WalkedEntry> entries;
  if (top.isFolder() || files.hasChildren(top)) {
    walkBelow(files, top, entries);
  } else {
    entries.push_back({top, top.getPathName(), top.getBaseName(), 0});
  }
  return entries;
}

void sortByPath(std::vector<WalkedEntry>& entries) {
  std::sort(entries.begin(), entries.end(),
            [](WalkedEntry const& a, WalkedEntry const& b) { return a.path < b.path; });
}

}  // namespace opcvk
