// SharedExtraction: the leaves of the tree, walked once in path order, handed out in batches
// to the threads that work, large files alone and first; each thread extracts through a
// confined destination of its own, and the symbolic links wait for the end.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include <opc/core/confined_destination.h>
#include <opc/vkservices/shared_extraction.h>

#include "filesystem/extraction_session.h"
#include "filesystem/file_system_tree.h"
#include "filesystem/leaf_extractor.h"

namespace opc {
namespace vkservices {

namespace {

constexpr std::size_t kNoFailure = std::numeric_limits<std::size_t>::max();

// A file at least this large takes as long as a batch of small files or longer.  Such a file
// is handed out alone, ahead of the small ones and the largest first, so that one thread
// never holds small files behind a large one (large files often sit together in one folder,
// and so in one batch), and the small files that remain at the end fill the other threads
// while the last large file is written.
constexpr std::uint64_t kLargeFile = 1u << 20;

// A leaf and its place in path order; `content` is the part name of a file, the target of a
// link; `part` is a file's part, looked up while the leaves are handed out.
struct Leaf {
  std::size_t index;
  FileSystemEntry entry;
  std::u16string content;
  detail::LeafExtractor::PartLookup part;
};

// Leaves in path order; a large file's batch holds that file only, and its size.
struct Batch {
  std::vector<Leaf> leaves;
  std::uint64_t largeFile = 0;
};

// Thrown from the walk to end it early.
struct StopWalk {};

}  // namespace

class SharedExtraction::State {
 public:
  State(FileSystemManager& files, std::u16string destination, RestoreMode restoreMode,
        TransformMode transformMode, ReplaceMode replaceMode)
      : files_(files),
        destination_(std::move(destination)),
        restoreMode_(restoreMode),
        transformMode_(transformMode),
        replaceMode_(replaceMode) {
    files_.ensureLoaded();
    files_.destFS_ = &files_.fileSystemOpsSelector_.getForPath(destination_);
    // The manager's own destination makes the root (as extractAll does) and serves the
    // encrypted files, which go through the manager one at a time.
    files_.enterDestination(destination_);
    fileSystem_ = &files_.getDestFSImpl();
  }

  void feed() {
    // Whatever ends the walk, the workers learn that nothing more is coming.
    struct Fed {
      State& state;
      ~Fed() {
        std::lock_guard<std::mutex> lock(state.mutex_);
        state.fed_ = true;
        state.changed_.notify_all();
      }
    } fed{*this};
    Batch batch;
    batch.leaves.reserve(kBatchSize);
    opc::model::Package const& package = files_.getPackage();
    try {
      files_.tree_->visitLeaves([&](FileSystemTree::LeafView const& view) {
        if (firstFailure() != kNoFailure) throw StopWalk();
        Leaf leaf{leavesFed_.load(),
                  files_.makeEntry(detail::nodeOfLeaf(view)),
                  std::u16string(view.getContentName()),
                  {}};
        leavesFed_.fetch_add(1);
        if (leaf.entry.isFile()) {
          leaf.part = detail::LeafExtractor::lookUpPart(package, leaf.content);
          std::uint64_t const size = leaf.part.reader ? leaf.part.reader->getSize() : 0;
          if (size >= kLargeFile) {
            Batch large;
            large.leaves.push_back(std::move(leaf));
            large.largeFile = size;
            handOut(std::move(large));
            return;
          }
        }
        batch.leaves.push_back(std::move(leaf));
        if (batch.leaves.size() == kBatchSize) {
          handOut(std::move(batch));
          batch = Batch();
          batch.leaves.reserve(kBatchSize);
        }
      });
    } catch (StopWalk const&) {
      return;
    }
    if (!batch.leaves.empty()) handOut(std::move(batch));
  }

