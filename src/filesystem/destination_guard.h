// DestinationGuard: keeps extraction inside its destination folder.
#ifndef SRC_FILESYSTEM_DESTINATION_GUARD_H_
#define SRC_FILESYSTEM_DESTINATION_GUARD_H_

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <boost/system/error_code.hpp>

#include <opc/core/file_system_ops.h>

namespace opc {
namespace vkservices {
namespace detail {

// Why an entry must not be extracted: the whole message ("Refused to extract <entry>:
// <reason>") and the code that goes with it (invalid_argument for a path that leaves the
// destination, too_many_symbolic_link_levels for a link on the way, too_many_links for a file
// that has other hard links).
struct Refusal {
  std::string message;
  boost::system::error_code code;
};

// Carries a Refusal out of a step that does not know the kind of the entry (the making of its
// parents); the extraction of each kind catches it and raises its own class.  Never leaves
// the library.
class ExtractionRefused : public std::exception {
 public:
  explicit ExtractionRefused(Refusal refusal) : refusal_(std::move(refusal)) {}
  char const* what() const noexcept override { return refusal_.message.c_str(); }
  Refusal const& refusal() const { return refusal_; }

 private:
  Refusal refusal_;
};

// A package is untrusted: whatever its manifest holds, nothing may be made, written, or given
// a time or permissions outside the destination root, and no file outside it may be opened
// for writing.  The guard answers, before each change, whether an entry may go ahead.
//
// What it refuses:
//   - package paths with an empty, "." or ".." component, or a NUL character (a component is
//     also cut at backslashes for the dot test, so that "..\x" is refused on file systems that
//     read a backslash as a separator);
//   - any existing component below the root, on the way to the entry, that is a symbolic link
//     (the root itself may be one: the user chose it);
//   - for a file, a final path that is a symbolic link, or (on the local disk) a regular file
//     with other hard links, whose bytes are shared with a name that may lie outside.
//
// The walk goes through the destination's FileSystemOps (`isFolder` and `isSymlink` do not
// follow links), one query per existing component, and stops at the first missing one: what
// follows is made by extraction itself.  Because the walk asks the file system rather than
// comparing text, two names that one disk takes as the same ("/A" and "/a" on a
// case-insensitive disk) are seen as the same.
//
// On the local disk the kernel makes the check once more, from a descriptor of the root, with
// openat2(2) and RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS (or, where the kernel lacks openat2, a
// walk of openat(2) with O_NOFOLLOW), so that the whole resolution is one atomic answer.
//
// What remains: the guard checks, then extraction acts by path through FileSystemOps.  A
// process that can write inside the destination while extraction runs may swap a checked
// folder for a symbolic link between the check and the use, and the change then follows it.
// Closing that window would need every operation to be made relative to checked descriptors,
// which FileSystemOps does not offer; extracting into a folder that no one else can write
// into is the defence against that.
//
// A guard lives for one step of one extraction; on the local disk it holds a descriptor of the
// root from its first kernel check on, released by the destructor.  Not thread-safe.
class DestinationGuard {
 public:
  DestinationGuard(opc::FileSystemOps const& fileSystem, std::u16string destination);
  ~DestinationGuard();
  DestinationGuard(DestinationGuard const&) = delete;
  DestinationGuard& operator=(DestinationGuard const&) = delete;

  // The lexical test of the package path `pathName` alone; nothing is looked at on disk.
  static std::optional<Refusal> checkPathName(std::u16string const& pathName);

  // Walks the existing folders above the entry at `pathName`; refuses a symbolic link among
  // them.  `pathName` must have passed checkPathName.
  std::optional<Refusal> checkParents(std::u16string const& pathName) const;

  // After the parents exist: on the local disk, the kernel's check that the folder above the
  // entry resolves below the root without a symbolic link.  Elsewhere nothing more.
  std::optional<Refusal> checkParentsResolve(std::u16string const& pathName) const;

  // Before a file is opened, clobbered or given a time or permissions: its real path
  // `fullPath` must not be a symbolic link, and on the local disk the whole path must resolve
  // below the root without one and must not name a file with other hard links.
  std::optional<Refusal> checkFile(std::u16string const& pathName,
                                   std::u16string const& fullPath) const;

  // Chooses the walk of openat(2) over openat2(2) on the local disk, as on a kernel without
  // it; for tests of that walk.
  void useComponentWalkOnly() { forceComponentWalk_ = true; }

  // "Refused to extract <pathName>: <reason>".
  static Refusal makeRefusal(std::u16string const& pathName, std::string const& reason,
                             boost::system::errc::errc_t condition);

 private:
  // Components of a path that passed checkPathName ("/" gives none).
  static std::vector<std::u16string> componentsOf(std::u16string const& pathName);
  // The kernel's check of the first `count` components of `pathName`.
  std::optional<Refusal> checkWithKernel(std::u16string const& pathName,
                                         std::vector<std::u16string> const& components,
                                         std::size_t count, bool isFile) const;
  std::optional<Refusal> walkWithOpenat(std::u16string const& pathName,
                                        std::vector<std::u16string> const& components,
                                        std::size_t count, bool isFile) const;
  // The descriptor of the root on the local disk, opened on first use; -1 elsewhere or when
  // it cannot be opened.
  int rootDescriptor() const;
  // The real path of the first `count` components.
  std::u16string realPathOf(std::vector<std::u16string> const& components, std::size_t count) const;

  opc::FileSystemOps const& fileSystem_;
  std::u16string destination_;
  bool isLocal_;
  mutable bool rootOpened_;
  mutable int rootDescriptor_;
  bool forceComponentWalk_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_DESTINATION_GUARD_H_
