// The text of POSIX paths: nothing here touches the file system.
#include <cstddef>
#include <string_view>
#include <vector>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace detail {
namespace {

constexpr char16_t kSeparator = u'/';

// The components of `path` between separators, empty ones left out.
std::vector<std::u16string> splitComponents(std::u16string const& path) {
  std::vector<std::u16string> components;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find(kSeparator, start);
    if (end == std::u16string::npos) end = path.size();
    if (end > start) components.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return components;
}

// Calls `visit` with each component of `path` between separators, empty ones left out.
template <typename Visit>
void forEachComponent(std::u16string_view path, Visit&& visit) {
  std::size_t start = 0;
  while (start < path.size()) {
    std::size_t end = path.find(kSeparator, start);
    if (end == std::u16string_view::npos) end = path.size();
    if (end > start) visit(path.substr(start, end - start));
    start = end + 1;
  }
}

// `path` without its trailing separators, keeping a lone root.
std::u16string withoutTrailingSeparators(std::u16string const& path) {
  std::size_t end = path.find_last_not_of(kSeparator);
  if (end == std::u16string::npos) return path.empty() ? path : std::u16string(1, kSeparator);
  return path.substr(0, end + 1);
}

}  // namespace

std::u16string localParentPath(std::u16string const& path) {
  std::u16string trimmed = withoutTrailingSeparators(path);
  std::size_t last = trimmed.rfind(kSeparator);
  if (last == std::u16string::npos) return std::u16string();
  if (trimmed.size() == 1) return trimmed;  // the root holds itself
  std::size_t end = trimmed.find_last_not_of(kSeparator, last);
  if (end == std::u16string::npos) return std::u16string(1, kSeparator);
  return trimmed.substr(0, end + 1);
}

std::u16string localFilename(std::u16string const& path) {
  std::u16string trimmed = withoutTrailingSeparators(path);
  if (trimmed.size() == 1 && trimmed[0] == kSeparator) return std::u16string();
  std::size_t last = trimmed.rfind(kSeparator);
  return last == std::u16string::npos ? trimmed : trimmed.substr(last + 1);
}

std::u16string localExtension(std::u16string const& path) {
  std::u16string name = localFilename(path);
  std::size_t dot = name.rfind(u'.');
  // A dot that begins the name marks a hidden file, not an extension.
  if (dot == std::u16string::npos || dot == 0) return std::u16string();
  return name.substr(dot + 1);
}

std::u16string localNormalizePath(std::u16string const& path) {
  if (path.empty()) return path;
  bool absolute = path[0] == kSeparator;
  std::vector<std::u16string> kept;
  for (std::u16string const& component : splitComponents(path)) {
    if (component == u".") continue;
    if (component == u"..") {
      if (!kept.empty() && kept.back() != u"..") {
        kept.pop_back();
      } else if (!absolute) {
        kept.push_back(component);  // climbs above a relative start: the text cannot know
      }
      continue;  // ".." of the root is the root
    }
    kept.push_back(component);
  }
  std::u16string result = absolute ? std::u16string(1, kSeparator) : std::u16string();
  for (std::size_t i = 0; i < kept.size(); ++i) {
    if (i > 0) result.push_back(kSeparator);
    result += kept[i];
  }
  // Built rather than assigned: GCC 12 warns falsely (-Wrestrict) on assigning the literal.
  return result.empty() ? std::u16string(1, u'.') : result;
}

bool localAppendPath(std::u16string const& base, std::u16string const& rest, std::u16string& out,
                     std::string& text) {
  if (base.find(u'\0') != std::u16string::npos || rest.find(u'\0') != std::u16string::npos) {
    text = "the path holds a NUL character";
    return false;
  }
  std::u16string_view const view(rest);
  // The usual path has no "." or ".." component: its components are joined as they stand,
  // without being copied one by one (extraction joins one path per entry).
  bool dots = false;
  forEachComponent(view, [&dots](std::u16string_view component) {
    dots = dots || component == u"." || component == u"..";
  });
  if (!dots) {
    out = base;
    forEachComponent(view, [&out](std::u16string_view component) {
      if (!out.empty() && out.back() != kSeparator) out.push_back(kSeparator);
      out.append(component);
    });
    return true;
  }
  std::vector<std::u16string_view> kept;
  bool leaves = false;
  forEachComponent(view, [&kept, &leaves](std::u16string_view component) {
    if (leaves || component == u".") return;
    if (component == u"..") {
      if (kept.empty()) {
        leaves = true;
      } else {
        kept.pop_back();
      }
      return;
    }
    kept.push_back(component);
  });
  if (leaves) {
    text = "the path leads out of the base folder";
    return false;
  }
  out = base;
  for (std::u16string_view const component : kept) {
    if (!out.empty() && out.back() != kSeparator) out.push_back(kSeparator);
    out.append(component);
  }
  return true;
}

}  // namespace detail
}  // namespace opc
