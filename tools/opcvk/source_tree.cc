#include "source_tree.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <opc/core/string_conversions.h>

#include "tool_error.h"

namespace opcvk {
namespace {

namespace fs = std::filesystem;

// An open folder, closed when it goes out of scope.
class Folder {
 public:
  Folder() = default;
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  ~Folder() {
    if (stream_ != nullptr) ::closedir(stream_);
  }
  // Opens `name` below the folder `parent` (or the path `name` with AT_FDCWD), following a
  // link only with `followLink`; false with errno set if it cannot be.
  bool open(int parent, char const* name, bool followLink) {
    int const fd =
        ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW));
    if (fd < 0) return false;
    stream_ = ::fdopendir(fd);
    if (stream_ == nullptr) {
      int const error = errno;
      ::close(fd);
      errno = error;
      return false;
    }
    return true;
  }
  int fd() const { return ::dirfd(stream_); }
  DIR* stream() const { return stream_; }

 private:
  DIR* stream_ = nullptr;
};

[[noreturn]] void folderError(std::string const& path, int error) {
  throw ToolError("Could not read folder: " + path + ": " +
                  std::error_code(error, std::generic_category()).message());
}

// The folder's names, sorted by bytes.  Errors of the listing become ToolError.
std::vector<std::string> sortedNames(Folder const& folder, std::string const& path) {
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    struct dirent const* entry = ::readdir(folder.stream());
    if (entry == nullptr) {
      if (errno != 0) folderError(path, errno);
      break;
    }
    char const* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    names.emplace_back(name);
  }
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

// Adds what lies below `folder` (the path `path`, at `relative`, "" for the root) and tells
// whether anything was added.  One fstatat(2) per entry, relative to its open folder, gives
// its kind, size, mode and time at once: a walk over 100,000 small files must not pay a
// system call per question, nor a look-up of the whole path per entry.
bool walk(Folder const& folder, std::string const& path, std::string const& relative,
          std::string const& skip, SourceTree& tree) {
  bool added = false;
  std::string childPath = path;
  if (childPath.empty() || childPath.back() != '/') childPath += '/';
  std::size_t const childPathBase = childPath.size();
  for (std::string const& name : sortedNames(folder, path)) {
    childPath.resize(childPathBase);
    childPath += name;
    if (childPath == skip) continue;
    std::string const childRelative = relative.empty() ? name : relative + "/" + name;
    struct stat status;
    if (::fstatat(folder.fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      std::error_code const error(errno, std::generic_category());
      throw ToolError("Could not read: " + childPath + ": " + error.message());
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
      Folder child;
      if (!child.open(folder.fd(), name.c_str(), false)) folderError(childPath, errno);
      if (!walk(child, childPath, childRelative, skip, tree)) {
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
  Folder folder;
  // The root may be reached through a link; what lies below it is never followed.
  if (!folder.open(AT_FDCWD, root.c_str(), true)) folderError(root.native(), errno);
  walk(folder, root.native(), std::string(), skip.native(), tree);
  return tree;
}

fs::path absolutePath(std::string const& argument) {
  fs::path path = fs::absolute(fs::path(argument)).lexically_normal();
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();
  return path;
}

}  // namespace opcvk
