// The parts of an archive opened for Read, one small row each: the archive item by index and
// the content type by index into the package's few distinct types.  A row keeps no name of
// its own: the comparison key of a part read from an item follows from the item's name (see
// keyOfItemName), which the archive holds once.  A PartRecord is made only when a part is
// asked for, so that opening a package of 100,000 parts costs a few large blocks rather than
// hundreds of thousands of small ones.  Internal to libopcmodel; exported only for its unit
// tests.
#ifndef OPC_MODEL_PACKAGE_PART_TABLE_H_
#define OPC_MODEL_PACKAGE_PART_TABLE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <opc/model/content_type.h>
#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

class ZipArchive;

// The comparison key (as PartName compares names) of the part that the item `itemName`
// names, for an item name that is well-formed UTF-8: "/" and the name's bytes, each byte
// above 0x7F as a "%xx" escape, ASCII letters in lower case.
OPC_MODEL_EXPORT std::string keyOfItemName(std::string_view itemName);
// The same into `key`, replacing what it held and keeping its storage.
void keyOfItemName(std::string_view itemName, std::string& key);
// Whether `key` is keyOfItemName(itemName), without making it.
OPC_MODEL_EXPORT bool isKeyOfItemName(std::string_view key, std::string_view itemName);
// Whether `prefix` is the leading run of keyOfItemName(itemName) of its length.
bool isKeyPrefixOfItemName(std::string_view prefix, std::string_view itemName);

class PartTable;

// The part table's seeded hash (PartTable::hashOf) for the standard containers over part
// keys, whose own hash of strings has fixed constants.
struct PartKeyHash {
  std::size_t operator()(std::string const& key) const;
};

class OPC_MODEL_EXPORT PartTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Row {
    // The index of the item in the archive.
    std::uint32_t entry;
    // The index into types(), or kNone for a relationships part, which is kept here only so
    // that a second item of the same name is found.
    std::uint32_t type;
  };

  // Binds the table to the archive whose item names give the keys, and makes room for
  // `rows` rows, so that a table filled from an archive grows in one step rather than by
  // doubling.  The archive must outlive the table's use.
  void reserve(ZipArchive const& archive, std::size_t rows);
  // The hash the table files `key` under, for the overloads that take it, so that a key
  // looked up and then added is hashed once.  Keys come from the package's item names, which
  // anyone may choose: the hash is seeded with a draw from the kernel taken once for the
  // process, so that names cannot be made in advance to collide.  It is one seed for all
  // tables of the process because the content types and the folders of a package file their
  // keys under the same hashes as the table, each made once.
  static std::uint32_t hashOf(std::string_view key);
  // The same hash under the seed `seed`: hashOf(key) is hashOf(key, s) for the process's s.
  static std::uint32_t hashOf(std::string_view key, std::uint64_t seed);
  // The row of the name with this comparison key, or kNone.
  std::uint32_t find(std::string const& key) const;
  std::uint32_t find(std::string_view key, std::uint32_t hash) const;
  // Asks the processor to fetch the slot where a look-up of `hash` starts, for a look-up made a
  // while later: the slots of a large package are more than the caches keep beside the names
  // that stream through them.  Changes nothing that can be seen.
  void prefetch(std::uint32_t hash) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[hash & (slots_.size() - 1)]);
  }
  // Adds a row for the item of index `entry`, whose part has the comparison key `key`; the
  // key must not be there yet.  Returns the row's index.
  std::uint32_t add(std::string const& key, std::uint32_t entry, std::uint32_t type);
  // As add, for `key` = keyOfItemName of the item's name and its hashOf.
  std::uint32_t addItem(std::string_view key, std::uint32_t hash, std::uint32_t entry,
                        std::uint32_t type);

  std::vector<Row> const& rows() const { return rows_; }
  bool empty() const { return rows_.empty(); }

  // The index of this type among the table's types, added if new.  `source` identifies the
  // type's element in the content types (see ContentTypeMap::find): equal addresses are the
  // same type without a comparison of texts.
  std::uint32_t typeIndex(ContentType const* source);
  std::vector<ContentType> const& types() const { return types_; }

 private:
  // A slot of the hash table: the hash of the row's key beside the row, so that a probe
  // reads one flat array and compares keys only when the hashes agree.
  struct Slot {
    std::uint32_t hash;
    std::uint32_t row;
  };

  std::size_t slotOf(std::string_view key, std::uint32_t hash) const;
  bool rowHasKey(std::uint32_t row, std::string_view key) const;
  void grow();
  void rehash(std::size_t slots);

  ZipArchive const* archive_ = nullptr;
  std::vector<Row> rows_;
  // Open addressing with linear probing; a power of two, at most half full.
  std::vector<Slot> slots_;
  // The keys of the rows whose key does not follow from their item's name, by row: none for
  // the names a package's items have, kept so that the table never depends on it.
  std::unordered_map<std::uint32_t, std::string> ownKeys_;
  std::vector<ContentType> types_;
  std::unordered_map<ContentType const*, std::uint32_t> typeSources_;
  // The source and index that typeIndex gave last.
  ContentType const* lastSource_ = nullptr;
  std::uint32_t lastType_ = kNone;
};

inline std::size_t PartKeyHash::operator()(std::string const& key) const {
  return PartTable::hashOf(key);
}

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PART_TABLE_H_
