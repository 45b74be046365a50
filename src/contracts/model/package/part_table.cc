#include "part_table.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <opc/model/exceptions.h>

#include "../../core/table_seed.h"
#include "../part_name_rules.h"
#include "../zip/zip_archive.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// The starting states of the hash's four lanes under one seed, each its own mix of the seed,
// made once: a key then pays an exclusive or for the seed rather than a product for each
// lane.
struct Lanes {
  std::uint64_t first;
  std::uint64_t second;
  std::uint64_t third;
  std::uint64_t fourth;
};

Lanes lanesOf(std::uint64_t seed) {
  return Lanes{opc::detail::mixSeedBits(seed), opc::detail::mixSeedBits(seed + 1),
               opc::detail::mixSeedBits(seed + 2), opc::detail::mixSeedBits(seed + 3)};
}

inline std::uint32_t hashUnder(Lanes const& lanes, std::string_view key) {
  // Eight bytes a lane, each lane multiplied and shifted, then joined and folded to 32 bits:
  // keys are paths of a few dozen to hundreds of bytes, and a step per byte, or a lane waiting
  // on another's multiply, cost more than the look-up it serves.  Keys of 64 bytes and more go
  // thirty-two bytes a step in four lanes, which run side by side; the rest sixteen in two.
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15ull;
  constexpr std::uint64_t kOther = 0xC2B2AE3D27D4EB4Full;
  constexpr std::uint64_t kThird = 0x165667B19E3779F9ull;
  constexpr std::uint64_t kFourth = 0xD6E8FEB86659FD93ull;
  auto const word = [&key](std::size_t from) {
    std::uint64_t value;
    std::memcpy(&value, key.data() + from, sizeof value);
    return value;
  };
  auto const mix = [](std::uint64_t lane, std::uint64_t value, std::uint64_t factor) {
    lane = (lane ^ value) * factor;
    return lane ^ (lane >> 29);
  };
  // The seed enters every lane's starting state, so that which keys meet in a lane, and so in
  // a run of slots, differs from seed to seed.
  std::uint64_t hash = lanes.first ^ (key.size() * kFactor);
  std::uint64_t other = lanes.second ^ key.size();
  std::size_t at = 0;
  if (key.size() >= 64) {
    std::uint64_t third = lanes.third;
    std::uint64_t fourth = lanes.fourth;
    for (; at + 32 <= key.size(); at += 32) {
      hash = mix(hash, word(at), kFactor);
      other = mix(other, word(at + 8), kOther);
      third = mix(third, word(at + 16), kThird);
      fourth = mix(fourth, word(at + 24), kFourth);
    }
    hash = mix(hash, third, kFactor);
    other = mix(other, fourth, kOther);
  }
  for (; at + 16 <= key.size(); at += 16) {
    hash = mix(hash, word(at), kFactor);
    other = mix(other, word(at + 8), kOther);
  }
  if (at + 8 <= key.size()) {
    hash = mix(hash, word(at), kFactor);
    at += 8;
  }
  std::uint64_t tail = 0;
  if (at < key.size()) std::memcpy(&tail, key.data() + at, key.size() - at);
  hash = (hash ^ tail ^ (other << 1 | other >> 63)) * kFactor;
  hash ^= hash >> 32;
  return static_cast<std::uint32_t>(hash);
}

}  // namespace

std::uint32_t PartTable::hashOf(std::string_view key) {
  // One seed for the process (see the header), taken at the first key.
  static Lanes const lanes = lanesOf(opc::detail::tableSeed(&lanes));
  return hashUnder(lanes, key);
}

std::uint32_t PartTable::hashOf(std::string_view key, std::uint64_t seed) {
  return hashUnder(lanesOf(seed), key);
}

std::string keyOfItemName(std::string_view itemName) {
  std::string key;
  keyOfItemName(itemName, key);
  return key;
}

void keyOfItemName(std::string_view itemName, std::string& key) {
  key.clear();
  // Only ever grown: a smaller reserve would give the room back, and a loop over names
  // would pay an allocation per name.
  if (key.capacity() < itemName.size() + 1) key.reserve(itemName.size() + 1);
  key += '/';
  appendPartNameKeyBytes(key, itemName);
}

bool isKeyOfItemName(std::string_view key, std::string_view itemName) {
  if (key.size() < itemName.size() + 1 || key[0] != '/') return false;
  std::size_t at = 1;
  for (char const byte : itemName) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value >= 0x80) {
      if (key.size() - at < 3 || key[at] != '%' || key[at + 1] != kPartNameKeyHex[value >> 4] ||
          key[at + 2] != kPartNameKeyHex[value & 0xF]) {
        return false;
      }
      at += 3;
    } else {
      if (at == key.size()) return false;
      char const lower =
          (value >= 'A' && value <= 'Z') ? static_cast<char>(value - 'A' + 'a') : byte;
      if (key[at] != lower) return false;
      ++at;
    }
  }
  return at == key.size();
}

