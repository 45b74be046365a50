// FileSystemNode: the record of one file, folder or symbolic link of a package file system.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_NODE_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_NODE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <opc/core/perms.h>

namespace opc {
namespace vkservices {

class FileSystemEntry;

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
//
// The path is kept once, as the path name; the parent path and the base name are the two
// parts of it on either side of the last separator.
class FileSystemNode {
 public:
  // Kind File (0), empty path and content name, permissions and time unset.
  FileSystemNode();

  // A file at `path` whose content lies in the part named `partName`.
  static FileSystemNode makeFileNode(std::u16string path, std::u16string partName,
                                     opc::Perms::Perms_tag permissions,
                                     boost::posix_time::ptime const& lastModifiedTime);

  // A symbolic link at `path` to `target`, the target kept as it was given.
  static FileSystemNode makeLinkNode(std::u16string path, std::u16string target,
                                     opc::Perms::Perms_tag permissions,
                                     boost::posix_time::ptime const& lastModifiedTime);

  // A folder at `path`; its content name is its own path name (getPathName()).
  static FileSystemNode makeFolderNode(std::u16string path, opc::Perms::Perms_tag permissions,
                                       boost::posix_time::ptime const& lastModifiedTime);

  FileSystemNodeType getType() const { return type_; }
  // Path of the parent folder: opc::detail::getParentPath of the path the node was made
  // from, and empty for the root and for a path without any "/".
  std::u16string getParentPath() const;
  // Last component of the path; "/" for the root.
  std::u16string getBaseName() const { return pathName_.substr(baseStart_); }
  // The part name of a file, the target of a link, the own path of a folder.
  std::u16string const& getContentName() const { return contentName_; }
  // The full path: the parent path and the base name joined by "/", without doubling the
  // root's.  It is the path the node was made from, save that a leading "//" before a last
  // component loses one "/" ("//a" gives "/a"), as the parent of both is the root.
  std::u16string const& getPathName() const { return pathName_; }
  // Unset means unknown.
  boost::optional<opc::Perms::Perms_tag> const& getPermissions() const { return permissions_; }
  // Unset means unknown.
  boost::optional<boost::posix_time::ptime> const& getLastModifiedTime() const {
    return lastModifiedTime_;
  }

 private:
  friend class FileSystemTree;
  // An entry keeps the node's fields, the split of its path included.
  friend class FileSystemEntry;

  // The unknown values are given as unset fields here.
  FileSystemNode(FileSystemNodeType type, std::u16string path, std::u16string contentName,
                 boost::optional<opc::Perms::Perms_tag> permissions,
                 boost::optional<boost::posix_time::ptime> lastModifiedTime);

  // Makes pathName_ and baseStart_ from a path, as getParentPath and getFilename split it.
  void setPath(std::u16string path);
  // Sets the path as setPath does, into the text the node already holds: a node filled again
  // and again for a walk makes no new text once its strings are long enough.
  void assignPath(std::u16string_view path);

  // How the content name follows from the path when a tree's listing left contentName_ empty
  // (FileSystemTree::visitChildNodes), for the entry made of the node to make it when asked;
  // kStored, the content name in contentName_, everywhere else.
  enum class ContentFromPath : std::uint8_t {
    kStored,
    kPath,                    // the path itself (a folder)
    kPartRootAndPath,         // "/fsroot" and the path
    kPartRootAndEncodedPath,  // "/fsroot" and the path encoded (appendEncodedPartName)
  };

  FileSystemNodeType type_;
  ContentFromPath contentFromPath_ = ContentFromPath::kStored;
  std::uint32_t baseStart_;
  std::u16string pathName_;
  std::u16string contentName_;
  boost::optional<opc::Perms::Perms_tag> permissions_;
  boost::optional<boost::posix_time::ptime> lastModifiedTime_;
  // Where a tree filled this node from, and that tree's generation then (0 when no tree did):
  // while the tree is at that generation, the record answers for the path without a look-up.
  std::uint32_t record_ = 0;
  std::uint64_t generation_ = 0;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_NODE_H_
