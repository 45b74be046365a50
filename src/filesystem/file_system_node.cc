#include "filesystem/file_system_node.h"

#include <opc/core/package_paths.h>

namespace opc {
namespace vkservices {
namespace {

constexpr char16_t kRootPath[] = u"/";
constexpr opc::Perms::Perms_tag kUnknownPermissions = opc::Perms::unknown;

// The root is the one path whose parent is not stored: getParentPath("/") is "/" again, and
// the root would then seem to be its own child.
std::u16string parentPathOf(std::u16string const& path) {
  return path == kRootPath ? std::u16string() : opc::detail::getParentPath(path);
}

std::u16string baseNameOf(std::u16string const& path) {
  return path == kRootPath ? path : opc::detail::getFilename(path);
}

}  // namespace

FileSystemNode::FileSystemNode() : type_(FileSystemNodeType::File) {}

FileSystemNode FileSystemNode::makeFileNode(std::u16string const& path,
                                            std::u16string const& partName,
                                            opc::Perms::Perms_tag permissions,
                                            boost::posix_time::ptime const& lastModifiedTime) {
  return FileSystemNode(FileSystemNodeType::File, path, partName, permissions, lastModifiedTime);
}

FileSystemNode FileSystemNode::makeLinkNode(std::u16string const& path,
                                            std::u16string const& target,
                                            opc::Perms::Perms_tag permissions,
                                            boost::posix_time::ptime const& lastModifiedTime) {
  return FileSystemNode(FileSystemNodeType::SymLink, path, target, permissions, lastModifiedTime);
}

FileSystemNode FileSystemNode::makeFolderNode(std::u16string const& path,
                                              opc::Perms::Perms_tag permissions,
                                              boost::posix_time::ptime const& lastModifiedTime) {
  return FileSystemNode(FileSystemNodeType::Folder, path, path, permissions, lastModifiedTime);
}

std::u16string FileSystemNode::getPathName() const {
  if (parentPath_.empty()) return baseName_;
  std::u16string path;
  // The root's children would otherwise get a doubled slash.
  bool const underRoot = parentPath_ == kRootPath;
  path.reserve(parentPath_.size() + baseName_.size() + (underRoot ? 0 : 1));
  path += parentPath_;
  if (!underRoot) path += u'/';
  path += baseName_;
  return path;
}

FileSystemNode::FileSystemNode(FileSystemNodeType type, std::u16string const& path,
                               std::u16string const& contentName, opc::Perms::Perms_tag permissions,
                               boost::posix_time::ptime const& lastModifiedTime)
    : type_(type),
      parentPath_(parentPathOf(path)),
      baseName_(baseNameOf(path)),
      contentName_(contentName) {
  // The unknown values are markers, not values: they are kept as an unset field so that a
  // node never holds something that looks like a real permission or time.
  if (permissions != kUnknownPermissions) permissions_ = permissions;
  if (!lastModifiedTime.is_not_a_date_time()) lastModifiedTime_ = lastModifiedTime;
}

}  // namespace vkservices
}  // namespace opc
