#include "file_parts.h"

#include <cstddef>
#include <memory>
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
  FileSystemEntry entry;
  std::u16string path;
  std::u16string base;
  std::u16string lowerBase;
  bool displaced = false;
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
  std::unordered_map<std::u16string, std::size_t> partByName;
  std::unordered_map<std::u16string, std::vector<std::size_t>> partsByKey;
  for (opc::model::Part const& part : package.getParts()) {
    std::u16string name = part.getName().toString();
    partsByKey[partKey(name)].push_back(parts.size());
    partByName.emplace(name, parts.size());
    parts.push_back({std::move(name), part.getSize()});
  }

  std::vector<FileFacts> fileList;
  std::unordered_map<std::u16string, std::vector<std::size_t>> filesByLowerBase;
  for (FileSystemEntry const& leaf : files.getAllLeafs()) {
    if (!leaf.isFile()) continue;
    FileFacts file{leaf, leaf.getPathName(), std::u16string(), std::u16string()};
    file.base = basePartName(file.path);
    file.lowerBase = lowerText(file.base);
    filesByLowerBase[file.lowerBase].push_back(fileList.size());
    fileList.push_back(std::move(file));
  }

  std::vector<std::size_t> pending;
  auto displace = [&](std::size_t index) {
    if (fileList[index].displaced) return;
    fileList[index].displaced = true;
    pending.push_back(index);
  };
  for (std::size_t index = 0; index < fileList.size(); ++index) {
    FileFacts const& file = fileList[index];
    if (filesByLowerBase[file.lowerBase].size() > 1 || partByName.count(file.base) == 0 ||
        file.lowerBase.find(u"_rels") != std::u16string::npos) {
      displace(index);
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
      auto const holders = filesByLowerBase.find(lowerText(part.name));
      if (holders == filesByLowerBase.end()) continue;
      for (std::size_t holder : holders->second) displace(holder);
    }
  }

  for (FileFacts const& file : fileList) {
    if (!file.displaced && !namesGivenUp) {
      PartFacts const& part = parts[partByName.at(file.base)];
      byPath_.emplace(file.path, Facts{part.name, part.size});
      continue;
    }
    std::uint64_t const size = countStoredBytes(files, file.entry);
    std::u16string name;
    auto const candidates = partsByKey.find(partKey(file.base));
    if (!namesGivenUp && candidates != partsByKey.end()) {
      std::size_t matches = 0;
      for (std::size_t index : candidates->second) {
        PartFacts const& part = parts[index];
        if (!part.contested || part.size != size || !isNumberedFrom(part.name, file.base)) {
          continue;
        }
        ++matches;
        name = part.name;
      }
      if (matches != 1) name.clear();
    }
    byPath_.emplace(file.path, Facts{name, size});
  }
}

std::uint64_t FileParts::size(FileSystemEntry const& file) {
  auto const found = byPath_.find(file.getPathName());
  if (found != byPath_.end()) return found->second.size;
  // Not among the files when the object was made: a file made since.
  return countStoredBytes(files_, file);
}

std::u16string FileParts::partName(FileSystemEntry const& file) const {
  auto const found = byPath_.find(file.getPathName());
  return found == byPath_.end() ? std::u16string() : found->second.partName;
}

}  // namespace opcvk
