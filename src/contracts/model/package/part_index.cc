#include "part_index.h"

#include <utility>

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kFirstSize = 16;

}  // namespace

void PartIndex::clear() {
  std::vector<Slot>().swap(slots_);
  count_ = 0;
}

void PartIndex::place(Slot slot) {
  std::size_t i = slot.hash & mask();
  while (slots_[i].position != kNone) i = (i + 1) & mask();
  slots_[i] = slot;
}

void PartIndex::grow() {
  std::vector<Slot> old(slots_.empty() ? kFirstSize : slots_.size() * 2, Slot{kNone, 0});
  old.swap(slots_);
  for (Slot const& slot : old) {
    if (slot.position != kNone) place(slot);
  }
}

void PartIndex::add(std::size_t hash, std::uint32_t position) {
  if ((count_ + 1) * 2 > slots_.size()) grow();
  place(Slot{position, static_cast<std::uint32_t>(hash)});
  ++count_;
}

void PartIndex::removeAndClose(std::size_t hash, std::uint32_t position) {
  if (count_ == 0) return;
  std::size_t hole = static_cast<std::uint32_t>(hash) & mask();
  while (slots_[hole].position != position) {
    if (slots_[hole].position == kNone) return;
    hole = (hole + 1) & mask();
  }
  // Backward shift: every slot of the run after the hole whose home is not between the hole
  // and itself moves into the hole, so that no lookup stops early at a free slot and no
  // marker of a removed slot is left behind to lengthen later lookups.
  for (std::size_t next = (hole + 1) & mask(); slots_[next].position != kNone;
       next = (next + 1) & mask()) {
    std::size_t const home = slots_[next].hash & mask();
    bool const stays = hole <= next ? hole < home && home <= next : hole < home || home <= next;
    if (stays) continue;
    slots_[hole] = slots_[next];
    hole = next;
  }
  slots_[hole].position = kNone;
  --count_;
  for (Slot& slot : slots_) {
    if (slot.position != kNone && slot.position > position) --slot.position;
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
