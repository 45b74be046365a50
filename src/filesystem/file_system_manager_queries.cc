// Paths and queries of FileSystemManager: how a caller's string becomes a key of the tree, and
// the read side of the tree.
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_entry_access.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {

namespace {

using detail::FileSystemEntryAccess;
using Entries = opc::model::Enumerator<std::vector<FileSystemEntry>>;

[[noreturn]] void throwNotFound(std::u16string const& path) {
  throw FileSystemEntryNotFound("File system entry does not exist: " + opc::toUDEString(path));
}

}  // namespace

// Only backslashes are mended, so that a caller and the tree agree on the text of a path byte
// for byte: "." and ".." stay, repeated "/" stay, case stays.
std::u16string FileSystemManager::normalizeFileName(std::u16string const& name) const {
  std::u16string result = name;
  // A network path "\\host\share" is read as one rooted path, not as an empty first segment.
  if (result.size() >= 2 && result[0] == u'\\' && result[1] == u'\\') result.erase(0, 1);
  for (auto& unit : result) {
    if (unit == u'\\') unit = u'/';
  }
  return result;
}

std::u16string FileSystemManager::normalizeLinkTarget(std::u16string const& target) const {
  // A relative target must stay relative, so no root is put in front.
  return normalizeFileName(target);
}

std::u16string FileSystemManager::normalizePath(std::u16string const& path) const {
  std::u16string result = normalizeFileName(path);
  std::u16string const root = FileSystemEntry::getRootName();
  if (result.compare(0, root.size(), root) == 0) return result;
  return root + result;
}

FileSystemEntry FileSystemManager::getEntry(std::u16string const& path) const {
  ensureLoaded();
  std::u16string const key = normalizeFileName(path);
  throwIfNotFound(key);
  return makeEntry(tree_->findNode(key));
}

bool FileSystemManager::hasEntry(std::u16string const& path) const {
  ensureLoaded();
  return tree_->hasNode(normalizeFileName(path));
}

FileSystemEntry FileSystemManager::getRoot() const {
  return getEntry(FileSystemEntry::getRootName());
}

Entries FileSystemManager::getChildren(std::u16string const& path) const {
  ensureLoaded();
  std::u16string const key = normalizeFileName(path);
  throwIfNotFound(key);
  return getChildrenInternal(key);
}

Entries FileSystemManager::getChildren(FileSystemEntry const& entry) const {
  return getChildrenInternal(FileSystemEntryAccess::pathOf(entry));
}

bool FileSystemManager::hasChildren(std::u16string const& path) const {
  ensureLoaded();
  std::u16string const key = normalizeFileName(path);
  throwIfNotFound(key);
  return hasChildrenInternal(key);
}

bool FileSystemManager::hasChildren(FileSystemEntry const& entry) const {
  // An entry of a listing knows its record while the tree has not changed: a walk asks this of
  // every entry, and a look-up by path would hash it again.
  return tree_->hasChildNodes(FileSystemEntryAccess::pathOf(entry),
                              FileSystemEntryAccess::recordOf(entry),
                              FileSystemEntryAccess::generationOf(entry));
}

FileSystemEntry FileSystemManager::getParent(std::u16string const& path) const {
  ensureLoaded();
  std::u16string const key = normalizeFileName(path);
  throwIfNotFound(key);
  return getParentInternal(key);
}

FileSystemEntry FileSystemManager::getParent(FileSystemEntry const& entry) const {
  return getParentInternal(FileSystemEntryAccess::pathOf(entry));
}

bool FileSystemManager::hasParent(std::u16string const& path) const {
  ensureLoaded();
  std::u16string const key = normalizeFileName(path);
  throwIfNotFound(key);
  return hasParentInternal(key);
}

bool FileSystemManager::hasParent(FileSystemEntry const& entry) const {
  return hasParentInternal(FileSystemEntryAccess::pathOf(entry));
}

Entries FileSystemManager::getAllLeafs() const {
  ensureLoaded();
  std::vector<FileSystemEntry> entries;
  // Straight from the tree, without a copy of every node beside the entries made of them.
  tree_->forEachLeafNode([&](FileSystemNode&& node) { entries.push_back(makeEntry(node)); });
  return Entries(std::move(entries));
}

Entries FileSystemManager::getChildrenInternal(std::u16string const& path) const {
  std::vector<FileSystemEntry> entries;
  // One look-up of the path for the count and the children: a listing asks this of every
  // folder, and the paths of a deep tree run to hundreds of units, each hashed whole.
  tree_->visitChildNodes(
      path, [&](std::size_t count) { entries.reserve(count); },
      [&](FileSystemNode const& node) { entries.push_back(makeEntry(node)); });
  return Entries(std::move(entries));
}

FileSystemEntry FileSystemManager::getParentInternal(std::u16string const& path) const {
  if (!tree_->hasParentNode(path))
    throw FileSystemEntryHasNoParent("File system entry has no parent");
  return makeEntry(tree_->findParentNode(path));
}

bool FileSystemManager::hasChildrenInternal(std::u16string const& path) const {
  return tree_->hasChildNodes(path);
}

bool FileSystemManager::hasParentInternal(std::u16string const& path) const {
  return tree_->hasParentNode(path);
}

void FileSystemManager::throwIfAlreadyExists(std::u16string const& path) const {
  if (tree_->hasNode(path)) {
    throw FileSystemEntryAlreadyExists("File system entry already exists: " +
                                       opc::toUDEString(path));
  }
}

void FileSystemManager::throwIfNotFound(std::u16string const& path) const {
  if (!tree_->hasNode(path)) throwNotFound(path);
}

}  // namespace vkservices
}  // namespace opc
