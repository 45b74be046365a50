// The new version of a file, written beside it and put in its place in one step: how every
// save of a package to a file is made safe against crashes, full disks and other writers.
// Private to libopcmodel (exported only for its own tests).
#ifndef OPC_MODEL_ZIP_REPLACEMENT_FILE_H_
#define OPC_MODEL_ZIP_REPLACEMENT_FILE_H_

#include <string>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// A temporary file beside `target` that becomes `target` by commit(), so that at every
// moment the target is either its old self or the complete new file, whatever happens to the
// process or the disk: the data is flushed to disk before the rename, and the folder after
// it.
//
// A target that is a symbolic link stays one: the file it leads to is the one replaced, and
// the temporary file goes beside that file.  (Other hard links of the target keep the old
// content, as with every save that renames.)
//
// The temporary file is "<folder>/.<name>.<8 hex digits>.tmp", created exclusively, with the
// permission bits of the target if there is one (0666 less the umask otherwise), so that a
// private package stays private.  It is locked (flock, exclusive) from its first moment under
// that name until the descriptor is closed: that is how removeStale() tells a live writer's
// file from one that a killed process left behind, and how a writer keeps the lock of a
// package across the rename (see release()).  On a file system without locks the file is
// simply not locked.
//
// Destroying an object that was not committed removes the temporary file: a save that fails
// without being killed leaves nothing behind.  Used by one thread at a time.
class OPC_MODEL_EXPORT ReplacementFile {
 public:
  // Creates the temporary file.  Throws CouldNotSavePackage naming `target` if it cannot:
  //   Could not save package "<target>": could not create a temporary file beside it: <why>
  // `target` is in the file system's bytes (UTF-8).
  explicit ReplacementFile(std::string target);
  ReplacementFile(ReplacementFile const&) = delete;
  ReplacementFile& operator=(ReplacementFile const&) = delete;
  ~ReplacementFile();

  // Where the new content goes; valid until commit() fails, release() or destruction.
  int descriptor() const { return fd_; }
  std::string const& temporaryPath() const { return path_; }
  // The path the caller gave, which messages name.
  std::string const& target() const { return target_; }

  // Flushes the file (fsync), renames it over the target and flushes the folder.  Throws
  // CouldNotSavePackage naming the step that failed ("could not flush the temporary file",
  // "could not rename the temporary file over it") with the system's words; the target is
  // then as it was and the temporary file is gone.  A folder that cannot be flushed once the
  // rename is done is not reported: the rename stands either way.  Called at most once.
  void commit();

  // After commit(): the descriptor of what is now the target, still open and locked, for the
  // caller to keep and close; this object no longer touches it.
  int release();

  // The file that a save to `target` replaces: `target`, or where its symbolic links lead.
  static std::string destinationOf(std::string const& target);

  // Removes the temporary files of `target` that no live writer holds, those left behind by
  // a save that was killed before its rename.  Files of other names, the temporary files of
  // other targets and those still locked are left alone, and so is everything when the
  // folder cannot be read: a stale file that stays does the save at hand no harm.
  static void removeStale(std::string const& target);

 private:
  void discard();

  std::string target_;
  // What the rename replaces: the target, or the file that the target's links lead to.
  std::string destination_;
  std::string path_;
  int fd_ = -1;
  bool committed_ = false;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_REPLACEMENT_FILE_H_
