// The parts of an archive opened for Read, one small row each: the comparison key of the name
// in one shared block of text, the archive item by index and the content type by index into
// the package's few distinct types.  A PartRecord is made only when a part is asked for, so
// that opening a package of 100,000 parts costs a few large blocks rather than hundreds of
// thousands of small ones.  Internal to libopcmodel; exported only for its unit tests.
#ifndef OPC_MODEL_PACKAGE_PART_TABLE_H_
#define OPC_MODEL_PACKAGE_PART_TABLE_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <opc/model/content_type.h>
#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

class OPC_MODEL_EXPORT PartTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Row {
    std::uint32_t keyBegin;
    std::uint32_t keyLength;
    // The index of the item in ZipArchive::entries().
    std::uint32_t entry;
    // The index into types(), or kNone for a relationships part, which is kept here only so
    // that a second item of the same name is found.
    std::uint32_t type;
  };

  // Makes room for `rows` rows whose keys take `keyBytes` bytes in all, so that a table
  // filled from an archive grows in one step rather than by doubling.
  void reserve(std::size_t rows, std::size_t keyBytes);
  // The row of the name with this comparison key, or kNone.
  std::uint32_t find(std::string const& key) const;
  // Adds a row, which must not be there yet; returns its index.
  std::uint32_t add(std::string const& key, std::uint32_t entry, std::uint32_t type);

  std::vector<Row> const& rows() const { return rows_; }
  bool empty() const { return rows_.empty(); }

  // The index of this type among the table's types, added if new.  `source` identifies the
  // type's element in the content types (see ContentTypeMap::find): equal addresses are the
  // same type without a comparison of texts.
  std::uint32_t typeIndex(ContentType const* source);
  std::vector<ContentType> const& types() const { return types_; }

 private:
  std::size_t slotOf(char const* key, std::size_t length) const;
  void grow();
  void rehash(std::size_t slots);

  std::string keys_;
  std::vector<Row> rows_;
  // Open addressing with linear probing over row indexes; a power of two, at most half full.
  std::vector<std::uint32_t> slots_;
  std::vector<ContentType> types_;
  std::unordered_map<ContentType const*, std::uint32_t> typeSources_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PART_TABLE_H_
