#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/vkservices/file_system_entry.h>

#include "filesystem/encoded_part_name.h"
#include "filesystem/file_system_entry_access.h"
#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {

namespace {

// How the content name of a record follows from its path, so that the usual ones cost no
// text of their own: a folder's is its path, and a file's part is mostly named after it.
enum class ContentForm : std::uint8_t { kOwn, kPath, kPartRootPath, kPartRootEncodedPath };

// Equal texts, compared as one block of memory: a listing makes an entry per node, and the
// comparison unit by unit that char16_t texts get otherwise cost more than the rest of it.
bool sameUnits(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0);
}

}  // namespace

// The record is a copy of the node's fields, made once and never changed, which is what lets
// copies of an entry share it across threads without a lock.  Listings make one per entry, so
// a content name that follows from the path is not stored again.
struct FileSystemEntry::Impl {
  explicit Impl(FileSystemNode const& source)
      : type(source.getType()),
        baseStart(source.baseStart_),
        permissions(source.getPermissions()),
        lastModifiedTime(source.getLastModifiedTime()),
        path(source.getPathName()),
        record(source.record_),
        generation(source.generation_) {
    using ContentFromPath = FileSystemNode::ContentFromPath;
    switch (source.contentFromPath_) {
      case ContentFromPath::kPath:
        form = ContentForm::kPath;
        return;
      case ContentFromPath::kPartRootAndPath:
        form = ContentForm::kPartRootPath;
        return;
      case ContentFromPath::kPartRootAndEncodedPath:
        form = ContentForm::kPartRootEncodedPath;
        return;
      case ContentFromPath::kStored:
        break;
    }
    std::u16string_view const content = source.getContentName();
    if (sameUnits(content, path)) {
      form = ContentForm::kPath;
    } else if (content.size() == detail::kPartRoot.size() + path.size() &&
               sameUnits(content.substr(0, detail::kPartRoot.size()), detail::kPartRoot) &&
               sameUnits(content.substr(detail::kPartRoot.size()), path)) {
      form = ContentForm::kPartRootPath;
    } else {
      ownContent = content;
    }
  }

  std::u16string contentName() const {
    switch (form) {
      case ContentForm::kPath:
        return path;
      case ContentForm::kPartRootPath:
        return std::u16string(detail::kPartRoot) + path;
      case ContentForm::kPartRootEncodedPath: {
        std::u16string content;
        detail::appendEncodedPartName(path, content);
        return content;
      }
      case ContentForm::kOwn:
        break;
    }
    return ownContent;
  }

  FileSystemNodeType type;
  ContentForm form = ContentForm::kOwn;
  std::uint32_t baseStart;
  boost::optional<opc::Perms::Perms_tag> permissions;
  boost::optional<boost::posix_time::ptime> lastModifiedTime;
  std::u16string path;
  // Empty unless form is kOwn.
  std::u16string ownContent;
  // As FileSystemNode's: where the tree holds this entry while it is at this generation.
  std::uint32_t record;
  std::uint64_t generation;
};

FileSystemEntry::FileSystemEntry(FileSystemEntry const& other) = default;

FileSystemEntry& FileSystemEntry::operator=(FileSystemEntry const& other) = default;

FileSystemEntry::~FileSystemEntry() = default;

bool FileSystemEntry::isFile() const { return impl_->type == FileSystemNodeType::File; }

bool FileSystemEntry::isLink() const { return impl_->type == FileSystemNodeType::SymLink; }

bool FileSystemEntry::isFolder() const { return impl_->type == FileSystemNodeType::Folder; }

std::u16string FileSystemEntry::getBaseName() const { return impl_->path.substr(impl_->baseStart); }

std::u16string FileSystemEntry::getPathName() const { return impl_->path; }

opc::Perms::Perms_tag FileSystemEntry::getPermissions() const {
  return impl_->permissions.value_or(getUnknownPermissions());
}

boost::posix_time::ptime FileSystemEntry::getLastModifiedTime() const {
  return impl_->lastModifiedTime.value_or(getUnknownTime());
}

std::u16string FileSystemEntry::getRootName() { return u"/"; }

opc::Perms::Perms_tag FileSystemEntry::getUnknownPermissions() { return opc::Perms::unknown; }

boost::posix_time::ptime FileSystemEntry::getUnknownTime() {
  return boost::posix_time::ptime(
      boost::gregorian::date(boost::date_time::not_a_date_time),
      boost::posix_time::time_duration(boost::date_time::not_a_date_time));
}

bool FileSystemEntry::operator==(FileSystemEntry const& other) const {
  // Copies of one entry share their record and cannot differ.
  if (impl_ == other.impl_) return true;
  if (isFolder() != other.isFolder()) return false;
  if (isFile() != other.isFile()) return false;
  if (isLink() != other.isLink()) return false;
  if (getBaseName() != other.getBaseName()) return false;
  if (getPathName() != other.getPathName()) return false;
  if (getPermissions() != other.getPermissions()) return false;
  // Unknown times must match each other, which is not the rule for a not-a-number value, so
  // it is not left to ptime's own comparison.
  boost::posix_time::ptime const mine = getLastModifiedTime();
  boost::posix_time::ptime const theirs = other.getLastModifiedTime();
  if (mine.is_not_a_date_time() || theirs.is_not_a_date_time()) {
    return mine.is_not_a_date_time() && theirs.is_not_a_date_time();
  }
  return mine == theirs;
}

bool FileSystemEntry::operator!=(FileSystemEntry const& other) const { return !(*this == other); }

FileSystemEntry::FileSystemEntry(FileSystemNode const& node)
    : impl_(std::make_shared<Impl const>(node)) {}

std::u16string FileSystemEntry::getContentName() const { return impl_->contentName(); }

std::u16string const& detail::FileSystemEntryAccess::pathOf(FileSystemEntry const& entry) {
  return entry.impl_->path;
}

std::uint32_t detail::FileSystemEntryAccess::recordOf(FileSystemEntry const& entry) {
  return entry.impl_->record;
}

std::uint64_t detail::FileSystemEntryAccess::generationOf(FileSystemEntry const& entry) {
  return entry.impl_->generation;
}

}  // namespace vkservices
}  // namespace opc
