// Runs a SharedExtraction as a caller with several threads does: the caller's thread feeds
// and then works, the others work, and finish() raises what failed; and what a tree on disk
// holds, to compare the trees that extractions make.
#ifndef TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_SUPPORT_H_
#define TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_SUPPORT_H_

#include <dirent.h>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <opc/vkservices/file_system_manager.h>
#include <opc/vkservices/shared_extraction.h>

#include "unit/core/local_file_system_ops_test_util.h"

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

// What a tree on disk holds, by path below its root: kind, permissions, time in microseconds,
// and the bytes of a file or the text of a link (the root's own path in it shown as "ROOT",
// since a link to a package path points into its own tree).
inline std::map<std::string, std::string> snapshot(std::string const& root,
                                                   std::string const& below = "") {
  std::map<std::string, std::string> result;
  std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir((root + below).c_str()), &::closedir);
  if (!dir) return result;
  while (dirent* item = ::readdir(dir.get())) {
    std::string const name = item->d_name;
    if (name == "." || name == "..") continue;
    std::string const path = below + "/" + name;
    std::string const real = root + path;
    struct stat status;
    if (::lstat(real.c_str(), &status) != 0) continue;
    if (S_ISDIR(status.st_mode)) {
      result[path] = "folder";
      auto const inner = snapshot(root, path);
      result.insert(inner.begin(), inner.end());
    } else if (S_ISLNK(status.st_mode)) {
      std::string target = readLink(real);
      if (target.rfind(root, 0) == 0) target = "ROOT" + target.substr(root.size());
      result[path] = "link " + target;
    } else {
      result[path] = "file " + std::to_string(status.st_mode & 07777) + " " +
                     std::to_string(status.st_mtim.tv_sec) + "." +
                     std::to_string(status.st_mtim.tv_nsec / 1000) + " " + readFile(real);
    }
  }
  return result;
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_SUPPORT_H_
