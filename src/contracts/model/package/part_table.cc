#include "part_table.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <opc/model/exceptions.h>

namespace opc {
namespace model {
namespace detail {
namespace {

std::uint64_t hashOf(char const* key, std::size_t length) {
  // FNV-1a: keys are short paths; the table's slots are a power of two, so the high bits are
  // folded in.
  std::uint64_t hash = 1469598103934665603ull;
  for (std::size_t i = 0; i < length; ++i) {
    hash ^= static_cast<unsigned char>(key[i]);
    hash *= 1099511628211ull;
  }
  return hash ^ (hash >> 29);
}

}  // namespace

std::size_t PartTable::slotOf(char const* key, std::size_t length) const {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t slot = hashOf(key, length) & mask;; slot = (slot + 1) & mask) {
    std::uint32_t const row = slots_[slot];
    if (row == kNone) return slot;
    Row const& r = rows_[row];
    if (r.keyLength == length && std::memcmp(keys_.data() + r.keyBegin, key, length) == 0) {
      return slot;
    }
  }
}

void PartTable::reserve(std::size_t rows, std::size_t keyBytes) {
  rows_.reserve(rows);
  keys_.reserve(keyBytes);
  std::size_t slots = 16;
  while (slots < 2 * rows) slots *= 2;
  if (slots > slots_.size()) rehash(slots);
}

std::uint32_t PartTable::find(std::string const& key) const {
  if (slots_.empty()) return kNone;
  return slots_[slotOf(key.data(), key.size())];
}

std::uint32_t PartTable::add(std::string const& key, std::uint32_t entry, std::uint32_t type) {
  // The archive's own limits keep far below these; the check only keeps the indexes honest.
  if (rows_.size() >= std::numeric_limits<std::uint32_t>::max() / 4 ||
      keys_.size() + key.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw InvalidPackage("The package has too many parts");
  }
  if (2 * (rows_.size() + 1) > slots_.size()) grow();
  std::uint32_t const index = static_cast<std::uint32_t>(rows_.size());
  rows_.push_back(Row{static_cast<std::uint32_t>(keys_.size()),
                      static_cast<std::uint32_t>(key.size()), entry, type});
  keys_ += key;
  slots_[slotOf(key.data(), key.size())] = index;
  return index;
}

void PartTable::grow() { rehash(std::max<std::size_t>(16, 2 * slots_.size())); }

void PartTable::rehash(std::size_t slots) {
  std::vector<std::uint32_t> old;
  old.swap(slots_);
  slots_.assign(slots, kNone);
  for (std::uint32_t const row : old) {
    if (row == kNone) continue;
    Row const& r = rows_[row];
    slots_[slotOf(keys_.data() + r.keyBegin, r.keyLength)] = row;
  }
}

std::uint32_t PartTable::typeIndex(ContentType const* source) {
  auto const inserted = typeSources_.emplace(source, static_cast<std::uint32_t>(types_.size()));
  if (inserted.second) types_.push_back(*source);
  return inserted.first->second;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
