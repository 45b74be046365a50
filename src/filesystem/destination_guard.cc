// The checks that keep extraction inside its destination.  The kernel's part is the one place
// outside the core library that makes POSIX calls: it needs a descriptor of the destination
// root, which FileSystemOps does not give, and it only reads.
#include "filesystem/destination_guard.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#if defined(SYS_openat2) && __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#define OPCVK_HAVE_OPENAT2 1
#endif

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>
#include <opc/core/string_conversions.h>

namespace opc {
namespace vkservices {
namespace detail {

namespace {

using boost::system::errc::errc_t;

constexpr char16_t kSeparator = u'/';
constexpr char16_t kBackslash = u'\\';

bool isDotName(std::u16string const& name) { return name == u"." || name == u".."; }

// True if `component`, cut at backslashes as well, holds "." or "..": a file system that
// reads a backslash as a separator would otherwise resolve it.
bool hasDotPiece(std::u16string const& component) {
  std::size_t begin = 0;
  while (true) {
    std::size_t const end = component.find(kBackslash, begin);
    std::u16string const piece = component.substr(begin, end - begin);
    if (isDotName(piece)) return true;
    if (end == std::u16string::npos) return false;
    begin = end + 1;
  }
}

// Text of a path for a message: NUL would cut what() short, so it shows as "?".
std::string messageText(std::u16string path) {
  for (char16_t& c : path) {
    if (c == u'\0') c = u'?';
  }
  return opc::toUDEString(path);
}

// Closes a descriptor when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  int get() const { return fd_; }
  void reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

#ifdef OPCVK_HAVE_OPENAT2
enum class KernelAnswer { Beneath, Link, Leaves, Unavailable, Unknown };

// One openat2(2) of `relative` below `root` that follows no link and never leaves `root`.
// Gives the descriptor in `fd` on success.
KernelAnswer openBeneath(int root, std::string const& relative, int& fd) {
  struct open_how how {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  for (int attempt = 0; attempt < 8; ++attempt) {
    long const result = ::syscall(SYS_openat2, root, relative.c_str(), &how, sizeof how);
    if (result >= 0) {
      fd = static_cast<int>(result);
      return KernelAnswer::Beneath;
    }
    switch (errno) {
      case EINTR:
      case EAGAIN:  // a rename raced with the resolution: ask again
        continue;
      case ELOOP:
        return KernelAnswer::Link;
      case EXDEV:
        return KernelAnswer::Leaves;
      case ENOSYS:  // an older kernel
      case EPERM:   // a sandbox that filters system calls it does not know
      case E2BIG:
      case EINVAL:
        return KernelAnswer::Unavailable;
      default:
        // Missing, not a folder, no permission, too long: the operation that follows
        // reports that itself.
        return KernelAnswer::Unknown;
    }
  }
  return KernelAnswer::Leaves;
}
#endif

enum class Kind { Folder, Link, Other };

// What is at `path`, links not followed.  A path that cannot be examined (too long, no
// search permission) is Other: nothing can be made through it either, and the operation that
// follows reports why.
Kind kindOf(opc::FileSystemOps const& fileSystem, std::u16string const& path) {
  try {
    if (fileSystem.isFolder(path)) return Kind::Folder;
    if (fileSystem.isSymlink(path)) return Kind::Link;
  } catch (opc::Exception const&) {
    return Kind::Other;
  }
  return Kind::Other;
}

}  // namespace

DestinationGuard::DestinationGuard(opc::FileSystemOps const& fileSystem, std::u16string destination)
    : fileSystem_(fileSystem),
      destination_(std::move(destination)),
      isLocal_(dynamic_cast<opc::LocalFileSystemOps const*>(&fileSystem) != nullptr),
      rootOpened_(false),
      rootDescriptor_(-1),
      forceComponentWalk_(false) {}

DestinationGuard::~DestinationGuard() {
  if (rootDescriptor_ >= 0) ::close(rootDescriptor_);
}

int DestinationGuard::rootDescriptor() const {
  if (!isLocal_ || rootOpened_) return rootDescriptor_;
  rootOpened_ = true;
  // A root that cannot be opened even as a path cannot be written below either; the walk of
  // FileSystemOps has checked what it could, and the operations themselves report the rest.
  // The root may itself be a link: the user chose it, so it is followed.
  std::string bytes;
  if (opc::LocalFileSystemOps::toLocalPathBytes(destination_.empty() ? u"." : destination_,
                                                bytes)) {
    rootDescriptor_ = ::open(bytes.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  }
  return rootDescriptor_;
}

Refusal DestinationGuard::makeRefusal(std::u16string const& pathName, std::string const& reason,
                                      errc_t condition) {
  return Refusal{"Refused to extract " + messageText(pathName) + ": " + reason,
                 boost::system::errc::make_error_code(condition)};
}

std::optional<Refusal> DestinationGuard::checkPathName(std::u16string const& pathName) {
  if (pathName.find(u'\0') != std::u16string::npos) {
    return makeRefusal(pathName, "the path holds a NUL character",
                       boost::system::errc::invalid_argument);
  }
  if (pathName.empty() || pathName[0] != kSeparator) {
    return makeRefusal(pathName, "the path is not absolute", boost::system::errc::invalid_argument);
  }
  if (pathName.size() == 1) return std::nullopt;  // the root: the destination itself
  bool leaves = false;
  bool unusual = false;
  std::size_t begin = 1;
  while (true) {
    std::size_t const end = pathName.find(kSeparator, begin);
    std::u16string const component = pathName.substr(begin, end - begin);
    if (component.empty() || component == u".") {
      unusual = true;
    } else if (component == u".." || hasDotPiece(component)) {
      leaves = true;
    }
    if (end == std::u16string::npos) break;
    begin = end + 1;
  }
  if (leaves) {
    return makeRefusal(pathName, "the path leaves the destination",
                       boost::system::errc::invalid_argument);
  }
  if (unusual) {
    return makeRefusal(pathName, "the path has an empty or \".\" component",
                       boost::system::errc::invalid_argument);
  }
  return std::nullopt;
}

std::vector<std::u16string> DestinationGuard::componentsOf(std::u16string const& pathName) {
  std::vector<std::u16string> components;
  if (pathName.size() <= 1) return components;
  std::size_t begin = 1;
  while (true) {
    std::size_t const end = pathName.find(kSeparator, begin);
    components.push_back(pathName.substr(begin, end - begin));
    if (end == std::u16string::npos) break;
    begin = end + 1;
  }
  return components;
}

std::u16string DestinationGuard::realPathOf(std::vector<std::u16string> const& components,
                                            std::size_t count) const {
  std::u16string rest;
  for (std::size_t i = 0; i < count; ++i) rest += kSeparator + components[i];
  return fileSystem_.appendPath(destination_, rest);
}

std::optional<Refusal> DestinationGuard::checkParents(std::u16string const& pathName) const {
  std::vector<std::u16string> const components = componentsOf(pathName);
  std::u16string real = destination_;
  for (std::size_t i = 0; i + 1 < components.size(); ++i) {
    real = fileSystem_.appendPath(real, kSeparator + components[i]);
    // A folder, the usual answer, costs one query.
    Kind const kind = kindOf(fileSystem_, real);
    if (kind == Kind::Folder) continue;
    if (kind == Kind::Link) {
      return makeRefusal(pathName, messageText(real) + " is a symbolic link inside the destination",
                         boost::system::errc::too_many_symbolic_link_levels);
    }
    // Missing (made next, below a folder that was checked), or something else in the way
    // (the making of the parents reports it): nothing below can be reached through a link.
    break;
  }
  return std::nullopt;
}

std::optional<Refusal> DestinationGuard::checkParentsResolve(std::u16string const& pathName) const {
  if (!isLocal_) return std::nullopt;
  std::vector<std::u16string> const components = componentsOf(pathName);
  if (components.size() < 2) return std::nullopt;  // the parent is the root
  if (rootDescriptor() < 0) return std::nullopt;
  return checkWithKernel(pathName, components, components.size() - 1, false);
}

std::optional<Refusal> DestinationGuard::checkFile(std::u16string const& pathName,
                                                   std::u16string const& fullPath) const {
  bool isLink = false;
  try {
    isLink = fileSystem_.isSymlink(fullPath);
  } catch (opc::Exception const&) {
    // Cannot be examined, so cannot be opened either: the open reports why.
  }
  if (isLink) {
    return makeRefusal(pathName,
                       messageText(fullPath) + " is a symbolic link inside the destination",
                       boost::system::errc::too_many_symbolic_link_levels);
  }
  if (!isLocal_ || rootDescriptor() < 0) return std::nullopt;
  std::vector<std::u16string> const components = componentsOf(pathName);
  if (components.empty()) return std::nullopt;
  return checkWithKernel(pathName, components, components.size(), true);
}

std::optional<Refusal> DestinationGuard::checkWithKernel(
    std::u16string const& pathName, std::vector<std::u16string> const& components,
    std::size_t count, bool isFile) const {
#ifdef OPCVK_HAVE_OPENAT2
  if (!forceComponentWalk_) {
    std::u16string relative;
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0) relative += kSeparator;
      relative += components[i];
    }
    std::string bytes;
    // A path without a byte form cannot be made on the local disk at all.
    if (!opc::LocalFileSystemOps::toLocalPathBytes(relative, bytes)) return std::nullopt;
    int fd = -1;
    switch (openBeneath(rootDescriptor_, bytes, fd)) {
      case KernelAnswer::Beneath: {
        Descriptor const opened(fd);
        struct stat status;
        if (isFile && ::fstat(opened.get(), &status) == 0 && S_ISREG(status.st_mode) &&
            status.st_nlink > 1) {
          return makeRefusal(pathName,
                             messageText(realPathOf(components, count)) +
                                 " has other hard links, which may lie outside the destination",
                             boost::system::errc::too_many_links);
        }
        return std::nullopt;
      }
      case KernelAnswer::Link: {
        // The walk names the link that the kernel found; should the link have gone in the
        // meantime, the kernel's answer still stands.
        std::optional<Refusal> named = walkWithOpenat(pathName, components, count, isFile);
        if (named) return named;
        return makeRefusal(pathName,
                           messageText(realPathOf(components, count)) +
                               " passes through a symbolic link inside the destination",
                           boost::system::errc::too_many_symbolic_link_levels);
      }
      case KernelAnswer::Leaves:
        return makeRefusal(pathName, "the path leaves the destination",
                           boost::system::errc::invalid_argument);
      case KernelAnswer::Unknown:
        return std::nullopt;
      case KernelAnswer::Unavailable:
        break;
    }
  }
#endif
  return walkWithOpenat(pathName, components, count, isFile);
}

std::optional<Refusal> DestinationGuard::walkWithOpenat(
    std::u16string const& pathName, std::vector<std::u16string> const& components,
    std::size_t count, bool isFile) const {
  Descriptor current(::dup(rootDescriptor_));
  if (current.get() < 0) return std::nullopt;
  for (std::size_t i = 0; i < count; ++i) {
    std::string bytes;
    if (!opc::LocalFileSystemOps::toLocalPathBytes(components[i], bytes)) return std::nullopt;
    // O_PATH with O_NOFOLLOW opens a link itself, so that fstat can tell what it is.
    int const next = ::openat(current.get(), bytes.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) return std::nullopt;  // missing or unreadable: the operation reports it
    current.reset(next);
    struct stat status;
    if (::fstat(current.get(), &status) != 0) return std::nullopt;
    if (S_ISLNK(status.st_mode)) {
      return makeRefusal(
          pathName,
          messageText(realPathOf(components, i + 1)) + " is a symbolic link inside the destination",
          boost::system::errc::too_many_symbolic_link_levels);
    }
    bool const last = i + 1 == count;
    if (!last && !S_ISDIR(status.st_mode)) return std::nullopt;
    if (last && isFile && S_ISREG(status.st_mode) && status.st_nlink > 1) {
      return makeRefusal(pathName,
                         messageText(realPathOf(components, count)) +
                             " has other hard links, which may lie outside the destination",
                         boost::system::errc::too_many_links);
    }
  }
  return std::nullopt;
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
