#include "entry_walk.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

// One step of a folder's listing: the line of a child, or everything below it.
struct Step {
  // The child's name; followed by "/" for the step into its subtree in path order, so that
  // sorting the steps by key puts the subtree where its paths sort: after "a" and "a.txt",
  // before "a0" ("/" is 0x2F).
  std::u16string key;
  std::size_t child;
  bool below;
};

// The children of one folder on the way down, and the next step to take among them.
struct Level {
  std::vector<WalkedEntry> children;
  std::vector<Step> steps;
  std::size_t next = 0;
};

bool hasBelow(FileSystemManager& files, FileSystemEntry const& entry) {
  // Only folders hold entries in a package made by the library, but a crafted manifest can
  // put a file below a link; it is listed like any other entry.
  return entry.isFolder() || files.hasChildren(entry);
}

Level levelOf(FileSystemManager& files, FileSystemEntry const& folder, int depth, WalkOrder order) {
  Level level;
  for (FileSystemEntry const& child : files.getChildren(folder)) {
    level.children.push_back({child, child.getPathName(), child.getBaseName(), depth});
  }
  for (std::size_t i = 0; i < level.children.size(); ++i) {
    WalkedEntry const& child = level.children[i];
    bool const below = hasBelow(files, child.entry);
    if (order == WalkOrder::kAsTree) {
      level.steps.push_back({child.name, i, below});
      continue;
    }
    level.steps.push_back({child.name, i, false});
    if (below) level.steps.push_back({child.name + u'/', i, true});
  }
  // In path order a line sorts before the subtree of the same child: "a" is a prefix of "a/".
  std::stable_sort(level.steps.begin(), level.steps.end(),
                   [](Step const& a, Step const& b) { return a.key < b.key; });
  return level;
}

}  // namespace

void walkEntries(FileSystemManager& files, std::u16string const& path, WalkOrder order,
                 std::function<void(WalkedEntry const&)> const& visit) {
  FileSystemEntry const top = files.getEntry(path);
  if (!hasBelow(files, top)) {
    visit({top, top.getPathName(), top.getBaseName(), 0});
    return;
  }
  // Iterative, so that a package of absurd depth costs memory, not the stack.
  std::vector<Level> levels;
  levels.push_back(levelOf(files, top, 0, order));
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next == level.steps.size()) {
      levels.pop_back();
      continue;
    }
    Step const step = level.steps[level.next++];
    WalkedEntry const& child = level.children[step.child];
    if (order == WalkOrder::kAsTree) {
      visit(child);
      if (step.below) {
        FileSystemEntry const folder = child.entry;
        int const depth = child.depth + 1;
        levels.push_back(levelOf(files, folder, depth, order));
      }
    } else if (!step.below) {
      visit(child);
    } else {
      FileSystemEntry const folder = child.entry;
      int const depth = child.depth + 1;
      levels.push_back(levelOf(files, folder, depth, order));
    }
  }
}

}  // namespace opcvk
