#include "file_parts.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/part.h>
#include <opc/vkservices/content_sources.h>

#include "entry_walk.h"

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

// How many cells of isNumberedFrom's table may be spent on the displaced files of one
// package before the names are given up and every file is counted from its bytes.
constexpr std::uint64_t kComparisonBudget = 200'000'000;

bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

char16_t lower(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; }

std::u16string lowerText(std::u16string text) {
  for (char16_t& c : text) c = lower(c);
  return text;
}

// The folder of the parts of all files, in front of every base name.
constexpr std::u16string_view kPartRoot = u"/fsroot";

// Whether an ASCII character stands for itself in a base part name: the unreserved characters
// of a URI (letters, digits, "-", ".", "_", "~") and the "/", "+" and "@" that the library keeps.
constexpr bool isKeptAscii(int c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~' || c == '/' || c == '+' || c == '@';
}

// isKeptAscii by a look-up, for the loop that every character of every path goes through.
struct KeptTable {
  bool kept[128];
  constexpr KeptTable() : kept() {
    for (int c = 0; c < 128; ++c) kept[c] = isKeptAscii(c);
  }
};
constexpr KeptTable kKeptTable;

bool keptInPartName(char16_t c) { return c < 0x80 && kKeptTable.kept[c]; }

// Hands the characters of `path` percent-encoded, as URI::encodeComponent(path, "/+@") gives
// them, to `put` (which returns false to stop): every other character as the escapes of its
// UTF-8 bytes, an unpaired surrogate as U+FFFD.  Returns false if `put` stopped.
template <typename Put>
bool encodePath(std::u16string_view path, Put const& put) {
  static char16_t const kHex[] = u"0123456789ABCDEF";
  auto const escape = [&put](std::uint32_t byte) {
    return put(u'%') && put(kHex[byte >> 4]) && put(kHex[byte & 0xF]);
  };
  std::size_t const count = path.size();
  char16_t const* const units = path.data();
  for (std::size_t i = 0; i < count;) {
    std::uint32_t c = units[i++];
    if (keptInPartName(static_cast<char16_t>(c))) {
      if (!put(static_cast<char16_t>(c))) return false;
      continue;
    }
    if (c < 0x80) {
      if (!escape(c)) return false;
      continue;
    }
    if (c >= 0xD800 && c < 0xE000) {
      if (c < 0xDC00 && i < count && units[i] >= 0xDC00 && units[i] < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (units[i++] - 0xDC00u);
      } else {
        c = 0xFFFD;
      }
    }
    bool const written = c < 0x800 ? escape(0xC0 | (c >> 6))
                         : c < 0x10000
                             ? escape(0xE0 | (c >> 12)) && escape(0x80 | ((c >> 6) & 0x3F))
                             : escape(0xF0 | (c >> 18)) && escape(0x80 | ((c >> 12) & 0x3F)) &&
                                   escape(0x80 | ((c >> 6) & 0x3F));
    if (!written || !escape(0x80 | (c & 0x3F))) return false;
  }
  return true;
}

// Appends `path` percent-encoded, as encodePath gives it: written in place, since the
// library's form makes a UTF-8 copy and a new text for every file.
void appendEncodedPath(std::u16string_view path, std::u16string& out) {
  std::size_t const at = out.size();
  // A unit takes at most nine characters: the three escapes of a character of three bytes
  // in UTF-8 (a pair of surrogates takes twelve for its two units).
  out.resize(at + 9 * path.size());
  char16_t* const first = out.data() + at;
  char16_t* to = first;
  encodePath(path, [&to](char16_t c) {
    *to++ = c;
    return true;
  });
  out.resize(at + static_cast<std::size_t>(to - first));
}

// `out` made the base part name of `path`, reusing its room.
void assignBasePartName(std::u16string_view path, std::u16string& out) {
  out.assign(kPartRoot);
  appendEncodedPath(path, out);
}

