// What pack and add take from a real folder: its files, links and empty folders.
#ifndef TOOLS_OPCVK_SOURCE_TREE_H_
#define TOOLS_OPCVK_SOURCE_TREE_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace opcvk {

// One entry of a walked folder.  A tree of 100,000 files keeps one of these per file, so its
// name lives in the tree's pool of names, and its path is its folder's path and that name:
// no path is stored whole, so that a deep tree costs its names, not its paths.
struct SourceItem {
  enum class Kind : std::uint8_t { File, Link, EmptyFolder };

  Kind kind = Kind::File;
  // Whether the walk learnt the mode, the time and the size below.  A walk that tells files by
  // the kind their folder's listing gives leaves them to the reader, which asks the file it
  // has open (fstat(2)) instead of the kernel walking the name once more (fstatat(2)).
  bool statusKnown = true;
  // The bytes of the item's own name in SourceTree::names.
  std::uint16_t nameLength = 0;
  // What the walk's lstat(2) gave: the permission bits (st_mode & 0777) and the time of
  // the last change of the content.
  std::uint32_t mode = 0;
  std::uint32_t mtimeNanoseconds = 0;
  // The folder that holds the item, an index of SourceTree::folders.
  std::uint32_t folder = 0;
  std::uint64_t nameOffset = 0;
  std::int64_t mtimeSeconds = 0;
  // Bytes of a file on disk; 0 for links and folders, and for a file whose status is unknown.
  std::uint64_t size = 0;
};

// A folder on the way to an item: its name in SourceTree::names, below its parent folder.
struct SourceFolder {
  std::uint32_t parent = 0;
  std::uint32_t nameLength = 0;
  std::uint64_t nameOffset = 0;
};

struct SourceTree {
  // The walked folder itself, the first of `folders`, with an empty name.
  static constexpr std::uint32_t kRootFolder = 0;

  // In the order of a walk that visits the names of each folder sorted by their bytes, so that
  // the same folder always gives the same package.
  std::vector<SourceItem> items;
  // The folders that hold items, each once, the root first.
  std::vector<SourceFolder> folders{SourceFolder()};
  // The names of all items and folders, one after another.
  std::string names;
  std::uint64_t fileCount = 0;
  // The bytes of the files whose size the walk learnt.
  std::uint64_t byteCount = 0;

  // Adds `item` at the path `native` ("a/b.txt"), making the folders on the way that are not
  // there yet.  Finds a folder by looking back over the folders made, which suits a tree
  // made in the order of a walk; the walk itself uses addFolder and addIn.
  void add(SourceItem item, std::string const& native);
  // Records the folder `name` below `parent` and gives its index.
  std::uint32_t addFolder(std::uint32_t parent, std::string_view name);
  // Adds `item` as `name` in the folder `folder`.  Raises ToolError for a name longer than an
  // item's name can be (64 KiB).
  void addIn(SourceItem item, std::uint32_t folder, std::string_view name);
  // The item's own name, the last component of its path.
  std::string_view nameOf(SourceItem const& item) const {
    return std::string_view(names).substr(item.nameOffset, item.nameLength);
  }
  // Appends the path of `item` below the walked folder to `out`, components joined with "/",
  // in the bytes the file system uses ("a/b.txt").
  void appendNative(SourceItem const& item, std::string& out) const;
  // The same as a string of its own.
  std::string native(SourceItem const& item) const {
    std::string path;
    appendNative(item, path);
    return path;
  }
  // The same path in UTF-16, as the library reads real paths (the walk made sure that the
  // conversion gives the file back).
  std::u16string relative(SourceItem const& item) const;
  // "/" and the same path: where the item goes in a package.  `scratch` is a buffer the caller
  // keeps from one item to the next, so that a long walk converts each path with one new
  // string rather than three.
  std::u16string packagePath(SourceItem const& item, std::string& scratch) const;
};

// How the walk tells the kind of an entry.
enum class KindsBy : std::uint8_t {
  // The kind the folder's listing gives (dirent's d_type), with no system call per file: files
  // come out with statusKnown false.  An entry whose kind the file system does not list is
  // asked for it as with Status.
  Listing,
  // One lstat(2) per entry, which also gives every file's size, mode and time.
  Status,
};

// Walks the folder `root` without following symbolic links: regular files, links, and folders
// that hold none of these (at any depth) come out; other kinds (devices, sockets, pipes) are
// passed over.  Raises ToolError "Could not read folder: <path>:
// <reason>" if a folder cannot be listed, and "Cannot read file name in the current encoding:
// <path>" for a name that would not reach the file again through the library's conversions. The
// file at `skip` (absolute and lexically normal, as absolutePath gives it), if it is met, is passed
// over: the package being written, when it lies inside the folder.
SourceTree walkSourceFolder(std::filesystem::path const& root,
                            std::filesystem::path const& skip = std::filesystem::path(),
                            KindsBy kinds = KindsBy::Listing);

// `argument` made absolute and lexically normal, without a trailing separator, so that
// absolute link targets below it can be recognised by their text.
std::filesystem::path absolutePath(std::string const& argument);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_SOURCE_TREE_H_
