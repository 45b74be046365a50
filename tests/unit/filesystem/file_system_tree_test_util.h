// Nodes and paths for the tests of FileSystemTree.
#ifndef TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_TREE_TEST_UTIL_H_
#define TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_TREE_TEST_UTIL_H_

#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "filesystem/file_system_node.h"

namespace opcvk_test {
namespace tree {

using Paths = std::vector<std::u16string>;

inline boost::posix_time::ptime const kNoTime{boost::posix_time::not_a_date_time};
inline boost::posix_time::ptime const kSomeTime{boost::gregorian::date(2020, 2, 29),
                                                boost::posix_time::minutes(90)};
constexpr auto kUnknown = static_cast<opc::Perms::Perms_tag>(65535);

// A file of mode 0644 and a known time.
inline opc::vkservices::FileSystemNode file(std::u16string const& path,
                                            std::u16string const& part = u"/fsroot/x") {
  return opc::vkservices::FileSystemNode::makeFileNode(path, part, opc::Perms::Perms_tag(0644),
                                                       kSomeTime);
}

// A folder of mode 0755 and a known time.
inline opc::vkservices::FileSystemNode folder(std::u16string const& path) {
  return opc::vkservices::FileSystemNode::makeFolderNode(path, opc::Perms::Perms_tag(0755),
                                                         kSomeTime);
}

inline Paths pathsOf(std::vector<opc::vkservices::FileSystemNode> const& nodes) {
  Paths paths;
  for (opc::vkservices::FileSystemNode const& node : nodes) paths.push_back(node.getPathName());
  return paths;
}

}  // namespace tree
}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_TREE_TEST_UTIL_H_
