#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/vkservices/file_system_entry.h>

#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {

// The record is a copy of the node, made once and never changed, which is what lets copies
// of an entry share it across threads without a lock.
struct FileSystemEntry::Impl {
  explicit Impl(FileSystemNode const& source) : node(source) {}
  FileSystemNode const node;
};

FileSystemEntry::FileSystemEntry(FileSystemEntry const& other) = default;

FileSystemEntry& FileSystemEntry::operator=(FileSystemEntry const& other) = default;

FileSystemEntry::~FileSystemEntry() = default;

bool FileSystemEntry::isFile() const { return impl_->node.getType() == FileSystemNodeType::File; }

bool FileSystemEntry::isLink() const {
  return impl_->node.getType() == FileSystemNodeType::SymLink;
}

bool FileSystemEntry::isFolder() const {
  return impl_->node.getType() == FileSystemNodeType::Folder;
}

std::u16string FileSystemEntry::getBaseName() const { return impl_->node.getBaseName(); }

std::u16string FileSystemEntry::getPathName() const { return impl_->node.getPathName(); }

opc::Perms::Perms_tag FileSystemEntry::getPermissions() const {
  return impl_->node.getPermissions().value_or(getUnknownPermissions());
}

boost::posix_time::ptime FileSystemEntry::getLastModifiedTime() const {
  return impl_->node.getLastModifiedTime().value_or(getUnknownTime());
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

std::u16string FileSystemEntry::getContentName() const { return impl_->node.getContentName(); }

}  // namespace vkservices
}  // namespace opc
