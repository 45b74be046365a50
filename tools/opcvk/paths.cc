#include "paths.h"

#include <opc/core/string_conversions.h>

namespace opcvk {

std::u16string fromArgument(std::string const& argument) { return opc::toString(argument); }

std::u16string packagePathArgument(std::string const& argument) {
  std::u16string const path = fromArgument(argument);
  if (!path.empty() && (path.front() == u'/' || path.front() == u'\\')) return path;
  return u"/" + path;
}

std::string displayText(std::u16string const& text) { return opc::toUDEString(text); }

std::string utf8Text(std::u16string const& text) { return opc::detail::toUTF8String(text); }

std::u16string joinPackagePath(std::u16string const& parent, std::u16string const& name) {
  if (!parent.empty() && parent.back() == u'/') return parent + name;
  return parent + u"/" + name;
}

}  // namespace opcvk