  void work() {
    Worker worker(*this);
    for (;;) {
      Batch batch;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return !waiting_.empty() || fed_ || stopped(); });
        if (waiting_.empty() || stopped()) return;
        batch = std::move(waiting_.front());
        waiting_.pop_front();
      }
      changed_.notify_all();
      worker.extract(batch);
      giveBack(std::move(batch));
    }
  }

  void finish() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      finishing_ = true;
      spent_.clear();
    }
    std::sort(links_.begin(), links_.end(),
              [](Leaf const& a, Leaf const& b) { return a.index < b.index; });
    if (!links_.empty()) {
      Worker worker(*this);
      for (Leaf& link : links_) {
        if (!worker.extractOne(link)) break;
      }
    }
    if (error_) std::rethrow_exception(error_);
  }

  std::size_t leavesFed() const { return leavesFed_; }

 private:
  // What one thread keeps: its own walk of the destination and its copy buffer.
  class Worker {
   public:
    explicit Worker(State& state)
        : state_(state),
          target_(state.fileSystem_->openConfinedDestination(state.destination_)),
          leaves_(*state.fileSystem_, state.destination_, *target_) {}

    void extract(Batch& batch) {
      for (Leaf& leaf : batch.leaves) {
        if (!extractOne(leaf)) return;
      }
    }

    // False once this leaf or one before it failed.
    bool extractOne(Leaf& leaf) {
      if (state_.firstFailure() < leaf.index) return false;
      try {
        FileSystemEntry const& entry = leaf.entry;
        if (entry.isFolder()) {
          leaves_.extractFolder(entry);
        } else if (entry.isFile()) {
          // Two captures, which std::function keeps without allocating.
          State& state = state_;
          leaves_.extractPart(entry, leaf.part, state.restoreMode_, state.transformMode_,
                              state.replaceMode_, buffer_, [&state, &entry] {
                                std::lock_guard<std::mutex> lock(state.decryptMutex_);
                                state.files_.extractFileThroughTemporary(state.destination_, entry,
                                                                         state.restoreMode_,
                                                                         state.replaceMode_);
                              });
        } else if (state_.deferLink(leaf)) {
          return true;
        } else {
          leaves_.extractLink(entry, leaf.content);
        }
      } catch (...) {
        state_.fail(leaf.index, std::current_exception());
        return false;
      }
      return true;
    }

   private:
    State& state_;
    std::unique_ptr<opc::ConfinedDestination> target_;
    detail::LeafExtractor leaves_;
    std::vector<unsigned char> buffer_;
  };

  std::size_t firstFailure() const {
    std::lock_guard<std::mutex> lock(failureMutex_);
    return firstFailure_;
  }
  bool stopped() const { return firstFailure() != kNoFailure && waitingAfterFailure(); }
  // Whether every batch still waiting lies after the first failure (called with mutex_).
  // Large files wait ahead of smaller leaves that come before them in path order, so every
  // batch is looked at; there are never many.
  bool waitingAfterFailure() const {
    std::size_t const failure = firstFailure();
    return std::all_of(waiting_.begin(), waiting_.end(), [failure](Batch const& batch) {
      return batch.leaves.front().index > failure;
    });
  }

  void fail(std::size_t index, std::exception_ptr error) {
    {
      std::lock_guard<std::mutex> lock(failureMutex_);
      if (index < firstFailure_) {
        firstFailure_ = index;
        error_ = std::move(error);
      }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    changed_.notify_all();
  }

  // Keeps a link for finish(); false once finish() is making them.
  bool deferLink(Leaf& leaf) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (finishing_) return false;
    links_.push_back(std::move(leaf));
    return true;
  }

  // Keeps a batch that a thread has extracted for the feeding thread to let go of: its
  // leaves were allocated there, and the memory allocator serves a thread fastest what that
  // thread frees, while frees from another thread wait for the allocating thread's lock.
  void giveBack(Batch batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    spent_.push_back(std::move(batch));
  }

  void handOut(Batch batch) {
    std::vector<Batch> spent;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      spent.swap(spent_);
    }
    spent.clear();
    std::unique_lock<std::mutex> lock(mutex_);
    // With enough waiting, the feeding thread extracts a batch itself rather than wait: a
    // caller that feeds and works on one thread then never waits for itself.  It takes the
    // oldest batch of small files, so that the feeding does not stop for a large file while
    // the other threads run out of work.
    while (waiting_.size() >= kWaitingBatches && !stopped()) {
      auto taken = std::find_if(waiting_.begin(), waiting_.end(),
                                [](Batch const& waiting) { return waiting.largeFile == 0; });
      if (taken == waiting_.end()) taken = waiting_.begin();
      Batch own = std::move(*taken);
      waiting_.erase(taken);
      lock.unlock();
      feeder().extract(own);
      lock.lock();
    }
    if (batch.largeFile == 0) {
      waiting_.push_back(std::move(batch));
    } else {
      // Large files go first, the largest ahead.
      auto const place = std::find_if(
          waiting_.begin(), waiting_.end(),
          [&batch](Batch const& waiting) { return waiting.largeFile < batch.largeFile; });
      waiting_.insert(place, std::move(batch));
    }
    changed_.notify_all();
  }

  Worker& feeder() {
    if (!feeder_) feeder_ = std::make_unique<Worker>(*this);
    return *feeder_;
  }

  FileSystemManager& files_;
  std::u16string const destination_;
  RestoreMode const restoreMode_;
  TransformMode const transformMode_;
  ReplaceMode const replaceMode_;
  opc::FileSystemOps* fileSystem_ = nullptr;

  // Guards the batches waiting, fed_, links_ and finishing_.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Batch> waiting_;
  bool fed_ = false;
  bool finishing_ = false;
  std::vector<Leaf> links_;
  // Batches extracted by another thread, which the feeding thread lets go of.
  std::vector<Batch> spent_;
  // Counted by the feeding thread, read by any.
  std::atomic<std::size_t> leavesFed_{0};
  // Only the feeding thread touches it.
  std::unique_ptr<Worker> feeder_;

  mutable std::mutex failureMutex_;
  std::size_t firstFailure_ = kNoFailure;
  std::exception_ptr error_;

  // Encrypted files go through the manager, one at a time.
  std::mutex decryptMutex_;
};

SharedExtraction::SharedExtraction(FileSystemManager& files, std::u16string destination,
                                   RestoreMode restoreMode, TransformMode transformMode,
                                   ReplaceMode replaceMode)
    : state_(std::make_unique<State>(files, std::move(destination), restoreMode, transformMode,
                                     replaceMode)) {}

SharedExtraction::~SharedExtraction() = default;

void SharedExtraction::feed() { state_->feed(); }
void SharedExtraction::work() { state_->work(); }
void SharedExtraction::finish() { state_->finish(); }
std::size_t SharedExtraction::leavesFed() const { return state_->leavesFed(); }

std::size_t SharedExtraction::countLeaves(FileSystemManager& files) {
  files.ensureLoaded();
  std::size_t count = 0;
  files.tree_->visitLeaves([&count](FileSystemTree::LeafView const&) { ++count; });
  return count;
}

}  // namespace vkservices
}  // namespace opc