// Counts the stored bytes of a file by reading them: the way when the part is not certain.
std::uint64_t countStoredBytes(FileSystemManager& files, FileSystemEntry const& file) {
  std::unique_ptr<opc::vkservices::IContentSource> source =
      files.getFileContentSource(file, opc::vkservices::TransformMode::NoTransforms);
  opc::InputStream& stream = source->getInputStream();
  stream.open();
  std::vector<unsigned char> buffer(64 * 1024);
  std::uint64_t total = 0;
  while (!stream.isDone()) total += stream.read(buffer.data(), buffer.size());
  stream.close();
  return total;
}

// Whether two texts hold the same code units, compared as bytes: the character traits of
// char16_t compare one unit at a time, which costs the most on the longest paths.
bool sameUnits(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
}

// Whether `a` sorts before `b` by code units, as the walk orders paths: eight bytes a step
// up to the first block that differs.
bool unitsBefore(std::u16string_view a, std::u16string_view b) {
  std::size_t const common = std::min(a.size(), b.size());
  std::size_t i = 0;
  for (; i + 4 <= common; i += 4) {
    if (std::memcmp(a.data() + i, b.data() + i, 4 * sizeof(char16_t)) != 0) break;
  }
  for (; i < common; ++i) {
    if (a[i] != b[i]) return a[i] < b[i];
  }
  return a.size() < b.size();
}

// Four code units of ASCII in lower case, two bytes each: a lane holds a letter from "A" to
// "Z" when adding 0x80 - "A" sets its top bit and adding 0x80 - "Z" - 1 does not.
std::uint64_t lowerAsciiBlock(std::uint64_t block) {
  constexpr std::uint64_t kLanes = 0x0001000100010001ull;
  std::uint64_t const fromA = block + (0x80 - 'A') * kLanes;
  std::uint64_t const pastZ = block + (0x80 - 'Z' - 1) * kLanes;
  std::uint64_t const upper = fromA & ~pastZ & (0x80 * kLanes);
  return block | (upper >> 2);
}

// A hash of code units, eight bytes a step, taken in pieces: the hash of a folder's base name
// goes on with each of its files' names.  With `lowerCase`, the hash of the text in ASCII
// lower case, for a text of ASCII alone (every base name is one).
template <bool lowerCase>
class UnitHash {
 public:
  void add(std::u16string_view text) {
    char16_t const* units = text.data();
    std::size_t count = text.size();
    size_ += count;
    for (; count != 0 && pendingUnits_ != 0; --count) takeUnit(*units++);
    for (; count >= 4; count -= 4, units += 4) {
      mix(std::uint64_t{units[0]} | std::uint64_t{units[1]} << 16 | std::uint64_t{units[2]} << 32 |
          std::uint64_t{units[3]} << 48);
    }
    for (; count != 0; --count) takeUnit(*units++);
  }

  std::size_t value() const {
    UnitHash last = *this;
    if (last.pendingUnits_ != 0) last.mix(last.pending_);
    last.mix(size_);
    return static_cast<std::size_t>(last.hash_);
  }

 private:
  static constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;

  void mix(std::uint64_t block) {
    if (lowerCase) block = lowerAsciiBlock(block);
    hash_ = (hash_ ^ block) * kMultiplier;
    hash_ ^= hash_ >> 29;
  }

  // Adds one unit to the block in the making, which is mixed in once it holds four.
  void takeUnit(char16_t unit) {
    pending_ |= std::uint64_t{unit} << (16 * pendingUnits_);
    if (++pendingUnits_ == 4) {
      mix(pending_);
      pending_ = 0;
      pendingUnits_ = 0;
    }
  }

  std::uint64_t hash_ = kMultiplier;
  std::uint64_t pending_ = 0;
  unsigned pendingUnits_ = 0;
  std::uint64_t size_ = 0;
};

// A hash of a text, the same for every text of the same code units however it was pieced.
std::size_t textHash(std::u16string_view text) {
  UnitHash<false> hash;
  hash.add(text);
  return hash.value();
}

