// opc::FileSystemOps: the one door through which the opc libraries reach a file system.
#ifndef OPC_CORE_FILE_SYSTEM_OPS_H_
#define OPC_CORE_FILE_SYSTEM_OPS_H_

#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/system/error_code.hpp>

#include <opc/core/export.h>
#include <opc/core/perms.h>

namespace opc {

class ConfinedDestination;

// What `FileSystemOps::copy` does when the destination already exists.
enum class ExistsMode {
  // Nothing is written and the copy reports `file_exists`.
  FailIfExists,
  // The destination is replaced by the copy.  It is replaced as a whole only once the copy is
  // complete, so a failed copy leaves the old destination as it was; a symbolic link at the
  // destination is replaced itself, never written through.
  OverwriteIfExists,
  // Nothing is written and the copy reports success.
  SkipIfExists,
};

// Access to a file system: names, kinds, permissions, times, links, listings, byte streams
// and changes of the tree.
//
// The public operations are non-virtual and call the protected virtual slots (`doExists`,
// ...), which a concrete class implements.  A slot reports a failure by setting `code` to an
// error; it may also set `text` to a short narrow explanation that the code's message does
// not give (for example which rule a path broke).  A slot that succeeds leaves `code` clear.
//
// Two kinds of public operations:
//   - Operations that take a `boost::system::error_code&` never raise for a failure of the
//     file system: they assign the slot's code to it (cleared on success) and give the
//     documented fallback result.  Callers compare the code with the generic conditions
//     (`boost::system::errc::file_exists`, ...).
//   - Operations without one raise opc::Exception when the slot reports a failure, with the
//     message "Could not <operation>: <path>: <detail>", where <detail> is the slot's text,
//     or the code's message() when the slot gave none; the exception keeps the code.
//     Paths in messages are written as UTF-8.
// Exceptions that a slot itself throws (std::bad_alloc, ...) pass through unchanged.
//
// Paths are UTF-16 text in the file system's own syntax; package paths are not paths of a
// file system, and `appendPath` is the one operation that joins the two.
//
// Stream modes are the bits of `std::ios_base::openmode` in this fixed numbering, the same on
// every platform: kModeIn (1), kModeOut (2), kModeAte (4), kModeApp (8), kModeTrunc (16),
// kModeBinary (32).  33 opens for binary reading, 34 for binary writing.
//
// Thread safety: a concrete class says whether one instance may be used from several threads
// at once.  The non-virtual operations add no state of their own.
class OPC_CORE_EXPORT FileSystemOps {
 public:
  static constexpr int kModeIn = 1;
  static constexpr int kModeOut = 2;
  static constexpr int kModeAte = 4;
  static constexpr int kModeApp = 8;
  static constexpr int kModeTrunc = 16;
  static constexpr int kModeBinary = 32;

  FileSystemOps(FileSystemOps const&) = delete;
  FileSystemOps& operator=(FileSystemOps const&) = delete;
  virtual ~FileSystemOps();

  // --- Names (the text alone unless said otherwise) ---

  // A path in the folder `path` (in the system's temporary folder if `path` is empty) where
  // nothing existed at the time of the call.  Nothing is created, so another process may
  // take the name before the caller does.  Raises opc::Exception if the folder is missing.
  std::u16string getTempName(std::u16string const& path) const;

  // The folder that holds `path`: trailing separators are ignored, then the last component
  // is dropped.  A path without a folder part gives the empty string; the root gives itself.
  std::u16string getParentPath(std::u16string const& path) const;

  // The last component of `path`, trailing separators ignored; the root gives "".
  std::u16string getFilename(std::u16string const& path) const;

  // The extension of the last component, without its dot: what follows the last "." of the
  // file name, "" if there is none, if the name ends with it or if the only dot begins the
  // name ("a.tar.gz" gives "gz", ".bashrc" and "a." give "", "dir.d/file" gives "").
  std::u16string getExtension(std::u16string const& path) const;

  // Joins the real folder `base` and the package path `rest` so that the result lies below
  // `base`; the concrete class documents how it confines `rest`.  Raises opc::Exception with
  // code invalid_argument if `rest` would leave `base`.
  std::u16string appendPath(std::u16string const& base, std::u16string const& rest) const;

  // `path` with duplicate separators, "." components and ".." components that follow a
  // component removed, by the text alone.
  std::u16string normalizePath(std::u16string const& path) const;

  // Sets `out` to the absolute form of `path`; false (and `out` unchanged) if there is none.
  bool getLocalPath(std::u16string const& path, std::u16string& out) const;

