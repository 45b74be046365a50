// What the fuzz targets of the file-system manifest compare of the trees they read.
#ifndef FUZZ_MANIFEST_SHAPE_H_
#define FUZZ_MANIFEST_SHAPE_H_

#include <string>

#include "../tests/support/manifest_tree_shape.h"
#include "filesystem/file_system_tree.h"
#include "fuzz_support.h"

namespace opcvk_fuzz {

// Everything of a tree that its manifest says, as one comparable text: the three document
// strings, then per leaf its path, kind, content name, permissions and date.
inline std::string manifestShapeOf(opc::vkservices::FileSystemTree const& tree) {
  return printable(opcvk_test::manifestTreeShapeOf(tree));
}

}  // namespace opcvk_fuzz

#endif  // FUZZ_MANIFEST_SHAPE_H_
