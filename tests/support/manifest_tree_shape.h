// The tests and fuzz targets of the manifest's readers compare the trees they fill through one
// text, and the tests a read's outcome through what it threw and that text.
#ifndef TESTS_SUPPORT_MANIFEST_TREE_SHAPE_H_
#define TESTS_SUPPORT_MANIFEST_TREE_SHAPE_H_

#include <cstddef>
#include <exception>
#include <string>
#include <typeinfo>

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

// How a read ended: the class and text of what it threw ("" if nothing), and the tree after.
struct ManifestReadOutcome {
  std::string error;
  std::u16string shape;
  std::size_t leaves = 0;
};

// Reads into a new tree with `read(tree)` and tells how that ended.
template <typename Read>
ManifestReadOutcome manifestReadOutcomeOf(Read&& read) {
  opc::vkservices::FileSystemTree tree;
  ManifestReadOutcome outcome;
  try {
    read(tree);
  } catch (std::exception const& e) {
    outcome.error = std::string(typeid(e).name()) + ": " + e.what();
  }
  outcome.shape = manifestTreeShapeOf(tree);
  outcome.leaves = tree.leafNodes().size();
  return outcome;
}

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_MANIFEST_TREE_SHAPE_H_
