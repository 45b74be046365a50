// FileSystemTree: every node of one package file system, keyed by path.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include "filesystem/encoded_part_name.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_node_table.h"

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
// part way leaves the tree as the last completed step left it (a deep insertion may
// then have made some of the missing folders); there is no rollback.
//
// Memory: a record keeps its name alone, not its path, in one pool of text, and is found by
// a hash of its full path; it links to its children in insertion order, and a file whose
// part is named "/fsroot" and its path, or a folder, keeps no content name of its own.
// About 150 bytes a node, index and spare room of the pool included, for names of 5 to 20
// characters.
class FileSystemTree {
 public:
  // A tree holding the root alone, with the platform and encoding of the running process
  // and the current manifest version.
  FileSystemTree();
  // A tree is moved, never copied: it may be large.
  FileSystemTree(FileSystemTree const&) = delete;
  FileSystemTree& operator=(FileSystemTree const&) = delete;
  FileSystemTree(FileSystemTree&& other) noexcept;
  FileSystemTree& operator=(FileSystemTree&& other) noexcept;
  ~FileSystemTree();

  // Inserts `node` under its path name, making every missing ancestor as a folder with
  // unknown permissions and time, from the top downwards.  The kind of the parent is not
  // looked at.  Raises opc::Exception "A node already exists with the name:<path>" if the
  // path is taken, and "A node name must begin with \"/\":<path>" for a relative or empty
  // path, which has no root above it.  Raises opc::Exception "A node name of N characters is
  // longer than the limit of 32767:<path>" or "A node name of N levels is deeper than the
  // limit of 2048:<path>" for a path beyond those bounds (the path shown cut after 64
  // units), which keep what a path's folders cost in proportion to what it says.
  void addNode(FileSystemNode const& node);

  // As addNode(makeFileNode(...)), makeLinkNode or makeFolderNode, without making the node:
  // the road of a manifest read.  A folder's content name is its own path; `content` is
  // then not looked at.  The unknown permissions and time mean unset.
  void addEntry(FileSystemNodeType type, std::u16string_view path, std::u16string_view content,
                opc::Perms::Perms_tag permissions, boost::posix_time::ptime const& time);

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
  bool hasChildNodes(std::u16string_view path) const;
  // As hasChildNodes(node.getPathName()), from the record the node was filled from when the
  // tree has not changed since (see visitChildNodes), else by its path.
  bool hasChildNodes(std::u16string_view path, std::uint32_t record,
                     std::uint64_t generation) const;
  bool hasParentNode(std::u16string const& path) const;

  // Copies of the direct children of `path` in the order of their insertion; empty if none.
  std::vector<FileSystemNode> childNodes(std::u16string const& path) const;
  // Calls `visit` with a copy of each node that childNodes(path) would give, in the same
  // order, one at a time.
  void forEachChildNode(std::u16string const& path,
                        std::function<void(FileSystemNode&&)> const& visit) const;
  // Tells `count` how many nodes childNodes(path) would give, then calls `visit` with each of
  // them, in the same order, as one node filled again for each child: valid during the call
  // only, and copied by a caller that keeps it.  A listing then makes no text per child beyond
  // what the caller keeps, and looks the path up once for the count and the children.  The
  // node is for making a FileSystemEntry of (FileSystemManager's listings): a content name
  // that follows from the path is left for the entry to make when it is asked for it, and the
  // node's getContentName() is then empty.
  void visitChildNodes(std::u16string const& path, std::function<void(std::size_t)> const& count,
                       std::function<void(FileSystemNode const&)> const& visit) const;

  // Copies of every node without children, in key order.  Empty for a tree holding only the
  // root: the root is never a leaf by itself.
  std::vector<FileSystemNode> leafNodes() const;
  // Calls `visit` with a copy of each node that leafNodes() would give, in the same order, one
  // at a time: a caller that keeps something else per leaf never holds every copy at once.
  void forEachLeafNode(std::function<void(FileSystemNode&&)> const& visit) const;

