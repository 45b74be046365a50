// FileSystemEntry: what a caller holds for one file, folder or symbolic link of a package
// file system.
#ifndef OPC_VKSERVICES_FILE_SYSTEM_ENTRY_H_
#define OPC_VKSERVICES_FILE_SYSTEM_ENTRY_H_

#include <memory>
#include <string>

#include <boost/date_time/posix_time/ptime.hpp>

#include <opc/core/perms.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

class FileSystemManager;
class FileSystemNode;

namespace detail {
class FileSystemEntryAccess;
}  // namespace detail

// A snapshot of one entry of a package file system, as it was when the manager made it.
//
// Only FileSystemManager makes entries: a caller gets one from a query or a create operation,
// copies it freely, reads it and passes it back to the manager.  An entry owns its data and
// refers neither to the manager nor to its tree: it stays valid and unchanged after either is
// gone, and after the entry it was copied from is gone.
//
// Copies share one immutable record through an atomic reference count, so that copies of one
// entry may be made, read and dropped on several threads at once without a lock.  Assigning
// to one entry object from two threads at once is not safe, as for any value.
class OPCVK_EXPORT FileSystemEntry {
 public:
  // Shares `other`'s record; the reference count goes up by one.  Never raises.
  FileSystemEntry(FileSystemEntry const& other);
  // Shares `other`'s record and drops the old one; self-assignment is safe.  Never raises.
  FileSystemEntry& operator=(FileSystemEntry const& other);
  // Drops one reference; the last one frees the record.  Never raises.
  ~FileSystemEntry();

  // True for a file.
  bool isFile() const;
  // True for a symbolic link.
  bool isLink() const;
  // True for a folder, the root included.
  bool isFolder() const;

  // The last component of the path: "b.txt" for "/a/b.txt", "/" for the root.
  std::u16string getBaseName() const;
  // The full package path: "/a/b.txt", "/b.txt" (never a doubled slash), "/" for the root.
  std::u16string getPathName() const;
  // The permission bits, or getUnknownPermissions() when they are not known.
  opc::Perms::Perms_tag getPermissions() const;
  // The time of the last change, or getUnknownTime() when it is not known.
  boost::posix_time::ptime getLastModifiedTime() const;

  // The path of the root folder, "/".
  static std::u16string getRootName();
  // The permission value 65535 (0xFFFF), which means that permissions are not known.
  static opc::Perms::Perms_tag getUnknownPermissions();
  // The not_a_date_time value, which means that a time is not known.
  static boost::posix_time::ptime getUnknownTime();

  // Compares what a caller can see, stopping at the first difference: the kind (folder, file,
  // link), the base name, the path name, the permissions and the time, in that order.  Two
  // unknown permissions are equal, and so are two unknown times.  Where and how the content
  // is stored (the part of a file, the target of a link) is not compared, nor is the manager
  // that made the entries: the same file in two packages compares equal.
  bool operator==(FileSystemEntry const& other) const;
  // The negation of operator==.
  bool operator!=(FileSystemEntry const& other) const;

 private:
  friend class FileSystemManager;
  friend class detail::FileSystemEntryAccess;

  struct Impl;

  // Copies every field of `node` into a new record; only the manager wraps nodes.
  explicit FileSystemEntry(FileSystemNode const& node);

  // The part name of a file, the target of a link, the own path of a folder.  For the manager
  // only: callers never see where a file's content lies.
  std::u16string getContentName() const;

  std::shared_ptr<Impl const> impl_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_FILE_SYSTEM_ENTRY_H_
