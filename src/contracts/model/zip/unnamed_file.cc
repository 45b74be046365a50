#include "unnamed_file.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace opc {
namespace model {
namespace detail {

int createUnnamedFile(std::string const& folder, char const* stem) {
  // A file that never has a name cannot be left behind, even by a process killed between a
  // creation and an unlink.
  int fd = ::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
  if (fd >= 0) return fd;
  std::string pattern = folder + "/" + stem + "XXXXXX";
  fd = ::mkostemp(&pattern[0], O_CLOEXEC);
  if (fd >= 0) ::unlink(pattern.c_str());
  return fd;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
