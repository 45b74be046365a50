// Extraction of a whole package on several threads.
#ifndef TOOLS_OPCVK_PARALLEL_EXTRACT_H_
#define TOOLS_OPCVK_PARALLEL_EXTRACT_H_

#include <cstddef>
#include <string>

#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

struct ExtractModes {
  opc::vkservices::RestoreMode restore;
  opc::vkservices::TransformMode transform;
  opc::vkservices::ReplaceMode replace;
};

// With 0 threads asked for: one per processor, at most this many...
constexpr unsigned kMaxExtractJobs = 4;
// ...and one per this many leaves at the most: below it, a second thread costs more than it
// saves, and one thread makes the files strictly in path order.
constexpr std::size_t kLeavesPerExtractJob = 2000;

// The thread count that `jobs` asks for the file system of `files`: 0 means one per
// kLeavesPerExtractJob leaves, at most one per processor and kMaxExtractJobs.
unsigned extractJobs(opc::vkservices::FileSystemManager& files, unsigned jobs);

// Extracts every leaf of `files` below `destination`, as FileSystemManager::extractAll does:
// the same entries, the same refusals and messages, the same tree.  With one thread, the
// library's extractAll on the caller's thread; with more, the library's SharedExtraction,
// which the caller's thread feeds (and helps with) while the others extract, all of them
// reading the one open package.  On a failure the error raised is that of the first leaf in
// path order that failed, the one extractAll would have stopped at.
void extractInParallel(opc::vkservices::FileSystemManager& files, std::u16string const& destination,
                       ExtractModes const& modes, unsigned jobs);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PARALLEL_EXTRACT_H_
