#include <cerrno>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/core/local_file_system_ops.h>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace {

// The normal form in which prefixes and paths are compared.  The empty text stays empty
// (it is the prefix of everything), and "." is the relative start.
std::u16string comparable(std::u16string const& path) {
  return path.empty() ? path : detail::localNormalizePath(path);
}

// True if `prefix` (normal form) covers `path` (normal form) by whole components.
bool covers(std::u16string const& prefix, std::u16string const& path) {
  if (prefix.empty()) return true;
  if (prefix == u"/") return !path.empty() && path[0] == u'/';
  if (prefix == u".") return path.empty() || path[0] != u'/';
  if (path.compare(0, prefix.size(), prefix) != 0) return false;
  return path.size() == prefix.size() || path[prefix.size()] == u'/';
}

}  // namespace

FileSystemOpsSelector::FileSystemOpsSelector() = default;
FileSystemOpsSelector::FileSystemOpsSelector(FileSystemOpsSelector const& other) = default;
FileSystemOpsSelector::FileSystemOpsSelector(FileSystemOpsSelector&& other) noexcept = default;
FileSystemOpsSelector& FileSystemOpsSelector::operator=(FileSystemOpsSelector const& other) =
    default;
FileSystemOpsSelector& FileSystemOpsSelector::operator=(FileSystemOpsSelector&& other) noexcept =
    default;
FileSystemOpsSelector::~FileSystemOpsSelector() = default;

void FileSystemOpsSelector::setForPrefix(std::u16string const& prefix,
                                         std::shared_ptr<FileSystemOps> fileSystem) {
  if (!fileSystem) {
    throw Exception("Could not map a path prefix: the file system is null",
                    detail::systemError(EINVAL));
  }
  std::u16string key = comparable(prefix);
  for (auto& mapping : mappings_) {
    if (mapping.first == key) {
      mapping.second = std::move(fileSystem);
      return;
    }
  }
  mappings_.emplace_back(std::move(key), std::move(fileSystem));
}

FileSystemOps& FileSystemOpsSelector::getForPath(std::u16string const& path) const {
  std::u16string key = comparable(path);
  FileSystemOps* best = nullptr;
  std::size_t bestLength = 0;
  for (auto const& mapping : mappings_) {
    if (covers(mapping.first, key) && (best == nullptr || mapping.first.size() > bestLength)) {
      best = mapping.second.get();
      bestLength = mapping.first.size();
    }
  }
  return best != nullptr ? *best : *LocalFileSystemOps::getShared();
}

}  // namespace opc
