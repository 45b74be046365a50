#include "filesystem/file_system_tree.h"

#include <utility>

#include <boost/system/error_code.hpp>

#include <fl/i18n/vk_locale.h>
#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>

#include "filesystem/platform_tag.h"

namespace opc {
namespace vkservices {
namespace {

using detail::kPlatformTag;

constexpr char16_t kCurrentVersion[] = u"2.0";
constexpr std::u16string_view kRootPath = u"/";
// The part-name root of files: a file added from a path keeps its part name as this and the
// path, which the record then need not hold a second time.
constexpr std::u16string_view kPartRoot = u"/fsroot";

[[noreturn]] void raise(char const* text, std::u16string_view path) {
  throw opc::Exception(text + opc::toASCIIString(std::u16string(path)),
                       boost::system::error_code());
}

// Only a path that begins with "/" has the root among its ancestors; the chain of parents of
// any other text ends in "", whose parent is "" again, so that no ancestor could ever be
// found or made for it.
bool isAbsolute(std::u16string_view path) { return !path.empty() && path.front() == u'/'; }

// opc::detail::getParentPath, as a view into `path`.
std::u16string_view parentPathOf(std::u16string_view path) {
  std::size_t const slash = path.rfind(u'/');
  if (slash == std::u16string_view::npos) return std::u16string_view();
  if (slash == 0) return kRootPath;
  return path.substr(0, slash);
}

// The path name of the node stored under `key` (see FileSystemNode::getPathName): the key,
// save for a missing folder made for a parent "//a", whose node says "/a".
std::u16string_view pathNameOf(std::u16string_view key) {
  if (key.size() > 1 && key[0] == u'/' && key[1] == u'/' && key.rfind(u'/') == 1) {
    return key.substr(1);
  }
  return key;
}

boost::posix_time::ptime unknownTime() { return boost::posix_time::ptime(); }

}  // namespace

FileSystemTree::FileSystemTree()
    : platform_(kPlatformTag),
      encoding_(opc::toString(fl::i18n::VkLocale::global().getEncodingName(), true)),
      version_(kCurrentVersion),
      presentCount_(0),
      lastParent_(nullptr) {
  Entry& root = *records_.emplace(kRootPath, Record()).first;
  FileSystemNode node = rootNode();
  assign(root, node.type_, std::move(node.contentName_), node.permissions_, node.lastModifiedTime_);
  root.second.present = true;
  presentCount_ = 1;
}

FileSystemTree::FileSystemTree(FileSystemTree&& other) noexcept
    : platform_(std::move(other.platform_)),
      encoding_(std::move(other.encoding_)),
      version_(std::move(other.version_)),
      records_(std::move(other.records_)),
      presentCount_(std::exchange(other.presentCount_, 0)),
      lastParent_(std::exchange(other.lastParent_, nullptr)) {}

FileSystemTree& FileSystemTree::operator=(FileSystemTree&& other) noexcept {
  platform_ = std::move(other.platform_);
  encoding_ = std::move(other.encoding_);
  version_ = std::move(other.version_);
  records_ = std::move(other.records_);
  presentCount_ = std::exchange(other.presentCount_, 0);
  lastParent_ = std::exchange(other.lastParent_, nullptr);
  return *this;
}

FileSystemTree::~FileSystemTree() = default;

void FileSystemTree::addNode(FileSystemNode node) {
  std::u16string const& path = node.getPathName();
  // The entries of a manifest come in key order: a path after every key goes at the end.
  auto hint = records_.end();
  if (records_.empty() || !(records_.rbegin()->first < path)) {
    hint = records_.lower_bound(path);
    if (hint != records_.end() && hint->first == path && hint->second.present) {
      raise("A node already exists with the name:", path);
    }
  }
  if (!isAbsolute(path)) raise("A node name must begin with \"/\":", path);

  Entry* parent = parentOf(path);
  // The ancestors just made are prefixes of `path` and sort before it, so `hint` still
  // points at the first key after it, or at its own record left by a removal.
  Entry* entry = nullptr;
  if (hint != records_.end() && hint->first == path) {
    entry = &*hint;
  } else {
    entry = &*records_.emplace_hint(hint, std::move(node.pathName_), Record());
  }
  assign(*entry, node.type_, std::move(node.contentName_), node.permissions_,
         node.lastModifiedTime_);
  entry->second.present = true;
  ++presentCount_;
  appendChild(*parent, *entry);
}

void FileSystemTree::removeNode(FileSystemNode const& node) {
  std::u16string const& path = node.getPathName();
  // The root stands in no parent's list and every other path needs it as an ancestor.
  if (path == kRootPath) {
    throw opc::Exception("The root node cannot be removed", boost::system::error_code());
  }
  lastParent_ = nullptr;
  auto const found = records_.find(path);
  if (found == records_.end() || !found->second.present) return;
  // A present record stands in the list of the record of its parent path, which stays in
  // the tree, present or not, for as long as it has children.
  auto const parent = records_.find(parentPathOf(path));
  if (parent != records_.end()) unlinkChild(*parent, *found);
  found->second.present = false;
  --presentCount_;
  if (found->second.firstChild == nullptr) {
    records_.erase(found);
  } else {
    std::u16string().swap(found->second.content);
  }
  // A removed parent was kept only for the list of its children.
  if (parent != records_.end() && !parent->second.present && parent->second.firstChild == nullptr) {
    records_.erase(parent);
  }
}

void FileSystemTree::replaceNode(FileSystemNode const& node) {
  Entry* found = findPresent(node.getPathName());
  if (found == nullptr) raise("A node does not exists with the name:", node.getPathName());
  assign(*found, node.getType(), node.getContentName(), node.getPermissions(),
         node.getLastModifiedTime());
}

FileSystemNode FileSystemTree::findNode(std::u16string const& path) const {
  Entry const* found = findPresent(path);
  if (found == nullptr) raise("A node does not exists with the name:", path);
  return nodeOf(*found);
}

FileSystemNode FileSystemTree::findParentNode(std::u16string const& path) const {
  // Every node but the root has a parent path; the node at it may have been removed since.
  Entry const* found = findPresent(path);
  if (found == nullptr || path == kRootPath) raise("A node has no parent:", path);
  return findNode(std::u16string(parentPathOf(found->first)));
}

bool FileSystemTree::hasNode(std::u16string const& path) const {
  return findPresent(path) != nullptr;
}

bool FileSystemTree::hasChildNodes(std::u16string const& path) const {
  Entry const* found = findAny(path);
  return found != nullptr && found->second.firstChild != nullptr;
}

bool FileSystemTree::hasParentNode(std::u16string const& path) const {
  return path != kRootPath && findPresent(path) != nullptr;
}

std::vector<FileSystemNode> FileSystemTree::childNodes(std::u16string const& path) const {
  std::vector<FileSystemNode> result;
  Entry const* found = findAny(path);
  if (found == nullptr) return result;
  for (Entry const* child = found->second.firstChild; child != nullptr;
       child = child->second.nextSibling) {
    result.push_back(nodeOf(*child));
  }
  return result;
}

std::vector<FileSystemNode> FileSystemTree::leafNodes() const {
  std::vector<FileSystemNode> result;
  visitLeaves([&](LeafView const& leaf) { result.push_back(nodeOf(*leaf.entry_)); });
  return result;
}

void FileSystemTree::visitLeaves(std::function<void(LeafView const&)> const& visit) const {
  // The root alone is no leaf: a tree holds it from the start.
  if (presentCount_ == 1) return;
  LeafView view;
  for (Entry const& entry : records_) {
    if (!entry.second.present || entry.second.firstChild != nullptr) continue;
    view.entry_ = &entry;
    visit(view);
  }
}

FileSystemNode FileSystemTree::rootNode() const {
  return FileSystemNode::makeFolderNode(std::u16string(kRootPath), opc::Perms::unknown,
                                        unknownTime());
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

FileSystemNodeType FileSystemTree::LeafView::getType() const { return entry_->second.type; }

std::u16string_view FileSystemTree::LeafView::getPathName() const {
  return pathNameOf(entry_->first);
}

std::u16string_view FileSystemTree::LeafView::getContentName() const {
  Record const& record = entry_->second;
  switch (record.contentForm) {
    case Content::kPath:
      return entry_->first;
    case Content::kFsrootPath:
      content_.assign(kPartRoot);
      content_ += entry_->first;
      return content_;
    case Content::kOwn:
      break;
  }
  return record.content;
}

boost::optional<opc::Perms::Perms_tag> FileSystemTree::LeafView::getPermissions() const {
  Record const& record = entry_->second;
  if (!record.hasPermissions) return boost::none;
  return static_cast<opc::Perms::Perms_tag>(record.permissions);
}

boost::optional<boost::posix_time::ptime> FileSystemTree::LeafView::getLastModifiedTime() const {
  Record const& record = entry_->second;
  if (!record.hasTime) return boost::none;
  return record.time;
}

void FileSystemTree::assign(Entry& entry, FileSystemNodeType type, std::u16string content,
                            boost::optional<opc::Perms::Perms_tag> const& permissions,
                            boost::optional<boost::posix_time::ptime> const& time) {
  Record& record = entry.second;
  std::u16string const& key = entry.first;
  record.type = type;
  record.hasPermissions = static_cast<bool>(permissions);
  record.permissions = permissions ? static_cast<std::uint16_t>(*permissions) : 0;
  record.hasTime = static_cast<bool>(time);
  record.time = time ? *time : unknownTime();
  bool const isPartRootAndKey = type == FileSystemNodeType::File &&
                                content.size() == kPartRoot.size() + key.size() &&
                                content.compare(0, kPartRoot.size(), kPartRoot) == 0 &&
                                content.compare(kPartRoot.size(), key.size(), key) == 0;
  if (type == FileSystemNodeType::Folder && content == key) {
    record.contentForm = Content::kPath;
    std::u16string().swap(record.content);
  } else if (isPartRootAndKey) {
    record.contentForm = Content::kFsrootPath;
    std::u16string().swap(record.content);
  } else {
    record.contentForm = Content::kOwn;
    record.content = std::move(content);
  }
}

FileSystemNode FileSystemTree::nodeOf(Entry const& entry) {
  Record const& record = entry.second;
  boost::optional<opc::Perms::Perms_tag> permissions;
  if (record.hasPermissions) permissions = static_cast<opc::Perms::Perms_tag>(record.permissions);
  boost::optional<boost::posix_time::ptime> time;
  if (record.hasTime) time = record.time;
  LeafView view;
  view.entry_ = &entry;
  return FileSystemNode(record.type, entry.first, std::u16string(view.getContentName()),
                        permissions, time);
}

FileSystemTree::Entry* FileSystemTree::findPresent(std::u16string_view path) {
  auto const found = records_.find(path);
  return found == records_.end() || !found->second.present ? nullptr : &*found;
}

FileSystemTree::Entry const* FileSystemTree::findPresent(std::u16string_view path) const {
  auto const found = records_.find(path);
  return found == records_.end() || !found->second.present ? nullptr : &*found;
}

FileSystemTree::Entry const* FileSystemTree::findAny(std::u16string_view path) const {
  auto const found = records_.find(path);
  return found == records_.end() ? nullptr : &*found;
}

FileSystemTree::Entry* FileSystemTree::parentOf(std::u16string_view path) {
  std::u16string_view const parent = parentPathOf(path);
  if (lastParent_ != nullptr && lastParent_->first == parent) return lastParent_;
  Entry* found = findPresent(parent);
  if (found == nullptr) found = insertMissingFolders(parent);
  lastParent_ = found;
  return found;
}

FileSystemTree::Entry* FileSystemTree::insertMissingFolders(std::u16string_view parent) {
  // Walk up to the nearest existing ancestor, remembering the missing ones (views into the
  // path being added).  The walk ends: each parent of an absolute path is a shorter absolute
  // path, down to the root, which the tree always holds.
  std::vector<std::u16string_view> missing{parent};
  std::u16string_view existing = parentPathOf(parent);
  Entry* above = findPresent(existing);
  while (above == nullptr) {
    missing.push_back(existing);
    existing = parentPathOf(existing);
    above = findPresent(existing);
  }
  // Then make them from the top down, each under the one made just before it.  A record
  // left by a removal comes back with the children it kept.
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    auto hint = records_.lower_bound(*folder);
    Entry* entry = nullptr;
    if (hint != records_.end() && hint->first == *folder) {
      entry = &*hint;
    } else {
      entry = &*records_.emplace_hint(hint, std::u16string(*folder), Record());
    }
    FileSystemNode made =
        FileSystemNode::makeFolderNode(entry->first, opc::Perms::unknown, unknownTime());
    assign(*entry, made.type_, std::move(made.contentName_), made.permissions_,
           made.lastModifiedTime_);
    entry->second.present = true;
    ++presentCount_;
    appendChild(*above, *entry);
    above = entry;
  }
  return above;
}

void FileSystemTree::appendChild(Entry& parent, Entry& child) {
  child.second.nextSibling = nullptr;
  if (parent.second.lastChild != nullptr) {
    parent.second.lastChild->second.nextSibling = &child;
  } else {
    parent.second.firstChild = &child;
  }
  parent.second.lastChild = &child;
}

void FileSystemTree::unlinkChild(Entry& parent, Entry const& child) {
  Entry* before = nullptr;
  Entry* at = parent.second.firstChild;
  while (at != nullptr && at != &child) {
    before = at;
    at = at->second.nextSibling;
  }
  if (at == nullptr) return;
  Entry* const after = at->second.nextSibling;
  if (before == nullptr) {
    parent.second.firstChild = after;
  } else {
    before->second.nextSibling = after;
  }
  if (parent.second.lastChild == at) parent.second.lastChild = before;
  at->second.nextSibling = nullptr;
}

}  // namespace vkservices
}  // namespace opc
