// What the process has mapped: for tests that a library is loaded only when it is needed.
#ifndef TESTS_SUPPORT_PROCESS_MAPS_H_
#define TESTS_SUPPORT_PROCESS_MAPS_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

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

// Copies the mapped libraries whose file names begin with each of `prefixes` into `folder`,
// each under its soname (the prefix and "1"), and runs this program again with the loader
// searching `folder` first and `variable` set to `value`: the child finds those libraries
// there and nothing that they load on first need.  Returns an empty string if the child ended
// with 0, otherwise what went wrong (a library not mapped, or the command that failed).
inline std::string rerunWithLibraryCopies(std::string const& folder,
                                          std::initializer_list<char const*> prefixes,
                                          std::string const& variable, std::string const& value) {
  for (std::string const prefix : prefixes) {
    std::string const from = mappedPath(prefix);
    if (from.empty()) return "not mapped: " + prefix;
    std::filesystem::copy_file(from, std::filesystem::path(folder) / (prefix + "1"));
  }
  std::string const command = "env LD_LIBRARY_PATH=" + folder + " " + variable + "=" + value +
                              " /proc/" + std::to_string(getpid()) + "/exe >/dev/null 2>&1";
  int const status = std::system(command.c_str());
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return std::string();
  return "failed: " + command;
}

// Whether the model's XML library, or the parser it wraps, is in the process.
inline bool xmlLibraryLoaded() { return isMapped("libopcmodel_xml") || isMapped("libxerces-c"); }

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_PROCESS_MAPS_H_