// Whether `text` holds "_rels", ASCII case ignored.
bool holdsRels(std::u16string_view text) {
  for (std::size_t at = text.find(u'_'); at != std::u16string_view::npos;
       at = text.find(u'_', at + 1)) {
    if (at + 5 <= text.size() && lower(text[at + 1]) == u'r' && lower(text[at + 2]) == u'e' &&
        lower(text[at + 3]) == u'l' && lower(text[at + 4]) == u's') {
      return true;
    }
  }
  return false;
}

// Whether every character of `path` stands for itself in its base name, so that the base
// name is "/fsroot" followed by the path as it is.
bool isPlainPath(std::u16string_view path) {
  for (char16_t c : path) {
    if (!keptInPartName(c)) return false;
  }
  return true;
}

// The files by a hash of their base names, in open addressing over their numbers: each part
// is looked up by its name as the package hands it over, so that no part's name needs to be
// kept, and the files whose lower-case base names meet are found without a copy of any name
// (a hash node and a vector per name, or three texts per file, cost tens of megabytes on
// 100,000 files).
class FilesByHash {
 public:
  explicit FilesByHash(std::vector<std::size_t> const& hashes) : hashes_(hashes) {
    std::size_t slots = 16;
    while (slots < 2 * hashes.size()) slots *= 2;
    slots_.assign(slots, kEmpty);
    std::size_t const mask = slots - 1;
    for (std::size_t file = 0; file < hashes.size(); ++file) {
      std::size_t slot = hashes[file] & mask;
      while (slots_[slot] != kEmpty) slot = (slot + 1) & mask;
      slots_[slot] = static_cast<std::uint32_t>(file);
    }
  }

  // Calls `visit` with every file whose hash is `hash`.
  template <typename Visit>
  void forEach(std::size_t hash, Visit const& visit) const {
    std::size_t const mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask; slots_[slot] != kEmpty; slot = (slot + 1) & mask) {
      if (hashes_[slots_[slot]] == hash) visit(slots_[slot]);
    }
  }

 private:
  static constexpr std::uint32_t kEmpty = static_cast<std::uint32_t>(-1);

  std::vector<std::size_t> const& hashes_;
  // File numbers: four bytes, since a package holds far fewer files.
  std::vector<std::uint32_t> slots_;
};

// The lower-case base name of file `index` of `paths`.
std::u16string lowerBaseOf(PathPool const& paths, std::size_t index) {
  std::u16string name(kPartRoot);
  appendEncodedPath(paths.folder(index), name);
  appendEncodedPath(paths.name(index), name);
  return lowerText(std::move(name));
}

// The paths of the package's files.  Taken folder by folder, so that no more than one
// folder's entries are held at a time beside the pool.
PathPool filePaths(FileSystemManager& files) {
  PathPool paths;
  walkEntries(files, FileSystemEntry::getRootName(), WalkOrder::kByPath,
              [&paths](WalkedEntry const& walked) {
                if (walked.entry.isFile()) paths.add(walked.path);
              });
  paths.shrink();
  return paths;
}

// `paths` in ascending order, each once: as they come from a walk by path, unless the tree
// was crafted so that its walk is not.
PathPool ascending(PathPool paths) {
  if (isAscending(paths)) return paths;
  std::vector<std::u16string> unsorted(paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) paths.assign(i, unsorted[i]);
  paths = PathPool();
  std::sort(unsorted.begin(), unsorted.end());
  unsorted.erase(std::unique(unsorted.begin(), unsorted.end()), unsorted.end());
  PathPool sorted;
  for (std::u16string const& text : unsorted) sorted.add(text);
  sorted.shrink();
  return sorted;
}

// Every part's name, in one pool, and its size by the same number.
void readParts(opc::model::Package const& package, TextPool& names,
               std::vector<std::uint64_t>& sizes) {
  std::size_t count = 0;
  std::size_t chars = 0;
  package.visitParts(
      [&count, &chars](std::u16string const& name, std::uint64_t, opc::model::ContentType const&) {
        ++count;
        chars += name.size();
      });
  names.reserve(count, chars);
  sizes.reserve(count);
  package.visitParts([&names, &sizes](std::u16string const& name, std::uint64_t size,
                                      opc::model::ContentType const&) {
    names.add(name);
    sizes.push_back(size);
  });
}

}  // namespace

