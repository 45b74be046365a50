#include "local_confined_destination.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <climits>

#include "confined_path.h"
#include "file_system_ops_utf8.h"
#include "local_confined_file.h"
#include "local_file_system_ops_internal.h"

namespace opc {
namespace detail {
namespace {

using boost::system::error_code;

void fail(ConfinedResult& result, int error) {
  result.status = ConfinedResult::Status::Failed;
  result.code = systemError(error);
}

void linkAt(ConfinedResult& result, std::size_t depth) {
  result.status = ConfinedResult::Status::SymbolicLink;
  result.depth = depth;
}

int openFolder(int at, std::string const& name) {
  return ::openat(at, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool isLinkIn(int at, std::string const& name) {
  struct stat status;
  return ::fstatat(at, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

// The code of a result that is not Done, for operations that report by code alone.
error_code codeOf(ConfinedResult const& result) {
  switch (result.status) {
    case ConfinedResult::Status::SymbolicLink:
      return systemError(ELOOP);
    case ConfinedResult::Status::SharedFile:
      return systemError(EMLINK);
    default:
      return result.code;
  }
}

// Opens the existing file `name` in `at` for writing without following a link, and empties it
// only once it is known to be a regular file of one name.  -1 with errno set, or with
// `result` set to SharedFile.
int openExistingFile(int at, std::string const& name, ConfinedResult& result) {
  // O_NONBLOCK: a named pipe without a reader must not hang the extraction.
  int const fd =
      ::openat(at, name.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  if (fd < 0) return -1;
  struct stat status;
  int error = ::fstat(fd, &status) != 0 ? errno : !S_ISREG(status.st_mode) ? EEXIST : 0;
  if (error == 0 && status.st_nlink > 1) {
    ::close(fd);
    result.status = ConfinedResult::Status::SharedFile;
    return -1;
  }
  if (error == 0 && status.st_size > 0 && ::ftruncate(fd, 0) != 0) error = errno;
  if (error == 0) return fd;
  ::close(fd);
  errno = error;
  return -1;
}

}  // namespace

LocalConfinedDestination::LocalConfinedDestination(std::u16string const& root)
    : rootFd_(-1), rootError_(0) {
  if (!toFileSystemBytes(root, root_)) {
    rootError_ = EINVAL;
    return;
  }
  // The root may itself be a link: whoever chose it chose its target.
  rootFd_ = ::open(root_.empty() ? "." : root_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  struct stat status;
  if (rootFd_ < 0) {
    rootError_ = errno;
  } else if (::fstat(rootFd_, &status) == 0) {
    rootDevice_ = status.st_dev;
    rootInode_ = status.st_ino;
  }
}

LocalConfinedDestination::~LocalConfinedDestination() {
  closeFrom(0);
  if (rootFd_ >= 0) ::close(rootFd_);
}

bool LocalConfinedDestination::isUnchanged() const {
  if (rootFd_ < 0) return false;
  // The deepest folder held open must still be what its whole path leads to.
  std::size_t held = open_.size();
  while (held > 0 && open_[held - 1].fd < 0) --held;
  std::string path = root_.empty() ? "." : root_;
  for (std::size_t i = 0; i < held; ++i) {
    if (path.back() != '/') path += '/';
    path += open_[i].name;
  }
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return false;
  if (held == 0) return status.st_dev == rootDevice_ && status.st_ino == rootInode_;
  Folder const& deepest = open_[held - 1];
  if (!deepest.identified) {
    struct stat own;
    if (::fstat(deepest.fd, &own) != 0) return false;
    deepest.device = own.st_dev;
    deepest.inode = own.st_ino;
    deepest.identified = true;
  }
  return status.st_dev == deepest.device && status.st_ino == deepest.inode;
}

bool LocalConfinedDestination::split(std::u16string const& path) {
  // The parents of an entry are made and then the entry itself is opened: the second call
  // finds the path split already.
  if (splitDone_ && path == splitPath_) return true;
  splitDone_ = toFileSystemBytes(path, bytes_) && splitConfinedPath(bytes_, components_);
  if (splitDone_) splitPath_ = path;
  return splitDone_;
}

std::size_t LocalConfinedDestination::realLength(std::size_t count) const {
  std::size_t length = root_.size();
  for (std::size_t i = 0; i < count; ++i) length += components_[i].size() + 1;
  // appendPath joins with one "/", none after a trailing one, and none after an empty root.
  if (count > 0 && (root_.empty() || root_.back() == '/')) --length;
  return length;
}

int LocalConfinedDestination::createdModeOf(int fd) {
  // What open(2) gives a file asked for with 0666 depends on the umask, on a default ACL of
  // the folder (which a folder made here took from the folder it was made in) and on the
  // file system; the same in all the folders made below one that was there.  So the first new
  // file below the nearest folder that was there (or the root) is looked at, once.
  std::size_t level = components_.empty() ? 0 : components_.size() - 1;
  while (level > 0 && level <= open_.size() && open_[level - 1].made) --level;
  if (level > open_.size()) return -1;
  int& known = level == 0 ? rootCreatedMode_ : open_[level - 1].createdMode;
  struct stat status;
  if (known < 0 && ::fstat(fd, &status) == 0) known = static_cast<int>(status.st_mode & 07777);
  return known;
}

void LocalConfinedDestination::closeFrom(std::size_t level) {
  for (std::size_t i = level; i < open_.size(); ++i) {
    if (open_[i].fd >= 0) ::close(open_[i].fd);
  }
  open_.resize(level);
}

void LocalConfinedDestination::holdAtMost() {
  std::size_t held = 0;
  for (Folder const& folder : open_) held += folder.fd >= 0;
  for (std::size_t i = 0; held > kMaxHeld && i + 1 < open_.size(); ++i) {
    if (open_[i].fd < 0) continue;
    ::close(open_[i].fd);
    open_[i].fd = -1;
    --held;
  }
}

bool LocalConfinedDestination::enter(int at, std::size_t level, bool make, bool known,
                                     Folder& folder, ConfinedResult& result) {
  // In a folder made by this destination nothing is there yet: make first, look after.
  int fd = known ? -1 : openFolder(at, folder.name);
  int error = known ? ENOENT : fd < 0 ? errno : 0;
  if (fd < 0 && error == ENOENT && make) {
    if (::mkdirat(at, folder.name.c_str(), 0777) == 0) {
      folder.made = true;
    } else if (errno != EEXIST) {
      fail(result, errno);
      return false;
    }
    fd = openFolder(at, folder.name);
    error = fd < 0 ? errno : 0;
  }
  if (fd >= 0) {
    folder.fd = fd;
    return true;
  }
  // O_DIRECTORY | O_NOFOLLOW refuses a link as not a folder; which of the two it was decides
  // between a refusal and a plain failure.
  if (error == ENOTDIR || error == ELOOP) {
    if (isLinkIn(at, folder.name)) {
      linkAt(result, level + 1);
      return false;
    }
    error = ENOTDIR;
  }
  fail(result, error);
  return false;
}

int LocalConfinedDestination::folderAt(std::size_t level, ConfinedResult& result) {
  if (open_[level].fd >= 0) return open_[level].fd;
  // Let go for want of descriptors: walked again, the same way, from the nearest one held.
  std::size_t from = level;
  while (from > 0 && open_[from - 1].fd < 0) --from;
  for (std::size_t i = from; i <= level; ++i) {
    int const at = i == 0 ? rootFd_ : open_[i - 1].fd;
    Folder again;
    again.name = open_[i].name;
    if (!enter(at, i, false, false, again, result)) return -1;
    open_[i].fd = again.fd;
  }
  int const fd = open_[level].fd;
  holdAtMost();
  return fd;
}

void LocalConfinedDestination::reachParent(bool make, ConfinedResult& result) {
  result = ConfinedResult();
  std::size_t const parents = components_.empty() ? 0 : components_.size() - 1;
  std::size_t keep = 0;
  while (keep < open_.size() && keep < parents && open_[keep].error == 0 &&
         open_[keep].name == components_[keep]) {
    ++keep;
  }
  closeFrom(keep);
  if (keep == parents) return;
  if (rootFd_ < 0) return fail(result, rootError_);
  if (make && realLength(parents) >= PATH_MAX) return fail(result, ENAMETOOLONG);
  for (std::size_t i = keep; i < parents; ++i) {
    int const at = i == 0 ? rootFd_ : folderAt(i - 1, result);
    if (at < 0) return;
    Folder folder;
    folder.name = components_[i];
    bool const known = i > 0 && open_[i - 1].made;
    if (!enter(at, i, make, known, folder, result)) {
      // Something other than a folder right above the path: as by path, the operation on the
      // path itself meets it.
      bool const last = i + 1 == parents;
      if (last && result.status == ConfinedResult::Status::Failed &&
          result.code.value() == ENOTDIR) {
        result = ConfinedResult();
        folder.error = ENOTDIR;
        open_.push_back(std::move(folder));
      }
      return;
    }
    open_.push_back(std::move(folder));
    holdAtMost();
  }
}

int LocalConfinedDestination::parentOf(ConfinedResult& result) {
  std::size_t const parents = components_.size() - 1;
  if (parents == 0) {
    if (rootFd_ < 0) fail(result, rootError_);
    return rootFd_;
  }
  if (open_[parents - 1].error != 0) {
    fail(result, open_[parents - 1].error);
    return -1;
  }
  int const fd = folderAt(parents - 1, result);
  if (fd >= 0 && realLength(components_.size()) >= PATH_MAX) {
    fail(result, ENAMETOOLONG);
    return -1;
  }
  return fd;
}

void LocalConfinedDestination::makeParents(std::u16string const& path, ConfinedResult& result) {
  result = ConfinedResult();
  if (!split(path)) return fail(result, EINVAL);
  reachParent(true, result);
}

std::unique_ptr<ConfinedFile> LocalConfinedDestination::openFile(std::u16string const& path,
                                                                 ConfinedResult& result) {
  result = ConfinedResult();
  if (!split(path)) fail(result, EINVAL);
  if (result.done() && components_.empty()) fail(result, EISDIR);  // the root is a folder
  if (result.done()) reachParent(false, result);
  int const at = result.done() ? parentOf(result) : -1;
  if (!result.done()) return nullptr;
  std::string const& name = components_.back();
  // A new file, the usual case, needs no look at what it replaces.
  int fd = ::openat(at, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  // Only a file made just now has the bits that creating gives; one that was there has its own.
  int const createdMode = fd >= 0 ? createdModeOf(fd) : -1;
  if (fd < 0 && errno == EEXIST) {
    fd = openExistingFile(at, name, result);
    if (!result.done()) return nullptr;
  }
  if (fd < 0) {
    // O_NOFOLLOW: ELOOP is the link itself, planted or made before.
    if (errno == ELOOP) {
      linkAt(result, components_.size());
    } else {
      fail(result, errno);
    }
    return nullptr;
  }
  return std::make_unique<LocalConfinedFile>(fd, createdMode);
}

std::unique_ptr<ConfinedFile> LocalConfinedDestination::openTemporaryFile(
    std::u16string const& path, ConfinedResult& result) {
  result = ConfinedResult();
  if (!split(path) || components_.empty()) fail(result, EINVAL);
  if (result.done()) reachParent(false, result);
  int const at = result.done() ? parentOf(result) : -1;
  if (!result.done()) return nullptr;
  for (int attempt = 0; attempt < 100; ++attempt) {
    char name[32];
    std::snprintf(name, sizeof name, ".opc-%016llx",
                  static_cast<unsigned long long>(randomNumber()));
    int const fd = ::openat(at, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0 && errno == EEXIST) continue;
    if (fd < 0) break;
    // The file renames itself into place later, whatever the destination walks meanwhile.
    int const folder = ::fcntl(at, F_DUPFD_CLOEXEC, 0);
    if (folder < 0) {
      int const error = errno;
      ::unlinkat(at, name, 0);
      ::close(fd);
      fail(result, error);
      return nullptr;
    }
    return std::make_unique<LocalConfinedFile>(fd, folder, name, components_.back());
  }
  fail(result, errno);
  return nullptr;
}

bool LocalConfinedDestination::exists(std::u16string const& path, error_code& code) {
  code.clear();
  ConfinedResult result;
  if (!split(path)) {
    code = systemError(EINVAL);
    return false;
  }
  struct stat status;
  if (components_.empty()) {
    if (::lstat(root_.empty() ? "." : root_.c_str(), &status) == 0) return true;
    if (errno != ENOENT && errno != ENOTDIR) code = systemError(errno);
    return false;
  }
  reachParent(false, result);
  int const at = result.done() ? parentOf(result) : -1;
  if (at >= 0 && ::fstatat(at, components_.back().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return true;
  }
  int const error = at >= 0 ? errno : codeOf(result).value();
  // Missing, or below something that is not a folder, is simply not there.
  if (error != 0 && error != ENOENT && error != ENOTDIR) code = systemError(error);
  return false;
}

void LocalConfinedDestination::setPermissions(std::u16string const& path,
                                              Perms::Perms_tag permissions, error_code& code) {
  code.clear();
  ConfinedResult result;
  if (permissions > Perms::perms_mask || !split(path)) {
    code = systemError(EINVAL);
    return;
  }
  // AT_SYMLINK_NOFOLLOW: a link gives operation_not_supported, its target is never reached.
  if (components_.empty()) {
    if (::fchmodat(AT_FDCWD, root_.empty() ? "." : root_.c_str(), permissions,
                   AT_SYMLINK_NOFOLLOW) != 0) {
      code = systemError(errno);
    }
    return;
  }
  reachParent(false, result);
  int const at = result.done() ? parentOf(result) : -1;
  if (at < 0) {
    code = codeOf(result);
    return;
  }
  std::string const& name = components_.back();
  mode_t const mode = static_cast<mode_t>(permissions);
  if (::fchmodat(at, name.c_str(), mode, AT_SYMLINK_NOFOLLOW) == 0) return;
  int error = errno;
  struct stat status;
  // Without /proc the C library cannot change a name without following it; a regular file is
  // then opened (O_NOFOLLOW, in its folder) and changed through its descriptor.
  if (error == EOPNOTSUPP && ::fstatat(at, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISREG(status.st_mode)) {
    int const fd = ::openat(at, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    error = fd < 0 ? errno : ::fchmod(fd, mode) == 0 ? 0 : errno;
    if (fd >= 0) ::close(fd);
  }
  if (error != 0) code = systemError(error);
}

void LocalConfinedDestination::createFolder(std::u16string const& path, error_code& code) {
  code.clear();
  ConfinedResult result;
  if (!split(path)) {
    code = systemError(EINVAL);
    return;
  }
  if (components_.empty()) return;  // the root is there
  reachParent(false, result);
  int const at = result.done() ? parentOf(result) : -1;
  if (at < 0) {
    code = codeOf(result);
  } else if (::mkdirat(at, components_.back().c_str(), 0777) != 0 && errno != EEXIST) {
    // EEXIST: whatever is there counts as the folder.
    code = systemError(errno);
  }
}

void LocalConfinedDestination::createSymlink(std::u16string const& target,
                                             std::u16string const& path, error_code& code) {
  code.clear();
  ConfinedResult result;
  std::string targetBytes;
  if (!toFileSystemBytes(target, targetBytes) || !split(path)) {
    code = systemError(EINVAL);
    return;
  }
  if (components_.empty()) {
    code = systemError(EEXIST);  // the root is there
    return;
  }
  reachParent(false, result);
  int const at = result.done() ? parentOf(result) : -1;
  if (at < 0) {
    code = codeOf(result);
  } else if (::symlinkat(targetBytes.c_str(), at, components_.back().c_str()) != 0) {
    code = systemError(errno);
  }
}

}  // namespace detail
}  // namespace opc
