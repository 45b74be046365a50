#include "parallel_extract.h"

#include <algorithm>
#include <exception>
#include <thread>
#include <vector>

#include <opc/vkservices/shared_extraction.h>

namespace opcvk {

using opc::vkservices::FileSystemManager;
using opc::vkservices::SharedExtraction;

unsigned extractJobs(FileSystemManager& files, unsigned jobs) {
  if (jobs != 0) return jobs;
  std::size_t const wanted =
      std::max<std::size_t>(1, SharedExtraction::countLeaves(files) / kLeavesPerExtractJob);
  return static_cast<unsigned>(std::min<std::size_t>(
      {wanted, std::max(1u, std::thread::hardware_concurrency()), kMaxExtractJobs}));
}

void extractInParallel(FileSystemManager& files, std::u16string const& destination,
                       ExtractModes const& modes, unsigned jobs) {
  jobs = extractJobs(files, jobs);
  if (jobs == 1) {
    files.extractAll(destination, modes.restore, modes.transform, modes.replace);
    return;
  }
  SharedExtraction extraction(files, destination, modes.restore, modes.transform, modes.replace);
  std::vector<std::thread> threads;
  // The threads are joined whatever happens below, before the extraction goes.
  struct Joiner {
    std::vector<std::thread>& threads;
    ~Joiner() {
      for (std::thread& thread : threads) thread.join();
    }
  } joiner{threads};
  // A thread's own failure (not an entry's, which finish() raises) is kept for the end.
  std::vector<std::exception_ptr> workErrors(jobs);
  for (unsigned i = 1; i < jobs; ++i) {
    threads.emplace_back([&extraction, &error = workErrors[i]] {
      try {
        extraction.work();
      } catch (...) {
        error = std::current_exception();
      }
    });
  }
  extraction.feed();
  extraction.work();
  for (std::thread& thread : threads) thread.join();
  threads.clear();
  for (std::exception_ptr const& error : workErrors) {
    if (error) std::rethrow_exception(error);
  }
  extraction.finish();
}

}  // namespace opcvk