  // True if `path` is absolute; the text alone decides.
  bool isAbsolutePath(std::u16string const& path) const;

  // --- Queries of the file system ---

  // True if anything is at `path`, of any kind, a dangling symbolic link included.  A path
  // that is missing is no failure (false, clear code); a path that cannot be examined is
  // (false, code set).
  bool exists(std::u16string const& path, boost::system::error_code& code) const;

  // True for a regular file.  A symbolic link is not followed: a link to a file is not a
  // file.  False without raising when nothing is at `path`.
  bool isFile(std::u16string const& path) const;

  // True for a folder.  A symbolic link is not followed: a link to a folder is not a folder.
  // False without raising when nothing is at `path`.
  bool isFolder(std::u16string const& path) const;

  // True for a symbolic link, which is not followed.  False without raising when nothing is
  // at `path`.
  bool isSymlink(std::u16string const& path) const;

  // Permission bits (low nine bits) of what is at `path`, a symbolic link itself included.
  // Perms::unknown on failure.
  Perms::Perms_tag getPermissions(std::u16string const& path,
                                  boost::system::error_code& code) const;

  // Sets the permission bits; `permissions` must be within 0777 (Perms::unknown and larger
  // values give invalid_argument and change nothing).
  void setPermissions(std::u16string const& path, Perms::Perms_tag permissions,
                      boost::system::error_code& code) const;

  // The last modified time in UTC, to the microsecond; of a symbolic link, the link's own.
  // not_a_date_time on failure.
  boost::posix_time::ptime getLastModifiedTime(std::u16string const& path,
                                               boost::system::error_code& code) const;

  // Sets the last modified time (of a symbolic link, the link's own) and leaves the access
  // time alone.  not_a_date_time and the infinities give invalid_argument.
  void setLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                           boost::system::error_code& code) const;

  // The text of the symbolic link at `path`, as stored.
  std::u16string getLinkTarget(std::u16string const& path) const;

  // Appends to `out` the full paths of the regular files and symbolic links in `folder`
  // (with `recursive`, also in every folder below it, never following a linked folder).
  // Each path begins with the text of `folder`.  On failure `out` is left as it was.  The
  // concrete class documents the order.
  void getFiles(std::u16string const& folder, std::vector<std::u16string>& out, bool recursive,
                boost::system::error_code& code) const;

  // --- Streams ---

  // Opens `path` for reading (mode 33: binary input).  The returned stream is the only owner
  // of the open file: releasing the last pointer closes it.  On failure the code is set and
  // the pointer is null.  A read error sets the stream's badbit.
  std::shared_ptr<std::istream> createInputStream(std::u16string const& path, int mode,
                                                  boost::system::error_code& code) const;

  // Opens `path` for writing (mode 34: binary output, creating the file or truncating it).
  // Ownership as for createInputStream.  On failure the code is set, the pointer is null and
  // the file is left untouched.  A write error sets the stream's badbit; bytes still
  // buffered are written when the last pointer is released, where a failure can no longer be
  // seen, so callers that care call flush() and test the stream first.
  std::shared_ptr<std::ostream> createOutputStream(std::u16string const& path, int mode,
                                                   boost::system::error_code& code) const;

  // --- Changes ---

  // Creates one folder; its parent must exist.  An existing path gives file_exists.
  void createFolder(std::u16string const& path, boost::system::error_code& code) const;

  // Creates the folder and every missing folder above it.  An existing folder is no failure.
  void createFolders(std::u16string const& path, boost::system::error_code& code) const;

  // Creates a symbolic link at `linkPath` holding the text `target`, which need not exist.
  // An existing `linkPath` gives file_exists and is left as it was.
  void createSymlink(std::u16string const& target, std::u16string const& linkPath,
                     boost::system::error_code& code) const;

  // Copies the regular file `from` to `to` with its permission bits; `mode` says what
  // happens when `to` exists.
  void copy(std::u16string const& from, std::u16string const& to, ExistsMode mode,
            boost::system::error_code& code) const;

  // Renames `from` to `to`, replacing what the file system allows it to replace.
  void rename(std::u16string const& from, std::u16string const& to,
              boost::system::error_code& code) const;

  // Removes one file, symbolic link or empty folder.  A missing path is a failure.
  void remove(std::u16string const& path, boost::system::error_code& code) const;

  // Removes `path` and, for a folder, everything below it, never following a symbolic link.
  // A missing path is no failure.  On failure what was removed stays removed.
  void removeAll(std::u16string const& path, boost::system::error_code& code) const;

