// The temporary file of a save and its rename over the target.  Every step that the safety of
// a save rests on is here, in the order it must happen: exclusive creation, the lock, the data
// on disk, the rename, the folder on disk.
#include "replacement_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <random>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <boost/system/error_code.hpp>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>

#include "zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr char kSuffix[] = ".tmp";
constexpr std::size_t kSuffixSize = sizeof kSuffix - 1;
constexpr std::size_t kRandomDigits = 8;

std::string baseName(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string prefixOf(std::string const& target) {
  return folderOf(target) + "/." + baseName(target) + ".";
}

// ".<base>.<8 lowercase hex digits>.tmp", as made below and nothing else.
bool isTemporaryName(std::string const& name, std::string const& base) {
  std::size_t const head = base.size() + 2;
  if (name.size() != head + kRandomDigits + kSuffixSize) return false;
  if (name[0] != '.' || name.compare(1, base.size(), base) != 0 || name[head - 1] != '.') {
    return false;
  }
  for (std::size_t i = head; i < head + kRandomDigits; ++i) {
    char const c = name[i];
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
  }
  return name.compare(head + kRandomDigits, kSuffixSize, kSuffix) == 0;
}

// Whether the name `path` still leads to the file open as `fd`.
bool namesFile(std::string const& path, int fd) {
  struct stat open;
  struct stat named;
  return ::fstat(fd, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Takes the exclusive lock, waiting through interruptions.  False when another holds it
// (only with LOCK_NB) or the file system has no locks.
bool lockFile(int fd, int how) {
  for (;;) {
    if (::flock(fd, how) == 0) return true;
    if (errno != EINTR) return false;
  }
}

std::string quotedTarget(std::string const& target) {
  return "\"" + opc::toUDEString(opc::detail::toStringFromUTF8String(target)) + "\"";
}

[[noreturn]] void failSystem(std::string const& target, std::string const& step, int error) {
  throw CouldNotSavePackage(
      "Could not save package " + quotedTarget(target) + ": " + step + ": " + std::strerror(error),
      boost::system::error_code(error, boost::system::system_category()));
}

}  // namespace

std::string ReplacementFile::destinationOf(std::string const& target) {
  struct stat info;
  if (::lstat(target.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return target;
  // A link that leads nowhere is replaced itself, as if it were not there.
  char* const resolved = ::realpath(target.c_str(), nullptr);
  if (resolved == nullptr) return target;
  std::string result = resolved;
  std::free(resolved);
  return result;
}

ReplacementFile::ReplacementFile(std::string target)
    : target_(std::move(target)), destination_(destinationOf(target_)) {
  // The new file keeps the permission bits of the one it replaces (not set-user or set-group
  // ids): a save must not make a private package readable by others.
  struct stat existing;
  bool const keepMode = ::stat(destination_.c_str(), &existing) == 0 && S_ISREG(existing.st_mode);
  std::random_device random;
  std::string const prefix = prefixOf(destination_);
  int error = EEXIST;
  for (int attempt = 0; attempt < 100 && fd_ < 0; ++attempt) {
    char digits[kRandomDigits + 1];
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(random()));
    std::string const path = prefix + digits + kSuffix;
    int const fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) {
      error = errno;
      if (error == EEXIST || error == EINTR) continue;
      break;
    }
    // Only another writer's removeStale() can hold the lock of a file this new, for the
    // instant in which it removes it: then the name leads elsewhere or nowhere, and another
    // name is tried.
    lockFile(fd, LOCK_EX);
    if (!namesFile(path, fd)) {
      ::close(fd);
      continue;
    }
    if (keepMode) ::fchmod(fd, existing.st_mode & 0777);
    path_ = path;
    fd_ = fd;
  }
  if (fd_ < 0) failSystem(target_, "could not create a temporary file beside it", error);
}

ReplacementFile::~ReplacementFile() {
  if (!committed_) {
    discard();
  } else if (fd_ >= 0) {
    ::close(fd_);
  }
}

void ReplacementFile::discard() {
  if (fd_ < 0) return;
  ::unlink(path_.c_str());
  ::close(fd_);
  fd_ = -1;
}

void ReplacementFile::commit() {
  // Data first, then the name: after a crash the target is either the old file or the whole
  // new one, never a file whose blocks did not reach the disk.
  if (::fsync(fd_) != 0) {
    int const error = errno;
    discard();
    failSystem(target_, "could not flush the temporary file", error);
  }
  if (::rename(path_.c_str(), destination_.c_str()) != 0) {
    int const error = errno;
    discard();
    failSystem(target_, "could not rename the temporary file over it", error);
  }
  committed_ = true;
  // The rename is only durable once the folder is on disk too.  A folder that cannot be
  // flushed (some file systems refuse) does not undo the rename, so it is not reported.
  int const folder = ::open(folderOf(destination_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0) {
    ::fsync(folder);
    ::close(folder);
  }
}

int ReplacementFile::release() {
  int const fd = fd_;
  fd_ = -1;
  return fd;
}

void ReplacementFile::removeStale(std::string const& target) {
  std::string const destination = destinationOf(target);
  std::string const folder = folderOf(destination);
  std::string const base = baseName(destination);
  std::vector<std::string> candidates;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (dirent const* entry = ::readdir(dir)) {
      if (isTemporaryName(entry->d_name, base)) candidates.emplace_back(entry->d_name);
    }
    ::closedir(dir);
  }
  for (std::string const& name : candidates) {
    std::string const path = folder + "/" + name;
    int const fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) continue;
    struct stat info;
    // A lock that cannot be had means a live writer, or a file system without locks, where
    // nothing can be known and the file stays.
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && lockFile(fd, LOCK_EX | LOCK_NB) &&
        namesFile(path, fd)) {
      ::unlink(path.c_str());
    }
    ::close(fd);
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
