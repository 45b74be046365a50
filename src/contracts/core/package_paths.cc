#include <opc/core/package_paths.h>

namespace opc {
namespace detail {

std::u16string getParentPath(std::u16string const& path) {
  auto const slash = path.rfind(u'/');
  if (slash == std::u16string::npos) return std::u16string();
  if (slash == 0) return u"/";
  return path.substr(0, slash);
}

std::u16string getFilename(std::u16string const& path) {
  auto const slash = path.rfind(u'/');
  if (slash == std::u16string::npos) return path;
  return path.substr(slash + 1);
}

}  // namespace detail
}  // namespace opc
