// Opening an archive that may be hostile: the end records and the central directory are read
// and checked against each other and against the limits, so that nothing a later read relies
// on can be out of bounds.  Local headers are read when their item is (locate), and the
// items' data never here.
#include "zip_archive.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <zlib.h>

#include <opc/model/exceptions.h>

#include "zip_entry_stream.h"
#include "zip_format.h"
#include "zip_names.h"

namespace opc {
namespace model {
namespace detail {
namespace {

using namespace zipformat;

[[noreturn]] void fail(std::string const& problem) {
  throw InvalidPackage("Invalid ZIP archive: " + problem);
}

[[noreturn]] void failItem(std::string const& name, std::string const& problem) {
  throw InvalidPackage("Invalid ZIP item " + quoteName(name) + ": " + problem);
}

std::string str(std::uint64_t value) { return std::to_string(value); }

// Where the central directory is, as the end records give it.
struct DirectoryLocation {
  std::uint64_t count = 0;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  // The directory must end at or before this offset: the first end record after it.
  std::uint64_t limit = 0;
};

DirectoryLocation readZip64Records(ZipByteSource const& source, std::uint64_t locatorOffset) {
  unsigned char locator[kZip64LocatorSize];
  source.readAt(locatorOffset, locator, sizeof locator);
  std::uint32_t const recordDisk = get32(locator + 4);
  std::uint64_t const recordOffset = get64(locator + 8);
  std::uint32_t const diskCount = get32(locator + 16);
  if (recordDisk != 0 || diskCount > 1) fail("archives that span several disks are not supported");
  if (recordOffset > locatorOffset || locatorOffset - recordOffset < kZip64EndOfCentralDirSize) {
    fail("its ZIP64 end of central directory record lies outside the file");
  }
  unsigned char record[kZip64EndOfCentralDirSize];
  source.readAt(recordOffset, record, sizeof record);
  if (get32(record) != kZip64EndOfCentralDirSignature) {
    fail("its ZIP64 end of central directory record has a bad signature");
  }
  if (get32(record + 16) != 0 || get32(record + 20) != 0 ||
      get64(record + 24) != get64(record + 32)) {
    fail("archives that span several disks are not supported");
  }
  DirectoryLocation location;
  location.count = get64(record + 32);
  location.size = get64(record + 40);
  location.offset = get64(record + 48);
  location.limit = recordOffset;
  return location;
}

DirectoryLocation readEndRecords(ZipByteSource const& source) {
  std::uint64_t const size = source.size();
  // The end record is the last 22 bytes but for a comment of at most 64 KiB, so the search
  // never reads more than that, whatever the file's size.
  std::size_t const tailSize = static_cast<std::size_t>(
      std::min<std::uint64_t>(size, kEndOfCentralDirSize + kMaxCommentSize));
  if (tailSize < kEndOfCentralDirSize) {
    fail("no end of central directory record was found (not a ZIP archive, or truncated)");
  }
  std::vector<unsigned char> tail(tailSize);
  std::uint64_t const tailOffset = size - tailSize;
  source.readAt(tailOffset, tail.data(), tailSize);
  std::size_t position = tailSize - kEndOfCentralDirSize + 1;
  bool found = false;
  while (position-- > 0) {
    unsigned char const* p = tail.data() + position;
    // The record must end exactly where the file ends: a signature that happens to occur in
    // the comment, or a record whose comment was cut off, does not count.
    if (get32(p) == kEndOfCentralDirSignature &&
        position + kEndOfCentralDirSize + get16(p + 20) == tailSize) {
      found = true;
      break;
    }
  }
  if (!found)
    fail("no end of central directory record was found (not a ZIP archive, or truncated)");
  unsigned char const* p = tail.data() + position;
  std::uint64_t const recordOffset = tailOffset + position;
  if (recordOffset >= kZip64LocatorSize) {
    unsigned char signature[4];
    source.readAt(recordOffset - kZip64LocatorSize, signature, 4);
    if (get32(signature) == kZip64LocatorSignature) {
      return readZip64Records(source, recordOffset - kZip64LocatorSize);
    }
  }
  if (get16(p + 4) != 0 || get16(p + 6) != 0 || get16(p + 8) != get16(p + 10)) {
    fail("archives that span several disks are not supported");
  }
  DirectoryLocation location;
  location.count = get16(p + 10);
  location.size = get32(p + 12);
  location.offset = get32(p + 16);
  location.limit = recordOffset;
  return location;
}

// Reads the central directory front to back through one window of bounded size.
class DirectoryCursor {
 public:
  DirectoryCursor(ZipByteSource const& source, std::uint64_t offset, std::uint64_t size)
      : source_(source),
        next_(offset),
        left_(size),
        window_(static_cast<std::size_t>(std::min<std::uint64_t>(kWindow, size))) {}

