// FileSystemTree: every node of one package file system, keyed by path.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

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
//
// Memory: each path is kept once, as the key of its record; a record links to its children
// in insertion order, and a file whose part is named "/fsroot" and its path, or a folder,
// keeps no content name of its own.  About 250 bytes a node for paths of 30 characters.
class FileSystemTree {
 private:
  struct Record;
  // A record under its path; records link to each other through these pairs, whose
  // addresses the map keeps stable.
  using Entry = std::pair<std::u16string const, Record>;

 public:
  // A tree holding the root alone, with the platform and encoding of the running process
  // and the current manifest version.
  FileSystemTree();
  // Records link to each other, so a tree is moved, never copied.
  FileSystemTree(FileSystemTree const&) = delete;
  FileSystemTree& operator=(FileSystemTree const&) = delete;
  FileSystemTree(FileSystemTree&& other) noexcept;
  FileSystemTree& operator=(FileSystemTree&& other) noexcept;
  ~FileSystemTree();

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
    LeafView() = default;
    Entry const* entry_ = nullptr;
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

  // The platform tag of this build: "os-arch" such as "linux-x86-64", or "win64".
  static std::u16string const& getBuildPlatform();
  // The version of the current manifest form, "2.0".
  static std::u16string const& getCurrentVersion();

 private:
  using Records = std::map<std::u16string, Record, std::less<>>;

  // How a record holds the content name of its node.
  enum class Content : std::uint8_t {
    kOwn,         // in the record
    kPath,        // the key itself (a folder)
    kFsrootPath,  // "/fsroot" and the key (a file in a part named after its path)
  };

  struct Record {
    // Children in the order of insertion, as a list through their nextSibling.
    Entry* firstChild = nullptr;
    Entry* lastChild = nullptr;
    Entry* nextSibling = nullptr;
    std::u16string content;
    boost::posix_time::ptime time;
    std::uint16_t permissions = 0;
    FileSystemNodeType type = FileSystemNodeType::File;
    Content contentForm = Content::kOwn;
    bool hasPermissions = false;
    bool hasTime = false;
    // False for the record of a removed node whose children are still in the tree: it keeps
    // their list until the node is added again or its last child is removed.
    bool present = false;
  };

  // Sets the record of `entry` to a node of these values; the key stays.
  static void assign(Entry& entry, FileSystemNodeType type, std::u16string content,
                     boost::optional<opc::Perms::Perms_tag> const& permissions,
                     boost::optional<boost::posix_time::ptime> const& time);
  static FileSystemNode nodeOf(Entry const& entry);

  Entry* findPresent(std::u16string_view path);
  Entry const* findPresent(std::u16string_view path) const;
  // The record of `path`, present or not, or nullptr.
  Entry const* findAny(std::u16string_view path) const;
  // Makes the folder `parent` and every missing ancestor, top-down, without recursion so that
  // no depth of path can exhaust the stack; returns its record.
  Entry* insertMissingFolders(std::u16string_view parent);
  // The present record of the parent of the absolute `path`, made if it is missing.
  Entry* parentOf(std::u16string_view path);
  void appendChild(Entry& parent, Entry& child);
  void unlinkChild(Entry& parent, Entry const& child);

  std::u16string platform_;
  std::u16string encoding_;
  std::u16string version_;
  Records records_;
  std::size_t presentCount_;
  // The parent found last: the entries of a manifest come in order, so that siblings follow
  // each other and share it.  Reset by every removal.
  Entry* lastParent_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_TREE_H_
