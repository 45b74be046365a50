#include "filesystem/file_system_node_table.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>

#include "contracts/core/table_seed.h"

namespace opc {
namespace vkservices {
namespace detail {

// A tree holds one record per node: their size is the size of a tree.
static_assert(sizeof(NodeRecord) <= 56, "a node record grew");
// A chunk is released without running a destructor for each record it held.
static_assert(std::is_trivially_destructible_v<NodeRecord>, "a node record needs destroying");
namespace {

constexpr std::size_t kInitialSlots = 64;
// Text no record uses is given back once it is both this large and half the pool.
constexpr std::size_t kWasteWorthCompacting = 1 << 16;

[[noreturn]] void raiseFull() {
  throw opc::Exception("The file system tree is full", boost::system::error_code());
}

// One lane of the hash: a word mixed in, multiplied, and its high bits folded down.
inline std::uint64_t mixLane(std::uint64_t lane, std::uint64_t word, std::uint64_t factor) {
  lane = (lane ^ word) * factor;
  return lane ^ (lane >> 29);
}

// The hash of `count` units from `units` (see FileSystemNodeTable::hashOf).
std::uint32_t hashOfUnits(std::uint64_t seed, char16_t const* units, std::size_t count) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15ull;
  constexpr std::uint64_t kOtherFactor = 0xC2B2AE3D27D4EB4Full;
  constexpr std::uint64_t kThirdFactor = 0x165667B19E3779F9ull;
  constexpr std::uint64_t kFourthFactor = 0xD6E8FEB86659FD93ull;
  // Read as bytes: a copy of eight bytes is one load, where the units one by one were four
  // loads, shifts and ors.
  auto const* bytes = reinterpret_cast<unsigned char const*>(units);
  std::size_t const size = count * sizeof(char16_t);
  std::uint64_t first = seed ^ (count * kFactor);
  std::uint64_t second = (seed + count) * kOtherFactor;
  std::size_t at = 0;
  auto const word = [bytes](std::size_t from) {
    std::uint64_t value;
    std::memcpy(&value, bytes + from, sizeof value);
    return value;
  };
  // Thirty-two bytes a step in four lanes while the path is long: each lane waits on its own
  // multiplication alone, so the four run side by side, where two lanes left the processor
  // waiting on the chain of products for most of a path of a deep tree.
  if (size >= 64) {
    std::uint64_t third = (seed ^ (count * kOtherFactor)) * kThirdFactor;
    std::uint64_t fourth = (seed - count) * kFourthFactor;
    for (; at + 32 <= size; at += 32) {
      first = mixLane(first, word(at), kFactor);
      second = mixLane(second, word(at + 8), kOtherFactor);
      third = mixLane(third, word(at + 16), kThirdFactor);
      fourth = mixLane(fourth, word(at + 24), kFourthFactor);
    }
    first = mixLane(first, third, kFactor);
    second = mixLane(second, fourth, kOtherFactor);
  }
  for (; at + 16 <= size; at += 16) {
    first = mixLane(first, word(at), kFactor);
    second = mixLane(second, word(at + 8), kOtherFactor);
  }
  if (at + 8 <= size) {
    first = mixLane(first, word(at), kFactor);
    at += 8;
  }
  std::uint64_t tail = 0;
  if (at < size) std::memcpy(&tail, bytes + at, size - at);
  std::uint64_t hash = (first ^ tail ^ (second << 31 | second >> 33)) * kFactor;
  hash ^= hash >> 32;
  return static_cast<std::uint32_t>(hash);
}

}  // namespace

FileSystemNodeTable::FileSystemNodeTable()
    : seed_(opc::detail::tableSeed(this)),
      size_(0),
      freeHead_(kNoNode),
      live_(0),
      slots_(kInitialSlots, kEmptySlot),
      wasted_(0) {
  // Paths come from documents anyone may write: a seed that nobody can predict keeps crafted
  // names from piling up in one run of slots, where every look-up would walk all of them.
  NodeIndex const root = allocate();
  (*this)[root].hash = hashOf(u"/");
  place(root);
}

FileSystemNodeTable::FileSystemNodeTable(FileSystemNodeTable&&) noexcept = default;
FileSystemNodeTable& FileSystemNodeTable::operator=(FileSystemNodeTable&&) noexcept = default;
FileSystemNodeTable::~FileSystemNodeTable() = default;

NodeIndex FileSystemNodeTable::find(std::u16string_view path) const {
  return find(path, hashOf(path));
}

NodeIndex FileSystemNodeTable::find(std::u16string_view path, std::uint32_t hash) const {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    std::uint64_t const entry = slots_[slot];
    if (entry == kEmptySlot) return kNoNode;
    if (hashOfSlot(entry) == hash && matches(indexOfSlot(entry), path)) {
      return indexOfSlot(entry);
    }
  }
}

NodeIndex FileSystemNodeTable::insert(NodeIndex parent, std::u16string_view path) {
  return insert(parent, path, hashOf(path));
}

NodeIndex FileSystemNodeTable::insert(NodeIndex parent, std::u16string_view path,
                                      std::uint32_t hash) {
  // Below the root the name is all that follows its "/"; elsewhere what follows the last "/".
  std::u16string_view const name =
      parent == kRootNode ? path.substr(1) : path.substr(path.rfind(u'/') + 1);
  std::uint32_t const nameStart = store(name);
  growIndexIfFull();
  NodeIndex const index = allocate();
  NodeRecord& record = (*this)[index];
  record.parent = parent;
  record.hash = hash;
  record.nameStart = nameStart;
  record.nameSize = static_cast<std::uint32_t>(name.size());
  place(index);
  return index;
}

void FileSystemNodeTable::erase(NodeIndex index) {
  NodeRecord& record = (*this)[index];
  // Backward-shift deletion: every record after the freed slot in its run moves up if its
  // home slot allows, so that no search stops early at the hole.
  std::size_t const mask = slots_.size() - 1;
  std::size_t hole = record.hash & mask;
  while (indexOfSlot(slots_[hole]) != index) hole = (hole + 1) & mask;
  for (std::size_t next = (hole + 1) & mask; slots_[next] != kEmptySlot; next = (next + 1) & mask) {
    std::size_t const home = hashOfSlot(slots_[next]) & mask;
    // Moves when the home slot does not lie cyclically in (hole, next].
    bool const stays = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
    if (!stays) {
      slots_[hole] = slots_[next];
      hole = next;
    }
  }
  slots_[hole] = kEmptySlot;
  release(record.nameSize + record.contentSize);
  record = NodeRecord();
  record.nextSibling = freeHead_;
  freeHead_ = index;
  --live_;
  compactIfWasteful();
}

std::u16string_view FileSystemNodeTable::nameOf(NodeIndex index) const {
  NodeRecord const& record = (*this)[index];
  return std::u16string_view(pool_.data() + record.nameStart, record.nameSize);
}

std::u16string_view FileSystemNodeTable::contentOf(NodeIndex index) const {
  NodeRecord const& record = (*this)[index];
  return std::u16string_view(pool_.data() + record.contentStart, record.contentSize);
}

void FileSystemNodeTable::setContent(NodeIndex index, std::u16string_view content) {
  if (contentOf(index) == content) return;
  clearContent(index);
  std::uint32_t const start = store(content);
  NodeRecord& record = (*this)[index];
  record.contentStart = start;
  record.contentSize = static_cast<std::uint32_t>(content.size());
}

void FileSystemNodeTable::clearContent(NodeIndex index) {
  NodeRecord& record = (*this)[index];
  release(record.contentSize);
  record.contentStart = 0;
  record.contentSize = 0;
  compactIfWasteful();
}

void FileSystemNodeTable::appendPath(NodeIndex index, std::u16string& out) const {
  if (index == kRootNode) {
    out.push_back(u'/');
    return;
  }
  // The chain is walked twice rather than kept, so that no depth needs memory of its own.
  std::size_t size = 0;
  for (NodeIndex at = index; at != kRootNode; at = (*this)[at].parent) {
    size += (*this)[at].nameSize + 1;
  }
  std::size_t const start = out.size();
  out.resize(start + size);
  std::size_t end = out.size();
  for (NodeIndex at = index; at != kRootNode; at = (*this)[at].parent) {
    std::u16string_view const name = nameOf(at);
    end -= name.size();
    name.copy(&out[end], name.size());
    out[--end] = u'/';
  }
}

std::uint32_t FileSystemNodeTable::hashOf(std::u16string_view path) const {
  // Eight bytes a lane, each lane multiplied and shifted, then joined and folded to 32 bits.
  // The paths of a deep tree run to a thousand units and more: one lane of four units,
  // composed unit by unit, made the hash the dearest step of loading one.
  return hashOfUnits(seed_, path.data(), path.size());
}

bool FileSystemNodeTable::matches(NodeIndex index, std::u16string_view path) const {
  // From the end of the path upwards, one name at a time.
  for (;;) {
    if (index == kRootNode) return path == u"/";
    std::u16string_view const name = nameOf(index);
    // As one block of memory: char16_t texts otherwise compare unit by unit, which made this
    // the dearest step of a look-up.
    if (path.size() <= name.size() ||
        (!name.empty() && std::memcmp(path.data() + (path.size() - name.size()), name.data(),
                                      name.size() * sizeof(char16_t)) != 0)) {
      return false;
    }
    path.remove_suffix(name.size());
    index = (*this)[index].parent;
    if (index == kRootNode) return path == u"/";
    if (path.back() != u'/') return false;
    path.remove_suffix(1);
  }
}

std::uint32_t FileSystemNodeTable::store(std::u16string_view text) {
  if (pool_.size() + text.size() > std::numeric_limits<std::uint32_t>::max()) raiseFull();
  auto const start = static_cast<std::uint32_t>(pool_.size());
  // A quarter more at a time rather than double: the pool holds most of the tree's bytes,
  // and a spare half of it would cost more than the copies of a slower growth.
  if (pool_.size() + text.size() > pool_.capacity()) {
    pool_.reserve(pool_.size() + text.size() + pool_.size() / 4 + 1024);
  }
  pool_.insert(pool_.end(), text.begin(), text.end());
  return start;
}

void FileSystemNodeTable::reserveText(std::size_t units) {
  if (units > pool_.capacity() && units <= std::numeric_limits<std::uint32_t>::max()) {
    pool_.reserve(units);
  }
}

void FileSystemNodeTable::release(std::uint32_t size) { wasted_ += size; }

void FileSystemNodeTable::compactIfWasteful() {
  if (wasted_ < kWasteWorthCompacting || wasted_ * 2 < pool_.size()) return;
  std::vector<char16_t> kept;
  kept.reserve(pool_.size() - wasted_);
  for (NodeIndex index = 0; index < size_; ++index) {
    NodeRecord& record = (*this)[index];
    if (!record.inUse) continue;
    auto const nameStart = static_cast<std::uint32_t>(kept.size());
    std::u16string_view const name = nameOf(index);
    kept.insert(kept.end(), name.begin(), name.end());
    record.nameStart = nameStart;
    auto const contentStart = static_cast<std::uint32_t>(kept.size());
    std::u16string_view const content = contentOf(index);
    kept.insert(kept.end(), content.begin(), content.end());
    record.contentStart = contentStart;
  }
  pool_ = std::move(kept);
  wasted_ = 0;
}

void FileSystemNodeTable::growIndexIfFull() {
  // At most half the slots in use keeps the runs of linear probing short.
  if ((live_ + 1) * 2 <= slots_.size()) return;
  std::vector<std::uint64_t> const old = std::exchange(slots_, {});
  slots_.assign(old.size() * 2, kEmptySlot);
  std::size_t const mask = slots_.size() - 1;
  // Each slot carries its record's hash, so it is placed again from itself alone: reading the
  // hash from the record, which may lie anywhere among the chunks, waited on memory for every
  // record of a large tree at every growth.
  for (std::uint64_t const entry : old) {
    if (entry == kEmptySlot) continue;
    std::size_t slot = hashOfSlot(entry) & mask;
    while (slots_[slot] != kEmptySlot) slot = (slot + 1) & mask;
    slots_[slot] = entry;
  }
}

void FileSystemNodeTable::place(NodeIndex index) {
  std::size_t const mask = slots_.size() - 1;
  std::uint32_t const hash = (*this)[index].hash;
  std::size_t slot = hash & mask;
  while (slots_[slot] != kEmptySlot) slot = (slot + 1) & mask;
  slots_[slot] = (std::uint64_t{hash} << 32) | index;
}

NodeIndex FileSystemNodeTable::allocate() {
  NodeIndex index = freeHead_;
  if (index != kNoNode) {
    freeHead_ = (*this)[index].nextSibling;
    (*this)[index] = NodeRecord();
  } else {
    if (size_ == kNoNode - 1) raiseFull();
    if ((size_ & kMask) == 0) {
      Chunk chunk(static_cast<NodeRecord*>(::operator new(sizeof(NodeRecord) * (kMask + 1))));
      chunks_.push_back(std::move(chunk));
    }
    index = size_++;
    new (&(*this)[index]) NodeRecord();
  }
  (*this)[index].inUse = true;
  ++live_;
  return index;
}

void FileSystemNodeTable::ReleaseChunk::operator()(NodeRecord* chunk) const noexcept {
  ::operator delete(chunk);
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
