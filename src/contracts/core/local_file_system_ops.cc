#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <sys/random.h>
#include <sys/stat.h>
#include <typeinfo>
#include <unistd.h>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/confined_destination.h>
#include <opc/core/local_file_system_ops.h>

#include "file_system_ops_utf8.h"
#include "local_confined_destination.h"
#include "local_file_system_ops_internal.h"

namespace opc {
namespace {

using boost::posix_time::ptime;
using detail::systemError;

// The byte form of `path`, or false with the code and text set.
bool toBytes(std::u16string const& path, std::string& bytes, std::string& text,
             boost::system::error_code& code) {
  if (detail::toFileSystemBytes(path, bytes)) return true;
  text = "the path holds a NUL character or a lone surrogate and has no form on this system";
  code = systemError(EINVAL);
  return false;
}

// lstat(2): true if something is there; a missing path is false without an error.
bool statLink(std::string const& path, struct stat& status, boost::system::error_code& code) {
  if (::lstat(path.c_str(), &status) == 0) return true;
  if (errno != ENOENT && errno != ENOTDIR) code = systemError(errno);
  return false;
}

ptime const& epoch() {
  static ptime const value(boost::gregorian::date(1970, 1, 1));
  return value;
}

// The range of seconds since the epoch that a ptime holds: the years 1400..9999.
std::int64_t const kFirstSecond = -17987443200;  // 1400-01-01T00:00:00Z
std::int64_t const kLastSecond = 253402300799;   // 9999-12-31T23:59:59Z

}  // namespace

namespace detail {

std::uint64_t randomNumber() {
  std::uint64_t value = 0;
  if (::getrandom(&value, sizeof value, 0) == static_cast<ssize_t>(sizeof value)) return value;
  // Without getrandom(2) (old kernels, seccomp), std::random_device is the next best source.
  std::random_device device;
  return (static_cast<std::uint64_t>(device()) << 32) ^ device();
}

timespec toTimespec(ptime time) {
  std::int64_t const micros = (time - epoch()).total_microseconds();
  std::int64_t seconds = micros / 1000000;
  std::int64_t fraction = micros % 1000000;
  if (fraction < 0) {  // before 1970 the fraction must still count forwards
    fraction += 1000000;
    seconds -= 1;
  }
  timespec result{};
  result.tv_sec = static_cast<time_t>(seconds);
  result.tv_nsec = static_cast<long>(fraction * 1000);
  return result;
}

bool mayNotHoldTime(std::int64_t wanted) {
  std::int64_t const first = 315532800;  // 1980-01-01T00:00:00Z
  std::int64_t const last = 2145916800;  // 2038-01-01T00:00:00Z
  return wanted < first || wanted >= last;
}

bool storedAnotherTime(std::int64_t wanted, std::int64_t stored) {
  return stored > wanted + 2 || stored < wanted - 2;
}

}  // namespace detail

LocalFileSystemOps::LocalFileSystemOps() = default;
LocalFileSystemOps::~LocalFileSystemOps() = default;

std::shared_ptr<LocalFileSystemOps> const& LocalFileSystemOps::getShared() {
  // Never destroyed on purpose: code that runs during static destruction may still hold a
  // reference that a selector handed out.
  static auto* const instance =
      new std::shared_ptr<LocalFileSystemOps>(std::make_shared<LocalFileSystemOps>());
  return *instance;
}

bool LocalFileSystemOps::toLocalPathBytes(std::u16string const& path, std::string& bytes) {
  return detail::toFileSystemBytes(path, bytes);
}

std::u16string LocalFileSystemOps::doGetTempName(std::u16string const& path, std::string& text,
                                                 boost::system::error_code& code) const {
  std::string folder;
  if (path.empty()) {
    char const* fromEnvironment = std::getenv("TMPDIR");
    folder = fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : "/tmp";
  } else if (!toBytes(path, folder, text, code)) {
    return std::u16string();
  }
  struct stat status;
  if (::stat(folder.c_str(), &status) != 0) {
    code = systemError(errno);
    return std::u16string();
  }
  if (!S_ISDIR(status.st_mode)) {
    code = systemError(ENOTDIR);
    return std::u16string();
  }
  std::string prefix = folder.back() == '/' ? folder : folder + "/";
  for (int attempt = 0; attempt < 100; ++attempt) {
    char name[32];
    std::snprintf(name, sizeof name, "opc-%016llx",
                  static_cast<unsigned long long>(detail::randomNumber()));
    std::string candidate = prefix + name;
    if (::lstat(candidate.c_str(), &status) != 0 && errno == ENOENT) {
      return detail::fromFileSystemBytes(candidate);
    }
  }
  text = "no free name found";
  code = systemError(EEXIST);
  return std::u16string();
}

std::u16string LocalFileSystemOps::doGetParentPath(std::u16string const& path, std::string&,
                                                   boost::system::error_code&) const {
  return detail::localParentPath(path);
}

std::u16string LocalFileSystemOps::doGetFilename(std::u16string const& path, std::string&,
                                                 boost::system::error_code&) const {
  return detail::localFilename(path);
}

std::u16string LocalFileSystemOps::doGetExtension(std::u16string const& path, std::string&,
                                                  boost::system::error_code&) const {
  return detail::localExtension(path);
}

std::u16string LocalFileSystemOps::doAppendPath(std::u16string const& base,
                                                std::u16string const& rest, std::string& text,
                                                boost::system::error_code& code) const {
  std::u16string result;
  if (!detail::localAppendPath(base, rest, result, text)) code = systemError(EINVAL);
  return result;
}

std::u16string LocalFileSystemOps::doNormalizePath(std::u16string const& path, std::string&,
                                                   boost::system::error_code&) const {
  return detail::localNormalizePath(path);
}

bool LocalFileSystemOps::doGetLocalPath(std::u16string const& path, std::u16string& out) const {
  std::string bytes;
  if (!detail::toFileSystemBytes(path, bytes)) return false;
  if (doIsAbsolutePath(path)) {
    out = path;
    return true;
  }
  char* current = ::getcwd(nullptr, 0);
  if (current == nullptr) return false;
  std::u16string folder = detail::fromFileSystemBytes(current);
  std::free(current);
  if (!path.empty() && folder.back() != u'/') folder.push_back(u'/');
  out = folder + path;
  return true;
}

bool LocalFileSystemOps::doIsAbsolutePath(std::u16string const& path) const {
  return !path.empty() && path[0] == u'/';
}

bool LocalFileSystemOps::doExists(std::u16string const& path, std::string& text,
                                  boost::system::error_code& code) const {
  std::string bytes;
  struct stat status;
  return toBytes(path, bytes, text, code) && statLink(bytes, status, code);
}

bool LocalFileSystemOps::doIsFile(std::u16string const& path, std::string& text,
                                  boost::system::error_code& code) const {
  std::string bytes;
  struct stat status;
  return toBytes(path, bytes, text, code) && statLink(bytes, status, code) &&
         S_ISREG(status.st_mode);
}

bool LocalFileSystemOps::doIsFolder(std::u16string const& path, std::string& text,
                                    boost::system::error_code& code) const {
  std::string bytes;
  struct stat status;
  return toBytes(path, bytes, text, code) && statLink(bytes, status, code) &&
         S_ISDIR(status.st_mode);
}

bool LocalFileSystemOps::doIsSymlink(std::u16string const& path, std::string& text,
                                     boost::system::error_code& code) const {
  std::string bytes;
  struct stat status;
  return toBytes(path, bytes, text, code) && statLink(bytes, status, code) &&
         S_ISLNK(status.st_mode);
}

Perms::Perms_tag LocalFileSystemOps::doGetPermissions(std::u16string const& path, std::string& text,
                                                      boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return Perms::unknown;
  struct stat status;
  if (::lstat(bytes.c_str(), &status) != 0) {
    code = systemError(errno);
    return Perms::unknown;
  }
  return static_cast<Perms::Perms_tag>(status.st_mode & 0777);
}

void LocalFileSystemOps::doSetPermissions(std::u16string const& path, Perms::Perms_tag permissions,
                                          std::string& text,
                                          boost::system::error_code& code) const {
  if (permissions > Perms::perms_mask) {
    text = permissions == Perms::unknown
               ? "the permissions are unknown"
               : "permissions " + std::to_string(permissions) + " are not within 0777";
    code = systemError(EINVAL);
    return;
  }
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return;
  // chmod(2) follows links, and Linux keeps no permissions of a link itself: changing the
  // target instead would reach outside what the caller named.
  struct stat status;
  if (::lstat(bytes.c_str(), &status) != 0) {
    code = systemError(errno);
    return;
  }
  if (S_ISLNK(status.st_mode)) {
    text = "a symbolic link has no permissions of its own";
    code = systemError(EOPNOTSUPP);
    return;
  }
  if (::chmod(bytes.c_str(), static_cast<mode_t>(permissions)) != 0) code = systemError(errno);
}

ptime LocalFileSystemOps::doGetLastModifiedTime(std::u16string const& path, std::string& text,
                                                boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return ptime();
  struct stat status;
  if (::lstat(bytes.c_str(), &status) != 0) {
    code = systemError(errno);
    return ptime();
  }
  std::int64_t seconds = status.st_mtim.tv_sec;
  if (seconds < kFirstSecond || seconds > kLastSecond) {
    text = "the time of the file lies outside the years 1400..9999";
    code = systemError(EOVERFLOW);
    return ptime();
  }
  // Whole days first: boost::posix_time::seconds takes a long, and days keep the sum exact.
  return epoch() + boost::gregorian::days(seconds / 86400) +
         boost::posix_time::seconds(static_cast<long>(seconds % 86400)) +
         boost::posix_time::microseconds(status.st_mtim.tv_nsec / 1000);
}

void LocalFileSystemOps::doSetLastModifiedTime(std::u16string const& path, ptime time,
                                               std::string& text,
                                               boost::system::error_code& code) const {
  if (time.is_special()) {
    text = "the time is not a date and time";
    code = systemError(EINVAL);
    return;
  }
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return;
  std::array<timespec, 2> times{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1] = detail::toTimespec(time);
  if (::utimensat(AT_FDCWD, bytes.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
    code = systemError(errno);
    return;
  }
  // Linux clamps a time that the file system cannot hold instead of failing; a caller who
  // restores times must hear about that.  Two seconds of slack allow coarse file systems.
  struct stat status;
  if (::lstat(bytes.c_str(), &status) != 0) {
    code = systemError(errno);
    return;
  }
  if (detail::storedAnotherTime(times[1].tv_sec, status.st_mtim.tv_sec)) {
    text = "the file system cannot hold the time";
    code = systemError(EOVERFLOW);
  }
}

std::u16string LocalFileSystemOps::doGetLinkTarget(std::u16string const& path, std::string& text,
                                                   boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return std::u16string();
  // readlink(2) cuts silently at the buffer's end, so grow until the text fits with room.
  for (std::size_t size = 256;; size *= 2) {
    std::string target(size, '\0');
    ssize_t count = ::readlink(bytes.c_str(), &target[0], size);
    if (count < 0) {
      code = systemError(errno);
      return std::u16string();
    }
    if (static_cast<std::size_t>(count) < size) {
      target.resize(static_cast<std::size_t>(count));
      return detail::fromFileSystemBytes(target);
    }
  }
}

void LocalFileSystemOps::doGetFiles(std::u16string const& folder, std::vector<std::u16string>& out,
                                    bool recursive, std::string& text,
                                    boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(folder, bytes, text, code)) return;
  std::vector<std::string> found;
  detail::listLocalFiles(bytes, recursive, found, code);
  if (code) return;
  // The caller's text of the folder begins each path, whatever its byte form was.
  std::size_t prefix = bytes.size();
  for (std::string const& path : found) {
    std::u16string tail = detail::fromFileSystemBytes(path.substr(prefix));
    out.push_back(folder + tail);
  }
}

std::shared_ptr<std::istream> LocalFileSystemOps::doCreateInputStream(
    std::u16string const& path, int mode, std::string& text,
    boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return nullptr;
  return detail::openLocalInput(bytes, mode, text, code);
}

std::shared_ptr<std::ostream> LocalFileSystemOps::doCreateOutputStream(
    std::u16string const& path, int mode, std::string& text,
    boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return nullptr;
  return detail::openLocalOutput(bytes, mode, text, code);
}

void LocalFileSystemOps::doCreateFolder(std::u16string const& path, std::string& text,
                                        boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return;
  if (::mkdir(bytes.c_str(), 0777) != 0) code = systemError(errno);
}

void LocalFileSystemOps::doCreateFolders(std::u16string const& path, std::string& text,
                                         boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return;
  detail::createLocalFolders(bytes, code);
}

void LocalFileSystemOps::doCreateSymlink(std::u16string const& target,
                                         std::u16string const& linkPath, std::string& text,
                                         boost::system::error_code& code) const {
  std::string targetBytes;
  std::string linkBytes;
  if (!toBytes(target, targetBytes, text, code) || !toBytes(linkPath, linkBytes, text, code)) {
    return;
  }
  if (::symlink(targetBytes.c_str(), linkBytes.c_str()) != 0) code = systemError(errno);
}

void LocalFileSystemOps::doCopy(std::u16string const& from, std::u16string const& to,
                                ExistsMode mode, std::string& text,
                                boost::system::error_code& code) const {
  std::string fromBytes;
  std::string toBytesText;
  if (!toBytes(from, fromBytes, text, code) || !toBytes(to, toBytesText, text, code)) return;
  detail::copyLocalFile(fromBytes, toBytesText, mode, text, code);
}

void LocalFileSystemOps::doRename(std::u16string const& from, std::u16string const& to,
                                  std::string& text, boost::system::error_code& code) const {
  std::string fromBytes;
  std::string toBytesText;
  if (!toBytes(from, fromBytes, text, code) || !toBytes(to, toBytesText, text, code)) return;
  if (::rename(fromBytes.c_str(), toBytesText.c_str()) != 0) code = systemError(errno);
}

void LocalFileSystemOps::doRemove(std::u16string const& path, std::string& text,
                                  boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return;
  struct stat status;
  if (::lstat(bytes.c_str(), &status) != 0) {
    code = systemError(errno);
    return;
  }
  int result = S_ISDIR(status.st_mode) ? ::rmdir(bytes.c_str()) : ::unlink(bytes.c_str());
  if (result != 0) code = systemError(errno);
}

void LocalFileSystemOps::doRemoveAll(std::u16string const& path, std::string& text,
                                     boost::system::error_code& code) const {
  std::string bytes;
  if (!toBytes(path, bytes, text, code)) return;
  detail::removeLocalAll(bytes, code);
}

std::unique_ptr<ConfinedDestination> LocalFileSystemOps::doOpenConfinedDestination(
    std::u16string const& root) const {
  // A derived class may reach files another way through its slots; descriptors would go
  // around it.
  if (typeid(*this) != typeid(LocalFileSystemOps)) {
    return FileSystemOps::doOpenConfinedDestination(root);
  }
  return std::make_unique<detail::LocalConfinedDestination>(root);
}

}  // namespace opc
