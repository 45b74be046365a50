#include "filesystem/file_system_tree.h"

#include <algorithm>
#include <utility>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/system/error_code.hpp>

#include <fl/i18n/vk_locale.h>
#include <opc/core/exception.h>
#include <opc/core/package_paths.h>
#include <opc/core/string_conversions.h>

#include "filesystem/platform_tag.h"

namespace opc {
namespace vkservices {
namespace {

using detail::kPlatformTag;

constexpr char16_t kCurrentVersion[] = u"2.0";
constexpr char16_t kRootPath[] = u"/";

boost::posix_time::ptime unknownTime() { return boost::posix_time::ptime(); }

[[noreturn]] void raise(char const* text, std::u16string const& path) {
  throw opc::Exception(text + opc::toASCIIString(path), boost::system::error_code());
}

// Only a path that begins with "/" has the root among its ancestors; the chain of parents of
// any other text ends in "", whose parent is "" again, so that no ancestor could ever be
// found or made for it.
bool isAbsolute(std::u16string const& path) { return !path.empty() && path.front() == u'/'; }

}  // namespace

FileSystemTree::FileSystemTree()
    : platform_(kPlatformTag),
      encoding_(opc::toString(fl::i18n::VkLocale::global().getEncodingName(), true)),
      version_(kCurrentVersion) {
  nodes_.emplace(kRootPath, rootNode());
}

void FileSystemTree::addNode(FileSystemNode node) {
  std::u16string path = node.getPathName();
  auto const hint = nodes_.lower_bound(path);
  if (hint != nodes_.end() && hint->first == path) {
    raise("A node already exists with the name:", path);
  }
  if (!isAbsolute(path)) raise("A node name must begin with \"/\":", path);

  std::u16string parent = opc::detail::getParentPath(path);
  if (nodes_.find(parent) == nodes_.end()) insertMissingFolders(parent);
  // The ancestors just made are prefixes of `path` and sort before it, so `hint` still
  // points at the first key after `path`.
  insertNode(std::move(node), std::move(path), std::move(parent), hint);
}

void FileSystemTree::removeNode(FileSystemNode const& node) {
  std::u16string const path = node.getPathName();
  // The root stands in no parent's list and every other path needs it as an ancestor.
  if (path == kRootPath) {
    throw opc::Exception("The root node cannot be removed", boost::system::error_code());
  }
  nodes_.erase(path);
  auto const siblings = children_.find(opc::detail::getParentPath(path));
  if (siblings == children_.end()) return;
  std::vector<std::u16string>& list = siblings->second;
  auto const found = std::find(list.begin(), list.end(), path);
  if (found != list.end()) list.erase(found);
  if (list.empty()) children_.erase(siblings);
}

void FileSystemTree::replaceNode(FileSystemNode const& node) {
  std::u16string const path = node.getPathName();
  auto const found = nodes_.find(path);
  if (found == nodes_.end()) raise("A node does not exists with the name:", path);
  found->second = node;
}

FileSystemNode FileSystemTree::findNode(std::u16string const& path) const {
  auto const found = nodes_.find(path);
  if (found == nodes_.end()) raise("A node does not exists with the name:", path);
  return found->second;
}

FileSystemNode FileSystemTree::findParentNode(std::u16string const& path) const {
  // Every node but the root has a parent path; the node at it may have been removed since.
  auto const found = nodes_.find(path);
  if (found == nodes_.end() || path == kRootPath) raise("A node has no parent:", path);
  return findNode(found->second.getParentPath());
}

bool FileSystemTree::hasNode(std::u16string const& path) const {
  return nodes_.find(path) != nodes_.end();
}

bool FileSystemTree::hasChildNodes(std::u16string const& path) const {
  return children_.find(path) != children_.end();
}

bool FileSystemTree::hasParentNode(std::u16string const& path) const {
  return path != kRootPath && nodes_.find(path) != nodes_.end();
}

std::vector<FileSystemNode> FileSystemTree::childNodes(std::u16string const& path) const {
  std::vector<FileSystemNode> result;
  auto const found = children_.find(path);
  if (found == children_.end()) return result;
  result.reserve(found->second.size());
  for (std::u16string const& child : found->second) result.push_back(nodes_.at(child));
  return result;
}

std::vector<FileSystemNode> FileSystemTree::leafNodes() const {
  std::vector<FileSystemNode> result;
  if (nodes_.size() == 1) return result;
  // Both maps share one key order, so one walk over each replaces a lookup per node.  Keys of
  // children_ whose node was removed have no match in nodes_ and are skipped.
  auto parent = children_.begin();
  for (auto const& entry : nodes_) {
    while (parent != children_.end() && parent->first < entry.first) ++parent;
    if (parent != children_.end() && parent->first == entry.first) continue;
    result.push_back(entry.second);
  }
  return result;
}

FileSystemNode FileSystemTree::rootNode() const {
  return FileSystemNode::makeFolderNode(kRootPath, opc::Perms::unknown, unknownTime());
}

void FileSystemTree::setPlatform(std::u16string const& platform) {
  if (&platform != &platform_) platform_ = platform;
}

void FileSystemTree::setEncoding(std::u16string const& encoding) {
  if (&encoding != &encoding_) encoding_ = encoding;
}

void FileSystemTree::setVersion(std::u16string const& version) {
  if (&version != &version_) version_ = version;
}

void FileSystemTree::resetVersion() { version_ = kCurrentVersion; }

std::u16string const& FileSystemTree::getBuildPlatform() {
  static std::u16string const tag(kPlatformTag);
  return tag;
}

std::u16string const& FileSystemTree::getCurrentVersion() {
  static std::u16string const version(kCurrentVersion);
  return version;
}

void FileSystemTree::insertNode(FileSystemNode node, std::u16string path, std::u16string parent,
                                NodeMap::const_iterator hint) {
  // A key is copied into nodes_ and moved into children_; the parent text is moved into
  // children_ only when its list is new.  The parent of a path is not kept apart: the node
  // holds it.
  nodes_.emplace_hint(hint, path, std::move(node));
  auto list = children_.lower_bound(parent);
  if (list == children_.end() || list->first != parent) {
    list = children_.emplace_hint(list, std::move(parent), std::vector<std::u16string>());
  }
  list->second.push_back(std::move(path));
}

void FileSystemTree::insertMissingFolders(std::u16string const& path) {
  // Walk up to the nearest existing ancestor, remembering the missing ones.  The walk ends:
  // each parent of an absolute path is a shorter absolute path, down to the root, which the
  // tree always holds.
  std::vector<std::u16string> missing{path};
  std::u16string existing = opc::detail::getParentPath(path);
  while (nodes_.find(existing) == nodes_.end()) {
    std::u16string next = opc::detail::getParentPath(existing);
    missing.push_back(std::move(existing));
    existing = std::move(next);
  }
  // Then make them from the top down, each under the one made just before it.
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    FileSystemNode node =
        FileSystemNode::makeFolderNode(*folder, opc::Perms::unknown, unknownTime());
    auto const hint = nodes_.lower_bound(*folder);
    std::u16string parent = std::exchange(existing, *folder);
    insertNode(std::move(node), *folder, std::move(parent), hint);
  }
}

}  // namespace vkservices
}  // namespace opc
