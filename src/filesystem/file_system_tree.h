// FileSystemTree: every node of one package file system, keyed by path.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_

#include <map>
#include <string>
#include <vector>

#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {

// The tree maps normalised package paths to nodes; it never changes the text of a path and
// knows nothing of parts or streams.  It always holds the root "/".  Keys are ordered by
// plain UTF-16 code unit, case-sensitively on every platform ("/B" before "/a").
//
// Every query returns copies, never references into the tree, so that what a caller holds
// stays valid whatever happens to the tree afterwards.  Not thread-safe: the owner (the
// manager) uses it from one thread at a time.
//
// Errors are raised as opc::Exception itself, before anything changes.  Running out of memory
// part way leaves the tree as the last completed map operation left it (a deep insertion may
// then have made some of the missing folders); there is no rollback.
class FileSystemTree {
 public:
  // A tree holding the root alone, with the platform and encoding of the running process
  // and the current manifest version.
  FileSystemTree();

  // Inserts `node` under its path name, making every missing ancestor as a folder with
  // unknown permissions and time, from the top downwards.  The kind of the parent is not
  // looked at.  Raises opc::Exception "A node already exists with the name:<path>" if the
  // path is taken, and "A node name must begin with \"/\":<path>" for a relative or empty
  // path, which has no root above it.
  void addNode(FileSystemNode node);

  // Removes the node at `node`'s path name, but not its descendants: their records stay,
  // reachable by path, not by walking down from the root.  Removing a path that is not in
  // the tree does nothing.  Raises opc::Exception "The root node cannot be removed" for "/".
  void removeNode(FileSystemNode const& node);

  // Overwrites the record at `node`'s path name.  Raises opc::Exception
  // "A node does not exists with the name:<path>" if there is none.
  void replaceNode(FileSystemNode const& node);

  // A copy of the node at `path`.  Callers test with hasNode first; an absent path raises
  // opc::Exception "A node does not exists with the name:<path>" rather than inventing one.
  FileSystemNode findNode(std::u16string const& path) const;

  // A copy of the parent node of `path`.  Callers test with hasParentNode first; a path
  // without a parent record (the root, an absent path) raises opc::Exception
  // "A node has no parent:<path>".
  FileSystemNode findParentNode(std::u16string const& path) const;

  bool hasNode(std::u16string const& path) const;
  bool hasChildNodes(std::u16string const& path) const;
  bool hasParentNode(std::u16string const& path) const;

  // Copies of the direct children of `path` in the order of their insertion; empty if none.
  std::vector<FileSystemNode> childNodes(std::u16string const& path) const;

  // Copies of every node without children, in key order.  Empty for a tree holding only the
  // root: the root is never a leaf by itself.
  std::vector<FileSystemNode> leafNodes() const;

  // A fresh folder node for "/" with unknown permissions and time (not the stored one).
  FileSystemNode rootNode() const;

  std::u16string const& getPlatform() const { return platform_; }
  void setPlatform(std::u16string const& platform);
  std::u16string const& getEncoding() const { return encoding_; }
  void setEncoding(std::u16string const& encoding);
  std::u16string const& getVersion() const { return version_; }
  void setVersion(std::u16string const& version);
  // Sets the version to that of the current manifest form, "2.0".
  void resetVersion();

  // The platform tag of this build: "os-arch" such as "linux-x86-64", or "win64".
  static std::u16string const& getBuildPlatform();
  // The version of the current manifest form, "2.0".
  static std::u16string const& getCurrentVersion();

 private:
  using NodeMap = std::map<std::u16string, FileSystemNode>;

  // Stores `node` at `path` under the existing `parent`; `hint` is where `path` goes in
  // nodes_.  No check of its own.
  void insertNode(FileSystemNode node, std::u16string path, std::u16string parent,
                  NodeMap::const_iterator hint);
  // Makes the folder `path` and every missing ancestor, top-down, without recursion so that
  // no depth of path can exhaust the stack.
  void insertMissingFolders(std::u16string const& path);

  std::u16string platform_;
  std::u16string encoding_;
  std::u16string version_;
  NodeMap nodes_;
  std::map<std::u16string, std::vector<std::u16string>> children_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_
