// The advisory lock by which the writers of one package file take turns.  Internal to
// libopcmodel (exported only for its own tests).
#ifndef OPC_MODEL_PACKAGE_PACKAGE_LOCK_H_
#define OPC_MODEL_PACKAGE_PACKAGE_LOCK_H_

#include <cstdint>
#include <memory>
#include <string>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// An exclusive lock (flock) on the package file itself, held by a writer from open to close,
// so that a second writer can neither read a package that is about to change under it nor
// save over changes it never saw.  Readers take no lock and are never held up: a save
// replaces the file by a rename, so a reader always has a complete file, the old or the new.
//
// Why the file itself and not a lock file beside it: nothing is ever created beside the
// package that could be left behind or that a folder might not allow, and a package can be
// locked wherever it can be read.  The price is that a save replaces the file, and with it the
// thing locked: so the saver locks the new file before it takes the name (ReplacementFile
// does), and moves its lock there (adopt); a waiter that gets the lock of a file no longer at
// the path lets it go and locks what is at the path now.  The lock is of the open file, not of
// the process (flock, not fcntl), so that other descriptors of the same file, opened and
// closed by the package to read it, never release it; two packages of one process exclude
// each other as two processes do.
//
// On a file system that has no locks the package is not locked, and a second writer there is
// not stopped: the alternative would be that no package there could be changed at all.
class OPC_MODEL_EXPORT PackageLock {
 public:
  // Locks the regular file at `path` (UTF-8), waiting up to `waitMilliseconds`
  // (PackageOptions::kWaitForever: without end) while another writer holds it.  Returns null
  // when there is no regular file at the path (nothing to protect; the caller's own open
  // reports a missing package) or when its file system has no locks.  Throws PackageLocked
  // when the wait is over, with `context` (e.g. "Could not open package \"a.opc\" for writing")
  // followed by ": another writer has it open" or, after a wait, ": another writer still has
  // it open after <n> seconds".
  static std::unique_ptr<PackageLock> acquire(std::string const& path,
                                              std::uint64_t waitMilliseconds,
                                              std::string const& context);

  // Keeps `fd`, an open descriptor that already holds the lock.
  explicit PackageLock(int fd);
  PackageLock(PackageLock const&) = delete;
  PackageLock& operator=(PackageLock const&) = delete;
  // Releases the lock.
  ~PackageLock();

  // Takes over `fd`, the locked descriptor of the file that replaced the one locked until now
  // (see ReplacementFile::release), and releases the old file.
  void adopt(int fd);

 private:
  int fd_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PACKAGE_LOCK_H_
