// opc::LocalFileSystemOps: FileSystemOps over the machine's own (POSIX) file system.
#ifndef OPC_CORE_LOCAL_FILE_SYSTEM_OPS_H_
#define OPC_CORE_LOCAL_FILE_SYSTEM_OPS_H_

#include <memory>
#include <string>
#include <vector>

#include <opc/core/export.h>
#include <opc/core/file_system_ops.h>

namespace opc {

// The local file system of a POSIX machine.
//
// Paths: "/" separates components and a path is absolute when it begins with "/".  Paths are
// UTF-16 text; Linux file names are bytes, taken as UTF-8.  So that every name survives the
// trip, a byte that is not part of valid UTF-8 comes back from `getFiles` and
// `getLinkTarget` as the lone surrogate U+DC80 + (byte - 0x80) and goes back to the file
// system as the same byte.  A path holding NUL, or a lone surrogate outside U+DC80..U+DCFF,
// has no byte form: operations with an error code report invalid_argument, the others raise.
// Backslashes are ordinary characters.
//
// Errors are `boost::system::error_code(errno, boost::system::system_category())`, which
// compare equal to the generic conditions (`errc::no_such_file_or_directory`,
// `errc::permission_denied`, `errc::file_exists`, ...).
//
// Symbolic links: `exists`, `isFile`, `isFolder`, `isSymlink`, `getPermissions` and both time
// operations look at a link itself, never at its target.  `setPermissions` on a link gives
// operation_not_supported (Linux keeps no permissions of a link).  The streams follow links,
// as open(2) does.
//
// Thread safety: an instance holds no state, so one instance may be used from any number of
// threads at once.  Operations on the same paths from several threads race as the file
// system's calls do.
class OPC_CORE_EXPORT LocalFileSystemOps : public FileSystemOps {
 public:
  LocalFileSystemOps();
  ~LocalFileSystemOps() override;

  // The one process-wide instance, made on first use (thread-safe) and never destroyed, so
  // that references to it stay valid until the process ends, static destructors included.
  static std::shared_ptr<LocalFileSystemOps> const& getShared();

  // The bytes that name `path` on the disk, exactly as every operation of this class makes
  // them: UTF-8, with U+DC80..U+DCFF standing for the bytes 0x80..0xFF that were not UTF-8
  // when the name was read.  False (with `bytes` unspecified) for a path that no name on the
  // disk can hold: one with NUL or another lone surrogate.  For callers that must reach the
  // very same file through system calls of their own (such as a check made by the kernel).
  static bool toLocalPathBytes(std::u16string const& path, std::string& bytes);

