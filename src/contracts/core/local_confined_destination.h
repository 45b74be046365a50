// The ConfinedDestination of the local disk: every operation relative to a descriptor of the
// folder it acts in.  Private to libopccore.
#ifndef OPC_CORE_LOCAL_CONFINED_DESTINATION_H_
#define OPC_CORE_LOCAL_CONFINED_DESTINATION_H_

#include <cstddef>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include <opc/core/confined_destination.h>

namespace opc {
namespace detail {

// The root is opened once (following a link: the caller chose it).  Below it each folder is
// opened with openat(2), O_PATH | O_DIRECTORY | O_NOFOLLOW, relative to the folder above, so
// a symbolic link is never passed through and nothing can be swapped between a look and a
// use: what was opened is what is written in.  Files are created with openat(2) and O_NOFOLLOW
// in their folder, links with symlinkat(2), folders with mkdirat(2); times and permissions go
// to the open file.  Names hold no "/" (the path's form is checked), so no single lookup can
// leave its folder.
//
// The folders above the last path are kept open, so entries in path order open each folder
// once; a folder this destination made itself is known to be empty, so what goes in it is
// made without looking first.  At most kMaxHeld descriptors are held: in deeper trees the
// outer ones are let go and opened again, the same way, when needed.
//
// A new file that is to keep the permission bits open(2) gave it is not changed again: the
// bits are looked at once for the first new file below each folder that was there (see
// createdModeOf), and restoring the usual 0644 then costs no system call per file.  The
// umask is taken to stay as it is while a destination is open.
//
// A path whose real text would exceed PATH_MAX is refused with filename_too_long, as the same
// operation by path would be, so that what is extracted can also be reached by path.
class LocalConfinedDestination : public ConfinedDestination {
 public:
  static constexpr std::size_t kMaxHeld = 64;

  explicit LocalConfinedDestination(std::u16string const& root);
  ~LocalConfinedDestination() override;

  bool isUnchanged() const override;
  void makeParents(std::u16string const& path, ConfinedResult& result) override;
  std::unique_ptr<ConfinedFile> openFile(std::u16string const& path,
                                         ConfinedResult& result) override;
  std::unique_ptr<ConfinedFile> openTemporaryFile(std::u16string const& path,
                                                  ConfinedResult& result) override;
  bool exists(std::u16string const& path, boost::system::error_code& code) override;
  void setPermissions(std::u16string const& path, Perms::Perms_tag permissions,
                      boost::system::error_code& code) override;
  void createFolder(std::u16string const& path, boost::system::error_code& code) override;
  void createSymlink(std::u16string const& target, std::u16string const& path,
                     boost::system::error_code& code) override;

 private:
  // A folder below the root on the way to the current path.
  struct Folder {
    std::string name;
    int fd = -1;        // -1 when let go (see kMaxHeld) or when `error` is set
    int error = 0;      // set for a last level that is not a folder: operations in it fail so
    bool made = false;  // made by this destination, so empty when made
    // For a folder that was there: the permission bits of the first file made below it, -1
    // until one was made.
    int createdMode = -1;
    mutable bool identified = false;  // device and inode read (for isUnchanged)
    mutable dev_t device = 0;
    mutable ino_t inode = 0;
  };

  // Reads `path` into components_ (at once if it was the last path read); false for a path of
  // another form.
  bool split(std::u16string const& path);
  // Brings open_ to the folders above components_, making the missing ones with `make`.
  void reachParent(bool make, ConfinedResult& result);
  // The descriptor of the folder at `level` of open_ (opened again if it was let go), or -1
  // with `result` set.
  int folderAt(std::size_t level, ConfinedResult& result);
  // Opens (or with `make` first makes) the folder `name` in `at`, for level `level`.
  bool enter(int at, std::size_t level, bool make, bool known, Folder& folder,
             ConfinedResult& result);
  // The descriptor of the folder above components_ after reachParent, or -1 with `result`
  // set to the failure every operation in it meets.
  int parentOf(ConfinedResult& result);
  // Lets go of the outermost held descriptors beyond kMaxHeld.
  void holdAtMost();
  // Closes open_ from `level` on.
  void closeFrom(std::size_t level);
  // The length of the real text of the first `count` components.
  std::size_t realLength(std::size_t count) const;
  // The permission bits of `fd`, a file just created at components_ with 0666 (after
  // reachParent), as every new file gets them in its folder; -1 if they cannot be read.
  int createdModeOf(int fd);

  std::string root_;
  int rootFd_;
  int rootError_;
  dev_t rootDevice_ = 0;
  ino_t rootInode_ = 0;
  // The permission bits of the first file made in the root or in folders made below it, -1
  // until one was made.
  int rootCreatedMode_ = -1;
  std::vector<Folder> open_;
  std::string bytes_;
  std::vector<std::string> components_;
  // The path that components_ were split from, while splitDone_.
  std::u16string splitPath_;
  bool splitDone_ = false;
};

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_LOCAL_CONFINED_DESTINATION_H_
