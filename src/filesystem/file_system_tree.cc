#include "filesystem/file_system_tree.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include <boost/system/error_code.hpp>

#include <fl/i18n/vk_locale.h>
#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>

#include "filesystem/encoded_part_name.h"
#include "filesystem/platform_tag.h"

namespace opc {
namespace vkservices {
namespace {

using detail::appendEncodedPartName;
using detail::kPartRoot;
using detail::kPlatformTag;

constexpr char16_t kCurrentVersion[] = u"2.0";
constexpr std::u16string_view kRootPath = u"/";

using detail::kNoNode;
using detail::kRootNode;
using detail::NodeIndex;
using detail::NodeRecord;

[[noreturn]] void raise(char const* text, std::u16string_view path) {
  throw opc::Exception(text + opc::toASCIIString(std::u16string(path)),
                       boost::system::error_code());
}

// Only a path that begins with "/" has the root among its ancestors; the chain of parents of
// any other text ends in "", whose parent is "" again, so that no ancestor could ever be
// found or made for it.
bool isAbsolute(std::u16string_view path) { return !path.empty() && path.front() == u'/'; }

// The longest and the deepest path a node may have.  Every folder above a node is a node of
// its own, so a path of n levels and m units costs about n * m units wherever the paths of
// its folders are spelled out (a listing shows each of them); without both bounds a
// manifest entry of a few hundred bytes could ask for gigabytes.  The longest path a file
// system takes is 32767 UTF-16 units, and no real tree is nested more than a few hundred
// levels deep.
constexpr std::size_t kMaxPathUnits = 32767;
constexpr std::size_t kMaxPathLevels = 2048;

// What a message shows of a path that may be very long.
std::string shownPath(std::u16string_view path) {
  constexpr std::size_t kShownUnits = 64;
  if (path.size() <= kShownUnits) return opc::toASCIIString(std::u16string(path));
  return opc::toASCIIString(std::u16string(path.substr(0, kShownUnits))) + "...";
}

// Refuses a path beyond kMaxPathUnits or kMaxPathLevels.
void ensureWithinLimits(std::u16string_view path) {
  if (path.size() > kMaxPathUnits) {
    throw opc::Exception("A node name of " + std::to_string(path.size()) +
                             " characters is longer than the limit of " +
                             std::to_string(kMaxPathUnits) + ":" + shownPath(path),
                         boost::system::error_code());
  }
  // Each level takes a "/" and a unit at least, so only a path longer than the limit of
  // levels can pass it: the others, all but a few, are not counted.
  if (path.size() <= kMaxPathLevels) return;
  auto const levels = static_cast<std::size_t>(std::count(path.begin(), path.end(), u'/'));
  if (levels > kMaxPathLevels) {
    throw opc::Exception("A node name of " + std::to_string(levels) +
                             " levels is deeper than the limit of " +
                             std::to_string(kMaxPathLevels) + ":" + shownPath(path),
                         boost::system::error_code());
  }
}

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

// Equal texts, compared as one block of memory: char16_t texts otherwise compare unit by
// unit, and every entry of a manifest read compares its path and content name this way.
bool sameUnits(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0);
}

// Generations of every tree of the process from one counter, so that a number names one
// state of one tree, whichever tree a node was filled from.
std::uint64_t nextGeneration() {
  static std::atomic<std::uint64_t> counter{0};
  return ++counter;
}

boost::posix_time::ptime unknownTime() { return boost::posix_time::ptime(); }

// The path a node made from `path` keeps (see FileSystemNode::getPathName): "//a" gives "/a".
std::u16string_view nodePathOf(std::u16string_view path) {
  if (path.size() > 1 && path[0] == u'/' && path[1] == u'/' && path.rfind(u'/') == 1) {
    return path.substr(1);
  }
  return path;
}

boost::optional<opc::Perms::Perms_tag> known(opc::Perms::Perms_tag permissions) {
  if (permissions == opc::Perms::unknown) return boost::none;
  return permissions;
}

boost::optional<boost::posix_time::ptime> known(boost::posix_time::ptime const& time) {
  if (time.is_not_a_date_time()) return boost::none;
  return time;
}

// The key under which the child named `name` of the record at `parentKey` is found.
void childKey(std::u16string_view parentKey, std::u16string_view name, std::u16string& out) {
  out.assign(parentKey);
  if (parentKey != kRootPath) out.push_back(u'/');
  out.append(name);
}

// One step of the walk in key order: a child, either as a leaf (its key is its name) or as
// the folder of its descendants (their keys go on after its name and a "/").
struct WalkItem {
  detail::NodeIndex index;
  std::u16string_view name;
  bool below;
};

// The order of keys: a name against a name and "/", and so on.
bool keyLess(WalkItem const& a, WalkItem const& b) {
  std::size_t const common = std::min(a.name.size(), b.name.size());
  int const prefix = a.name.substr(0, common).compare(b.name.substr(0, common));
  if (prefix != 0) return prefix < 0;
  // Code unit by code unit, with the "/" of a folder's descendants after its name.
  auto unitAt = [](WalkItem const& item, std::size_t at) -> int {
    if (at < item.name.size()) return item.name[at];
    if (at == item.name.size() && item.below) return u'/';
    return -1;
  };
  for (std::size_t at = common;; ++at) {
    int const x = unitAt(a, at);
    int const y = unitAt(b, at);
    if (x != y) return x < y;
    if (x < 0) return false;
  }
}

}  // namespace

FileSystemTree::FileSystemTree()
    : platform_(kPlatformTag),
      encoding_(opc::toString(fl::i18n::VkLocale::global().getEncodingName(), true)),
      version_(kCurrentVersion),
      presentCount_(1),
      lastParent_(kNoNode),
      generation_(nextGeneration()),
      generationGiven_(false) {
  assign(kRootNode, kRootPath, FileSystemNodeType::Folder, kRootPath, boost::none, boost::none);
  table_[kRootNode].present = true;
}

FileSystemTree::FileSystemTree(FileSystemTree&& other) noexcept
    : platform_(std::move(other.platform_)),
      encoding_(std::move(other.encoding_)),
      version_(std::move(other.version_)),
      table_(std::move(other.table_)),
      presentCount_(std::exchange(other.presentCount_, 0)),
      lastParent_(std::exchange(other.lastParent_, kNoNode)),
      lastParentPath_(std::move(other.lastParentPath_)),
      generation_(nextGeneration()),
      generationGiven_(false) {
  other.changing();
}

FileSystemTree& FileSystemTree::operator=(FileSystemTree&& other) noexcept {
  platform_ = std::move(other.platform_);
  encoding_ = std::move(other.encoding_);
  version_ = std::move(other.version_);
  table_ = std::move(other.table_);
  presentCount_ = std::exchange(other.presentCount_, 0);
  lastParent_ = std::exchange(other.lastParent_, kNoNode);
  lastParentPath_ = std::move(other.lastParentPath_);
  changing();
  other.changing();
  return *this;
}

FileSystemTree::~FileSystemTree() = default;

void FileSystemTree::addNode(FileSystemNode const& node) {
  insertPresent(node.getPathName(), node.getType(), node.getContentName(), node.getPermissions(),
                node.getLastModifiedTime());
}

void FileSystemTree::addEntry(FileSystemNodeType type, std::u16string_view path,
                              std::u16string_view content, opc::Perms::Perms_tag permissions,
                              boost::posix_time::ptime const& time) {
  std::u16string_view const key = nodePathOf(path);
  insertPresent(key, type, type == FileSystemNodeType::Folder ? key : content, known(permissions),
                known(time));
}

void FileSystemTree::insertPresent(std::u16string_view path, FileSystemNodeType type,
                                   std::u16string_view content,
                                   boost::optional<opc::Perms::Perms_tag> const& permissions,
                                   boost::optional<boost::posix_time::ptime> const& time) {
  // One hash for the look-up and the insertion.
  std::uint32_t const hash = table_.hashOf(path);
  NodeIndex const found = table_.find(path, hash);
  if (found != kNoNode && table_[found].present) {
    raise("A node already exists with the name:", path);
  }
  if (!isAbsolute(path)) raise("A node name must begin with \"/\":", path);
  ensureWithinLimits(path);
  changing();
  NodeIndex const entry = presentChild(parentOf(path), path, found, hash);
  assign(entry, path, type, content, permissions, time);
}

void FileSystemTree::removeNode(FileSystemNode const& node) {
  std::u16string const& path = node.getPathName();
  // The root stands in no parent's list and every other path needs it as an ancestor.
  if (path == kRootPath) {
    throw opc::Exception("The root node cannot be removed", boost::system::error_code());
  }
  lastParent_ = kNoNode;
  NodeIndex at = findPresent(path);
  if (at == kNoNode) return;
  changing();
  NodeRecord& record = table_[at];
  record.present = false;
  table_.clearContent(at);
  --presentCount_;
  --table_[record.parent].presentChildren;
  // A record that is not present is kept only for the list of its children, which keeps its
  // descendants reachable by path; once that list is empty it goes, and so may its parent.
  while (at != kRootNode && !table_[at].present && table_[at].firstChild == kNoNode) {
    NodeIndex const parent = table_[at].parent;
    unlinkChild(parent, at);
    table_.erase(at);
    at = parent;
  }
}

void FileSystemTree::replaceNode(FileSystemNode const& node) {
  NodeIndex const found = findPresent(node.getPathName());
  if (found == kNoNode) raise("A node does not exists with the name:", node.getPathName());
  changing();
  assign(found, node.getPathName(), node.getType(), node.getContentName(), node.getPermissions(),
         node.getLastModifiedTime());
}

FileSystemNode FileSystemTree::findNode(std::u16string const& path) const {
  NodeIndex const found = findPresent(path);
  if (found == kNoNode) raise("A node does not exists with the name:", path);
  return nodeOf(found, path);
}

FileSystemNode FileSystemTree::findParentNode(std::u16string const& path) const {
  // Every node but the root has a parent path; the node at it may have been removed since.
  if (findPresent(path) == kNoNode || path == kRootPath) raise("A node has no parent:", path);
  return findNode(std::u16string(parentPathOf(path)));
}

bool FileSystemTree::hasNode(std::u16string const& path) const {
  return findPresent(path) != kNoNode;
}

bool FileSystemTree::hasChildNodes(std::u16string_view path) const {
  NodeIndex const found = table_.find(path);
  return found != kNoNode && table_[found].presentChildren != 0;
}

bool FileSystemTree::hasChildNodes(std::u16string_view path, std::uint32_t record,
                                   std::uint64_t generation) const {
  if (generation != generation_) return hasChildNodes(path);
  return table_[record].presentChildren != 0;
}

bool FileSystemTree::hasParentNode(std::u16string const& path) const {
  return path != kRootPath && findPresent(path) != kNoNode;
}

std::vector<FileSystemNode> FileSystemTree::childNodes(std::u16string const& path) const {
  std::vector<FileSystemNode> result;
  NodeIndex const found = table_.find(path);
  if (found == kNoNode) return result;
  result.reserve(table_[found].presentChildren);
  forEachChildNode(path, [&result](FileSystemNode&& node) { result.push_back(std::move(node)); });
  return result;
}

void FileSystemTree::forEachChildNode(std::u16string const& path,
                                      std::function<void(FileSystemNode&&)> const& visit) const {
  NodeIndex const found = table_.find(path);
  if (found == kNoNode) return;
  std::u16string key;
  for (NodeIndex child = table_[found].firstChild; child != kNoNode;
       child = table_[child].nextSibling) {
    if (!table_[child].present) continue;
    childKey(path, table_.nameOf(child), key);
    visit(nodeOf(child, key));
  }
}

void FileSystemTree::visitChildNodes(
    std::u16string const& path, std::function<void(std::size_t)> const& count,
    std::function<void(FileSystemNode const&)> const& visit) const {
  NodeIndex const found = table_.find(path);
  if (found == kNoNode) {
    count(0);
    return;
  }
  count(table_[found].presentChildren);
  std::u16string key;
  FileSystemNode node;
  for (NodeIndex child = table_[found].firstChild; child != kNoNode;
       child = table_[child].nextSibling) {
    if (!table_[child].present) continue;
    childKey(path, table_.nameOf(child), key);
    fillNode(child, key, node);
    visit(node);
  }
}

std::vector<FileSystemNode> FileSystemTree::leafNodes() const {
  std::vector<FileSystemNode> result;
  walkLeaves(
      [&](NodeIndex index, std::u16string_view key) { result.push_back(nodeOf(index, key)); });
  return result;
}

void FileSystemTree::forEachLeafNode(std::function<void(FileSystemNode&&)> const& visit) const {
  walkLeaves([&](NodeIndex index, std::u16string_view key) { visit(nodeOf(index, key)); });
}

void FileSystemTree::visitLeaves(std::function<void(LeafView const&)> const& visit) const {
  LeafView view(table_);
  walkLeaves([&](NodeIndex index, std::u16string_view key) {
    view.index_ = index;
    view.key_ = key;
    visit(view);
  });
}

void FileSystemTree::walkLeaves(
    std::function<void(NodeIndex, std::u16string_view)> const& visit) const {
  // The root alone is no leaf: a tree holds it from the start.
  if (presentCount_ == 1) return;
  // Depth first, with the children of each folder sorted as their keys sort: a leaf by its
  // name, the descendants of a folder by its name and "/".  A child that is both (a present
  // node without present children that keeps removed ones) gives two steps.  The steps still
  // to take are kept on one explicit stack, folder after folder, so that no depth of path
  // needs a deep call stack.
  struct Frame {
    std::size_t end;      // where the steps of the folder above end on `steps`
    std::size_t keySize;  // the size of `key` for the folder's own path
  };
  std::vector<WalkItem> steps;
  std::vector<Frame> frames;
  std::u16string key(kRootPath);
  auto open = [&](NodeIndex folder) {
    std::size_t const begin = steps.size();
    for (NodeIndex child = table_[folder].firstChild; child != kNoNode;
         child = table_[child].nextSibling) {
      NodeRecord const& record = table_[child];
      std::u16string_view const name = table_.nameOf(child);
      if (record.present && record.presentChildren == 0) steps.push_back({child, name, false});
      if (record.firstChild != kNoNode) steps.push_back({child, name, true});
    }
    // Backwards, so that the first step in key order is taken from the top.  Children added
    // in key order (a manifest read, a sorted walk) need no sort.
    auto const first = steps.begin() + static_cast<std::ptrdiff_t>(begin);
    if (std::is_sorted(first, steps.end(), keyLess)) {
      std::reverse(first, steps.end());
    } else {
      std::sort(first, steps.end(),
                [](WalkItem const& a, WalkItem const& b) { return keyLess(b, a); });
    }
  };
  open(kRootNode);
  frames.push_back({0, key.size()});
  while (!frames.empty()) {
    if (steps.size() == frames.back().end) {
      frames.pop_back();
      continue;
    }
    WalkItem const step = steps.back();
    steps.pop_back();
    std::size_t const folderKeySize = frames.back().keySize;
    key.resize(folderKeySize);
    if (folderKeySize != 1) key.push_back(u'/');
    key.append(step.name);
    if (!step.below) {
      visit(step.index, key);
      continue;
    }
    std::size_t const end = steps.size();
    open(step.index);
    frames.push_back({end, key.size()});
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

void FileSystemTree::reserveText(std::size_t units) { table_.reserveText(units); }

void FileSystemTree::resetVersion() { version_ = kCurrentVersion; }

std::u16string const& FileSystemTree::getBuildPlatform() {
  static std::u16string const tag(kPlatformTag);
  return tag;
}

std::u16string const& FileSystemTree::getCurrentVersion() {
  static std::u16string const version(kCurrentVersion);
  return version;
}

FileSystemNodeType FileSystemTree::LeafView::getType() const {
  return static_cast<FileSystemNodeType>(table_[index_].type);
}

std::u16string_view FileSystemTree::LeafView::getPathName() const { return pathNameOf(key_); }

std::u16string_view FileSystemTree::LeafView::getContentName() const {
  switch (table_[index_].contentForm) {
    case detail::ContentForm::kPath:
      return key_;
    case detail::ContentForm::kFsrootPath:
      content_.assign(kPartRoot);
      content_ += key_;
      return content_;
    case detail::ContentForm::kFsrootEncodedPath:
      content_.clear();
      appendEncodedPartName(key_, content_);
      return content_;
    case detail::ContentForm::kOwn:
      break;
  }
  return table_.contentOf(index_);
}

boost::optional<opc::Perms::Perms_tag> FileSystemTree::LeafView::getPermissions() const {
  NodeRecord const& record = table_[index_];
  if (!record.hasPermissions) return boost::none;
  return static_cast<opc::Perms::Perms_tag>(record.permissions);
}

boost::optional<boost::posix_time::ptime> FileSystemTree::LeafView::getLastModifiedTime() const {
  NodeRecord const& record = table_[index_];
  if (!record.hasTime) return boost::none;
  return record.time;
}

void FileSystemTree::assign(NodeIndex index, std::u16string_view key, FileSystemNodeType type,
                            std::u16string_view content,
                            boost::optional<opc::Perms::Perms_tag> const& permissions,
                            boost::optional<boost::posix_time::ptime> const& time) {
  bool const isPartRootAndKey = type == FileSystemNodeType::File &&
                                content.size() == kPartRoot.size() + key.size() &&
                                sameUnits(content.substr(0, kPartRoot.size()), kPartRoot) &&
                                sameUnits(content.substr(kPartRoot.size()), key);
  detail::ContentForm form = detail::ContentForm::kOwn;
  if (type == FileSystemNodeType::Folder && sameUnits(content, key)) {
    form = detail::ContentForm::kPath;
  } else if (isPartRootAndKey) {
    form = detail::ContentForm::kFsrootPath;
  } else if (type == FileSystemNodeType::File && content.size() > kPartRoot.size() + key.size() &&
             sameUnits(content.substr(0, kPartRoot.size()), kPartRoot)) {
    // Longer than the path: perhaps the path encoded, which is then made again when asked
    // for rather than kept.
    if (encodedPartName_(key, content)) form = detail::ContentForm::kFsrootEncodedPath;
  }
  // The text first: it is the one step that may fail, before the other fields change.
  if (form == detail::ContentForm::kOwn) {
    table_.setContent(index, content);
  } else {
    table_.clearContent(index);
  }
  NodeRecord& record = table_[index];
  record.contentForm = form;
  record.type = static_cast<std::uint8_t>(type);
  record.hasPermissions = static_cast<bool>(permissions);
  record.permissions = permissions ? static_cast<std::uint16_t>(*permissions) : 0;
  record.hasTime = static_cast<bool>(time);
  record.time = time ? *time : unknownTime();
}

FileSystemNode FileSystemTree::nodeOf(NodeIndex index, std::u16string_view key) const {
  LeafView view(table_);
  view.index_ = index;
  view.key_ = key;
  // The content name is made in its own string at once, not in the view's and copied from
  // there: every child of a listing and every leaf of an extraction comes through here.
  std::u16string content;
  switch (table_[index].contentForm) {
    case detail::ContentForm::kPath:
      content.assign(key);
      break;
    case detail::ContentForm::kFsrootPath:
      content.reserve(kPartRoot.size() + key.size());
      content.assign(kPartRoot);
      content.append(key);
      break;
    case detail::ContentForm::kFsrootEncodedPath:
      appendEncodedPartName(key, content);
      break;
    case detail::ContentForm::kOwn:
      content.assign(table_.contentOf(index));
      break;
  }
  return FileSystemNode(view.getType(), std::u16string(key), std::move(content),
                        view.getPermissions(), view.getLastModifiedTime());
}

void FileSystemTree::fillNode(NodeIndex index, std::u16string_view key,
                              FileSystemNode& node) const {
  NodeRecord const& record = table_[index];
  node.type_ = static_cast<FileSystemNodeType>(record.type);
  node.assignPath(key);
  // A content name that follows from the path is not made: the entry that a listing makes of
  // the node makes it if it is asked for it, and a listing of names never asks.  Not where the
  // node's path differs from the key ("//a" is "/a"): the name follows from the key.
  using ContentFromPath = FileSystemNode::ContentFromPath;
  node.contentFromPath_ = ContentFromPath::kStored;
  bool const keyIsPath = node.pathName_.size() == key.size();
  switch (record.contentForm) {
    case detail::ContentForm::kPath:
      node.contentFromPath_ = ContentFromPath::kPath;
      break;
    case detail::ContentForm::kFsrootPath:
      node.contentFromPath_ = ContentFromPath::kPartRootAndPath;
      break;
    case detail::ContentForm::kFsrootEncodedPath:
      node.contentFromPath_ = ContentFromPath::kPartRootAndEncodedPath;
      break;
    case detail::ContentForm::kOwn:
      break;
  }
  if (node.contentFromPath_ != ContentFromPath::kStored && keyIsPath) {
    node.contentName_.clear();
  } else {
    node.contentFromPath_ = ContentFromPath::kStored;
    switch (record.contentForm) {
      case detail::ContentForm::kPath:
        node.contentName_.assign(key);
        break;
      case detail::ContentForm::kFsrootPath:
        node.contentName_.assign(kPartRoot);
        node.contentName_.append(key);
        break;
      case detail::ContentForm::kFsrootEncodedPath:
        node.contentName_.clear();
        appendEncodedPartName(key, node.contentName_);
        break;
      case detail::ContentForm::kOwn:
        node.contentName_.assign(table_.contentOf(index));
        break;
    }
  }
  node.permissions_ = record.hasPermissions
                          ? boost::optional<opc::Perms::Perms_tag>(
                                static_cast<opc::Perms::Perms_tag>(record.permissions))
                          : boost::none;
  node.lastModifiedTime_ =
      record.hasTime ? boost::optional<boost::posix_time::ptime>(record.time) : boost::none;
  node.record_ = index;
  node.generation_ = generation_;
  generationGiven_ = true;
}

void FileSystemTree::changing() {
  if (!generationGiven_) return;
  generation_ = nextGeneration();
  generationGiven_ = false;
}

NodeIndex FileSystemTree::findPresent(std::u16string_view path) const {
  NodeIndex const found = table_.find(path);
  return found == kNoNode || !table_[found].present ? kNoNode : found;
}

NodeIndex FileSystemTree::parentOf(std::u16string_view path) {
  std::u16string_view const parent = parentPathOf(path);
  if (lastParent_ != kNoNode && sameUnits(lastParentPath_, parent)) return lastParent_;
  NodeIndex found = findPresent(parent);
  if (found == kNoNode) found = insertMissingFolders(parent);
  lastParent_ = found;
  lastParentPath_.assign(parent);
  return found;
}

NodeIndex FileSystemTree::insertMissingFolders(std::u16string_view parent) {
  // Walk up to the nearest existing ancestor, remembering the missing ones (views into the
  // path being added).  The walk ends: each parent of an absolute path is a shorter absolute
  // path, down to the root, which the tree always holds.
  std::vector<std::u16string_view> missing{parent};
  std::u16string_view existing = parentPathOf(parent);
  NodeIndex above = findPresent(existing);
  while (above == kNoNode) {
    missing.push_back(existing);
    existing = parentPathOf(existing);
    above = findPresent(existing);
  }
  // Then make them from the top down, each under the one made just before it.  A record
  // left by a removal comes back with the children it kept.
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    std::uint32_t const hash = table_.hashOf(*folder);
    NodeIndex const entry = presentChild(above, *folder, table_.find(*folder, hash), hash);
    assign(entry, *folder, FileSystemNodeType::Folder, nodePathOf(*folder), boost::none,
           boost::none);
    above = entry;
  }
  return above;
}

NodeIndex FileSystemTree::presentChild(NodeIndex parent, std::u16string_view path, NodeIndex entry,
                                       std::uint32_t hash) {
  if (entry == kNoNode) {
    entry = table_.insert(parent, path, hash);
  } else {
    // A record kept by a removal stays in its parent's list; coming back, it goes last.
    unlinkChild(parent, entry);
  }
  appendChild(parent, entry);
  table_[entry].present = true;
  ++table_[parent].presentChildren;
  ++presentCount_;
  return entry;
}

void FileSystemTree::appendChild(NodeIndex parent, NodeIndex child) {
  table_[child].nextSibling = kNoNode;
  NodeRecord& folder = table_[parent];
  if (folder.lastChild != kNoNode) {
    table_[folder.lastChild].nextSibling = child;
  } else {
    folder.firstChild = child;
  }
  folder.lastChild = child;
}

void FileSystemTree::unlinkChild(NodeIndex parent, NodeIndex child) {
  NodeIndex before = kNoNode;
  NodeIndex at = table_[parent].firstChild;
  while (at != kNoNode && at != child) {
    before = at;
    at = table_[at].nextSibling;
  }
  if (at == kNoNode) return;
  NodeIndex const after = table_[at].nextSibling;
  if (before == kNoNode) {
    table_[parent].firstChild = after;
  } else {
    table_[before].nextSibling = after;
  }
  if (table_[parent].lastChild == at) table_[parent].lastChild = before;
  table_[at].nextSibling = kNoNode;
}

}  // namespace vkservices
}  // namespace opc