 protected:
  // A random name "opc-<16 hex digits>" in `path`, or in $TMPDIR (when set and not empty)
  // or "/tmp" for an empty `path`, at which lstat(2) found nothing.  The folder must exist.
  std::u16string doGetTempName(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const override;
  // By the text: "/a/b" gives "/a", "/a/b/" gives "/a", "/a" and "/" give "/", "a" gives "".
  std::u16string doGetParentPath(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  // By the text: "/a/b" and "/a/b/" give "b", "/" gives "".
  std::u16string doGetFilename(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const override;
  std::u16string doGetExtension(std::u16string const& path, std::string& text,
                                boost::system::error_code& code) const override;
  // Confines `rest` below `base` by the text alone, and raises (invalid_argument) rather
  // than mend a path that climbs out:
  //   - `rest` is a package path: a leading "/" is dropped, and so are empty and "."
  //     components; ".." removes the component of `rest` before it.  A ".." with nothing of
  //     `rest` left before it would climb above `base`: that is the error, with a message
  //     naming both paths.
  //   - The text of `base` is kept as given, joined with one "/" (none is added after a
  //     trailing "/"); an empty `base` gives the relative rest.  When nothing is left of
  //     `rest`, the result is `base`.
  //   - A NUL in either path is an error too, never a place to cut the text.
  // Symbolic links already inside `base` are NOT resolved: a link below `base` may still
  // lead elsewhere, and callers that write through such paths guard against that themselves.
  std::u16string doAppendPath(std::u16string const& base, std::u16string const& rest,
                              std::string& text, boost::system::error_code& code) const override;
  // Duplicate "/" and "." components are dropped and ".." removes the component before it
  // (at the root it is dropped; leading ".." of a relative path stay).  A trailing "/" is
  // dropped.  "" stays "", and a relative path that cancels out gives ".".
  std::u16string doNormalizePath(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  // An absolute `path` as it is; a relative one behind the current folder.  False if the
  // current folder cannot be found or the path has no byte form.
  bool doGetLocalPath(std::u16string const& path, std::u16string& out) const override;
  bool doIsAbsolutePath(std::u16string const& path) const override;
  bool doExists(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  bool doIsFile(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  bool doIsFolder(std::u16string const& path, std::string& text,
                  boost::system::error_code& code) const override;
  bool doIsSymlink(std::u16string const& path, std::string& text,
                   boost::system::error_code& code) const override;
  // st_mode & 0777 of lstat(2).
  Perms::Perms_tag doGetPermissions(std::u16string const& path, std::string& text,
                                    boost::system::error_code& code) const override;
  void doSetPermissions(std::u16string const& path, Perms::Perms_tag permissions, std::string& text,
                        boost::system::error_code& code) const override;
  // st_mtim of lstat(2), nanoseconds truncated to microseconds.  A time outside the years
  // 1400..9999 that a time value holds gives value_too_large.
  boost::posix_time::ptime doGetLastModifiedTime(std::u16string const& path, std::string& text,
                                                 boost::system::error_code& code) const override;
  // utimensat(2) to the microsecond, not following a link.  A time that the file system
  // cannot hold (it would store another one) gives value_too_large, after the file system
  // stored what it could.
  void doSetLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                             std::string& text, boost::system::error_code& code) const override;
  std::u16string doGetLinkTarget(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  // Order: within each folder, its regular files and symbolic links sorted by the bytes of
  // their names; then, when recursive, each subfolder in the same order, depth first.  Each
  // path is `folder`, one "/" (none after a trailing "/") and the rest.  Other kinds of
  // entries (devices, pipes, sockets) are left out.  A folder below that cannot be read is a
  // failure, so that no file is silently missed.
  void doGetFiles(std::u16string const& folder, std::vector<std::u16string>& out, bool recursive,
                  std::string& text, boost::system::error_code& code) const override;
  // Modes (see FileSystemOps): `in` is implied; binary and ate are accepted; out, app and
  // trunc and unknown bits give invalid_argument.  A folder gives is_a_directory.
  std::shared_ptr<std::istream> doCreateInputStream(std::u16string const& path, int mode,
                                                    std::string& text,
                                                    boost::system::error_code& code) const override;
  // Modes, as std::ofstream takes them (`out` is implied): out or out|trunc create or
  // truncate; app or out|app create and append; in|out opens an existing file without
  // truncating; in|out|trunc creates or truncates; in|app or in|out|app create and append.
  // binary and ate are accepted; trunc with app and unknown bits give invalid_argument.  New
  // files get 0666 less the umask.  A folder gives is_a_directory.
  std::shared_ptr<std::ostream> doCreateOutputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const override;
  // mkdir(2) with 0777 less the umask.
  void doCreateFolder(std::u16string const& path, std::string& text,
                      boost::system::error_code& code) const override;
  // Existing folders on the way (also through links to folders) are fine; an existing
  // non-folder at the end gives file_exists, one on the way not_a_directory.
  void doCreateFolders(std::u16string const& path, std::string& text,
                       boost::system::error_code& code) const override;
  void doCreateSymlink(std::u16string const& target, std::u16string const& linkPath,
                       std::string& text, boost::system::error_code& code) const override;
  // `from` must be a regular file (not followed if it is a link): a folder gives
  // is_a_directory, anything else invalid_argument.  The copy gets the permission bits of
  // `from`, not its time.  A failed copy removes what it wrote and leaves `to` as it was.
  void doCopy(std::u16string const& from, std::u16string const& to, ExistsMode mode,
              std::string& text, boost::system::error_code& code) const override;
  // rename(2).
  void doRename(std::u16string const& from, std::u16string const& to, std::string& text,
                boost::system::error_code& code) const override;
  void doRemove(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  void doRemoveAll(std::u16string const& path, std::string& text,
                   boost::system::error_code& code) const override;
  // A destination that acts relative to descriptors of its folders, each opened once with
  // O_NOFOLLOW below the root, so that no symbolic link is passed through and nothing can be
  // swapped between a look and a use; files are written, timed and given permissions through
  // their own descriptors.  A class derived from this one gets the by-path destination of
  // FileSystemOps instead (through its own slots, whatever it changed in them), unless it
  // overrides this slot too.
  std::unique_ptr<ConfinedDestination> doOpenConfinedDestination(
      std::u16string const& root) const override;
};

}  // namespace opc

#endif  // OPC_CORE_LOCAL_FILE_SYSTEM_OPS_H_
