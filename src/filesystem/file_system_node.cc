#include "filesystem/file_system_node.h"

#include <utility>

namespace opc {
namespace vkservices {
namespace {

constexpr opc::Perms::Perms_tag kUnknownPermissions = opc::Perms::unknown;

// The unknown values are markers, not values: they are kept as an unset field so that a node
// never holds something that looks like a real permission or time.
boost::optional<opc::Perms::Perms_tag> known(opc::Perms::Perms_tag permissions) {
  if (permissions == kUnknownPermissions) return boost::none;
  return permissions;
}

boost::optional<boost::posix_time::ptime> known(boost::posix_time::ptime const& time) {
  if (time.is_not_a_date_time()) return boost::none;
  return time;
}

}  // namespace

FileSystemNode::FileSystemNode() : type_(FileSystemNodeType::File), baseStart_(0) {}

FileSystemNode FileSystemNode::makeFileNode(std::u16string path, std::u16string partName,
                                            opc::Perms::Perms_tag permissions,
                                            boost::posix_time::ptime const& lastModifiedTime) {
  return FileSystemNode(FileSystemNodeType::File, std::move(path), std::move(partName),
                        known(permissions), known(lastModifiedTime));
}

FileSystemNode FileSystemNode::makeLinkNode(std::u16string path, std::u16string target,
                                            opc::Perms::Perms_tag permissions,
                                            boost::posix_time::ptime const& lastModifiedTime) {
  return FileSystemNode(FileSystemNodeType::SymLink, std::move(path), std::move(target),
                        known(permissions), known(lastModifiedTime));
}

FileSystemNode FileSystemNode::makeFolderNode(std::u16string path,
                                              opc::Perms::Perms_tag permissions,
                                              boost::posix_time::ptime const& lastModifiedTime) {
  FileSystemNode node(FileSystemNodeType::Folder, std::move(path), std::u16string(),
                      known(permissions), known(lastModifiedTime));
  // The path as the node keeps it: "//a" is kept as "/a", and a content name of "//a" would
  // then name another folder than the node, and change when the folder is written and read.
  node.contentName_ = node.pathName_;
  return node;
}

std::u16string FileSystemNode::getParentPath() const {
  if (baseStart_ == 0) return std::u16string();
  if (baseStart_ == 1) return u"/";
  return pathName_.substr(0, baseStart_ - 1);
}

FileSystemNode::FileSystemNode(FileSystemNodeType type, std::u16string path,
                               std::u16string contentName,
                               boost::optional<opc::Perms::Perms_tag> permissions,
                               boost::optional<boost::posix_time::ptime> lastModifiedTime)
    : type_(type),
      baseStart_(0),
      contentName_(std::move(contentName)),
      permissions_(permissions),
      lastModifiedTime_(lastModifiedTime) {
  setPath(std::move(path));
}

void FileSystemNode::setPath(std::u16string path) {
  // The split of opc::detail::getParentPath and getFilename, except for the root, whose
  // parent is not stored: getParentPath("/") is "/" again, and the root would then seem to be
  // its own child.
  std::size_t const slash = path.rfind(u'/');
  if (slash == std::u16string::npos || path.size() == 1) {
    baseStart_ = 0;
  } else if (slash == 1 && path[0] == u'/') {
    // "//a": the parent is the root, so the path name is "/" and "a".
    path.erase(0, 1);
    baseStart_ = 1;
  } else {
    baseStart_ = static_cast<std::uint32_t>(slash + 1);
  }
  pathName_ = std::move(path);
}

void FileSystemNode::assignPath(std::u16string_view path) {
  // As setPath.
  std::size_t const slash = path.rfind(u'/');
  if (slash == std::u16string_view::npos || path.size() == 1) {
    baseStart_ = 0;
  } else if (slash == 1 && path[0] == u'/') {
    path.remove_prefix(1);
    baseStart_ = 1;
  } else {
    baseStart_ = static_cast<std::uint32_t>(slash + 1);
  }
  pathName_.assign(path);
}

}  // namespace vkservices
}  // namespace opc
