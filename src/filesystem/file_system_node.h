// FileSystemNode: the record of one file, folder or symbolic link of a package file system.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_NODE_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_NODE_H_

#include <cstdint>
#include <string>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <opc/core/perms.h>

namespace opc {
namespace vkservices {

// The kind of a node.  The numbers live in memory only; the manifest spells the kinds out.
enum class FileSystemNodeType : std::uint32_t {
  File = 0,
  SymLink = 1,
  Folder = 2,
};

// A plain value: copies share nothing.  A node never stores the unknown permission value
// (65535) or the unknown time (not_a_date_time): the factories turn both into an unset
// field.  Like any value, a node may be read on several threads at once, but not while one
// of them assigns to it.
class FileSystemNode {
 public:
  // Kind File (0), three empty strings, permissions and time unset.
  FileSystemNode();

  // A file at `path` whose content lies in the part named `partName`.
  static FileSystemNode makeFileNode(std::u16string const& path, std::u16string const& partName,
                                     opc::Perms::Perms_tag permissions,
                                     boost::posix_time::ptime const& lastModifiedTime);

  // A symbolic link at `path` to `target`, the target kept as it was given.
  static FileSystemNode makeLinkNode(std::u16string const& path, std::u16string const& target,
                                     opc::Perms::Perms_tag permissions,
                                     boost::posix_time::ptime const& lastModifiedTime);

  // A folder at `path`; its content name is its own path.
  static FileSystemNode makeFolderNode(std::u16string const& path,
                                       opc::Perms::Perms_tag permissions,
                                       boost::posix_time::ptime const& lastModifiedTime);

  FileSystemNodeType getType() const { return type_; }
  // Path of the parent folder; empty for the root.
  std::u16string const& getParentPath() const { return parentPath_; }
  // Last component of the path; "/" for the root.
  std::u16string const& getBaseName() const { return baseName_; }
  // The part name of a file, the target of a link, the own path of a folder.
  std::u16string const& getContentName() const { return contentName_; }
  // The full path, derived from the parent path and the base name on each call.
  std::u16string getPathName() const;
  // Unset means unknown.
  boost::optional<opc::Perms::Perms_tag> const& getPermissions() const { return permissions_; }
  // Unset means unknown.
  boost::optional<boost::posix_time::ptime> const& getLastModifiedTime() const {
    return lastModifiedTime_;
  }

 private:
  FileSystemNode(FileSystemNodeType type, std::u16string const& path,
                 std::u16string const& contentName, opc::Perms::Perms_tag permissions,
                 boost::posix_time::ptime const& lastModifiedTime);

  FileSystemNodeType type_;
  std::u16string parentPath_;
  std::u16string baseName_;
  std::u16string contentName_;
  boost::optional<opc::Perms::Perms_tag> permissions_;
  boost::optional<boost::posix_time::ptime> lastModifiedTime_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_NODE_H_
