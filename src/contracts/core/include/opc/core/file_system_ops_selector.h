// opc::FileSystemOpsSelector: picks the FileSystemOps that serves a path.
#ifndef OPC_CORE_FILE_SYSTEM_OPS_SELECTOR_H_
#define OPC_CORE_FILE_SYSTEM_OPS_SELECTOR_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opc/core/export.h>
#include <opc/core/file_system_ops.h>

namespace opc {

// A value that maps paths to file systems.
//
// A default-constructed selector gives the one process-wide LocalFileSystemOps
// (LocalFileSystemOps::getShared()) for every path.  `setForPrefix` maps the paths below a
// prefix to another FileSystemOps; the longest matching prefix wins and unmatched paths keep
// the local file system.
//
// Prefixes match whole components: "/mnt/x" serves "/mnt/x" and "/mnt/x/y" but not
// "/mnt/xy".  Both the prefix and the path are compared in their lexical normal form
// (duplicate "/", "." and ".." after a component removed, trailing "/" ignored), so
// "/mnt//x/./y" is served by "/mnt/x" and "/mnt/x/../y" is not.  The prefix "/" serves every
// absolute path; the empty prefix serves every path.
//
// Copies share the mapped objects (std::shared_ptr).  The reference that `getForPath` returns
// stays valid as long as any selector that holds the mapping it came from lives, and for the
// local file system until the process ends.
//
// Thread safety: const operations may run concurrently; `setForPrefix` must not run at the
// same time as any other operation on the same selector.
class OPC_CORE_EXPORT FileSystemOpsSelector {
 public:
  FileSystemOpsSelector();
  FileSystemOpsSelector(FileSystemOpsSelector const& other);
  FileSystemOpsSelector(FileSystemOpsSelector&& other) noexcept;
  FileSystemOpsSelector& operator=(FileSystemOpsSelector const& other);
  FileSystemOpsSelector& operator=(FileSystemOpsSelector&& other) noexcept;
  ~FileSystemOpsSelector();

  // Maps `prefix` to `fileSystem`, replacing an earlier mapping of the same prefix (in its
  // normal form).  Raises opc::Exception (code invalid_argument) if `fileSystem` is null.
  void setForPrefix(std::u16string const& prefix, std::shared_ptr<FileSystemOps> fileSystem);

  // The file system that serves `path`.  See the class comment for how long the reference
  // stays valid.
  FileSystemOps& getForPath(std::u16string const& path) const;

 private:
  // (normal form of the prefix, file system), in the order they were set.
  std::vector<std::pair<std::u16string, std::shared_ptr<FileSystemOps>>> mappings_;
};

}  // namespace opc

#endif  // OPC_CORE_FILE_SYSTEM_OPS_SELECTOR_H_
