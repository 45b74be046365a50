// The form of the paths that a ConfinedDestination takes, private to libopccore.
#ifndef OPC_CORE_CONFINED_PATH_H_
#define OPC_CORE_CONFINED_PATH_H_

#include <string>
#include <vector>

namespace opc {
namespace detail {

// Splits `path` ("/" or "/a/b", in UTF-16 or in bytes) into its components.  False for any
// other form: a path not beginning with "/", an empty, "." or ".." component, a NUL.
template <typename String>
bool splitConfinedPath(String const& path, std::vector<String>& components) {
  using Char = typename String::value_type;
  constexpr Char kSeparator = static_cast<Char>('/');
  constexpr Char kDot = static_cast<Char>('.');
  // The strings already in `components` are written over, so that a caller who splits path
  // after path keeps their storage rather than allocating each component again.
  std::size_t count = 0;
  auto const done = [&components, &count](bool result) {
    components.resize(count);
    return result;
  };
  if (path.empty() || path[0] != kSeparator) return done(false);
  if (path.find(Char(0)) != String::npos) return done(false);
  if (path.size() == 1) return done(true);
  std::size_t begin = 1;
  while (true) {
    std::size_t const end = path.find(kSeparator, begin);
    std::size_t const length = (end == String::npos ? path.size() : end) - begin;
    bool const dots = (length == 1 && path[begin] == kDot) ||
                      (length == 2 && path[begin] == kDot && path[begin + 1] == kDot);
    if (length == 0 || dots) return done(false);
    if (count < components.size()) {
      components[count].assign(path, begin, length);
    } else {
      components.emplace_back(path, begin, length);
    }
    ++count;
    if (end == String::npos) return done(true);
    begin = end + 1;
  }
}

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_CONFINED_PATH_H_
