// Reading of many small files on threads of its own, handed over in a fixed order.
#ifndef TOOLS_OPCVK_READ_AHEAD_H_
#define TOOLS_OPCVK_READ_AHEAD_H_

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "source_tree.h"

namespace opcvk {

// A file read whole, or why it could not be.
struct ReadResult {
  std::vector<unsigned char> bytes;
  // 0 when the bytes are the whole file; otherwise the errno of the open(2) or read(2) that
  // failed, and `failedToOpen` tells which.
  int error = 0;
  bool failedToOpen = false;
  // The file is larger than the limit of files read whole and was not read: its bytes are
  // to be read as they are copied.
  bool large = false;
  // For a file whose status the walk did not learn: whether the reader did (from the open
  // file, or from its path when it could not be opened), and what it found.
  bool statusKnown = false;
  std::uint32_t mode = 0;  // st_mode & 0777
  std::uint32_t mtimeNanoseconds = 0;
  std::int64_t mtimeSeconds = 0;
  std::uint64_t size = 0;
};

// Reads the files of a list on worker threads while the caller takes them, one after
// another, in the order of the list: so the time of opening and reading files overlaps with
// whatever the caller does with them, and what the caller does keeps its order whatever the
// number of threads.
//
// At most `maxFiles` files and about `maxBytes` bytes (a file larger than the whole budget is
// read only when nothing else is waiting; files of unknown size count once read, so each
// thread may go over by one file) are read ahead of the caller, so memory stays bounded
// whatever the length of the list.  Meant for small files: each is read whole, unless it is
// larger than `wholeFileLimit`, which is only told (ReadResult::large).
//
// Not thread-safe: one caller takes the results.  The destructor stops the workers (a file
// they are reading is finished first) and never throws.
class ReadAhead {
 public:
  // Starts `threads` workers (at least one) that read the files `tree.items[i]` for each i
  // of `indices`, in that order, below the folder `root` (bytes, without a trailing "/").
  // `tree` must outlive this object; the sizes the walk found set the budget.
  ReadAhead(std::string root, SourceTree const& tree, std::vector<std::uint32_t> indices,
            unsigned threads, std::size_t maxFiles, std::uint64_t maxBytes,
            std::uint64_t wholeFileLimit = UINT64_MAX);
  ReadAhead(ReadAhead const&) = delete;
  ReadAhead& operator=(ReadAhead const&) = delete;
  ~ReadAhead();

  // The result of the next request in order; waits until it is read.  Calling it more often
  // than there are indices is a programming error (std::logic_error).
  ReadResult next();

 private:
  struct Slot {
    ReadResult result;
    bool ready = false;
  };

  // The folder of the file a worker opened last, kept open by that worker.
  struct OpenFolder;

  void work();
  // Whether the request at `index` may be started now; `mutex_` is held.
  bool fits(std::size_t index) const;
  // Reads the file of tree_.items[indices_[index]]; `folder` is the calling worker's.
  ReadResult read(std::size_t index, OpenFolder& folder) const;
  // The descriptor to open the file `item` from, and the path to open from it, which `path`
  // receives; opens the file's folder into `folder` if needed.
  int openingBase(SourceItem const& item, OpenFolder& folder, std::string& path) const;
  // Bytes of the request at `index` as the walk saw them, 0 when unknown or not to be read.
  std::uint64_t expectedBytes(std::size_t index) const;

  std::string const root_;
  // The folder `root_`, opened once, so that each file is opened by its path below it
  // rather than by a path that the kernel walks from "/" for every file; -1 if it could not
  // be opened, and files are then opened by their whole path.
  int rootFd_ = -1;
  SourceTree const& tree_;
  std::vector<std::uint32_t> const indices_;
  std::size_t const maxFiles_;
  std::uint64_t const maxBytes_;
  std::uint64_t const wholeFileLimit_;
  std::vector<Slot> slots_;  // a ring of maxFiles_ entries, by index modulo its size

  std::mutex mutex_;
  // Workers wait on room_, the caller on ready_; each is woken only when someone waits, so
  // that a hand-over does not cost a system call per file.
  std::condition_variable room_;
  std::condition_variable ready_;
  std::size_t idleWorkers_ = 0;
  bool callerWaiting_ = false;
  std::size_t started_ = 0;       // requests given to a worker
  std::size_t taken_ = 0;         // results the caller took
  std::uint64_t bytesAhead_ = 0;  // read and not taken, or expected of a read under way
  bool stop_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_READ_AHEAD_H_
