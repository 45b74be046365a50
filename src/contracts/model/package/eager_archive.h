// The archive of a new package, written while its parts are still being made.  Internal to
// libopcmodel.
#ifndef OPC_MODEL_PACKAGE_EAGER_ARCHIVE_H_
#define OPC_MODEL_PACKAGE_EAGER_ARCHIVE_H_

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>

#include "../zip/replacement_file.h"
#include "../zip/zip_stream_writer.h"
#include "eager_content.h"
#include "part_content.h"

namespace opc {
namespace model {
namespace detail {

// A package that is created in a file would otherwise keep every part's content (in memory,
// or in a spool file) until save, then read it all again to compress it: so the time of
// reading and the time of compressing add up, and memory grows with the bytes.  Here each
// part's content, as soon as its stream is closed, is compressed on worker threads and
// written into the temporary file that the save will rename, in the order the parts were
// closed (whatever the number of threads, so that the same parts give the same archive).
// The part's content then reads from that file; its memory goes.
//
// The save completes the file: the items it did not hold yet (the content types,
// relationships, parts written since) go after those it holds, then the central directory.
// An item whose part was deleted or written again since is dead: the save then copies the
// live items into a new temporary file (compaction; rare) rather than leaving dead bytes.
//
// Levels: see levelOf and chunked_deflate.h; content that does not shrink
// is stored, and a small item that looks random is stored without a try (incompressible.h).
//
// Memory: at most a window of content is on its way at once (writers of new parts wait), and
// content larger than a few MiB is streamed into the file, deflated in chunks, rather than
// compressed in memory.  Nothing here is reported to the writer of a part: should the file
// be refused (a full disk), the archive stops taking content and the contents it did not
// write stay where they were; the save reports the failure, and the next save writes the
// package as usual.
class EagerArchive {
 public:
  struct Settings {
    std::string target;  // the package's path (UTF-8)
    // Threads that compress (0: one per processor); with 1, the caller's thread compresses.
    unsigned threads = 1;
    std::optional<std::int64_t> reproducibleTime;
    // Runs before the temporary file is made (the package's lock, stale temporary files);
    // what it throws leaves the archive unused.
    std::function<void()> prepare;
  };
  // An item of the save.  A package of many parts has one per part while the archive is
  // completed: the item name is not copied here but pointed at, or made from the part's name
  // when it is needed (see toZipItemName).
  struct Item {
    PartName const* part;     // stored under toZipItemName of this name...
    std::string const* name;  // ...or, when `part` is null, under this one
    interfaces::CompressionType compression;
    std::shared_ptr<PartContent const> content;
  };

  explicit EagerArchive(Settings settings);
  EagerArchive(EagerArchive const&) = delete;
  EagerArchive& operator=(EagerArchive const&) = delete;
  // Stops and joins the workers; an archive never completed takes its temporary file along.
  ~EagerArchive();

  // The content a part holds from now on, given the content its stream just made: one that
  // moves into the archive, or `content` itself when the archive takes nothing more.  May
  // wait while the window is full.
  std::shared_ptr<PartContent const> submit(std::string itemName,
                                            interfaces::CompressionType compression,
                                            std::shared_ptr<PartContent const> content);
  // Whether anything went into the file: only then has the save anything to complete.
  bool started() const;

  // Completes the archive with `items`, every item of the package in order: those it holds
  // under the same name and content stay where they are, the others are added; items it holds
  // that are not among them are dropped.  Returns the temporary file, flushed and ready to be
  // committed.  Throws CouldNotSavePackage (the failure of a worker included).
  // `items` and what they point at stay until it returns.
  std::unique_ptr<ReplacementFile> complete(std::vector<Item> const& items);

 private:
  struct Job;

  bool start();
  void work();
  // Compresses a job whose content is small enough for memory.
  void prepare(Job& job) const;
  // Writes the prepared jobs at the head of the queue; `lock` is held on entry and exit.
  void writeReady(std::unique_lock<std::mutex>& lock);
  void write(Job& job);
  void stream(Job& job);
  // Moves the contents whose bytes reached the file there (all of them, flushing first, with
  // `all`); returns the weight they counted.
  std::uint64_t moveWritten(bool all);
  // Copies the items to keep into a new temporary file, which takes the place of the current.
  void compact(std::vector<bool> const& keep);
  // Waits until every job is written; throws what a worker met.
  void drain();
  // Queues a job for the content `source` of the item `name`; `target` is the content that
  // takes its place once written, null for the items of the save.
  void enqueue(std::string name, interfaces::CompressionType compression,
               std::shared_ptr<PartContent const> source, std::shared_ptr<EagerContent> target);
  // "Could not save package "<target>": ", as the libzip road begins its messages.
  std::string prefix() const;
  void stopWorkers();

  Settings settings_;
  unsigned threads_ = 1;
  DosTime time_{0, 0};
  bool disabled_ = false;
  std::unique_ptr<ReplacementFile> file_;
  SharedDescriptorPtr reader_;
  std::unique_ptr<ZipStreamWriter> writer_;

  struct Unmoved {
    std::shared_ptr<EagerContent> content;
    std::size_t item;  // in writer_->items()
    std::uint64_t weight;
  };
  std::vector<Unmoved> unmoved_;
  std::uint64_t unmovedWeight_ = 0;

  mutable std::mutex mutex_;
  // Workers wait on work_ for jobs; the caller waits on room_ for the window or the end.
  // Each is woken only when it may go on: a hand-over per part would cost more system calls
  // than the reading of a small file.
  std::condition_variable work_;
  std::condition_variable room_;
  bool callerWaiting_ = false;
  std::deque<std::unique_ptr<Job>> jobs_;        // the head is the next to write
  std::vector<std::unique_ptr<Job>> spareJobs_;  // written, to be used again
  std::size_t taken_ = 0;                        // jobs at the head taken for preparation
  std::uint64_t inFlight_ = 0;                   // weight of the contents not yet moved
  bool writing_ = false;
  bool stop_ = false;
  std::exception_ptr failure_;
  std::vector<std::thread> workers_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_EAGER_ARCHIVE_H_
