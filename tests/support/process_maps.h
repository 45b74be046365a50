// What the process has mapped: for tests that a library is loaded only when it is needed.
#ifndef TESTS_SUPPORT_PROCESS_MAPS_H_
#define TESTS_SUPPORT_PROCESS_MAPS_H_

#include <fstream>
#include <string>

namespace opcvk_test {

// Whether a file of the process's mappings has `name` in its path.
inline bool isMapped(std::string const& name) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    if (line.find(name) != std::string::npos) return true;
  }
  return false;
}

// The path of the first mapped file whose name begins with `prefix` (a library's real file,
// libX.so.1.0.0, whatever its soname), or empty.
inline std::string mappedPath(std::string const& prefix) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    std::string::size_type const slash = line.find('/');
    std::string::size_type const name = line.rfind('/');
    if (slash != std::string::npos && line.compare(name + 1, prefix.size(), prefix) == 0) {
      return line.substr(slash);
    }
  }
  return std::string();
}

// Whether the model's XML library, or the parser it wraps, is in the process.
inline bool xmlLibraryLoaded() { return isMapped("libopcmodel_xml") || isMapped("libxerces-c"); }

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_PROCESS_MAPS_H_