  // --- Writing a tree ---

  // A destination for writing a tree below the folder `root` (see ConfinedDestination), owned
  // by the caller; it must not outlive this object.  Never fails: a root that cannot be
  // reached makes the destination's operations fail.
  //
  // This class's own answer works by path through the operations above: before each change
  // it looks at every existing folder on the way (isFolder, isSymlink) and at the file itself,
  // then makes folders with createFolders, opens files with createOutputStream, and so on.
  // Between such a look and the change another process writing in the destination could
  // swap a folder for a symbolic link; a concrete class that can act relative to open folders
  // gives a destination without that window.
  std::unique_ptr<ConfinedDestination> openConfinedDestination(std::u16string const& root) const;

 protected:
  FileSystemOps() = default;

  // The slots, in this order.  See the class comment for how they report.
  virtual std::u16string doGetTempName(std::u16string const& path, std::string& text,
                                       boost::system::error_code& code) const = 0;
  virtual std::u16string doGetParentPath(std::u16string const& path, std::string& text,
                                         boost::system::error_code& code) const = 0;
  virtual std::u16string doGetFilename(std::u16string const& path, std::string& text,
                                       boost::system::error_code& code) const = 0;
  virtual std::u16string doGetExtension(std::u16string const& path, std::string& text,
                                        boost::system::error_code& code) const = 0;
  virtual std::u16string doAppendPath(std::u16string const& base, std::u16string const& rest,
                                      std::string& text, boost::system::error_code& code) const = 0;
  virtual std::u16string doNormalizePath(std::u16string const& path, std::string& text,
                                         boost::system::error_code& code) const = 0;
  virtual bool doGetLocalPath(std::u16string const& path, std::u16string& out) const = 0;
  virtual bool doIsAbsolutePath(std::u16string const& path) const = 0;
  virtual bool doExists(std::u16string const& path, std::string& text,
                        boost::system::error_code& code) const = 0;
  virtual bool doIsFile(std::u16string const& path, std::string& text,
                        boost::system::error_code& code) const = 0;
  virtual bool doIsFolder(std::u16string const& path, std::string& text,
                          boost::system::error_code& code) const = 0;
  virtual bool doIsSymlink(std::u16string const& path, std::string& text,
                           boost::system::error_code& code) const = 0;
  virtual Perms::Perms_tag doGetPermissions(std::u16string const& path, std::string& text,
                                            boost::system::error_code& code) const = 0;
  virtual void doSetPermissions(std::u16string const& path, Perms::Perms_tag permissions,
                                std::string& text, boost::system::error_code& code) const = 0;
  virtual boost::posix_time::ptime doGetLastModifiedTime(std::u16string const& path,
                                                         std::string& text,
                                                         boost::system::error_code& code) const = 0;
  virtual void doSetLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                                     std::string& text, boost::system::error_code& code) const = 0;
  virtual std::u16string doGetLinkTarget(std::u16string const& path, std::string& text,
                                         boost::system::error_code& code) const = 0;
  virtual void doGetFiles(std::u16string const& folder, std::vector<std::u16string>& out,
                          bool recursive, std::string& text,
                          boost::system::error_code& code) const = 0;
  virtual std::shared_ptr<std::istream> doCreateInputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const = 0;
  virtual std::shared_ptr<std::ostream> doCreateOutputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const = 0;
  virtual void doCreateFolder(std::u16string const& path, std::string& text,
                              boost::system::error_code& code) const = 0;
  virtual void doCreateFolders(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const = 0;
  virtual void doCreateSymlink(std::u16string const& target, std::u16string const& linkPath,
                               std::string& text, boost::system::error_code& code) const = 0;
  virtual void doCopy(std::u16string const& from, std::u16string const& to, ExistsMode mode,
                      std::string& text, boost::system::error_code& code) const = 0;
  virtual void doRename(std::u16string const& from, std::u16string const& to, std::string& text,
                        boost::system::error_code& code) const = 0;
  virtual void doRemove(std::u16string const& path, std::string& text,
                        boost::system::error_code& code) const = 0;
  virtual void doRemoveAll(std::u16string const& path, std::string& text,
                           boost::system::error_code& code) const = 0;
  // Not pure: the default is the destination by path described at openConfinedDestination.
  virtual std::unique_ptr<ConfinedDestination> doOpenConfinedDestination(
      std::u16string const& root) const;
};

}  // namespace opc

#endif  // OPC_CORE_FILE_SYSTEM_OPS_H_
