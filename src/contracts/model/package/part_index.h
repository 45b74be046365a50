// Finds a part of a package by its name: an index of the positions of the parts in their
// list, by the hash of their comparison keys.  Internal to libopcmodel: it carries
// OPC_MODEL_EXPORT only so that the unit tests can reach it.
#ifndef OPC_MODEL_PACKAGE_PART_INDEX_H_
#define OPC_MODEL_PACKAGE_PART_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// Open addressing with linear probing in one array of 8-byte slots, at most half full: a
// package of 100,000 parts costs 2 MiB here, where a hash node per part cost three times as
// much in many small blocks.  Each slot keeps 32 bits of its hash, so that a lookup compares
// the names of other parts only when those bits agree.
//
// Reading is const and changes nothing: several threads may look up at once while nobody
// adds or removes.
class OPC_MODEL_EXPORT PartIndex {
 public:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  bool empty() const { return count_ == 0; }
  std::size_t size() const { return count_; }
  void clear();

  // The position whose hash is `hash` and for which `matches(position)` holds, or kNone.
  template <typename Matches>
  std::uint32_t find(std::size_t hash, Matches const& matches) const {
    if (count_ == 0) return kNone;
    std::uint32_t const bits = static_cast<std::uint32_t>(hash);
    for (std::size_t i = bits & mask(); slots_[i].position != kNone; i = (i + 1) & mask()) {
      if (slots_[i].hash == bits && matches(slots_[i].position)) return slots_[i].position;
    }
    return kNone;
  }
  // Adds `position`, whose key hashes to `hash`.  Positions are below kNone.
  void add(std::size_t hash, std::uint32_t position);
  // Removes `position` (whose key hashes to `hash`), then lowers every position above it by
  // one, as when an element leaves the middle of the list.  Nothing if it is not held.
  void removeAndClose(std::size_t hash, std::uint32_t position);

 private:
  struct Slot {
    std::uint32_t position;  // kNone in a free slot
    std::uint32_t hash;
  };

  std::size_t mask() const { return slots_.size() - 1; }
  void place(Slot slot);
  void grow();

  std::vector<Slot> slots_;  // a power of two in size, or empty
  std::size_t count_ = 0;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PART_INDEX_H_