  // The next `count` bytes, or nullptr if the directory holds fewer.  The pointer stays
  // valid until the next call.
  unsigned char const* take(std::size_t count) {
    if (end_ - begin_ < count) {
      std::size_t const kept = end_ - begin_;
      if (kept + left_ < count) return nullptr;
      if (window_.size() < count) window_.resize(count);
      std::memmove(window_.data(), window_.data() + begin_, kept);
      std::size_t const more =
          static_cast<std::size_t>(std::min<std::uint64_t>(window_.size() - kept, left_));
      source_.readAt(next_, window_.data() + kept, more);
      next_ += more;
      left_ -= more;
      begin_ = 0;
      end_ = kept + more;
    }
    unsigned char const* result = window_.data() + begin_;
    begin_ += count;
    return result;
  }

  std::uint64_t remaining() const { return left_ + (end_ - begin_); }

 private:
  static constexpr std::size_t kWindow = 256 * 1024;
  ZipByteSource const& source_;
  std::uint64_t next_;
  std::uint64_t left_;
  std::vector<unsigned char> window_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

// What the extra fields of a central header say.
struct ExtraFields {
  bool hasUnicodePath = false;
  std::string unicodePath;
};

// Reads the ZIP64 field where the 32-bit values are saturated, and the Info-ZIP Unicode Path
// field.  A malformed tail of the extra data is ignored: some writers pad it.
ExtraFields readExtraFields(unsigned char const* extra, std::size_t size, std::string const& name,
                            std::string const& rawName, ZipEntry& entry, std::uint32_t disk) {
  ExtraFields result;
  bool needUncompressed = entry.uncompressedSize == 0xFFFFFFFF;
  bool needCompressed = entry.compressedSize == 0xFFFFFFFF;
  bool needOffset = entry.localHeaderOffset == 0xFFFFFFFF;
  bool needDisk = disk == 0xFFFF;
  bool zip64Seen = false;
  std::size_t position = 0;
  while (size - position >= 4) {
    std::uint16_t const tag = get16(extra + position);
    std::uint16_t const length = get16(extra + position + 2);
    if (length > size - position - 4) break;
    unsigned char const* data = extra + position + 4;
    if (tag == kExtraZip64 && !zip64Seen) {
      zip64Seen = true;
      std::size_t at = 0;
      auto take64 = [&](std::uint64_t& value) {
        if (length - at < 8) failItem(name, "its ZIP64 extra field is too short");
        value = get64(data + at);
        at += 8;
      };
      if (needUncompressed) take64(entry.uncompressedSize);
      if (needCompressed) take64(entry.compressedSize);
      if (needOffset) take64(entry.localHeaderOffset);
      if (needDisk) {
        if (length - at < 4) failItem(name, "its ZIP64 extra field is too short");
        if (get32(data + at) != 0) fail("archives that span several disks are not supported");
      }
      needUncompressed = needCompressed = needOffset = needDisk = false;
    } else if (tag == kExtraUnicodePath && length >= 5 && data[0] == 1) {
      // The field only counts while it matches the name it was written for.
      std::uint32_t const nameCrc = static_cast<std::uint32_t>(
          crc32_z(0, reinterpret_cast<unsigned char const*>(rawName.data()), rawName.size()));
      if (get32(data + 1) == nameCrc) {
        result.hasUnicodePath = true;
        result.unicodePath.assign(reinterpret_cast<char const*>(data + 5), length - 5u);
      }
    }
    position += 4u + length;
  }
  if (needUncompressed || needCompressed || needOffset) {
    failItem(name, "its ZIP64 extra field is missing");
  }
  if (needDisk) fail("archives that span several disks are not supported");
  return result;
}

void checkLimits(ZipEntry const& entry, PackageLimits const& limits) {
  if (entry.method == kMethodStored && entry.compressedSize != entry.uncompressedSize) {
    failItem(entry.name, "it is stored, but its size of " + str(entry.compressedSize) +
                             " bytes differs from its uncompressed size of " +
                             str(entry.uncompressedSize) + " bytes");
  }
  if (entry.uncompressedSize > limits.maxPartSize) {
    failItem(entry.name, "its uncompressed size of " + str(entry.uncompressedSize) +
                             " bytes exceeds the limit of " + str(limits.maxPartSize) + " bytes");
  }
  if (entry.method == kMethodDeflated && entry.uncompressedSize >= limits.ratioExemptSize) {
    std::uint64_t const compressed = entry.compressedSize;
    bool const tooHigh =
        compressed == 0 ||
        (compressed <= UINT64_MAX / std::max<std::uint64_t>(limits.maxCompressionRatio, 1)
             ? entry.uncompressedSize > compressed * limits.maxCompressionRatio
             : false);
    if (tooHigh) {
      failItem(entry.name,
               "its compression ratio of " +
                   str(entry.uncompressedSize / std::max<std::uint64_t>(compressed, 1)) +
                   ":1 exceeds the limit of " + str(limits.maxCompressionRatio) + ":1");
    }
  }
}

ZipEntry readCentralHeader(DirectoryCursor& cursor, std::uint64_t index, std::string& rawName) {
  unsigned char const* header = cursor.take(kCentralHeaderSize);
  if (header == nullptr) {
    fail("its central directory ends after " + str(index) + " items, before the declared count");
  }
  if (get32(header) != kCentralHeaderSignature) {
    fail("central directory header " + str(index + 1) + " has a bad signature");
  }
  std::uint16_t const flags = get16(header + 8);
  ZipEntry entry;
  entry.method = get16(header + 10);
  entry.crc32 = get32(header + 16);
  entry.compressedSize = get32(header + 20);
  entry.uncompressedSize = get32(header + 24);
  std::size_t const nameLength = get16(header + 28);
  std::size_t const extraLength = get16(header + 30);
  std::size_t const commentLength = get16(header + 32);
  std::uint32_t const disk = get16(header + 34);
  entry.localHeaderOffset = get32(header + 42);
  unsigned char const* rest = cursor.take(nameLength + extraLength + commentLength);
  if (rest == nullptr) fail("its central directory is truncated in header " + str(index + 1));
  rawName.assign(reinterpret_cast<char const*>(rest), nameLength);
  bool const utf8 = (flags & kFlagUtf8) != 0;
  entry.name = utf8 ? rawName : cp437ToUtf8(rawName);
  ExtraFields const extra =
      readExtraFields(rest + nameLength, extraLength, entry.name, rawName, entry, disk);
  if (!utf8 && extra.hasUnicodePath) entry.name = extra.unicodePath;

  std::string const problem = nameProblem(entry.name);
  if (!problem.empty()) failItem(entry.name, problem);
  if ((flags & (kFlagEncrypted | kFlagStrongEncryption | kFlagMaskedDirectory)) != 0) {
    failItem(entry.name, "it is encrypted");
  }
  if (entry.method != kMethodStored && entry.method != kMethodDeflated) {
    failItem(entry.name, "its compression method " + str(entry.method) + " is not supported");
  }
  if (disk != 0 && disk != 0xFFFF) fail("archives that span several disks are not supported");
  return entry;
}

// The least room an item takes from its local header on: the header with the item's name
// and no extra field, and the data.  The real header may be longer by its extra field, which
// locate() finds out.
std::uint64_t leastEnd(ZipEntry const& entry, std::size_t rawNameSize) {
  return entry.localHeaderOffset + kLocalHeaderSize + rawNameSize + entry.compressedSize;
}

// What can be told of an item's place without its local header: the header of its name lies
// inside the data of the archive, and so does its data after it.
void checkPlace(ZipEntry const& entry, std::size_t rawNameSize, std::uint64_t dataLimit) {
  std::size_t const headerSize = kLocalHeaderSize + rawNameSize;
  if (entry.localHeaderOffset > dataLimit || dataLimit - entry.localHeaderOffset < headerSize) {
    failItem(entry.name, "its local header at offset " + str(entry.localHeaderOffset) +
                             " lies outside the data of the archive");
  }
  if (dataLimit - entry.localHeaderOffset - headerSize < entry.compressedSize) {
    failItem(entry.name, "its data of " + str(entry.compressedSize) +
                             " bytes runs past the start of the central directory");
  }
}

// Each item's bytes, from its local header to the end of its data, belong to it alone: items
// that share bytes are how a small file unpacks to an enormous one.  Checked by sorting the
// ranges, so that it costs n log n whatever the input; each item learns which item follows
// it, so that locate() can check the rest once the extra field is known.
template <typename RawSize>
void checkOverlaps(std::vector<ZipEntry>& entries, RawSize const& rawSizeOf) {
  std::vector<std::uint32_t> order(entries.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::uint32_t>(i);
  std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
    return entries[a].localHeaderOffset < entries[b].localHeaderOffset;
  });
  for (std::size_t i = 1; i < order.size(); ++i) {
    ZipEntry& before = entries[order[i - 1]];
    ZipEntry const& after = entries[order[i]];
    if (leastEnd(before, rawSizeOf(before)) > after.localHeaderOffset) {
      failItem(after.name, "its bytes overlap those of item " + quoteName(before.name));
    }
    before.following = order[i];
  }
}

// FNV-1a of the name with ASCII letters in lower case: the duplicate check compares names
// only when this agrees, without a folded copy of each.
std::uint64_t foldedHash(std::string const& name) {
  std::uint64_t hash = 14695981039346656037ull;
  for (char const c : name) {
    char const folded = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    hash = (hash ^ static_cast<unsigned char>(folded)) * 1099511628211ull;
  }
  return hash;
}

// The names read so far, by their hash folded to lower case: open addressing over indexes
// into the entries, so that 100,000 names cost two flat arrays rather than a node each.
class FoldedNames {
 public:
  explicit FoldedNames(std::size_t count) {
    std::size_t slots = 16;
    while (slots < 2 * count) slots *= 2;
    slots_.assign(slots, kEmpty);
    hashes_.reserve(count);
  }

