// The folders of the parts read from an archive: every proper leading run of segments ("/a",
// "/a/b" of "/a/b/c.xml") of their comparison keys, each once.  Internal to libopcmodel.
#ifndef OPC_MODEL_PACKAGE_FOLDER_KEYS_H_
#define OPC_MODEL_PACKAGE_FOLDER_KEYS_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "../zip/zip_archive.h"
#include "part_table.h"

namespace opc {
namespace model {
namespace detail {

// A set of keys filed under a hash that the caller gives (PartTable::hashOf), so that a key
// that was hashed for the part table is looked up here without a second pass over its bytes.
// A folder's key is a leading run of the key of an item's name, so the set keeps the item's
// index and the run's length, not the bytes: a package of many folders costs a few flat
// arrays, not a node and a string for each.  Only added to, until cleared.
class FolderKeys {
 public:
  // Binds the set to the archive whose item names give the keys; it must outlive the set's
  // use.
  void bind(ZipArchive const& archive) { archive_ = &archive; }

  bool empty() const { return spans_.empty(); }

  void clear() {
    spans_.clear();
    spans_.shrink_to_fit();
    slots_.clear();
    slots_.shrink_to_fit();
  }

  // As PartTable::prefetch, for contains() or add() with `hash`.
  void prefetch(std::uint32_t hash) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[hash & (slots_.size() - 1)]);
  }

  bool contains(std::string_view key, std::uint32_t hash) const {
    if (slots_.empty()) return false;
    return slots_[slotOf(key, hash)].span != kEmpty;
  }

  // Adds `key`, a leading run of the key of item `entry`'s name, unless it is there already.
  void add(std::string_view key, std::uint32_t hash, std::uint32_t entry) {
    if (2 * (spans_.size() + 1) > slots_.size()) grow();
    Slot& slot = slots_[slotOf(key, hash)];
    if (slot.span != kEmpty) return;
    slot = Slot{hash, static_cast<std::uint32_t>(spans_.size())};
    spans_.push_back(Span{entry, static_cast<std::uint32_t>(key.size())});
  }

 private:
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;

  struct Slot {
    std::uint32_t hash;
    std::uint32_t span;
  };
  struct Span {
    std::uint32_t entry;
    std::uint32_t size;
  };

  // The slot of `key`, or the empty one where it would go.
  std::size_t slotOf(std::string_view key, std::uint32_t hash) const {
    std::size_t const mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      Slot const& at = slots_[slot];
      if (at.span == kEmpty) return slot;
      if (at.hash != hash) continue;
      Span const& span = spans_[at.span];
      if (span.size == key.size() && isKeyPrefixOfItemName(key, archive_->name(span.entry))) {
        return slot;
      }
    }
  }

  void grow() {
    std::size_t const size = slots_.empty() ? 64 : 2 * slots_.size();
    std::vector<Slot> old(size, Slot{0, kEmpty});
    old.swap(slots_);
    std::size_t const mask = size - 1;
    for (Slot const& from : old) {
      if (from.span == kEmpty) continue;
      std::size_t slot = from.hash & mask;
      while (slots_[slot].span != kEmpty) slot = (slot + 1) & mask;
      slots_[slot] = from;
    }
  }

  ZipArchive const* archive_ = nullptr;
  std::vector<Span> spans_;
  // Open addressing with linear probing; a power of two, at most half full.
  std::vector<Slot> slots_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_FOLDER_KEYS_H_
