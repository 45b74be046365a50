// The records of the central directory, read and checked one at a time.
#include "zip_directory.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <zlib.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <opc/model/exceptions.h>

#include "zip_format.h"
#include "zip_names.h"

namespace opc {
namespace model {
namespace detail {
namespace {

using namespace zipformat;

// The directory is read in windows of this size: large enough that the calls cost little
// beside the copy (a directory of 100,000 items takes about 150), small enough that a
// hostile directory size costs nothing and that the window comes from the heap and is used
// again afterwards, instead of fresh pages that are faulted in for one read and unmapped.
constexpr std::size_t kWindow = 64 * 1024;

std::string str(std::uint64_t value) { return std::to_string(value); }

// True if no byte of `bytes` has its high bit set, tested eight bytes at a time: a name of
// ASCII reads the same in every encoding that a ZIP item may use, and most names are ASCII.
bool isAscii(std::string_view bytes) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080ull;
  std::uint64_t seen = 0;
  std::size_t at = 0;
#if defined(__SSE2__)
  // Sixteen at a time where the processor has the instructions: names of a deep tree run to
  // hundreds of bytes.
  __m128i wide = _mm_setzero_si128();
  for (; at + 16 <= bytes.size(); at += 16) {
    wide = _mm_or_si128(wide, _mm_loadu_si128(reinterpret_cast<__m128i const*>(bytes.data() + at)));
  }
  if (_mm_movemask_epi8(wide) != 0) return false;
#endif
  for (; at + 8 <= bytes.size(); at += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    seen |= word;
  }
  for (; at < bytes.size(); ++at) seen |= static_cast<unsigned char>(bytes[at]);
  return (seen & kHighBits) == 0;
}

DirectoryLocation readZip64Records(ZipByteSource const& source, std::uint64_t locatorOffset) {
  unsigned char locator[kZip64LocatorSize];
  source.readAt(locatorOffset, locator, sizeof locator);
  std::uint32_t const recordDisk = get32(locator + 4);
  std::uint64_t const recordOffset = get64(locator + 8);
  std::uint32_t const diskCount = get32(locator + 16);
  if (recordDisk != 0 || diskCount > 1)
    failArchive("archives that span several disks are not supported");
  if (recordOffset > locatorOffset || locatorOffset - recordOffset < kZip64EndOfCentralDirSize) {
    failArchive("its ZIP64 end of central directory record lies outside the file");
  }
  unsigned char record[kZip64EndOfCentralDirSize];
  source.readAt(recordOffset, record, sizeof record);
  if (get32(record) != kZip64EndOfCentralDirSignature) {
    failArchive("its ZIP64 end of central directory record has a bad signature");
  }
  if (get32(record + 16) != 0 || get32(record + 20) != 0 ||
      get64(record + 24) != get64(record + 32)) {
    failArchive("archives that span several disks are not supported");
  }
  DirectoryLocation location;
  location.count = get64(record + 32);
  location.size = get64(record + 40);
  location.offset = get64(record + 48);
  location.limit = recordOffset;
  return location;
}

// What the extra fields of a central header say.
struct ExtraFields {
  bool hasUnicodePath = false;
  std::string unicodePath;
};

// Reads the ZIP64 field where the 32-bit values are saturated, and the Info-ZIP Unicode Path
// field.  A malformed tail of the extra data is ignored: some writers pad it.
ExtraFields readExtraFields(unsigned char const* extra, std::size_t size, std::string_view name,
                            std::string_view rawName, ZipEntry& entry, std::uint32_t disk) {
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
        if (get32(data + at) != 0)
          failArchive("archives that span several disks are not supported");
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
  if (needDisk) failArchive("archives that span several disks are not supported");
  return result;
}

}  // namespace

[[noreturn]] void failArchive(std::string const& problem) {
  throw InvalidPackage("Invalid ZIP archive: " + problem);
}

[[noreturn]] void failItem(std::string_view name, std::string const& problem) {
  throw InvalidPackage("Invalid ZIP item " + quoteName(std::string(name)) + ": " + problem);
}

DirectoryLocation readEndRecords(ZipByteSource const& source) {
  std::uint64_t const size = source.size();
  // The end record is the last 22 bytes but for a comment of at most 64 KiB, so the search
  // never reads more than that, whatever the file's size.
  std::size_t const tailSize = static_cast<std::size_t>(
      std::min<std::uint64_t>(size, kEndOfCentralDirSize + kMaxCommentSize));
  if (tailSize < kEndOfCentralDirSize) {
    failArchive("no end of central directory record was found (not a ZIP archive, or truncated)");
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
    failArchive("no end of central directory record was found (not a ZIP archive, or truncated)");
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
    failArchive("archives that span several disks are not supported");
  }
  DirectoryLocation location;
  location.count = get16(p + 10);
  location.size = get32(p + 12);
  location.offset = get32(p + 16);
  location.limit = recordOffset;
  return location;
}

DirectoryCursor::DirectoryCursor(ZipByteSource const& source, std::uint64_t offset,
                                 std::uint64_t size)
    : source_(source),
      next_(offset),
      left_(size),
      window_(static_cast<std::size_t>(std::min<std::uint64_t>(kWindow, size))) {}

unsigned char const* DirectoryCursor::take(std::size_t count) {
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

void checkLimits(ZipEntry const& entry, std::string_view name, PackageLimits const& limits) {
  if (entry.method == kMethodStored && entry.compressedSize != entry.uncompressedSize) {
    failItem(name, "it is stored, but its size of " + str(entry.compressedSize) +
                       " bytes differs from its uncompressed size of " +
                       str(entry.uncompressedSize) + " bytes");
  }
  if (entry.uncompressedSize > limits.maxPartSize) {
    failItem(name, "its uncompressed size of " + str(entry.uncompressedSize) +
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
      failItem(name, "its compression ratio of " +
                         str(entry.uncompressedSize / std::max<std::uint64_t>(compressed, 1)) +
                         ":1 exceeds the limit of " + str(limits.maxCompressionRatio) + ":1");
    }
  }
}

CentralName readCentralHeader(DirectoryCursor& cursor, std::uint64_t index, ZipEntry& entry,
                              std::string& decoded) {
  unsigned char const* header = cursor.take(kCentralHeaderSize);
  if (header == nullptr) {
    failArchive("its central directory ends after " + str(index) +
                " items, before the declared count");
  }
  if (get32(header) != kCentralHeaderSignature) {
    failArchive("central directory header " + str(index + 1) + " has a bad signature");
  }
  std::uint16_t const flags = get16(header + 8);
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
  if (rest == nullptr)
    failArchive("its central directory is truncated in header " + str(index + 1));
  // The name is checked and used where it lies in the window: most names are their bytes, and
  // a copy of each cost as much as the checks.
  CentralName result;
  result.raw = std::string_view(reinterpret_cast<char const*>(rest), nameLength);
  result.name = result.raw;
  bool const utf8 = (flags & kFlagUtf8) != 0;
  if (!utf8 && !isAscii(result.raw)) {
    assignCp437AsUtf8(result.raw, decoded);
    result.name = decoded;
  }
  if (extraLength != 0) {
    ExtraFields const extra =
        readExtraFields(rest + nameLength, extraLength, result.name, result.raw, entry, disk);
    if (!utf8 && extra.hasUnicodePath) {
      decoded = extra.unicodePath;
      result.name = decoded;
    }
  } else if (entry.uncompressedSize == 0xFFFFFFFF || entry.compressedSize == 0xFFFFFFFF ||
             entry.localHeaderOffset == 0xFFFFFFFF) {
    failItem(result.name, "its ZIP64 extra field is missing");
  } else if (disk == 0xFFFF) {
    failArchive("archives that span several disks are not supported");
  }

  std::string const problem = nameProblem(result.name);
  if (!problem.empty()) failItem(result.name, problem);
  if ((flags & (kFlagEncrypted | kFlagStrongEncryption | kFlagMaskedDirectory)) != 0) {
    failItem(result.name, "it is encrypted");
  }
  if (entry.method != kMethodStored && entry.method != kMethodDeflated) {
    failItem(result.name, "its compression method " + str(entry.method) + " is not supported");
  }
  if (disk != 0 && disk != 0xFFFF)
    failArchive("archives that span several disks are not supported");
  return result;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
