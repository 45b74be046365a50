// FileSystemNodeTable: the compact storage of the records of a FileSystemTree.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_NODE_TABLE_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_NODE_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>

#include "filesystem/file_system_node.h"

namespace opc {
namespace vkservices {
namespace detail {

// The index of a record; records never move, so an index stays valid until its record is
// erased.
using NodeIndex = std::uint32_t;
constexpr NodeIndex kNoNode = 0xFFFFFFFFu;
// The record of the root "/", which the table makes first and never erases.
constexpr NodeIndex kRootNode = 0;

// How a record holds the content name of its node.
enum class ContentForm : std::uint8_t {
  kOwn,         // in the text pool
  kPath,        // the path itself (a folder)
  kFsrootPath,  // "/fsroot" and the path (a file in a part named after its path)
  // "/fsroot" and the path percent-encoded as a part name encodes it: a file in a part named
  // after a path that holds non-ASCII characters, blanks and the like, whose name would
  // otherwise be stored at up to six times the size of the path.
  kFsrootEncodedPath,
};

// One node of the tree: 56 bytes, with its name and any content of its own in a shared
// pool of text.  The path of a record is never stored: it is the path of its parent, a "/",
// and its name, save that the children of the root follow the root's "/" directly.  A name
// is the text after the last "/" of the path, or, below the root, everything after the
// first character, so that "//a" (the name "/a") stays apart from "/a" (the name "a").
struct NodeRecord {
  boost::posix_time::ptime time;
  NodeIndex parent = kNoNode;
  // Children in the order of insertion, as a list through their nextSibling; records of
  // removed nodes that keep children of their own stay in the list.
  NodeIndex firstChild = kNoNode;
  NodeIndex lastChild = kNoNode;
  NodeIndex nextSibling = kNoNode;
  std::uint32_t presentChildren = 0;
  std::uint32_t hash = 0;
  std::uint32_t nameStart = 0;
  std::uint32_t nameSize = 0;
  std::uint32_t contentStart = 0;
  std::uint32_t contentSize = 0;
  std::uint16_t permissions = 0;
  // A FileSystemNodeType, in one byte: with the 32 bits of the enumeration every record of a
  // tree of 100,000 nodes would take 64 bytes rather than 56.
  std::uint8_t type = static_cast<std::uint8_t>(FileSystemNodeType::File);
  ContentForm contentForm = ContentForm::kOwn;
  bool hasPermissions : 1;
  bool hasTime : 1;
  // False for a removed node whose children are still in the tree.
  bool present : 1;
  bool inUse : 1;

  NodeRecord() : hasPermissions(false), hasTime(false), present(false), inUse(false) {}
};

// Records by index, found by path through an open-addressing hash of the full path; the
// text of names and contents lives in one pool.  Knows nothing of what present means or of
// the order of children: FileSystemTree keeps those rules.  Raises opc::Exception "The file
// system tree is full" past 2^32 - 2 records or 2^32 code units of text.
class FileSystemNodeTable {
 public:
  // A table holding the root alone.
  FileSystemNodeTable();
  FileSystemNodeTable(FileSystemNodeTable&&) noexcept;
  FileSystemNodeTable& operator=(FileSystemNodeTable&&) noexcept;
  ~FileSystemNodeTable();

  NodeRecord& operator[](NodeIndex index) { return chunks_[index >> kChunkBits][index & kMask]; }
  NodeRecord const& operator[](NodeIndex index) const {
    return chunks_[index >> kChunkBits][index & kMask];
  }

  // The hash under which the table files `path`, for the overloads that take it: a path
  // looked up and then inserted is hashed once.
  std::uint32_t hashOf(std::u16string_view path) const;

  // The record whose path is `path`, or kNoNode.
  NodeIndex find(std::u16string_view path) const;
  NodeIndex find(std::u16string_view path, std::uint32_t hash) const;

  // A new record for `path` under `parent` (a record whose path is the parent path of
  // `path`), not yet linked into any list of children.  `path` must not be in the table.
  NodeIndex insert(NodeIndex parent, std::u16string_view path);
  NodeIndex insert(NodeIndex parent, std::u16string_view path, std::uint32_t hash);

  // Forgets the record at `index` (never the root), which must be linked nowhere.
  void erase(NodeIndex index);

  std::u16string_view nameOf(NodeIndex index) const;
  std::u16string_view contentOf(NodeIndex index) const;
  // Gives the record `content` as its own; `content` must not lie in the table's own text.
  void setContent(NodeIndex index, std::u16string_view content);
  // Drops the record's own content.
  void clearContent(NodeIndex index);

  // Appends the path of the record at `index` to `out`.
  void appendPath(NodeIndex index, std::u16string& out) const;

  // Makes room in the pool for `units` code units of text in all: a pool filled with text of
  // a known size is then copied and touched once, not at every quarter it grows by.
  void reserveText(std::size_t units);

 private:
  static constexpr unsigned kChunkBits = 12;
  static constexpr NodeIndex kMask = (1u << kChunkBits) - 1;

  // A slot holds the hash of a record's path above its index, so that a probe compares
  // hashes without reading the record.
  static constexpr std::uint64_t kEmptySlot = kNoNode;
  static NodeIndex indexOfSlot(std::uint64_t slot) { return static_cast<NodeIndex>(slot); }
  static std::uint32_t hashOfSlot(std::uint64_t slot) {
    return static_cast<std::uint32_t>(slot >> 32);
  }
  bool matches(NodeIndex index, std::u16string_view path) const;
  std::uint32_t store(std::u16string_view text);
  void release(std::uint32_t size);
  void compactIfWasteful();
  void growIndexIfFull();
  void place(NodeIndex index);
  NodeIndex allocate();

  // Room for kMask + 1 records, each made when it is first handed out: a small tree touches
  // the memory of its few records, not that of a whole chunk.
  struct ReleaseChunk {
    void operator()(NodeRecord* chunk) const noexcept;
  };
  using Chunk = std::unique_ptr<NodeRecord[], ReleaseChunk>;

  std::uint64_t seed_;  // random for each table
  std::vector<Chunk> chunks_;
  NodeIndex size_;                    // records ever made: the end of the used indices
  NodeIndex freeHead_;                // erased records, through their nextSibling
  std::size_t live_;                  // records in use
  std::vector<std::uint64_t> slots_;  // a power of two of slots
  std::vector<char16_t> pool_;
  std::size_t wasted_;  // code units of the pool no record uses any more
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_NODE_TABLE_H_
