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
  std::size_t child;
  bool below;
};

// The children of one folder on the way down, and the next step to take among them.
struct Level {
  std::vector<WalkedEntry> children;
  std::vector<Step> steps;
  std::size_t next = 0;
};

// The base name of an entry, as FileSystemEntry::getBaseName() gives it, without a copy: what
// follows the last "/", or the whole of "/" and of a path without one.
std::u16string_view baseNameOf(std::u16string const& path) {
  std::size_t const slash = path.rfind(u'/');
  if (slash == std::u16string::npos || path.size() == 1) return path;
  return std::u16string_view(path).substr(slash + 1);
}

bool hasBelow(FileSystemManager& files, FileSystemEntry const& entry) {
  // Only folders hold entries in a package made by the library, but a crafted manifest can
  // put a file below a link; it is listed like any other entry.
  return entry.isFolder() || files.hasChildren(entry);
}

Level levelOf(FileSystemManager& files, FileSystemEntry const& folder, int depth, WalkOrder order) {
  Level level;
  auto const children = files.getChildren(folder);
  // Room for all at once: a name is a view into its path, which must not move (a short path
  // lives inside its string).  The level itself may move: the strings stay where they are.
  level.children.reserve(children.size());
  level.steps.reserve(2 * children.size());
  for (FileSystemEntry const& child : children) {
    level.children.push_back({child, child.getPathName(), {}, depth});
    WalkedEntry& walked = level.children.back();
    walked.name = baseNameOf(walked.path);
  }
  for (std::size_t i = 0; i < level.children.size(); ++i) {
    WalkedEntry const& child = level.children[i];
    bool const below = hasBelow(files, child.entry);
    if (order == WalkOrder::kAsTree) {
      level.steps.push_back({i, below});
      continue;
    }
    level.steps.push_back({i, false});
    if (below) level.steps.push_back({i, true});
  }
  // A step sorts by the child's name, followed by "/" for the step into its subtree in path
  // order, so that the subtree comes where its paths sort: after "a" and "a.txt", before "a0"
  // ("/" is 0x2F).  A line sorts before the subtree of the same child: "a" is a prefix of
  // "a/".  (In tree order no step is below-only, so names alone decide.)
  bool const byPath = order == WalkOrder::kByPath;
  auto const byKey = [&level, byPath](Step const& a, Step const& b) {
    std::u16string_view const nameA = level.children[a.child].name;
    std::u16string_view const nameB = level.children[b.child].name;
    bool const slashA = byPath && a.below;
    bool const slashB = byPath && b.below;
    std::size_t const common = std::min(nameA.size(), nameB.size());
    int const compared = nameA.substr(0, common).compare(nameB.substr(0, common));
    if (compared != 0) return compared < 0;
    // One name is a prefix of the other (or they are equal): compare what follows it.
    std::size_t const sizeA = nameA.size() + (slashA ? 1 : 0);
    std::size_t const sizeB = nameB.size() + (slashB ? 1 : 0);
    if (common == sizeA || common == sizeB) return sizeA < sizeB;
    char16_t const nextA = common < nameA.size() ? nameA[common] : u'/';
    char16_t const nextB = common < nameB.size() ? nameB[common] : u'/';
    if (nextA != nextB) return nextA < nextB;
    // Equal up to here and beyond: only "x/" against "x/..." remains, which cannot be, since
    // a name holds no "/"; order by length for a strict weak order all the same.
    return sizeA < sizeB;
  };
  // Children come in name order, so a folder of files alone is in order already.
  if (!std::is_sorted(level.steps.begin(), level.steps.end(), byKey)) {
    std::stable_sort(level.steps.begin(), level.steps.end(), byKey);
  }
  return level;
}

}  // namespace

void walkEntries(FileSystemManager& files, std::u16string const& path, WalkOrder order,
                 std::function<void(WalkedEntry const&)> const& visit) {
  FileSystemEntry const top = files.getEntry(path);
  if (!hasBelow(files, top)) {
    WalkedEntry alone{top, top.getPathName(), {}, 0};
    alone.name = baseNameOf(alone.path);
    visit(alone);
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
    if (order == WalkOrder::kAsTree || !step.below) visit(child);
    if (step.below) {
      FileSystemEntry const folder = child.entry;
      int const depth = child.depth + 1;
      // A level with nothing left to take goes before the one below it comes: each level
      // holds the paths of its children, so a chain of folders kept whole would cost the
      // square of its depth, where a name of a few KiB can ask for thousands of levels.
      if (level.next == level.steps.size()) levels.pop_back();
      levels.push_back(levelOf(files, folder, depth, order));
    }
  }
}

}  // namespace opcvk
