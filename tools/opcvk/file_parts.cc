#include "file_parts.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/part.h>
#include <opc/model/uri.h>
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

// Every part's name by its exact text: open addressing over the numbers of a TextPool, so
// that 100,000 names cost one flat array rather than a hash node each.
class PartsByName {
 public:
  explicit PartsByName(TextPool const& names) : names_(names) {
    std::size_t slots = 16;
    while (slots < 2 * names.size()) slots *= 2;
    slots_.assign(slots, kEmpty);
    for (std::size_t index = 0; index < names.size(); ++index) {
      std::size_t slot = slotOf(names[index]);
      // The first of equal names wins, as a lookup by name would find it.
      if (slots_[slot] == kEmpty) slots_[slot] = index;
    }
  }

  // The number of the part named exactly `name`, or kEmpty.
  std::size_t find(std::u16string_view name) const { return slots_[slotOf(name)]; }

  static constexpr std::size_t kEmpty = static_cast<std::size_t>(-1);

 private:
  // The slot that holds `name`, or the empty slot where it would go.
  std::size_t slotOf(std::u16string_view name) const {
    std::size_t const mask = slots_.size() - 1;
    std::size_t slot = std::hash<std::u16string_view>()(name) & mask;
    while (slots_[slot] != kEmpty && names_[slots_[slot]] != name) slot = (slot + 1) & mask;
    return slot;
  }

  TextPool const& names_;
  std::vector<std::size_t> slots_;
};

// The lower-case base name of a file, from its path.
std::u16string lowerBaseOf(std::u16string_view path) {
  return lowerText(basePartName(std::u16string(path)));
}

// The files by the hash of their lower-case base names, so that the files sharing one are
// neighbours without a copy of any name: a hash node and a vector per name, or three texts
// per file, cost tens of megabytes on 100,000 files.  Names are made again from the paths
// for the few files whose hashes meet.
class FilesByLowerBase {
 public:
  FilesByLowerBase(TextPool const& paths, std::vector<std::size_t> const& hashes) : paths_(paths) {
    order_.reserve(hashes.size());
    for (std::size_t i = 0; i < hashes.size(); ++i) order_.push_back({hashes[i], i});
    std::sort(order_.begin(), order_.end());
  }

  // Calls `visit` with every file whose lower-case base name is `lowerBase`.
  template <typename Visit>
  void forEach(std::u16string_view lowerBase, Visit const& visit) const {
    std::size_t const hash = std::hash<std::u16string_view>()(lowerBase);
    auto at = std::lower_bound(order_.begin(), order_.end(), Key{hash, 0});
    for (; at != order_.end() && at->hash == hash; ++at) {
      if (lowerBaseOf(paths_[at->file]) == lowerBase) visit(at->file);
    }
  }

  // Calls `visit` with every file whose lower-case base name is another file's too.
  template <typename Visit>
  void forEachShared(Visit const& visit) const {
    std::vector<std::u16string> names;
    for (std::size_t first = 0; first < order_.size();) {
      std::size_t last = first + 1;
      while (last < order_.size() && order_[last].hash == order_[first].hash) ++last;
      if (last - first > 1) {
        names.clear();
        for (std::size_t at = first; at < last; ++at) {
          names.push_back(lowerBaseOf(paths_[order_[at].file]));
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
          bool const shared = std::count(names.begin(), names.end(), names[i]) > 1;
          if (shared) visit(order_[first + i].file);
        }
      }
      first = last;
    }
  }

 private:
  struct Key {
    std::size_t hash;
    std::size_t file;
    bool operator<(Key const& other) const {
      return hash != other.hash ? hash < other.hash : file < other.file;
    }
  };

  TextPool const& paths_;
  std::vector<Key> order_;
};

