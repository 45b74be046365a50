// What pack and add take from a real folder: its files, links and empty folders.
#ifndef TOOLS_OPCVK_SOURCE_TREE_H_
#define TOOLS_OPCVK_SOURCE_TREE_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace opcvk {

struct SourceItem {
  enum class Kind { File, Link, EmptyFolder };

  Kind kind;
  // The path below the walked folder, components joined with "/", in UTF-16 as the library
  // reads real paths ("a/b.txt").
  std::u16string relative;
  // The same path in the bytes the file system uses ("a/b.txt").
  std::string native;
  // Bytes of a file on disk; 0 for links and folders.
  std::uint64_t size = 0;
  // What the walk's one lstat(2) gave: the permission bits (st_mode & 0777) and the time of
  // the last change of the content.
  std::uint32_t mode = 0;
  std::int64_t mtimeSeconds = 0;
  std::uint32_t mtimeNanoseconds = 0;
};

struct SourceTree {
  // In the order of a walk that visits the names of each folder sorted by their bytes, so that
  // the same folder always gives the same package.
  std::vector<SourceItem> items;
  std::uint64_t fileCount = 0;
  std::uint64_t byteCount = 0;
};

// Walks the folder `root` without following symbolic links, with one lstat(2) per entry:
// regular files, links, and folders that hold none of these (at any depth) come out; other kinds
// (devices, sockets, pipes) are passed over.  Raises ToolError "Could not read folder: <path>:
// <reason>" if a folder cannot be listed, and "Cannot read file name in the current encoding:
// <path>" for a name that would not reach the file again through the library's conversions. The
// file at `skip` (absolute and lexically normal, as absolutePath gives it), if it is met, is passed
// over: the package being written, when it lies inside the folder.
SourceTree walkSourceFolder(std::filesystem::path const& root,
                            std::filesystem::path const& skip = std::filesystem::path());

// `argument` made absolute and lexically normal, without a trailing separator, so that
// absolute link targets below it can be recognised by their text.
std::filesystem::path absolutePath(std::string const& argument);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_SOURCE_TREE_H_