bool isAscending(PathPool const& paths) {
  std::u16string last;
  std::u16string path;
  for (std::size_t i = 1; i < paths.size(); ++i) {
    // Two paths of one folder differ in their names, which is all there is to compare.
    if (paths.folderNumber(i - 1) == paths.folderNumber(i)) {
      if (!unitsBefore(paths.name(i - 1), paths.name(i))) return false;
      continue;
    }
    paths.assign(i - 1, last);
    paths.assign(i, path);
    if (!unitsBefore(last, path)) return false;
  }
  return true;
}

std::u16string basePartName(std::u16string const& path) {
  std::u16string name;
  assignBasePartName(path, name);
  return name;
}

std::u16string partKey(std::u16string_view partName) {
  std::u16string key;
  key.reserve(partName.size());
  for (std::size_t i = 0; i < partName.size(); ++i) {
    char16_t const c = partName[i];
    if (c == u'_' && i + 1 < partName.size() && isDigit(partName[i + 1])) {
      while (i + 1 < partName.size() && isDigit(partName[i + 1])) ++i;
      continue;
    }
    key += lower(c);
  }
  return key;
}

bool isNumberedFrom(std::u16string_view name, std::u16string_view base) {
  std::size_t const rows = base.size() + 1;
  std::size_t const columns = name.size() + 1;
  if (name.size() < base.size()) return false;
  // reach[i * columns + j]: base[0, i) gives name[0, j).
  // The empty start, base[0, 0) giving name[0, 0), is reached by definition.
  std::vector<char> reach(rows * columns, 0);
  for (std::size_t j = 0; j < columns; ++j) {
    for (std::size_t i = 0; i < rows; ++i) {
      if ((i != 0 || j != 0) && !reach[i * columns + j]) continue;
      if (i < base.size() && j < name.size() && lower(base[i]) == lower(name[j])) {
        reach[(i + 1) * columns + j + 1] = 1;
      }
      if (j + 1 < name.size() && name[j] == u'_' && isDigit(name[j + 1])) {
        for (std::size_t k = j + 1; k < name.size() && isDigit(name[k]); ++k) {
          reach[i * columns + k + 1] = 1;
        }
      }
    }
  }
  return reach[rows * columns - 1] != 0;
}

FileParts::FileParts(opc::model::Package& package, FileSystemManager& files)
    // The paths first, while nothing else is held beside the entries they come from.
    : FileParts(package, files, ascending(filePaths(files))) {}

