// Opening an archive that may be hostile: the end records and the central directory are read
// and checked against each other and against the limits, so that nothing a later read relies
// on can be out of bounds.  Local headers are read when their item is (locate), and the
// items' data never here.
#include "zip_archive.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <unordered_map>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <opc/model/exceptions.h>

#include "../../core/table_seed.h"
#include "zip_directory.h"
#include "zip_entry_stream.h"
#include "zip_format.h"
#include "zip_names.h"

namespace opc {
namespace model {
namespace detail {
namespace {

using namespace zipformat;

std::string str(std::uint64_t value) { return std::to_string(value); }

// A hash of the name with ASCII letters in lower case: the duplicate check compares names
// only when this agrees, without a folded copy of each.  Sixteen bytes a step in two lanes
// where the processor has the instructions, else eight, their capitals folded all at once; a
// byte at or above 0x80 is left as it is.  `seed` enters both lanes' starting state, so that
// names that meet under one seed are apart under another.
std::uint64_t foldedHash(std::string_view name, std::uint64_t seed) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15ull;
  constexpr std::uint64_t kOther = 0xC2B2AE3D27D4EB4Full;
  constexpr std::uint64_t kHigh = 0x8080808080808080ull;
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  auto const fold = [](std::uint64_t word) {
    std::uint64_t const low = word & ~kHigh;
    // The high bit of each byte says whether its low seven bits reach 'A', and whether they
    // pass 'Z'; a capital is a byte of ASCII between the two.
    std::uint64_t const fromA = low + (0x80 - 'A') * kOnes;
    std::uint64_t const pastZ = low + (0x80 - 'Z' - 1) * kOnes;
    std::uint64_t const capitals = fromA & ~pastZ & ~word & kHigh;
    return word | (capitals >> 2);
  };
  std::uint64_t hash = seed ^ (name.size() * kFactor);
  std::uint64_t other = (seed + name.size()) * kOther;
  std::size_t at = 0;
#if defined(__SSE2__) && defined(__x86_64__)
  __m128i const a = _mm_set1_epi8('A');
  __m128i const lastLetter = _mm_set1_epi8('Z' - 'A');
  __m128i const caseBit = _mm_set1_epi8('a' - 'A');
  for (; at + 16 <= name.size(); at += 16) {
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(name.data() + at));
    __m128i const fromA = _mm_sub_epi8(bytes, a);
    __m128i const upper = _mm_cmpeq_epi8(_mm_min_epu8(fromA, lastLetter), fromA);
    __m128i const folded = _mm_or_si128(bytes, _mm_and_si128(upper, caseBit));
    auto const first = static_cast<std::uint64_t>(_mm_cvtsi128_si64(folded));
    auto const second =
        static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(folded, folded)));
    hash = (hash ^ first) * kFactor;
    other = (other ^ second) * kOther;
    hash ^= hash >> 29;
    other ^= other >> 29;
  }
#endif
  for (; at + 8 <= name.size(); at += 8) {
    std::uint64_t word;
    std::memcpy(&word, name.data() + at, sizeof word);
    hash = (hash ^ fold(word)) * kFactor;
    hash ^= hash >> 29;
  }
  std::uint64_t tail = 0;
  if (at < name.size()) std::memcpy(&tail, name.data() + at, name.size() - at);
  hash = (hash ^ fold(tail) ^ (other << 1 | other >> 63)) * kFactor;
  return hash ^ (hash >> 32);
}

// The names read so far, by their hash folded to lower case: open addressing over indexes
// into the items, each beside its hash, so that 100,000 names cost one flat array rather than
// a node each, and a probe compares names only when the hashes agree.
class FoldedNames {
 public:
  // Names come from the archive, which anyone may write: each table's hash has a seed that
  // nobody can predict, so that names cannot be chosen to pile up in one run of slots, where
  // every probe would walk all of them.
  explicit FoldedNames(std::size_t count) : seed_(opc::detail::tableSeed(this)) {
    std::size_t slots = 16;
    while (slots < 2 * count) slots *= 2;
    slots_.assign(slots, Slot{0, kEmpty});
  }

  // The hash under which `name` is filed.
  std::uint32_t hashOf(std::string_view name) const {
    std::uint64_t const full = foldedHash(name, seed_);
    return static_cast<std::uint32_t>(full ^ (full >> 32));
  }

  // Asks the processor to fetch the slot where a probe for `hash` starts, so that a probe made
  // a while later finds it at hand: the slots of a large archive are more than the caches hold
  // beside the directory that streams through them, and a probe that waited for its slot was
  // most of the time of opening one.
  void prefetch(std::uint32_t hash) const {
    __builtin_prefetch(&slots_[hash & (slots_.size() - 1)], 1);
  }

