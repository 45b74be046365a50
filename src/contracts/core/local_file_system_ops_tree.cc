// Operations of LocalFileSystemOps that walk or rebuild a tree.  Descriptors of folders and
// the *at(2) calls with O_NOFOLLOW/AT_SYMLINK_NOFOLLOW keep a walk from being led through a
// symbolic link, even one that replaces a folder while the walk runs.
#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace detail {
namespace {

constexpr std::size_t kCopyBufferSize = 64 * 1024;

std::string joinPath(std::string const& folder, std::string const& name) {
  if (folder.empty() || folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

// Closes a descriptor when the scope ends, whatever path it ends by.
class DescriptorGuard {
 public:
  explicit DescriptorGuard(int fd) : fd_(fd) {}
  ~DescriptorGuard() {
    if (fd_ >= 0) ::close(fd_);
  }
  DescriptorGuard(DescriptorGuard const&) = delete;
  DescriptorGuard& operator=(DescriptorGuard const&) = delete;
  int get() const { return fd_; }
  // Closes now and gives close(2)'s errno, or 0.
  int close() {
    if (fd_ < 0) return 0;
    int result = ::close(fd_) == 0 ? 0 : errno;
    fd_ = -1;
    return result;
  }

 private:
  int fd_;
};

struct FolderEntry {
  std::string name;
  mode_t type;
};

// The entries of the open folder `fd` other than "." and "..", sorted by name, each with its
// own type (links not followed).  Entries that vanish while being read are left out.  Gives
// errno or 0.
int readFolder(int fd, std::vector<FolderEntry>& entries) {
  int own = ::dup(fd);  // closedir() closes the descriptor it was given
  if (own < 0) return errno;
  DIR* folder = ::fdopendir(own);
  if (folder == nullptr) {
    int error = errno;
    ::close(own);
    return error;
  }
  int error = 0;
  for (;;) {
    errno = 0;
    dirent* entry = ::readdir(folder);
    if (entry == nullptr) {
      error = errno;
      break;
    }
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    struct stat status;
    if (::fstatat(fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;
      error = errno;
      break;
    }
    entries.push_back({name, static_cast<mode_t>(status.st_mode & S_IFMT)});
  }
  ::closedir(folder);
  std::sort(entries.begin(), entries.end(),
            [](FolderEntry const& a, FolderEntry const& b) { return a.name < b.name; });
  return error;
}

int openFolder(std::string const& path, bool followLink) {
  int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW);
  int fd;
  do {
    fd = ::open(path.c_str(), flags);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Empties the open folder `fd`.  Gives errno or 0.
int removeContents(int fd) {
  std::vector<FolderEntry> entries;
  if (int error = readFolder(fd, entries)) return error;
  for (FolderEntry const& entry : entries) {
    if (entry.type == S_IFDIR) {
      int sub = ::openat(fd, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (sub < 0) {
        if (errno == ENOENT) continue;
        return errno;
      }
      DescriptorGuard guard(sub);
      if (int error = removeContents(sub)) return error;
    }
    int flags = entry.type == S_IFDIR ? AT_REMOVEDIR : 0;
    if (::unlinkat(fd, entry.name.c_str(), flags) != 0 && errno != ENOENT) return errno;
  }
  return 0;
}

bool copyBytes(int from, int to, int& error) {
  std::vector<char> buffer(kCopyBufferSize);
  for (;;) {
    ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      error = errno;
      return false;
    }
    if (count == 0) return true;
    char const* data = buffer.data();
    while (count > 0) {
      ssize_t written = ::write(to, data, static_cast<std::size_t>(count));
      if (written < 0) {
        if (errno == EINTR) continue;
        error = errno;
        return false;
      }
      data += written;
      count -= written;
    }
  }
}

std::string folderOf(std::string const& path) {
  std::size_t last = path.rfind('/');
  if (last == std::string::npos) return ".";
  return last == 0 ? "/" : path.substr(0, last);
}

}  // namespace

void listLocalFiles(std::string const& folder, bool recursive, std::vector<std::string>& out,
                    boost::system::error_code& code) {
  // Depth first with an explicit stack, so that a deep tree cannot exhaust the call stack:
  // a folder's files are listed when it is popped, its subfolders pushed in reverse order.
  std::vector<std::string> pending{folder};
  bool first = true;
  while (!pending.empty()) {
    std::string current = std::move(pending.back());
    pending.pop_back();
    // The folder the caller named may be reached through a link; folders found below it
    // must not be.
    int fd = openFolder(current, first);
    first = false;
    if (fd < 0) {
      code = systemError(errno);
      return;
    }
    DescriptorGuard guard(fd);
    std::vector<FolderEntry> entries;
    if (int error = readFolder(fd, entries)) {
      code = systemError(error);
      return;
    }
    std::vector<std::string> subfolders;
    for (FolderEntry const& entry : entries) {
      if (entry.type == S_IFREG || entry.type == S_IFLNK) {
        out.push_back(joinPath(current, entry.name));
      } else if (entry.type == S_IFDIR && recursive) {
        subfolders.push_back(joinPath(current, entry.name));
      }
    }
    pending.insert(pending.end(), subfolders.rbegin(), subfolders.rend());
  }
}

void createLocalFolders(std::string const& path, boost::system::error_code& code) {
  if (path.empty()) {
    code = systemError(ENOENT);
    return;
  }
  struct stat status;
  if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return;
  // Every prefix that ends a component, the whole path last.
  std::vector<std::string> prefixes;
  for (std::size_t i = 1; i < path.size(); ++i) {
    if (path[i] == '/' && path[i - 1] != '/') prefixes.push_back(path.substr(0, i));
  }
  std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return;  // the root exists
  if (prefixes.empty() || prefixes.back().size() != end + 1) {
    prefixes.push_back(path.substr(0, end + 1));
  }
  for (std::size_t i = 0; i < prefixes.size(); ++i) {
    if (::mkdir(prefixes[i].c_str(), 0777) == 0) continue;
    int error = errno;
    if (error == EEXIST) {
      if (::stat(prefixes[i].c_str(), &status) == 0 && S_ISDIR(status.st_mode)) continue;
      error = i + 1 == prefixes.size() ? EEXIST : ENOTDIR;
    }
    code = systemError(error);
    return;
  }
}

void copyLocalFile(std::string const& from, std::string const& to, ExistsMode mode,
                   std::string& text, boost::system::error_code& code) {
  int source = ::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (source < 0) {
    // O_NOFOLLOW fails on a link with ELOOP: a link is not a regular file.
    int error = errno;
    code = systemError(error == ELOOP ? EINVAL : error);
    if (error == ELOOP) text = "the source is not a regular file";
    return;
  }
  DescriptorGuard sourceGuard(source);
  struct stat status;
  if (::fstat(source, &status) != 0) {
    code = systemError(errno);
    return;
  }
  if (!S_ISREG(status.st_mode)) {
    code = systemError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    if (!S_ISDIR(status.st_mode)) text = "the source is not a regular file";
    return;
  }
  // Overwriting writes a new file beside the destination and renames it over: a failed copy
  // leaves the old destination whole, and a link there is replaced, not written through.
  // The other modes create the destination exclusively, which is also the test for it.
  std::string written = to;
  int target;
  if (mode == ExistsMode::OverwriteIfExists) {
    struct stat existing;
    if (::lstat(to.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode)) {
      code = systemError(EISDIR);
      return;
    }
    std::string pattern = joinPath(folderOf(to), ".opc-copy-XXXXXX");
    target = ::mkostemp(&pattern[0], O_CLOEXEC);
    written = pattern;
  } else {
    target = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (target < 0 && errno == EEXIST && mode == ExistsMode::SkipIfExists) return;
  }
  if (target < 0) {
    code = systemError(errno);
    return;
  }
  DescriptorGuard targetGuard(target);
  int error = 0;
  if (copyBytes(source, target, error)) {
    if (::fchmod(target, status.st_mode & 0777) != 0) error = errno;
    int closeError = targetGuard.close();
    if (error == 0) error = closeError;
    if (error == 0 && written != to && ::rename(written.c_str(), to.c_str()) != 0) error = errno;
  }
  if (error != 0) {
    targetGuard.close();
    ::unlink(written.c_str());
    code = systemError(error);
  }
}

void removeLocalAll(std::string const& path, boost::system::error_code& code) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) code = systemError(errno);
    return;
  }
  if (S_ISDIR(status.st_mode)) {
    int fd = openFolder(path, false);
    if (fd < 0) {
      code = systemError(errno);
      return;
    }
    DescriptorGuard guard(fd);
    if (int error = removeContents(fd)) {
      code = systemError(error);
      return;
    }
    guard.close();
    if (::rmdir(path.c_str()) != 0 && errno != ENOENT) code = systemError(errno);
    return;
  }
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) code = systemError(errno);
}

}  // namespace detail
}  // namespace opc
