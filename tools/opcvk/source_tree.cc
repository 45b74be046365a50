#include "source_tree.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <string_view>
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

// A name of a folder's listing and the kind the listing gives for it (DT_UNKNOWN when the
// file system does not tell, or the walk is to ask every entry).
struct Entry {
  std::string name;
  unsigned char type = DT_UNKNOWN;
  bool operator<(Entry const& other) const { return name < other.name; }
};

// The folder's entries, sorted by the bytes of their names.  Errors of the listing become
// ToolError.
std::vector<Entry> sortedEntries(Folder const& folder, std::string const& path, KindsBy kinds) {
  std::vector<Entry> entries;
  for (;;) {
    errno = 0;
    struct dirent const* entry = ::readdir(folder.stream());
    if (entry == nullptr) {
      if (errno != 0) folderError(path, errno);
      break;
    }
    char const* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    unsigned char const type =
        kinds == KindsBy::Listing ? entry->d_type : static_cast<unsigned char>(DT_UNKNOWN);
    entries.push_back({name, type});
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

void checkName(std::string const& relative) {
  // The library converts ASCII as it is whatever the encoding, so only a path with other bytes
  // can fail the round trip: most paths are spared two conversions and their copies.
  bool const ascii = std::all_of(relative.begin(), relative.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) return;
  if (opc::toUDEString(opc::toString(relative)) != relative) {
    throw ToolError("Cannot read file name in the current encoding: " + relative);
  }
}

void addItem(SourceTree& tree, SourceItem::Kind kind, std::uint32_t folder, std::string_view name,
             std::string const& relative, struct stat const* status) {
  checkName(relative);
  SourceItem item;
  item.kind = kind;
  item.statusKnown = status != nullptr;
  if (status != nullptr) {
    if (kind == SourceItem::Kind::File) item.size = static_cast<std::uint64_t>(status->st_size);
    item.mode = static_cast<std::uint32_t>(status->st_mode & 0777);
    item.mtimeSeconds = static_cast<std::int64_t>(status->st_mtim.tv_sec);
    item.mtimeNanoseconds = static_cast<std::uint32_t>(status->st_mtim.tv_nsec);
  }
  tree.addIn(item, folder, name);
  ++tree.fileCount;
  tree.byteCount += item.size;
}

// The kind of the entry `name` of `folder` as a file type of st_mode (S_IFREG, ...): the one
// the listing gave, else from an fstatat(2), which then also fills `status`.
mode_t kindOf(Folder const& folder, Entry const& entry, std::string const& path,
              struct stat& status, bool& statted) {
  switch (entry.type) {
    case DT_REG:
      return S_IFREG;
    case DT_LNK:
      return S_IFLNK;
    case DT_DIR:
      return S_IFDIR;
    case DT_UNKNOWN:
      break;
    default:
      return 0;  // a device, socket or pipe: passed over
  }
  if (::fstatat(folder.fd(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    std::error_code const error(errno, std::generic_category());
    throw ToolError("Could not read: " + path + ": " + error.message());
  }
  statted = true;
  return status.st_mode & S_IFMT;
}

// Adds what lies below `folder` (the path `path`, at `relative`, "" for the root, recorded as
// `index` of the tree's folders) and tells whether anything was added.  A file is told by the kind
// its folder's listing gives, with no system call of its own: the reader that opens it learns its
// size, mode and time from the open descriptor.  Links and folders, few beside the files, get one
// fstatat(2) relative to their open folder, as does every entry whose kind the listing does not
// give: never a look-up of the whole path per entry.
bool walk(Folder const& folder, std::uint32_t index, std::string const& path,
          std::string const& relative, std::string const& skip, KindsBy kinds, SourceTree& tree) {
  bool added = false;
  std::string childPath = path;
  if (childPath.empty() || childPath.back() != '/') childPath += '/';
  std::size_t const childPathBase = childPath.size();
  std::string childRelative = relative;
  if (!childRelative.empty()) childRelative += '/';
  std::size_t const childRelativeBase = childRelative.size();
  for (Entry const& entry : sortedEntries(folder, path, kinds)) {
    childPath.resize(childPathBase);
    childPath += entry.name;
    if (childPath == skip) continue;
    childRelative.resize(childRelativeBase);
    childRelative += entry.name;
    struct stat status;
    bool statted = false;
    mode_t const kind = kindOf(folder, entry, childPath, status, statted);
    if (kind == S_IFREG) {
      addItem(tree, SourceItem::Kind::File, index, entry.name, childRelative,
              statted ? &status : nullptr);
      added = true;
    } else if (kind == S_IFLNK) {
      if (!statted) kindOf(folder, Entry{entry.name, DT_UNKNOWN}, childPath, status, statted);
      addItem(tree, SourceItem::Kind::Link, index, entry.name, childRelative, &status);
      added = true;
    } else if (kind == S_IFDIR) {
      Folder child;
      if (!child.open(folder.fd(), entry.name.c_str(), false)) folderError(childPath, errno);
      // The folder's record is taken back if nothing below it came out: only folders that
      // hold items stay.
      std::size_t const folders = tree.folders.size();
      std::size_t const names = tree.names.size();
      std::uint32_t const childIndex = tree.addFolder(index, entry.name);
      if (!walk(child, childIndex, childPath, childRelative, skip, kinds, tree)) {
        tree.folders.resize(folders);
        tree.names.resize(names);
        if (!statted && ::fstat(child.fd(), &status) != 0) folderError(childPath, errno);
        addItem(tree, SourceItem::Kind::EmptyFolder, index, entry.name, childRelative, &status);
      }
      added = true;
    }
  }
  return added;
}

}  // namespace

void SourceTree::add(SourceItem item, std::string const& native) {
  std::uint32_t folder = kRootFolder;
  std::size_t start = 0;
  for (std::size_t slash = native.find('/'); slash != std::string::npos;
       start = slash + 1, slash = native.find('/', start)) {
    std::string_view const name = std::string_view(native).substr(start, slash - start);
    std::uint32_t found = 0;
    for (std::size_t at = folders.size(); at-- > 1;) {
      SourceFolder const& candidate = folders[at];
      if (candidate.parent == folder &&
          std::string_view(names).substr(candidate.nameOffset, candidate.nameLength) == name) {
        found = static_cast<std::uint32_t>(at);
        break;
      }
    }
    folder = found != 0 ? found : addFolder(folder, name);
  }
  addIn(item, folder, std::string_view(native).substr(start));
}

std::uint32_t SourceTree::addFolder(std::uint32_t parent, std::string_view name) {
  SourceFolder folder;
  folder.parent = parent;
  folder.nameOffset = names.size();
  folder.nameLength = static_cast<std::uint32_t>(name.size());
  names += name;
  folders.push_back(folder);
  return static_cast<std::uint32_t>(folders.size() - 1);
}

void SourceTree::addIn(SourceItem item, std::uint32_t folder, std::string_view name) {
  if (name.size() > std::numeric_limits<std::uint16_t>::max()) {
    throw ToolError("File name too long: " + std::string(name));
  }
  item.folder = folder;
  item.nameOffset = names.size();
  item.nameLength = static_cast<std::uint16_t>(name.size());
  names += name;
  items.push_back(item);
}

void SourceTree::appendNative(SourceItem const& item, std::string& out) const {
  // The chain of folders is walked twice rather than kept, so that no depth needs memory of
  // its own: once for the length, once to fill the path in from its end.
  std::size_t size = item.nameLength;
  for (std::uint32_t at = item.folder; at != kRootFolder; at = folders[at].parent) {
    size += folders[at].nameLength + 1;
  }
  std::size_t const start = out.size();
  out.resize(start + size);
  std::size_t end = out.size();
  end -= item.nameLength;
  names.copy(&out[end], item.nameLength, item.nameOffset);
  for (std::uint32_t at = item.folder; at != kRootFolder; at = folders[at].parent) {
    SourceFolder const& folder = folders[at];
    out[--end] = '/';
    end -= folder.nameLength;
    names.copy(&out[end], folder.nameLength, folder.nameOffset);
  }
}

std::u16string SourceTree::relative(SourceItem const& item) const {
  std::string path;
  appendNative(item, path);
  return opc::toString(path);
}

std::u16string SourceTree::packagePath(SourceItem const& item, std::string& scratch) const {
  // The separator is ASCII, which every encoding of file names converts by itself: converting
  // the joined bytes gives the joined text.
  scratch.assign(1, '/');
  appendNative(item, scratch);
  return opc::toString(scratch);
}

SourceTree walkSourceFolder(fs::path const& root, fs::path const& skip, KindsBy kinds) {
  SourceTree tree;
  Folder folder;
  // The root may be reached through a link; what lies below it is never followed.
  if (!folder.open(AT_FDCWD, root.c_str(), true)) folderError(root.native(), errno);
  walk(folder, SourceTree::kRootFolder, root.native(), std::string(), skip.native(), kinds, tree);
  return tree;
}

fs::path absolutePath(std::string const& argument) {
  fs::path path = fs::absolute(fs::path(argument)).lexically_normal();
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();
  return path;
}

}  // namespace opcvk
