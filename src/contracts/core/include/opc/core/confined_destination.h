// opc::ConfinedDestination: a folder to write a tree into, from which nothing written can
// escape.
#ifndef OPC_CORE_CONFINED_DESTINATION_H_
#define OPC_CORE_CONFINED_DESTINATION_H_

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/system/error_code.hpp>

#include <opc/core/export.h>
#include <opc/core/perms.h>

namespace opc {

// How an operation of a ConfinedDestination or a ConfinedFile ended.
struct ConfinedResult {
  enum class Status {
    // Done as asked.
    Done,
    // The file system refused; `code` says why.
    Failed,
    // A symbolic link lies where the path needs a folder or, for a file, at the path itself.
    // Nothing was made, opened or changed through it.  `depth` is the number of components
    // of the path up to and including the link (1 for the first component).
    SymbolicLink,
    // The regular file at the path has other hard links, whose names may lie anywhere: it
    // was not opened for writing.
    SharedFile,
  };

  Status status = Status::Done;
  boost::system::error_code code;
  std::size_t depth = 0;

  bool done() const { return status == Status::Done; }
};

// A file being written below a ConfinedDestination, from ConfinedDestination::openFile or
// openTemporaryFile.  Its operations act on the file that was opened, whatever happens to
// its name meanwhile.
//
// Lifetime: must not outlive the ConfinedDestination (nor the FileSystemOps) it came from.
// Destruction closes the file: bytes still buffered are written, where a failure can no
// longer be seen (call `commit` to see it), and a temporary file that was not committed is
// removed.  Not thread-safe.
class OPC_CORE_EXPORT ConfinedFile {
 public:
  ConfinedFile(ConfinedFile const&) = delete;
  ConfinedFile& operator=(ConfinedFile const&) = delete;
  virtual ~ConfinedFile();

  // Where the content goes.  A write error sets the stream's badbit.  Valid until
  // `finishContent` or `commit`.
  virtual std::ostream& stream() = 0;

  // Ends the content before its time and permissions are set: what the stream buffers
  // reaches the file, and the stream is of no more use.  Reports SymbolicLink if a file system
  // that works by path finds that the file's name has become a symbolic link meanwhile, so
  // that nothing is set through it.
  virtual void finishContent(ConfinedResult& result) = 0;

  // Sets the last modified time (the access time stays).  not_a_date_time and the infinities
  // give invalid_argument; a time that the file system cannot hold (it would store another
  // one) gives value_too_large.
  virtual void setLastModifiedTime(boost::posix_time::ptime time,
                                   boost::system::error_code& code) = 0;

  // Sets the permission bits; values beyond 0777 (Perms::unknown included) give
  // invalid_argument and change nothing.
  virtual void setPermissions(Perms::Perms_tag permissions, boost::system::error_code& code) = 0;

  // Makes the content final: writes what is buffered and closes the file, and for a
  // temporary file puts it in place of its target in one step.  Reports a failure to write,
  // close or rename in `code`; after a failure a temporary file is removed, and the target is
  // left as it was.  Call it at most once; nothing else may be called after it.
  virtual void commit(boost::system::error_code& code) = 0;

 protected:
  ConfinedFile() = default;
};

// A destination folder (the root) to write a tree into.  Whatever the names and whatever
// lies below the root already, nothing is made, written, or given a time or permissions
// outside it: a symbolic link below the root is never passed through, nor is a file written
// whose other hard links may lie elsewhere.  The root itself may be a symbolic link: whoever
// chose it chose its target.
//
// Paths name places below the root in the form of package paths: "/" alone for the root, or
// components each after a "/", none of them empty, "." or "..".  A path of another form gives
// invalid_argument.  A path whose real text (root, then path) the file system would not take
// as a whole (longer than it allows) gives filename_too_long, as by path.
//
// Errors are codes as `FileSystemOps` gives them, for the same situations; the by-path
// defaults give exactly the codes of the FileSystemOps operations they use.
//
// Get one from `FileSystemOps::openConfinedDestination`.  Descriptors (or whatever a file
// system keeps) of the folders on the way are held between calls, so that each folder is
// looked up once while entries come in path order.  Not thread-safe; must not outlive the
// FileSystemOps it came from.
class OPC_CORE_EXPORT ConfinedDestination {
 public:
  ConfinedDestination(ConfinedDestination const&) = delete;
  ConfinedDestination& operator=(ConfinedDestination const&) = delete;
  virtual ~ConfinedDestination();

  // True while the root and the folders held open are still what their names lead to, by
  // one look-up; false once something on the way has been moved, removed or replaced, or if
  // the root could not be opened, and always for a destination that holds nothing open.
  // Open a new destination when it is false.
  virtual bool isUnchanged() const = 0;

  // Makes the missing folders above `path` (the root must exist).  SymbolicLink for a link
  // on the way; Failed with the code of the making (or not_a_directory for a file on the
  // way).  Something other than a folder right above `path` is no failure here: the
  // operation on `path` itself then fails as it would by path (not_a_directory).
  virtual void makeParents(std::u16string const& path, ConfinedResult& result) = 0;

  // Opens the regular file at `path` for writing, creating it (0666 less the umask) or
  // emptying it, after makeParents.  SymbolicLink if `path` is a link, SharedFile if it is a
  // file with other hard links; Failed with the code of the open (permission_denied for a
  // read-only file, is_a_directory for a folder, file_exists for something that is neither a
  // file nor a folder).  Null unless Done.
  virtual std::unique_ptr<ConfinedFile> openFile(std::u16string const& path,
                                                 ConfinedResult& result) = 0;

  // Opens a new temporary file, with a name of its own, in the folder of `path` (which must
  // exist), for content that must appear whole or not at all: `commit` renames it over
  // `path`, replacing what is there as a name (a file, or a symbolic link, which is never
  // written through; a folder gives is_a_directory), and without `commit` it is removed.  A
  // file at `path` keeps its content until then.  Null unless Done.
  virtual std::unique_ptr<ConfinedFile> openTemporaryFile(std::u16string const& path,
                                                          ConfinedResult& result) = 0;

  // True if anything is at `path`, a symbolic link included (not followed).  A missing path
  // is false with a clear code; a path that cannot be examined is false with the code.
  virtual bool exists(std::u16string const& path, boost::system::error_code& code) = 0;

  // Sets the permission bits of what is at `path`, never of the target of a symbolic link
  // (operation_not_supported).  Values beyond 0777 give invalid_argument.
  virtual void setPermissions(std::u16string const& path, Perms::Perms_tag permissions,
                              boost::system::error_code& code) = 0;

  // Makes the folder `path` (0777 less the umask), after makeParents.  Anything already at
  // `path`, of any kind, counts as the folder: no error, and nothing is made through it.
  virtual void createFolder(std::u16string const& path, boost::system::error_code& code) = 0;

  // Makes a symbolic link at `path` holding the text `target`, which is neither looked at
  // nor followed, after makeParents.  Anything at `path` gives file_exists and stays.
  virtual void createSymlink(std::u16string const& target, std::u16string const& path,
                             boost::system::error_code& code) = 0;

 protected:
  ConfinedDestination() = default;
};

}  // namespace opc

#endif  // OPC_CORE_CONFINED_DESTINATION_H_
