// SharedExtraction: extractAll shared among threads that the caller starts.
#ifndef OPC_VKSERVICES_SHARED_EXTRACTION_H_
#define OPC_VKSERVICES_SHARED_EXTRACTION_H_

#include <cstddef>
#include <memory>
#include <string>

#include <opc/vkservices/export.h>
#include <opc/vkservices/file_system_manager.h>

namespace opc {
namespace vkservices {

// Extracts every leaf of a manager's file system below a destination, as
// FileSystemManager::extractAll does (the same entries, refusals, classes and messages, the
// same tree on disk), with the work shared among threads that the caller starts; the library
// starts none.  The package is opened once and its manifest read once: every thread reads
// its parts through Package::openPartReader, and the destination's root is made once, with
// each working thread walking it through a confined destination of its own.
//
// Use, with one object:
//   - one thread calls feed(), which walks the tree's leaves in path order and hands them
//     out in small batches, waiting while enough of them are waiting;
//   - any number of threads call work(), which extracts the batches handed out (the thread
//     that fed may call it afterwards, and should when no other thread works);
//   - once feed() and every work() have returned, one thread calls finish().
// feed(), work() and finish() may be called from different threads; work() from several
// at once.  While they run, nothing else may use the manager, its package, or the
// destination (the manager's own extractions included).
//
// Order.  Files and folders are made in whatever order the threads reach them: a large file
// (1 MiB or more) is handed out alone and ahead of the smaller leaves that wait, the largest
// first, so that the threads end together.  Symbolic links are made by finish(), in path
// order, after every file and folder, so that the tree on disk does not depend on the number
// of threads or their timing (a link is never passed on the way to an entry either way).
// Encrypted files (with ApplyTransforms) are decrypted one at a time, through the manager, as
// extractAll decrypts them.
//
// Failures.  After a failure, no batch is handed out any more and no leaf after the failing
// one (in path order) is begun; finish() raises the failure of the first leaf in path order
// that failed, which is the one extractAll would have stopped at.  As with extractAll, what
// was extracted before stays, and leaves after the failing one that other threads had begun
// may have been written.  Errors that are not an entry's (the destination's root, below)
// are raised at once.
class OPCVK_EXPORT SharedExtraction {
 public:
  // Leaves handed to a thread at a time (a large file goes alone): enough that neighbours,
  // which share folders, mostly go to one thread and each folder is looked up once; few
  // enough that threads end together.
  static constexpr std::size_t kBatchSize = 64;
  // Batches that may wait for a thread before feed() waits in turn, which bounds memory.
  static constexpr std::size_t kWaitingBatches = 16;

  // Loads the manager's file system, chooses the destination's file system as extractAll
  // does, and makes the root (raising CouldNotCreateDestinationRoot as extractAll does).
  // `files` must outlive this object.
  SharedExtraction(FileSystemManager& files, std::u16string destination, RestoreMode restoreMode,
                   TransformMode transformMode, ReplaceMode replaceMode);
  SharedExtraction(SharedExtraction const&) = delete;
  SharedExtraction& operator=(SharedExtraction const&) = delete;
  // Must not be destroyed while feed() or work() runs on another thread.
  ~SharedExtraction();

  // Hands out every leaf, in path order, unless a failure comes first.  Call once.
  void feed();
  // Extracts batches until feed() has ended and nothing is left, or a failure stopped the
  // work.  Never raises an entry's failure (finish() does); raises only if the confined
  // destination cannot be made at all (std::bad_alloc and the like).
  void work();
  // Makes the symbolic links, then raises the failure of the first leaf in path order that
  // failed, if any.  Call once, after feed() and every work() returned.
  void finish();

  // The number of leaves handed out so far.
  std::size_t leavesFed() const;

  // The number of leaves of the file system of `files` (loading it), which extractAll and a
  // SharedExtraction would extract: one walk of the tree, without copying any entry.
  static std::size_t countLeaves(FileSystemManager& files);

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_SHARED_EXTRACTION_H_
