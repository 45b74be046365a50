// The ConfinedDestination that FileSystemOps gives by default: every operation by path,
// through the public operations of the FileSystemOps, with a look at the folders on the way
// before each change.  Private to libopccore.
#ifndef OPC_CORE_PATH_CONFINED_DESTINATION_H_
#define OPC_CORE_PATH_CONFINED_DESTINATION_H_

#include <memory>
#include <string>
#include <vector>

#include <opc/core/confined_destination.h>
#include <opc/core/file_system_ops.h>

namespace opc {
namespace detail {

// What it looks at: each existing folder on the way to a path (isFolder, isSymlink, which do
// not follow links), stopping at the first missing one, which the making of the parents then
// makes; a file's own path before it is opened and again before its time and permissions are
// set.  Because it asks the file system rather than comparing text, two names that one file
// system takes as the same (case folding) are seen as the same.  What it cannot close: the
// window between a look and the change that follows, against another process that writes in
// the destination meanwhile.  It holds nothing open, so `isUnchanged` is always false.
class PathConfinedDestination : public ConfinedDestination {
 public:
  PathConfinedDestination(FileSystemOps const& fileSystem, std::u16string root);
  ~PathConfinedDestination() override;

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
  // The real path of `path` (the root, then the path), with its components in
  // `components_`; false with invalid_argument for a path of another form.
  bool realPath(std::u16string const& path, std::u16string& out, boost::system::error_code& code);
  // A file opened for writing at the real path `path`, renamed to `target` on commit unless
  // `target` is empty.
  std::unique_ptr<ConfinedFile> open(std::u16string path, std::u16string target,
                                     ConfinedResult& result);
  // Whether the real path `path` is a symbolic link; a path that cannot be examined is not.
  bool isLink(std::u16string const& path) const;

  FileSystemOps const& fileSystem_;
  std::u16string root_;
  std::vector<std::u16string> components_;
};

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_PATH_CONFINED_DESTINATION_H_
