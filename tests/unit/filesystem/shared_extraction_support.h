// Runs a SharedExtraction as a caller with several threads does: the caller's thread feeds
// and then works, the others work, and finish() raises what failed.
#ifndef TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_SUPPORT_H_
#define TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_SUPPORT_H_

#include <string>
#include <thread>
#include <vector>

#include <opc/vkservices/file_system_manager.h>
#include <opc/vkservices/shared_extraction.h>

namespace opcvk_test {

inline void extractShared(
    opc::vkservices::FileSystemManager& files, std::u16string const& destination, unsigned threads,
    opc::vkservices::RestoreMode restore, opc::vkservices::ReplaceMode replace,
    opc::vkservices::TransformMode transform = opc::vkservices::TransformMode::NoTransforms) {
  opc::vkservices::SharedExtraction extraction(files, destination, restore, transform, replace);
  std::vector<std::thread> workers;
  for (unsigned i = 1; i < threads; ++i) workers.emplace_back([&] { extraction.work(); });
  extraction.feed();
  extraction.work();
  for (std::thread& worker : workers) worker.join();
  extraction.finish();
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_SUPPORT_H_