  // One node of visitLeaves, valid during the call only.
  class LeafView {
   public:
    FileSystemNodeType getType() const;
    // As FileSystemNode::getPathName.
    std::u16string_view getPathName() const;
    // As FileSystemNode::getContentName.
    std::u16string_view getContentName() const;
    boost::optional<opc::Perms::Perms_tag> getPermissions() const;
    boost::optional<boost::posix_time::ptime> getLastModifiedTime() const;

   private:
    friend class FileSystemTree;
    explicit LeafView(detail::FileSystemNodeTable const& table) : table_(table) {}
    detail::FileSystemNodeTable const& table_;
    detail::NodeIndex index_ = detail::kNoNode;
    std::u16string_view key_;
    mutable std::u16string content_;
  };

  // Calls `visit` for every node that leafNodes() would give, in the same order, without
  // copying any of them.  `visit` must not change the tree.
  void visitLeaves(std::function<void(LeafView const&)> const& visit) const;

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

  // Makes room at once for `units` UTF-16 code units of names and contents, what a reader
  // that knows the size of its document expects to add; memory beyond what is used is
  // reserved, never touched.
  void reserveText(std::size_t units);

  // The platform tag of this build: "os-arch" such as "linux-x86-64", or "win64".
  static std::u16string const& getBuildPlatform();
  // The version of the current manifest form, "2.0".
  static std::u16string const& getCurrentVersion();

 private:
  using NodeIndex = detail::NodeIndex;

  // Sets the record at `index`, whose path is `key`, to a node of these values.
  void assign(NodeIndex index, std::u16string_view key, FileSystemNodeType type,
              std::u16string_view content,
              boost::optional<opc::Perms::Perms_tag> const& permissions,
              boost::optional<boost::posix_time::ptime> const& time);
  FileSystemNode nodeOf(NodeIndex index, std::u16string_view key) const;
  // Sets `node` to what nodeOf(index, key) gives, in the text it holds already.
  void fillNode(NodeIndex index, std::u16string_view key, FileSystemNode& node) const;

  // Makes the record at `path` present with these values, under the present parent made for
  // it; raises for a taken or relative path before anything changes.
  void insertPresent(std::u16string_view path, FileSystemNodeType type, std::u16string_view content,
                     boost::optional<opc::Perms::Perms_tag> const& permissions,
                     boost::optional<boost::posix_time::ptime> const& time);
  NodeIndex findPresent(std::u16string_view path) const;
  // Makes the folder `parent` and every missing ancestor, top-down, without recursion so that
  // no depth of path can exhaust the stack; returns its record.
  NodeIndex insertMissingFolders(std::u16string_view parent);
  // The present record of the parent of the absolute `path`, made if it is missing.
  NodeIndex parentOf(std::u16string_view path);
  // The record at `path` under `parent`, `entry` if there is one already (kNoNode if not;
  // parentOf makes no record at `path`), then present and last in the list of its parent.
  // `hash` is the table's hashOf(path).
  NodeIndex presentChild(NodeIndex parent, std::u16string_view path, NodeIndex entry,
                         std::uint32_t hash);
  void appendChild(NodeIndex parent, NodeIndex child);
  void unlinkChild(NodeIndex parent, NodeIndex child);
  // Walks the records in key order, calling `visit` for every leaf with its path.
  void walkLeaves(std::function<void(NodeIndex, std::u16string_view)> const& visit) const;

  std::u16string platform_;
  std::u16string encoding_;
  std::u16string version_;
  detail::FileSystemNodeTable table_;
  std::size_t presentCount_;
  // The parent found last, and its path: the entries of a manifest or of a walk come in
  // order, so that siblings follow each other and share it.  Reset by every removal.
  NodeIndex lastParent_;
  std::u16string lastParentPath_;
  // Tells the files whose part names are their encoded paths, folder by folder.
  detail::EncodedPartNameCheck encodedPartName_;
  // A number no other tree and no other state of this tree has had, taken afresh at the
  // first change after a node was filled with it (see nextGeneration()).
  std::uint64_t generation_;
  mutable bool generationGiven_;
  // Takes a new generation if the current one was given to a node.
  void changing();
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_