// The paths of the package's files, in ascending order.  Taken folder by folder, so that
// no more than one folder's entries are held at a time beside the pool.
TextPool filePaths(FileSystemManager& files) {
  std::vector<std::u16string> unsorted;
  TextPool paths;
  walkEntries(
      files, FileSystemEntry::getRootName(), WalkOrder::kByPath,
      [&paths, &unsorted](WalkedEntry const& walked) {
        if (!walked.entry.isFile()) return;
        if (unsorted.empty() && (paths.size() == 0 || paths[paths.size() - 1] < walked.path)) {
          paths.add(walked.path);
          return;
        }
        // Out of order, which the walk never is: sorted below.
        if (unsorted.empty()) {
          for (std::size_t i = 0; i < paths.size(); ++i) unsorted.emplace_back(paths[i]);
        }
        unsorted.push_back(walked.path);
      });
  if (unsorted.empty()) {
    paths.shrink();
    return paths;
  }
  std::sort(unsorted.begin(), unsorted.end());
  unsorted.erase(std::unique(unsorted.begin(), unsorted.end()), unsorted.end());
  std::size_t chars = 0;
  for (std::u16string const& path : unsorted) chars += path.size();
  TextPool sorted;
  sorted.reserve(unsorted.size(), chars);
  for (std::u16string const& path : unsorted) sorted.add(path);
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

std::u16string basePartName(std::u16string const& path) {
  return u"/fsroot" + opc::model::URI::encodeComponent(path, "/+@");
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

FileParts::FileParts(opc::model::Package& package, FileSystemManager& files) : files_(files) {
  // The paths first, while nothing else is held beside the entries they come from.
  paths_ = filePaths(files);
  std::vector<std::uint64_t> partSizes;
  readParts(package, partNames_, partSizes);
  PartsByName const partByName(partNames_);

  std::size_t const count = paths_.size();
  facts_.assign(count, Facts{kNoPart, 0});
  std::vector<char> displaced(count, 0);
  std::vector<std::size_t> pending;
  auto displace = [&](std::size_t file) {
    if (displaced[file]) return;
    displaced[file] = 1;
    pending.push_back(file);
  };
  std::vector<std::size_t> hashes(count);
  for (std::size_t file = 0; file < count; ++file) {
    std::u16string const base = basePartName(std::u16string(paths_[file]));
    std::u16string const lowerBase = lowerText(base);
    hashes[file] = std::hash<std::u16string_view>()(lowerBase);
    facts_[file].part = partByName.find(base);
    if (facts_[file].part == kNoPart || lowerBase.find(u"_rels") != std::u16string::npos) {
      displace(file);
    }
  }
  FilesByLowerBase const byLowerBase(paths_, hashes);
  hashes = std::vector<std::size_t>();
  byLowerBase.forEachShared(displace);

  // Parts by key, wanted only for displaced files, which most packages have none of.
  std::unordered_map<std::u16string, std::vector<std::size_t>> partsByKey;
  if (!pending.empty()) {
    for (std::size_t index = 0; index < partNames_.size(); ++index) {
      partsByKey[partKey(partNames_[index])].push_back(index);
    }
  }
  // Contest what the displaced files may hold, displacing the files whose names are taken.
  std::vector<char> contested(partNames_.size(), 0);
  std::uint64_t spent = 0;
  bool namesGivenUp = false;
  while (!pending.empty() && !namesGivenUp) {
    std::u16string const base = basePartName(std::u16string(paths_[pending.back()]));
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
      byLowerBase.forEach(lowerText(std::u16string(part)), displace);
    }
  }

  for (std::size_t file = 0; file < count; ++file) {
    Facts& facts = facts_[file];
    if (!displaced[file] && !namesGivenUp) {
      facts.size = partSizes[facts.part];
      continue;
    }
    std::u16string const path(paths_[file]);
    facts.size = countStoredBytes(files, files.getEntry(path));
    facts.part = kNoPart;
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
      facts.part = index;
    }
    if (matches != 1) facts.part = kNoPart;
  }
}

std::size_t FileParts::fileAt(std::u16string_view path) const {
  std::size_t low = 0;
  std::size_t high = paths_.size();
  while (low < high) {
    std::size_t const middle = low + (high - low) / 2;
    if (paths_[middle] < path) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low < paths_.size() && paths_[low] == path ? low : kNoFile;
}

std::uint64_t FileParts::size(FileSystemEntry const& file) {
  std::size_t const found = fileAt(file.getPathName());
  if (found != kNoFile) return facts_[found].size;
  // Not among the files when the object was made: a file made since.
  return countStoredBytes(files_, file);
}

std::u16string FileParts::partName(FileSystemEntry const& file) const {
  std::size_t const found = fileAt(file.getPathName());
  if (found == kNoFile || facts_[found].part == kNoPart) return std::u16string();
  return std::u16string(partNames_[facts_[found].part]);
}

}  // namespace opcvk
