// A FileSystemOps that keeps its whole tree in memory, for tests of code that reaches the disk
// only through FileSystemOps.
#ifndef TESTS_SUPPORT_IN_MEMORY_FILE_SYSTEM_OPS_H_
#define TESTS_SUPPORT_IN_MEMORY_FILE_SYSTEM_OPS_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <opc/core/file_system_ops.h>
#include <opc/core/local_file_system_ops.h>

namespace opcvk_test {

// A POSIX-like file system in memory: folders, regular files, symbolic links with their
// target text, permission bits and last modified times.
//
// Paths are "/"-separated; a relative path is taken from "/".  "/" and "/tmp" exist from the
// start.  It behaves as LocalFileSystemOps does, with the same error codes (errno values in
// the system category), names, ordering of getFiles and confinement of appendPath, and
// follows symbolic links in the same places (at most 40 in one path, then
// too_many_symbolic_link_levels).  Permissions are enforced for the owner only, and only
// where tests of extraction need them: a file without owner read (write) cannot be opened
// for reading (writing), and nothing can be created in or removed from a folder without
// owner write; all give permission_denied.  New files get 0644, new folders 0755, and the
// time of the last change from a clock that the test sets (`setClock`), 2000-01-01 unless
// set.
//
// Streams: an input stream reads a snapshot taken when it opened.  An output stream writes
// straight into the file, unbuffered, so that the content is visible at once; it must not
// outlive the file system.
//
// Thread safety: operations lock one mutex; streams are not covered by it.
class InMemoryFileSystemOps : public opc::FileSystemOps {
 public:
  InMemoryFileSystemOps();
  ~InMemoryFileSystemOps() override;

  // --- Set-up and inspection for tests; missing parent folders are made on the way. ---
  void addFile(std::u16string const& path, std::string const& content,
               opc::Perms::Perms_tag permissions = static_cast<opc::Perms::Perms_tag>(0644),
               boost::posix_time::ptime time = boost::posix_time::ptime());
  void addFolder(std::u16string const& path);
  void addSymlink(std::u16string const& path, std::u16string const& target);
  // The content of the regular file at `path` (links not followed); throws std::out_of_range
  // if there is none.
  std::string readContent(std::u16string const& path) const;
  // Every path held, sorted, "/" included.
  std::vector<std::u16string> listAll() const;
  // The time given to what is created or written from now on.
  void setClock(boost::posix_time::ptime now);

  enum class Kind { Folder, File, Symlink };
  struct Node {
    Kind kind = Kind::Folder;
    std::shared_ptr<std::string> content;  // files
    std::u16string target;                 // links
    opc::Perms::Perms_tag permissions = static_cast<opc::Perms::Perms_tag>(0755);
    boost::posix_time::ptime time;
  };

 protected:
  std::u16string doGetTempName(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const override;
  std::u16string doGetParentPath(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  std::u16string doGetFilename(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const override;
  std::u16string doGetExtension(std::u16string const& path, std::string& text,
                                boost::system::error_code& code) const override;
  std::u16string doAppendPath(std::u16string const& base, std::u16string const& rest,
                              std::string& text, boost::system::error_code& code) const override;
  std::u16string doNormalizePath(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
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
  opc::Perms::Perms_tag doGetPermissions(std::u16string const& path, std::string& text,
                                         boost::system::error_code& code) const override;
  void doSetPermissions(std::u16string const& path, opc::Perms::Perms_tag permissions,
                        std::string& text, boost::system::error_code& code) const override;
  boost::posix_time::ptime doGetLastModifiedTime(std::u16string const& path, std::string& text,
                                                 boost::system::error_code& code) const override;
  void doSetLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                             std::string& text, boost::system::error_code& code) const override;
  std::u16string doGetLinkTarget(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  void doGetFiles(std::u16string const& folder, std::vector<std::u16string>& out, bool recursive,
                  std::string& text, boost::system::error_code& code) const override;
  std::shared_ptr<std::istream> doCreateInputStream(std::u16string const& path, int mode,
                                                    std::string& text,
                                                    boost::system::error_code& code) const override;
  std::shared_ptr<std::ostream> doCreateOutputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const override;
  void doCreateFolder(std::u16string const& path, std::string& text,
                      boost::system::error_code& code) const override;
  void doCreateFolders(std::u16string const& path, std::string& text,
                       boost::system::error_code& code) const override;
  void doCreateSymlink(std::u16string const& target, std::u16string const& linkPath,
                       std::string& text, boost::system::error_code& code) const override;
  void doCopy(std::u16string const& from, std::u16string const& to, opc::ExistsMode mode,
              std::string& text, boost::system::error_code& code) const override;
  void doRename(std::u16string const& from, std::u16string const& to, std::string& text,
                boost::system::error_code& code) const override;
  void doRemove(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  void doRemoveAll(std::u16string const& path, std::string& text,
                   boost::system::error_code& code) const override;

 private:
  // Resolves `path` to the key of its node, following links in every component but the
  // last, and in the last too with `followLast`.  The node need not exist.  0 or an errno.
  int resolve(std::u16string const& path, bool followLast, std::u16string& key) const;
  Node const* find(std::u16string const& key) const;
  // 0 if something may be made at `key`: its parent is an existing, writable folder.
  int checkParent(std::u16string const& key) const;
  std::vector<std::pair<std::u16string, Node const*>> children(std::u16string const& key) const;
  void makeParents(std::u16string const& key);

  mutable std::mutex mutex_;
  mutable std::map<std::u16string, Node> nodes_;
  mutable unsigned long tempCounter_ = 0;
  boost::posix_time::ptime clock_;
  opc::LocalFileSystemOps names_;  // the text-only operations are the local ones
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_IN_MEMORY_FILE_SYSTEM_OPS_H_
