// What the fuzz targets of the file-system manifest compare of the trees they read.
#ifndef FUZZ_MANIFEST_SHAPE_H_
#define FUZZ_MANIFEST_SHAPE_H_

#include <string>

#include <opc/core/time_conversions.h>

#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "fuzz_support.h"

namespace opcvk_fuzz {

// Everything of a tree that its manifest says, as one comparable text: the three document
// strings, then per leaf its path, kind, content name, permissions and date.
inline std::string manifestShapeOf(opc::vkservices::FileSystemTree const& tree) {
  std::u16string shape =
      tree.getVersion() + u'|' + tree.getPlatform() + u'|' + tree.getEncoding() + u'\n';
  for (opc::vkservices::FileSystemNode const& node : tree.leafNodes()) {
    shape += node.getPathName() + u'|' +
             static_cast<char16_t>(u'0' + static_cast<int>(node.getType())) + u'|' +
             node.getContentName() + u'|';
    if (node.getPermissions()) shape += static_cast<char16_t>(*node.getPermissions());
    shape += u'|';
    if (node.getLastModifiedTime()) shape += opc::convertTimeToString(*node.getLastModifiedTime());
    shape += u'\n';
  }
  return printable(shape);
}

}  // namespace opcvk_fuzz

#endif  // FUZZ_MANIFEST_SHAPE_H_
