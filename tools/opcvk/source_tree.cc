#include "source_tree.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <system_error>

#include <opc/core/string_conversions.h>

#include "tool_error.h"

namespace opcvk {
namespace {

namespace fs = std::filesystem;

// The folder's names, sorted by bytes.  Errors of the listing become ToolError.
std::vector<std::string> sortedNames(fs::path const& folder) {
  std::vector<std::string> names;
  std::error_code error;
  fs::directory_iterator it(folder, error);
  fs::directory_iterator const end;
  while (!error && it != end) {
    names.push_back(it->path().filename().native());
    it.increment(error);
  }
  if (error) throw ToolError("Could not read folder: " + folder.native() + ": " + error.message());
  std::sort(names.begin(), names.end());
  return names;
}

void checkName(std::string const& relative) {
  if (opc::toUDEString(opc::toString(relative)) != relative) {
    throw ToolError("Cannot read file name in the current encoding: " + relative);
  }
}

void addItem(SourceTree& tree, SourceItem::Kind kind, std::string const& relative,
             struct stat const& status) {
  checkName(relative);
  SourceItem item;
  item.kind = kind;
  if (kind == SourceItem::Kind::File) item.size = static_cast<std::uint64_t>(status.st_size);
  item.mode = static_cast<std::uint32_t>(status.st_mode & 0777);
  item.mtimeSeconds = static_cast<std::int64_t>(status.st_mtim.tv_sec);
  item.mtimeNanoseconds = static_cast<std::uint32_t>(status.st_mtim.tv_nsec);
  tree.add(item, relative);
}

// Adds what lies below `folder` (at `relative`, "" for the root) and tells whether anything
// was added.  One lstat(2) per entry gives its kind, size, mode and time at once: a walk over
// 100,000 small files must not pay a system call per question.
bool walk(fs::path const& folder, std::string const& relative, fs::path const& skip,
          SourceTree& tree) {
  bool added = false;
  for (std::string const& name : sortedNames(folder)) {
    fs::path const path = folder / name;
    if (path == skip) continue;
    std::string const childRelative = relative.empty() ? name : relative + "/" + name;
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0) {
      std::error_code const error(errno, std::generic_category());
      throw ToolError("Could not read: " + path.native() + ": " + error.message());
    }
    if (S_ISREG(status.st_mode)) {
      addItem(tree, SourceItem::Kind::File, childRelative, status);
      ++tree.fileCount;
      tree.byteCount += tree.items.back().size;
      added = true;
    } else if (S_ISLNK(status.st_mode)) {
      addItem(tree, SourceItem::Kind::Link, childRelative, status);
      ++tree.fileCount;
      added = true;
    } else if (S_ISDIR(status.st_mode)) {
      if (!walk(path, childRelative, skip, tree)) {
        addItem(tree, SourceItem::Kind::EmptyFolder, childRelative, status);
        ++tree.fileCount;
      }
      added = true;
    }
  }
  return added;
}

}  // namespace

void SourceTree::add(SourceItem item, std::string const& native) {
  item.nameOffset = names.size();
  item.nameLength = static_cast<std::uint32_t>(native.size());
  names += native;
  items.push_back(item);
}

std::u16string SourceTree::relative(SourceItem const& item) const {
  return opc::toString(native(item));
}

SourceTree walkSourceFolder(fs::path const& root, fs::path const& skip) {
  SourceTree tree;
  walk(root, std::string(), skip, tree);
  return tree;
}

fs::path absolutePath(std::string const& argument) {
  fs::path path = fs::absolute(fs::path(argument)).lexically_normal();
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();
  return path;
}

}  // namespace opcvk