FileParts::FileParts(opc::model::Package& package, FileSystemManager& files, PathPool paths)
    : files_(files), paths_(std::move(paths)) {
  std::size_t const count = paths_.size();
  facts_.assign(count, Facts{kNoPart, false, 0});
  std::vector<char> displaced(count, 0);
  std::vector<std::size_t> pending;
  auto displace = [&](std::size_t file) {
    if (displaced[file]) return;
    displaced[file] = 1;
    pending.push_back(file);
  };
  // What a base name owes to its folder, taken once for all the files of the folder: whether
  // the folder's characters stand for themselves, whether it holds "_rels" (which percent-
  // encoding neither makes nor breaks: no escape holds "_", "r", "l" or "s"), and the hashes
  // of "/fsroot" and the encoded folder.
  struct FolderFacts {
    bool plain;
    bool rels;
    UnitHash<false> exact;
    UnitHash<true> lower;
  };
  std::vector<FolderFacts> folders(paths_.folderCount());
  // Kept from name to name, so that a name costs no allocation.
  std::u16string name;
  for (std::uint32_t number = 0; number < folders.size(); ++number) {
    FolderFacts& folder = folders[number];
    std::u16string_view const text = paths_.folderText(number);
    folder.plain = isPlainPath(text);
    folder.rels = holdsRels(text);
    name.assign(kPartRoot);
    appendEncodedPath(text, name);
    folder.exact.add(name);
    folder.lower.add(name);
  }
  std::vector<std::size_t> exactHashes(count);
  std::vector<std::size_t> lowerHashes(count);
  plain_.assign(count, false);
  for (std::size_t file = 0; file < count; ++file) {
    FolderFacts const& folder = folders[paths_.folderNumber(file)];
    std::u16string_view const text = paths_.name(file);
    bool const plainName = isPlainPath(text);
    plain_[file] = folder.plain && plainName;
    std::u16string_view encoded = text;
    if (!plainName) {
      name.clear();
      appendEncodedPath(text, name);
      encoded = name;
    }
    UnitHash<false> exact = folder.exact;
    exact.add(encoded);
    exactHashes[file] = exact.value();
    UnitHash<true> lower = folder.lower;
    lower.add(encoded);
    lowerHashes[file] = lower.value();
    if (folder.rels || holdsRels(text)) displace(file);
  }
  folders = std::vector<FolderFacts>();
  // Each part whose name is a file's base name is that file's part, as far as names go.
  {
    FilesByHash const byName(exactHashes);
    std::uint32_t part = 0;
    package.visitParts(
        [&](std::u16string const& partName, std::uint64_t size, opc::model::ContentType const&) {
          byName.forEach(textHash(partName), [&](std::size_t file) {
            // The first of equal names wins, as a lookup by name would find it.
            if (facts_[file].part != kNoPart) return;
            if (isBaseNameOf(file, partName, name)) facts_[file] = Facts{part, false, size};
          });
          ++part;
        });
  }
  exactHashes = std::vector<std::size_t>();
  for (std::size_t file = 0; file < count; ++file) {
    if (facts_[file].part == kNoPart) displace(file);
  }
  // Files whose lower-case base names meet; names are made again from the paths for the few
  // files whose hashes meet.
  FilesByHash const byLowerBase(lowerHashes);
  auto const forEachByLowerBase = [&](std::u16string_view lowerBase, auto const& visit) {
    byLowerBase.forEach(textHash(lowerBase), [&](std::size_t file) {
      if (lowerBaseOf(paths_, file) == lowerBase) visit(file);
    });
  };
  for (std::size_t file = 0; file < count; ++file) {
    bool shared = false;
    std::u16string own;
    byLowerBase.forEach(lowerHashes[file], [&](std::size_t other) {
      if (other == file || shared) return;
      if (own.empty()) own = lowerBaseOf(paths_, file);
      shared = lowerBaseOf(paths_, other) == own;
    });
    if (shared) displace(file);
  }
  if (pending.empty()) return;

  // Every part's name and size, wanted only for displaced files, which most packages have none
  // of: numbered as the visit above numbered them.
  std::vector<std::uint64_t> partSizes;
  readParts(package, partNames_, partSizes);
  // Parts by key, wanted only for displaced files, which most packages have none of.
  std::unordered_map<std::u16string, std::vector<std::size_t>> partsByKey;
  for (std::size_t index = 0; index < partNames_.size(); ++index) {
    partsByKey[partKey(partNames_[index])].push_back(index);
  }
  // Contest what the displaced files may hold, displacing the files whose names are taken.
  std::vector<char> contested(partNames_.size(), 0);
  std::uint64_t spent = 0;
  bool namesGivenUp = false;
  while (!pending.empty() && !namesGivenUp) {
    std::u16string base;
    assignBaseNameOf(pending.back(), base);
    pending.pop_back();
    auto const candidates = partsByKey.find(partKey(base));
    if (candidates == partsByKey.end()) continue;
    for (std::size_t index : candidates->second) {
      std::u16string_view const part = partNames_[index];
      spent += (base.size() + 1) * (part.size() + 1);
      if (spent > kComparisonBudget) {
        namesGivenUp = true;
        break;
      }
      if (contested[index] || !isNumberedFrom(part, base)) continue;
      contested[index] = 1;
      forEachByLowerBase(lowerText(std::u16string(part)), displace);
    }
  }

  std::u16string path;
  for (std::size_t file = 0; file < count; ++file) {
    Facts& facts = facts_[file];
    if (!displaced[file] && !namesGivenUp) continue;
    paths_.assign(file, path);
    facts.size = countStoredBytes(files, files.getEntry(path));
    facts.part = kNoPart;
    facts.named = true;
    if (namesGivenUp) continue;
    std::u16string const base = basePartName(path);
    auto const candidates = partsByKey.find(partKey(base));
    if (candidates == partsByKey.end()) continue;
    std::size_t matches = 0;
    for (std::size_t index : candidates->second) {
      if (!contested[index] || partSizes[index] != facts.size ||
          !isNumberedFrom(partNames_[index], base)) {
        continue;
      }
      ++matches;
      facts.part = static_cast<std::uint32_t>(index);
    }
    if (matches != 1) facts.part = kNoPart;
  }
}

