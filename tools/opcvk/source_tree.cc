#include "source_tree.h"

#include <algorithm>
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

std::u16string checkedName(std::string const& relative) {
  std::u16string text = opc::toString(relative);
  if (opc::toUDEString(text) != relative) {
    throw ToolError("Cannot read file name in the current encoding: " + relative);
  }
  return text;
}

// Adds what lies below `folder` (at `relative`, "" for the root) and tells whether anything
// was added.
bool walk(fs::path const& folder, std::string const& relative, fs::path const& skip,
          SourceTree& tree) {
  bool added = false;
  for (std::string const& name : sortedNames(folder)) {
    fs::path const path = folder / name;
    if (path == skip) continue;
    std::string const childRelative = relative.empty() ? name : relative + "/" + name;
    std::error_code error;
    fs::file_status const status = fs::symlink_status(path, error);
    if (error) throw ToolError("Could not read: " + path.native() + ": " + error.message());
    switch (status.type()) {
      case fs::file_type::regular: {
        std::uintmax_t const size = fs::file_size(path, error);
        if (error) throw ToolError("Could not read: " + path.native() + ": " + error.message());
        tree.items.push_back({SourceItem::Kind::File, checkedName(childRelative), size});
        ++tree.fileCount;
        tree.byteCount += size;
        added = true;
        break;
      }
      case fs::file_type::symlink:
        tree.items.push_back({SourceItem::Kind::Link, checkedName(childRelative), 0});
        ++tree.fileCount;
        added = true;
        break;
      case fs::file_type::directory:
        if (!walk(path, childRelative, skip, tree)) {
          tree.items.push_back({SourceItem::Kind::EmptyFolder, checkedName(childRelative), 0});
          ++tree.fileCount;
        }
        added = true;
        break;
      default:
        break;
    }
  }
  return added;
}

}  // namespace

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