bool isKeyPrefixOfItemName(std::string_view prefix, std::string_view itemName) {
  if (prefix.empty()) return true;
  if (prefix[0] != '/') return false;
  std::size_t at = 1;
  // The key's bytes are made from the name's as they are compared, until the prefix ends.
  for (char const byte : itemName) {
    unsigned char const value = static_cast<unsigned char>(byte);
    char made[3];
    std::size_t count = 1;
    if (value >= 0x80) {
      made[0] = '%';
      made[1] = kPartNameKeyHex[value >> 4];
      made[2] = kPartNameKeyHex[value & 0xF];
      count = 3;
    } else {
      made[0] = (value >= 'A' && value <= 'Z') ? static_cast<char>(value - 'A' + 'a') : byte;
    }
    for (std::size_t i = 0; i < count; ++i) {
      if (at == prefix.size()) return true;
      if (prefix[at] != made[i]) return false;
      ++at;
    }
  }
  return at == prefix.size();
}

bool PartTable::rowHasKey(std::uint32_t row, std::string_view key) const {
  if (!ownKeys_.empty()) {
    auto const own = ownKeys_.find(row);
    if (own != ownKeys_.end()) return own->second == key;
  }
  return isKeyOfItemName(key, archive_->name(rows_[row].entry));
}

std::size_t PartTable::slotOf(std::string_view key, std::uint32_t hash) const {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    Slot const& at = slots_[slot];
    if (at.row == kNone) return slot;
    if (at.hash == hash && rowHasKey(at.row, key)) return slot;
  }
}

void PartTable::reserve(ZipArchive const& archive, std::size_t rows) {
  archive_ = &archive;
  rows_.reserve(rows);
  std::size_t slots = 16;
  while (slots < 2 * rows) slots *= 2;
  if (slots > slots_.size()) rehash(slots);
}

std::uint32_t PartTable::find(std::string const& key) const {
  if (slots_.empty()) return kNone;
  return find(key, hashOf(key));
}

std::uint32_t PartTable::find(std::string_view key, std::uint32_t hash) const {
  if (slots_.empty()) return kNone;
  return slots_[slotOf(key, hash)].row;
}

std::uint32_t PartTable::add(std::string const& key, std::uint32_t entry, std::uint32_t type) {
  std::uint32_t const index = static_cast<std::uint32_t>(rows_.size());
  bool const own = !isKeyOfItemName(key, archive_->name(entry));
  addItem(key, hashOf(key), entry, type);
  if (own) ownKeys_.emplace(index, key);
  return index;
}

std::uint32_t PartTable::addItem(std::string_view key, std::uint32_t hash, std::uint32_t entry,
                                 std::uint32_t type) {
  // The archive's own limits keep far below this; the check only keeps the indexes honest.
  if (rows_.size() >= std::numeric_limits<std::uint32_t>::max() / 4) {
    throw InvalidPackage("The package has too many parts");
  }
  if (2 * (rows_.size() + 1) > slots_.size()) grow();
  std::uint32_t const index = static_cast<std::uint32_t>(rows_.size());
  rows_.push_back(Row{entry, type});
  slots_[slotOf(key, hash)] = Slot{hash, index};
  return index;
}

void PartTable::grow() { rehash(std::max<std::size_t>(16, 2 * slots_.size())); }

void PartTable::rehash(std::size_t slots) {
  std::vector<Slot> old(slots, Slot{0, kNone});
  old.swap(slots_);
  std::size_t const mask = slots - 1;
  // Every key is different: a row needs only the first free slot from its hash on.
  for (Slot const& from : old) {
    if (from.row == kNone) continue;
    std::size_t slot = from.hash & mask;
    while (slots_[slot].row != kNone) slot = (slot + 1) & mask;
    slots_[slot] = from;
  }
}

std::uint32_t PartTable::typeIndex(ContentType const* source) {
  // The parts of one folder mostly share their type: the last answer serves them without a
  // look-up.
  if (source == lastSource_) return lastType_;
  // Looked up before it is added: emplace would make a node for every part, to drop it.
  auto const found = typeSources_.find(source);
  std::uint32_t index;
  if (found != typeSources_.end()) {
    index = found->second;
  } else {
    index = static_cast<std::uint32_t>(types_.size());
    types_.push_back(*source);
    typeSources_.emplace(source, index);
  }
  lastSource_ = source;
  lastType_ = index;
  return index;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
