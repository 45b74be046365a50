#include "file_parts.h"

#include <memory>
#include <unordered_set>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/string_conversions.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/uri.h>
#include <opc/vkservices/content_sources.h>

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;

// Counts the stored bytes of a file by reading them: the way when the part is not known.
std::uint64_t countStoredBytes(opc::vkservices::FileSystemManager& files,
                               FileSystemEntry const& file) {
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

}  // namespace

std::u16string unclashedPartName(std::u16string const& path) {
  std::u16string candidate = u"/fsroot" + opc::model::URI::encodeComponent(path, "/+@");
  static std::u16string const kRelationshipsFolder = u"/_rels";
  for (int counter = 1;; ++counter) {
    if (!opc::model::PartName::isValid(candidate)) return std::u16string();
    if (!opc::model::PartName(candidate).isRelationshipName()) return candidate;
    std::size_t const at = candidate.rfind(kRelationshipsFolder);
    if (at == std::u16string::npos) return std::u16string();
    std::u16string const suffix = u"_" + opc::toString(std::to_string(counter));
    candidate.insert(at + kRelationshipsFolder.size(), suffix);
  }
}

FileParts::FileParts(opc::model::Package& package, opc::vkservices::FileSystemManager& files)
    : files_(files) {
  std::unordered_map<opc::model::PartName, PartFacts> parts;
  for (opc::model::Part const& part : package.getParts()) {
    opc::model::PartName const name = part.getName();
    parts.emplace(name, PartFacts{name.toString(), part.getSize()});
  }
  std::unordered_set<opc::model::PartName> claimed;
  for (FileSystemEntry const& leaf : files.getAllLeafs()) {
    if (!leaf.isFile()) continue;
    std::u16string const guess = unclashedPartName(leaf.getPathName());
    if (guess.empty()) return;
    opc::model::PartName const name(guess);
    auto const found = parts.find(name);
    if (found == parts.end() || !claimed.insert(name).second) return;
    byPath_.emplace(leaf.getPathName(), found->second);
  }
  namesLineUp_ = true;
}

std::uint64_t FileParts::size(FileSystemEntry const& file) {
  if (namesLineUp_) {
    auto const found = byPath_.find(file.getPathName());
    if (found != byPath_.end()) return found->second.size;
  }
  return countStoredBytes(files_, file);
}

std::u16string FileParts::partName(FileSystemEntry const& file) const {
  if (!namesLineUp_) return std::u16string();
  auto const found = byPath_.find(file.getPathName());
  return found == byPath_.end() ? std::u16string() : found->second.name;
}

}  // namespace opcvk