  // The index of the earliest item whose name equals `name` without regard to ASCII case,
  // or kEmpty after `name` has been added as that of item `index`; `hash` is hashOf(name).
  template <typename NameOf>
  std::uint32_t addOrFind(NameOf const& nameOf, std::string_view name, std::uint32_t hash,
                          std::uint32_t index) {
    std::size_t const mask = slots_.size() - 1;
    std::size_t slot = hash & mask;
    for (; slots_[slot].index != kEmpty; slot = (slot + 1) & mask) {
      Slot const& at = slots_[slot];
      if (at.hash == hash && equalFoldingAsciiCase(nameOf(at.index), name)) return at.index;
    }
    slots_[slot] = Slot{hash, index};
    return kEmpty;
  }

  static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t index;
  };
  std::uint64_t seed_;
  std::vector<Slot> slots_;
};

}  // namespace

ZipEntryStream::~ZipEntryStream() = default;

std::size_t ZipEntries::size() const { return archive_->size(); }

ZipEntry ZipEntries::operator[](std::size_t index) const { return archive_->entry(index); }

ZipEntry ZipEntries::at(std::size_t index) const {
  if (index >= archive_->size()) throw std::out_of_range("ZipEntries::at");
  return archive_->entry(index);
}

ZipEntry ZipEntries::Iterator::operator*() const { return archive_->entry(index_); }

ZipArchive::ZipArchive(std::shared_ptr<ZipByteSource> source) : source_(std::move(source)) {}

ZipArchive::~ZipArchive() = default;

std::unique_ptr<ZipArchive> ZipArchive::open(std::shared_ptr<ZipByteSource> source,
                                             PackageLimits const& limits) {
  DirectoryLocation const location = readEndRecords(*source);
  if (location.count > limits.maxPartCount) {
    failArchive("it holds " + str(location.count) + " items, more than the limit of " +
                str(limits.maxPartCount) + " parts");
  }
  if (location.offset > location.limit || location.limit - location.offset < location.size) {
    failArchive("its central directory lies outside the file");
  }
  if (location.size / kCentralHeaderSize < location.count) {
    failArchive("its central directory of " + str(location.size) + " bytes cannot hold the " +
                str(location.count) + " items that its end record declares");
  }

  std::unique_ptr<ZipArchive> archive(new ZipArchive(source));
  archive->directoryOffset_ = location.offset;
  archive->rawNames_ =
      decltype(archive->rawNames_)(0, ItemOffsetHash{opc::detail::tableSeed(&*archive)});
  std::vector<Item>& items = archive->items_;
  std::string& names = archive->names_;
  items.reserve(static_cast<std::size_t>(location.count));
  // Names are at most the directory's bytes but for decoded CP437, which may grow.
  names.reserve(static_cast<std::size_t>(
      std::min<std::uint64_t>(location.size - location.count * kCentralHeaderSize, 64u << 20)));
  auto const nameOf = [&](std::size_t index) {
    return std::string_view(names.data() + items[index].nameBegin, items[index].nameLength);
  };
  FoldedNames folded(static_cast<std::size_t>(location.count));
  // Each item's name is looked up among those before it one item late, once the next item's
  // header is read: its slot, asked for as the name was hashed, has come in by then.  Faults
  // are told in the order of the items all the same: a header that fails is told only after
  // the look-up of the item before it, which may fail first.
  constexpr std::uint32_t kNoItem = FoldedNames::kEmpty;
  std::uint32_t pending = kNoItem;
  std::uint32_t pendingHash = 0;
  auto const lookUpPending = [&] {
    if (pending == kNoItem) return;
    std::string_view const name = nameOf(pending);
    std::uint32_t const other = folded.addOrFind(nameOf, name, pendingHash, pending);
    pending = kNoItem;
    if (other != FoldedNames::kEmpty) {
      std::string_view const otherName = nameOf(other);
      failItem(name, otherName == name
                         ? std::string("another item has the same name")
                         : "its name equals that of item " + quoteName(std::string(otherName)) +
                               " without regard to case");
    }
  };
  DirectoryCursor cursor(*source, location.offset, location.size);
  ZipEntry entry;
  std::string decoded;
  for (std::uint64_t index = 0; index < location.count; ++index) {
    CentralName name;
    try {
      name = readCentralHeader(cursor, index, entry, decoded);
      checkLimits(entry, name.name, limits);
    } catch (...) {
      lookUpPending();
      throw;
    }
    std::uint32_t const hash = folded.hashOf(name.name);
    folded.prefetch(hash);
    lookUpPending();
    // Two items cannot share a local header: the overlap check below sees to that.
    if (!name.isRaw() && name.raw != name.name) {
      archive->rawNames_.emplace(entry.localHeaderOffset, std::string(name.raw));
    }
    pending = static_cast<std::uint32_t>(items.size());
    pendingHash = hash;
    items.push_back(Item{entry.compressedSize, entry.uncompressedSize, entry.localHeaderOffset,
                         names.size(), static_cast<std::uint32_t>(name.name.size()), entry.crc32,
                         ZipEntry::kNone, entry.method});
    names.append(name.name);
  }
  lookUpPending();
  if (cursor.remaining() != 0) {
    failArchive("its central directory holds more than the " + str(location.count) +
                " items that its end record declares");
  }
  archive->checkPlaces();
  return archive;
}

