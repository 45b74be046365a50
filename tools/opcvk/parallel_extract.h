// Extraction of a whole plain package on several threads.
#ifndef TOOLS_OPCVK_PARALLEL_EXTRACT_H_
#define TOOLS_OPCVK_PARALLEL_EXTRACT_H_

#include <cstddef>
#include <string>

#include <opc/vkservices/file_system_manager.h>

#include "open_package.h"

namespace opcvk {

struct ExtractModes {
  opc::vkservices::RestoreMode restore;
  opc::vkservices::TransformMode transform;
  opc::vkservices::ReplaceMode replace;
};

// With 0 threads asked for: one per processor, at most this many...
constexpr unsigned kMaxExtractJobs = 4;
// ...and no more than one per this many leaves: opening the package again for each other
// thread would cost more than it saves.
constexpr std::size_t kLeavesPerExtractJob = 2000;

// Extracts every leaf of the file system of `open` (a plain package, opened for Read from
// `packagePath`) below `destination`, as FileSystemManager::extractAll does: the same
// entries, the same refusals and messages, the same tree.  `jobs` threads (0: one per
// kLeavesPerExtractJob leaves, at most one per processor and kMaxExtractJobs; 1: the
// library's extractAll on the caller's thread) share the leaves,
// taken in ascending path order in small batches; each thread other than the caller's opens
// the package for itself (the library's packages are used by one thread at a time) and
// extracts through the library's own confined destination, which makes a folder that another
// thread made meanwhile its own.
//
// On a failure the threads stop taking leaves, and the error raised is that of the first
// leaf in path order that failed: the one extractAll would have stopped at.  Leaves after it
// that other threads had already begun may have been written; as with extractAll, what was
// extracted before a failure stays.
void extractInParallel(OpenPackage& open, std::string const& packagePath,
                       std::u16string const& destination, ExtractModes const& modes, unsigned jobs);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PARALLEL_EXTRACT_H_