std::size_t FileParts::fileAt(std::u16string_view path) const {
  std::size_t const count = paths_.size();
  // The next file of a walk by path, or the same file again (its size, then its part).
  if (cursor_ < count && paths_.equals(cursor_, path)) return cursor_++;
  if (cursor_ > 0 && cursor_ <= count && paths_.equals(cursor_ - 1, path)) return cursor_ - 1;
  std::u16string middlePath;
  std::size_t low = 0;
  std::size_t high = count;
  while (low < high) {
    std::size_t const middle = low + (high - low) / 2;
    paths_.assign(middle, middlePath);
    if (unitsBefore(middlePath, path)) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  if (low < count && paths_.equals(low, path)) {
    cursor_ = low + 1;
    return low;
  }
  return kNoFile;
}

std::uint64_t FileParts::size(FileSystemEntry const& file) {
  return size(file, file.getPathName());
}

std::u16string FileParts::partName(FileSystemEntry const& file) const {
  return std::u16string(partName(file.getPathName()));
}

std::uint64_t FileParts::size(FileSystemEntry const& file, std::u16string_view path) {
  std::size_t const found = fileAt(path);
  if (found != kNoFile) return facts_[found].size;
  // Not among the files when the object was made: a file made since.
  return countStoredBytes(files_, file);
}

std::uint64_t FileParts::size(std::u16string_view path) {
  std::size_t const found = fileAt(path);
  if (found != kNoFile) return facts_[found].size;
  return countStoredBytes(files_, files_.getEntry(std::u16string(path)));
}

std::u16string_view FileParts::partName(std::u16string_view path) const {
  std::size_t const found = fileAt(path);
  if (found == kNoFile || facts_[found].part == kNoPart) return std::u16string_view();
  if (facts_[found].named) return partNames_[facts_[found].part];
  // The part of a file that was not displaced is named by the file's base name.
  assignBaseNameOf(found, partName_);
  return partName_;
}

void FileParts::assignBaseNameOf(std::size_t file, std::u16string& out) const {
  // A folder ends in "/", so that no character of the path is cut in two.
  out.assign(kPartRoot);
  if (plain_[file]) {
    out.append(paths_.folder(file)).append(paths_.name(file));
    return;
  }
  appendEncodedPath(paths_.folder(file), out);
  appendEncodedPath(paths_.name(file), out);
}

bool FileParts::isBaseNameOf(std::size_t file, std::u16string_view partName,
                             std::u16string& scratch) const {
  if (plain_[file]) {
    std::u16string_view const head = paths_.folder(file);
    std::u16string_view const tail = paths_.name(file);
    std::size_t const root = kPartRoot.size();
    return partName.size() == root + head.size() + tail.size() &&
           sameUnits(partName.substr(0, root), kPartRoot) &&
           sameUnits(partName.substr(root, head.size()), head) &&
           sameUnits(partName.substr(root + head.size()), tail);
  }
  assignBaseNameOf(file, scratch);
  return sameUnits(scratch, partName);
}

}  // namespace opcvk