  // The earliest entry whose name equals `name` without regard to ASCII case, or null after
  // `name` (the entry about to be added as entries.size()) has been added.
  ZipEntry const* addOrFind(std::vector<ZipEntry> const& entries, std::string const& name) {
    std::uint64_t const hash = foldedHash(name);
    std::size_t const mask = slots_.size() - 1;
    std::size_t slot = static_cast<std::size_t>(hash ^ (hash >> 32)) & mask;
    for (; slots_[slot] != kEmpty; slot = (slot + 1) & mask) {
      std::uint32_t const index = slots_[slot];
      if (hashes_[index] == hash && foldAsciiCase(entries[index].name) == foldAsciiCase(name)) {
        return &entries[index];
      }
    }
    slots_[slot] = static_cast<std::uint32_t>(hashes_.size());
    hashes_.push_back(hash);
    return nullptr;
  }

 private:
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;
  std::vector<std::uint32_t> slots_;
  std::vector<std::uint64_t> hashes_;
};

}  // namespace

ZipEntryStream::~ZipEntryStream() = default;

std::unique_ptr<ZipArchive> ZipArchive::open(std::shared_ptr<ZipByteSource> source,
                                             PackageLimits const& limits) {
  DirectoryLocation const location = readEndRecords(*source);
  if (location.count > limits.maxPartCount) {
    fail("it holds " + str(location.count) + " items, more than the limit of " +
         str(limits.maxPartCount) + " parts");
  }
  if (location.offset > location.limit || location.limit - location.offset < location.size) {
    fail("its central directory lies outside the file");
  }
  if (location.size / kCentralHeaderSize < location.count) {
    fail("its central directory of " + str(location.size) + " bytes cannot hold the " +
         str(location.count) + " items that its end record declares");
  }

  std::vector<ZipEntry> entries;
  entries.reserve(static_cast<std::size_t>(location.count));
  std::unordered_map<std::uint64_t, std::string> rawNames;
  FoldedNames folded(static_cast<std::size_t>(location.count));
  DirectoryCursor cursor(*source, location.offset, location.size);
  std::string rawName;
  for (std::uint64_t index = 0; index < location.count; ++index) {
    ZipEntry entry = readCentralHeader(cursor, index, rawName);
    checkLimits(entry, limits);
    if (ZipEntry const* other = folded.addOrFind(entries, entry.name)) {
      failItem(entry.name, other->name == entry.name
                               ? std::string("another item has the same name")
                               : "its name equals that of item " + quoteName(other->name) +
                                     " without regard to case");
    }
    // Two items cannot share a local header: the overlap check below sees to that.
    if (rawName != entry.name) rawNames.emplace(entry.localHeaderOffset, rawName);
    entries.push_back(std::move(entry));
  }
  if (cursor.remaining() != 0) {
    fail("its central directory holds more than the " + str(location.count) +
         " items that its end record declares");
  }
  auto rawSizeOf = [&](ZipEntry const& entry) {
    auto const raw = rawNames.find(entry.localHeaderOffset);
    return raw == rawNames.end() ? entry.name.size() : raw->second.size();
  };
  for (ZipEntry const& entry : entries) checkPlace(entry, rawSizeOf(entry), location.offset);
  checkOverlaps(entries, rawSizeOf);
  return std::unique_ptr<ZipArchive>(
      new ZipArchive(std::move(source), std::move(entries), std::move(rawNames), location.offset));
}

ZipArchive::ZipArchive(std::shared_ptr<ZipByteSource> source, std::vector<ZipEntry> entries,
                       std::unordered_map<std::uint64_t, std::string> rawNames,
                       std::uint64_t directoryOffset)
    : source_(std::move(source)),
      entries_(std::move(entries)),
      rawNames_(std::move(rawNames)),
      directoryOffset_(directoryOffset) {
  byName_.resize(entries_.size());
  for (std::size_t i = 0; i < byName_.size(); ++i) byName_[i] = static_cast<std::uint32_t>(i);
  auto const byNameOrder = [this](std::uint32_t a, std::uint32_t b) {
    return entries_[a].name < entries_[b].name;
  };
  // Writers that add items in path order leave nothing to sort; one pass tells.
  if (!std::is_sorted(byName_.begin(), byName_.end(), byNameOrder)) {
    std::sort(byName_.begin(), byName_.end(), byNameOrder);
  }
}

std::vector<ZipEntry> const& ZipArchive::entries() const { return entries_; }

std::int64_t ZipArchive::find(std::string const& name) const {
  auto const found = std::lower_bound(byName_.begin(), byName_.end(), name,
                                      [this](std::uint32_t index, std::string const& wanted) {
                                        return entries_[index].name < wanted;
                                      });
  if (found == byName_.end() || entries_[*found].name != name) return -1;
  return static_cast<std::int64_t>(*found);
}

ZipEntry ZipArchive::locate(ZipEntry const& entry) const {
  // The local name must be the same bytes, so that no reader can see another name than ours.
  // Opening made sure that a header of this name lies inside the data of the archive.
  std::string const& rawName = rawNameOf(entry);
  std::size_t const headerSize = kLocalHeaderSize + rawName.size();
  std::vector<unsigned char> header(headerSize);
  source_->readAt(entry.localHeaderOffset, header.data(), headerSize);
  if (get32(header.data()) != kLocalHeaderSignature) {
    failItem(entry.name, "its local header has a bad signature");
  }
  if ((get16(header.data() + 6) & (kFlagEncrypted | kFlagStrongEncryption)) != 0) {
    failItem(entry.name, "it is encrypted");
  }
  if (get16(header.data() + 8) != entry.method) {
    failItem(entry.name, "its local header gives compression method " +
                             str(get16(header.data() + 8)) + ", the central directory " +
                             str(entry.method));
  }
  std::size_t const nameLength = get16(header.data() + 26);
  std::size_t const extraLength = get16(header.data() + 28);
  if (nameLength != rawName.size() ||
      std::memcmp(header.data() + kLocalHeaderSize, rawName.data(), nameLength) != 0) {
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
    ZipEntry const& after = entries_.at(entry.following);
    if (located.dataOffset + entry.compressedSize > after.localHeaderOffset) {
      failItem(after.name, "its bytes overlap those of item " + quoteName(entry.name));
    }
  }
  return located;
}

std::unique_ptr<ZipEntryStream> ZipArchive::openEntry(ZipEntry const& entry) const {
  return makeEntryStream(source_, locate(entry));
}

std::string const& ZipArchive::rawNameOf(ZipEntry const& entry) const {
  auto const raw = rawNames_.find(entry.localHeaderOffset);
  return raw == rawNames_.end() ? entry.name : raw->second;
}

std::shared_ptr<ZipByteSource> const& ZipArchive::source() const { return source_; }

}  // namespace detail
}  // namespace model
}  // namespace opc