std::size_t ZipArchive::rawNameSize(Item const& item) const {
  if (rawNames_.empty()) return item.nameLength;
  auto const raw = rawNames_.find(item.localHeaderOffset);
  return raw == rawNames_.end() ? item.nameLength : raw->second.size();
}

// What can be told of an item's place without its local header: the header of its name lies
// inside the data of the archive, and so does its data after it.
void ZipArchive::checkPlaces() {
  std::uint64_t const dataLimit = directoryOffset_;
  for (std::size_t index = 0; index < items_.size(); ++index) {
    Item const& item = items_[index];
    std::size_t const headerSize = kLocalHeaderSize + rawNameSize(item);
    if (item.localHeaderOffset > dataLimit || dataLimit - item.localHeaderOffset < headerSize) {
      failItem(name(index), "its local header at offset " + str(item.localHeaderOffset) +
                                " lies outside the data of the archive");
    }
    if (dataLimit - item.localHeaderOffset - headerSize < item.compressedSize) {
      failItem(name(index), "its data of " + str(item.compressedSize) +
                                " bytes runs past the start of the central directory");
    }
  }
  checkOverlaps();
}

// Each item's bytes, from its local header to the end of its data, belong to it alone: items
// that share bytes are how a small file unpacks to an enormous one.  Checked by sorting the
// ranges, so that it costs n log n whatever the input; each item learns which item follows
// it, so that locate() can check the rest once the extra field is known.
void ZipArchive::checkOverlaps() {
  std::vector<std::uint32_t> order(items_.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::uint32_t>(i);
  auto const byOffset = [this](std::uint32_t a, std::uint32_t b) {
    return items_[a].localHeaderOffset < items_[b].localHeaderOffset;
  };
  // Writers put the items in the order of their data: such a list needs no sort.
  if (!std::is_sorted(order.begin(), order.end(), byOffset)) {
    std::sort(order.begin(), order.end(), byOffset);
  }
  for (std::size_t i = 1; i < order.size(); ++i) {
    Item& before = items_[order[i - 1]];
    Item const& after = items_[order[i]];
    // The least room an item takes from its local header on: the header with the item's
    // name and no extra field, and the data; locate() checks the extra field later.
    if (before.localHeaderOffset + kLocalHeaderSize + rawNameSize(before) + before.compressedSize >
        after.localHeaderOffset) {
      failItem(name(order[i]),
               "its bytes overlap those of item " + quoteName(std::string(name(order[i - 1]))));
    }
    before.following = order[i];
  }
}

ZipEntry ZipArchive::entry(std::size_t index) const {
  Item const& item = items_[index];
  ZipEntry result;
  result.name.assign(names_.data() + item.nameBegin, item.nameLength);
  result.method = item.method;
  result.compressedSize = item.compressedSize;
  result.uncompressedSize = item.uncompressedSize;
  result.crc32 = item.crc32;
  result.localHeaderOffset = item.localHeaderOffset;
  result.following = item.following;
  return result;
}

std::int64_t ZipArchive::find(std::string const& wanted) const {
  std::call_once(byNameOnce_, [this] {
    byName_.resize(items_.size());
    for (std::size_t i = 0; i < byName_.size(); ++i) byName_[i] = static_cast<std::uint32_t>(i);
    auto const byNameOrder = [this](std::uint32_t a, std::uint32_t b) { return name(a) < name(b); };
    // Writers that add items in path order leave nothing to sort; one pass tells.
    if (!std::is_sorted(byName_.begin(), byName_.end(), byNameOrder)) {
      std::sort(byName_.begin(), byName_.end(), byNameOrder);
    }
  });
  std::string_view const key(wanted);
  auto const found = std::lower_bound(
      byName_.begin(), byName_.end(), key,
      [this](std::uint32_t index, std::string_view value) { return name(index) < value; });
  if (found == byName_.end() || name(*found) != key) return -1;
  return static_cast<std::int64_t>(*found);
}

ZipEntry ZipArchive::locate(ZipEntry const& entry) const {
  std::size_t const headerSize = kLocalHeaderSize + rawNameOf(entry).size();
  std::vector<unsigned char> header(headerSize);
  source_->readAt(entry.localHeaderOffset, header.data(), headerSize);
  return locateFrom(entry, header.data());
}

ZipEntry ZipArchive::locateIn(ZipEntry const& entry, unsigned char const* window,
                              std::uint64_t windowOffset, std::size_t windowSize) const {
  std::size_t const headerSize = kLocalHeaderSize + rawNameOf(entry).size();
  if (entry.localHeaderOffset < windowOffset ||
      entry.localHeaderOffset - windowOffset > windowSize ||
      windowSize - (entry.localHeaderOffset - windowOffset) < headerSize) {
    return locate(entry);
  }
  return locateFrom(entry, window + (entry.localHeaderOffset - windowOffset));
}

ZipEntry ZipArchive::locateFrom(ZipEntry const& entry, unsigned char const* header) const {
  // The local name must be the same bytes, so that no reader can see another name than ours.
  // Opening made sure that a header of this name lies inside the data of the archive.
  std::string const& rawName = rawNameOf(entry);
  if (get32(header) != kLocalHeaderSignature) {
    failItem(entry.name, "its local header has a bad signature");
  }
  if ((get16(header + 6) & (kFlagEncrypted | kFlagStrongEncryption)) != 0) {
    failItem(entry.name, "it is encrypted");
  }
  if (get16(header + 8) != entry.method) {
    failItem(entry.name, "its local header gives compression method " + str(get16(header + 8)) +
                             ", the central directory " + str(entry.method));
  }
  std::size_t const nameLength = get16(header + 26);
  std::size_t const extraLength = get16(header + 28);
  if (nameLength != rawName.size() ||
      std::memcmp(header + kLocalHeaderSize, rawName.data(), nameLength) != 0) {
    failItem(entry.name, "its local header gives another name");
  }
  ZipEntry located = entry;
  located.dataOffset = entry.localHeaderOffset + kLocalHeaderSize + nameLength + extraLength;
  if (located.dataOffset > directoryOffset_ ||
      directoryOffset_ - located.dataOffset < entry.compressedSize) {
    failItem(entry.name, "its data of " + str(entry.compressedSize) +
                             " bytes runs past the start of the central directory");
  }
  if (entry.following != ZipEntry::kNone) {
    Item const& after = items_.at(entry.following);
    if (located.dataOffset + entry.compressedSize > after.localHeaderOffset) {
      failItem(name(entry.following), "its bytes overlap those of item " + quoteName(entry.name));
    }
  }
  return located;
}

std::unique_ptr<ZipEntryStream> ZipArchive::openEntry(ZipEntry const& entry) const {
  if (entry.compressedSize > kDataReadWithHeader) return makeEntryStream(source_, locate(entry));
  // A small item's data comes in the same read as its local header, with room for a short
  // extra field between them; the checks are those of locate.  Opening made sure that the
  // header lies before the central directory, so the read stays inside the archive.
  std::size_t const headerSize = kLocalHeaderSize + rawNameOf(entry).size();
  std::size_t const wanted = static_cast<std::size_t>(
      std::min<std::uint64_t>(headerSize + kExtraReadWithHeader + entry.compressedSize,
                              directoryOffset_ - entry.localHeaderOffset));
  std::vector<unsigned char> bytes(wanted);
  source_->readAt(entry.localHeaderOffset, bytes.data(), wanted);
  ZipEntry located = locateFrom(entry, bytes.data());
  std::uint64_t const dataStart = located.dataOffset - entry.localHeaderOffset;
  if (dataStart + entry.compressedSize > wanted) {
    // A longer extra field: the data is read on its own.
    return makeEntryStream(source_, located);
  }
  bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(dataStart));
  bytes.resize(static_cast<std::size_t>(entry.compressedSize));
  return makeEntryStream(source_, located, std::move(bytes));
}

std::string const& ZipArchive::rawNameOf(ZipEntry const& entry) const {
  auto const raw = rawNames_.find(entry.localHeaderOffset);
  return raw == rawNames_.end() ? entry.name : raw->second;
}

std::shared_ptr<ZipByteSource> const& ZipArchive::source() const { return source_; }

}  // namespace detail
}  // namespace model
}  // namespace opc
