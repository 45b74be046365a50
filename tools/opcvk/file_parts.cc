#include "file_parts.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/part.h>
#include <opc/model/uri.h>
#include <opc/vkservices/content_sources.h>

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

struct PartFacts {
  std::u16string name;
  std::uint64_t size;
  bool contested = false;
};

struct FileFacts {
  std::size_t leaf;
  std::u16string path;
  std::u16string base;
  std::u16string lowerBase;
  bool displaced = false;
};

// The files in the order of their lower-case base names, so that the files sharing one are
// neighbours: a package of 100,000 files would otherwise keep a hash node and a vector per
// name.
class FilesByLowerBase {
 public:
  explicit FilesByLowerBase(std::vector<FileFacts> const& files) : files_(files) {
    order_.resize(files.size());
    for (std::size_t i = 0; i < order_.size(); ++i) order_[i] = i;
    std::sort(order_.begin(), order_.end(), [&files](std::size_t a, std::size_t b) {
      return files[a].lowerBase < files[b].lowerBase;
    });
  }

  // The files whose lower-case base name is `lowerBase`, as a range of `order()`.
  std::pair<std::size_t, std::size_t> range(std::u16string_view lowerBase) const {
    auto const less = [this](std::size_t index, std::u16string_view text) {
      return std::u16string_view(files_[index].lowerBase) < text;
    };
    auto const first = std::lower_bound(order_.begin(), order_.end(), lowerBase, less);
    auto last = first;
    while (last != order_.end() && files_[*last].lowerBase == lowerBase) ++last;
    return {static_cast<std::size_t>(first - order_.begin()),
            static_cast<std::size_t>(last - order_.begin())};
  }

  std::vector<std::size_t> const& order() const { return order_; }

 private:
  std::vector<FileFacts> const& files_;
  std::vector<std::size_t> order_;
};

}  // namespace

std::u16string basePartName(std::u16string const& path) {
  return u"/fsroot" + opc::model::URI::encodeComponent(path, "/+@");
}

std::u16string partKey(std::u16string const& partName) {
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

bool isNumberedFrom(std::u16string const& name, std::u16string const& base) {
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
  std::vector<PartFacts> parts;
  for (opc::model::Part const& part : package.getParts()) {
    parts.push_back({part.getName().toString(), part.getSize()});
  }
  // Views into `parts`, which no longer moves.
  std::unordered_map<std::u16string_view, std::size_t> partByName;
  partByName.reserve(parts.size());
  for (std::size_t index = 0; index < parts.size(); ++index) {
    partByName.emplace(parts[index].name, index);
  }

  std::vector<FileSystemEntry> leaves;
  for (FileSystemEntry const& leaf : files.getAllLeafs()) {
    if (leaf.isFile()) leaves.push_back(leaf);
  }
  std::vector<FileFacts> fileList;
  fileList.reserve(leaves.size());
  for (std::size_t leaf = 0; leaf < leaves.size(); ++leaf) {
    FileFacts file{leaf, leaves[leaf].getPathName(), std::u16string(), std::u16string()};
    file.base = basePartName(file.path);
    file.lowerBase = lowerText(file.base);
    fileList.push_back(std::move(file));
  }
  FilesByLowerBase const byLowerBase(fileList);

  std::vector<std::size_t> pending;
  auto displace = [&](std::size_t index) {
    if (fileList[index].displaced) return;
    fileList[index].displaced = true;
    pending.push_back(index);
  };
  std::vector<std::size_t> const& order = byLowerBase.order();
  for (std::size_t at = 0; at < order.size(); ++at) {
    FileFacts const& file = fileList[order[at]];
    bool const sharesItsBase =
        (at > 0 && fileList[order[at - 1]].lowerBase == file.lowerBase) ||
        (at + 1 < order.size() && fileList[order[at + 1]].lowerBase == file.lowerBase);
    if (sharesItsBase || partByName.count(file.base) == 0 ||
        file.lowerBase.find(u"_rels") != std::u16string::npos) {
      displace(order[at]);
    }
  }
  // Parts by key, wanted only for displaced files, which most packages have none of.
  std::unordered_map<std::u16string, std::vector<std::size_t>> partsByKey;
  if (!pending.empty()) {
    for (std::size_t index = 0; index < parts.size(); ++index) {
      partsByKey[partKey(parts[index].name)].push_back(index);
    }
  }
  // Contest what the displaced files may hold, displacing the files whose names are taken.
  std::uint64_t spent = 0;
  bool namesGivenUp = false;
  while (!pending.empty() && !namesGivenUp) {
    FileFacts const& file = fileList[pending.back()];
    pending.pop_back();
    auto const candidates = partsByKey.find(partKey(file.base));
    if (candidates == partsByKey.end()) continue;
    for (std::size_t index : candidates->second) {
      PartFacts& part = parts[index];
      spent += (file.base.size() + 1) * (part.name.size() + 1);
      if (spent > kComparisonBudget) {
        namesGivenUp = true;
        break;
      }
      if (part.contested || !isNumberedFrom(part.name, file.base)) continue;
      part.contested = true;
      auto const [first, last] = byLowerBase.range(lowerText(part.name));
      for (std::size_t at = first; at < last; ++at) displace(order[at]);
    }
  }

  byPath_.reserve(fileList.size());
  for (FileFacts& file : fileList) {
    if (!file.displaced && !namesGivenUp) {
      std::size_t const part = partByName.at(file.base);
      byPath_.emplace(std::move(file.path), Facts{part, parts[part].size});
      continue;
    }
    std::uint64_t const size = countStoredBytes(files, leaves[file.leaf]);
    std::size_t found = kNoPart;
    auto const candidates = partsByKey.find(partKey(file.base));
    if (!namesGivenUp && candidates != partsByKey.end()) {
      std::size_t matches = 0;
      for (std::size_t index : candidates->second) {
        PartFacts const& part = parts[index];
        if (!part.contested || part.size != size || !isNumberedFrom(part.name, file.base)) {
          continue;
        }
        ++matches;
        found = index;
      }
      if (matches != 1) found = kNoPart;
    }
    byPath_.emplace(std::move(file.path), Facts{found, size});
  }
  partByName.clear();
  partNames_.reserve(parts.size());
  for (PartFacts& part : parts) partNames_.push_back(std::move(part.name));
}

std::uint64_t FileParts::size(FileSystemEntry const& file) {
  auto const found = byPath_.find(file.getPathName());
  if (found != byPath_.end()) return found->second.size;
  // Not among the files when the object was made: a file made since.
  return countStoredBytes(files_, file);
}

std::u16string FileParts::partName(FileSystemEntry const& file) const {
  auto const found = byPath_.find(file.getPathName());
  if (found == byPath_.end() || found->second.part == kNoPart) return std::u16string();
  return partNames_[found->second.part];
}

}  // namespace opcvk
