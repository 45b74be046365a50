#include "parallel_extract.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include <opc/model/package_options.h>
#include <opc/vkservices/file_system_entry.h>

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

// Leaves handed to a thread at a time: few enough that the threads stay busy to the end,
// enough that neighbours (which share folders) mostly go to one thread.
constexpr std::size_t kBatch = 64;
constexpr std::size_t kNoFailure = std::numeric_limits<std::size_t>::max();

class SharedWork {
 public:
  explicit SharedWork(std::vector<std::u16string> paths) : paths_(std::move(paths)) {}

  std::vector<std::u16string> const& paths() const { return paths_; }

  // The first index of the next batch, or the number of paths when none is left or a leaf
  // before it failed.
  std::size_t take() {
    std::size_t const begin = next_.fetch_add(kBatch);
    return std::min(begin, paths_.size());
  }
  bool stopsBefore(std::size_t index) const { return firstFailure_.load() < index; }

  void fail(std::size_t index, std::exception_ptr error) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (index < firstFailure_.load()) {
      firstFailure_.store(index);
      error_ = std::move(error);
    }
  }
  void rethrow() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  std::vector<std::u16string> paths_;
  std::atomic<std::size_t> next_{0};
  std::atomic<std::size_t> firstFailure_{kNoFailure};
  std::mutex mutex_;
  std::exception_ptr error_;
};

void extractBatches(FileSystemManager& files, std::u16string const& destination,
                    ExtractModes const& modes, SharedWork& work) {
  std::vector<std::u16string> const& paths = work.paths();
  for (std::size_t begin = work.take(); begin < paths.size(); begin = work.take()) {
    std::size_t const end = std::min(begin + kBatch, paths.size());
    for (std::size_t i = begin; i < end; ++i) {
      if (work.stopsBefore(i)) return;
      try {
        files.extractEntry(destination, files.getEntry(paths[i]), modes.restore, modes.transform,
                           modes.replace);
      } catch (...) {
        work.fail(i, std::current_exception());
        return;
      }
    }
  }
}

}  // namespace

void extractInParallel(OpenPackage& open, std::string const& packagePath,
                       std::u16string const& destination, ExtractModes const& modes,
                       unsigned jobs) {
  FileSystemManager& files = open.files();
  std::vector<std::u16string> paths;
  if (jobs != 1) {
    auto const leaves = files.getAllLeafs();
    if (jobs == 0) {
      std::size_t const wanted = std::max<std::size_t>(1, leaves.size() / kLeavesPerExtractJob);
      jobs = static_cast<unsigned>(std::min<std::size_t>(
          {wanted, std::max(1u, std::thread::hardware_concurrency()), kMaxExtractJobs}));
    }
    if (jobs > 1) {
      paths.reserve(leaves.size());
      for (FileSystemEntry const& leaf : leaves) paths.push_back(leaf.getPathName());
    }
  }
  if (paths.size() < 2) {
    // One thread, or nothing to share (the destination is made all the same).
    files.extractAll(destination, modes.restore, modes.transform, modes.replace);
    return;
  }
  std::sort(paths.begin(), paths.end());
  SharedWork work(std::move(paths));
  std::vector<std::thread> threads;
  for (unsigned i = 1; i < jobs; ++i) {
    threads.emplace_back([&] {
      try {
        OpenPackage own(packagePath, opc::model::PackageAccess::Read);
        extractBatches(own.files(), destination, modes, work);
      } catch (...) {
        // The package could not be opened again (it changed meanwhile): told as a failure
        // before every leaf.
        work.fail(0, std::current_exception());
      }
    });
  }
  extractBatches(files, destination, modes, work);
  for (std::thread& thread : threads) thread.join();
  work.rethrow();
}

}  // namespace opcvk
