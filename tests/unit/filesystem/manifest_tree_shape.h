// The tests of the manifest's two readers compare the trees they fill through one text.
#ifndef TESTS_UNIT_FILESYSTEM_MANIFEST_TREE_SHAPE_H_
#define TESTS_UNIT_FILESYSTEM_MANIFEST_TREE_SHAPE_H_

#include <string>

#include <opc/core/time_conversions.h>

#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"

namespace opcvk_test {

// Everything of a tree that a manifest says, as one comparable text: the three document
// strings, then per leaf its path, kind, content name, permissions and date.
inline std::u16string manifestTreeShapeOf(opc::vkservices::FileSystemTree const& tree) {
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
  return shape;
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_MANIFEST_TREE_SHAPE_H_
