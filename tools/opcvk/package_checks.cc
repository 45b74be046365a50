#include "package_checks.h"

#include <memory>
#include <unordered_map>
#include <utility>

#include <opc/core/exception.h>
#include <opc/core/input_stream.h>
#include <opc/model/exceptions.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_entry.h>

#include "paths.h"

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;

constexpr char16_t kContentRoot[] = u"/fsroot/";

bool isUnderContentRoot(std::u16string const& name) {
  std::u16string const root = kContentRoot;
  if (name.size() <= root.size()) return false;
  // Part names compare without regard to ASCII case, and so does this.
  for (std::size_t i = 0; i < root.size(); ++i) {
    char16_t c = name[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    if (c != root[i]) return false;
  }
  return true;
}

// Reads the stream to its end; the model checks the size and CRC-32 when the end comes.
std::uint64_t readToEnd(opc::InputStream& stream, std::function<void(std::uint64_t)> const& seen) {
  static constexpr std::size_t kBuffer = 256 * 1024;
  std::vector<unsigned char> buffer(kBuffer);
  std::uint64_t total = 0;
  stream.open();
  while (std::size_t const n = stream.read(buffer.data(), buffer.size())) {
    total += n;
    if (seen) seen(n);
  }
  stream.close();
  return total;
}

void checkRelationships(opc::model::RelationshipSource const& source, std::string const& name,
                        CheckReport& report) {
  try {
    source.getRelationships();
  } catch (opc::Exception const& e) {
    report.problem("relationships", name, e.what());
  }
}

}  // namespace

void CheckReport::problem(std::string kind, std::string name, std::string text) {
  problems_.push_back({std::move(kind), std::move(name), std::move(text)});
}

void CheckReport::unchecked(std::string kind, std::string name, std::string text) {
  unchecked_.push_back({std::move(kind), std::move(name), std::move(text)});
}

void checkParts(CheckTarget& target, CheckReport& report) {
  checkRelationships(target.package, "/", report);
  for (opc::model::Part part : target.package.getParts()) {
    std::string const name = utf8Text(part.getName().toString());
    ++report.parts;
    try {
      report.partBytes += readToEnd(part.getInputStream(), target.partRead);
    } catch (opc::Exception const& e) {
      report.problem("part", name, e.what());
    }
    checkRelationships(part, name, report);
  }
}

void checkManifest(CheckTarget& target, CheckReport& report) {
  std::vector<std::u16string> names;
  std::vector<FileSystemEntry> files;
  try {
    names = target.files.getManagedPartNames();
    for (FileSystemEntry const& leaf : target.files.getAllLeafs()) {
      if (leaf.isFile()) files.push_back(leaf);
    }
  } catch (opc::vkservices::CouldNotDecryptContent const&) {
    report.unchecked("manifest", "", "encrypted: cannot check without a key");
    return;
  } catch (opc::Exception const& e) {
    report.problem("manifest", "", e.what());
    return;
  }
  // The manager names its manifest first, then the part of each file in the order of
  // getAllLeafs.
  std::size_t const first = names.size() >= files.size() ? names.size() - files.size() : 0;
  // Each part used, with the first file that uses it.
  std::unordered_map<std::u16string, std::size_t> used;
  for (std::size_t i = 0; i < files.size() && first + i < names.size(); ++i) {
    std::u16string const& partText = names[first + i];
    std::string const path = utf8Text(files[i].getPathName());
    try {
      opc::model::PartName const partName(partText);
      if (!target.package.hasPart(partName)) {
        report.problem("file", path, "its part \"" + utf8Text(partText) + "\" is missing");
        continue;
      }
      // The part's own spelling, which may differ in case from the manifest's.
      auto const taken = used.emplace(target.package.getPart(partName).getName().toString(), i);
      if (!taken.second) {
        // Removing or replacing either file would take the other's content with it.
        report.problem("file", path,
                       "its part \"" + utf8Text(partText) + "\" is also the part of file " +
                           utf8Text(files[taken.first->second].getPathName()));
      }
    } catch (opc::Exception const& e) {
      report.problem("file", path, e.what());
    }
  }
  for (opc::model::Part const& part : target.package.getParts()) {
    std::u16string const name = part.getName().toString();
    if (isUnderContentRoot(name) && used.count(name) == 0) {
      report.problem("part", utf8Text(name), "no file of the manifest uses it");
    }
  }
  for (FileSystemEntry const& entry : target.files.getAllLeafs()) {
    if (entry.isLink()) ++report.links;
  }
  report.files = files.size();
  // Folders are counted by a walk of the tree: getAllLeafs gives only the empty ones.  The
  // walk also goes below a file or a link that has entries below it, which only a crafted
  // manifest gives: such an entry is no leaf, so extraction passes over it and makes its
  // path a folder for the entries below.
  std::vector<FileSystemEntry> pending{target.files.getRoot()};
  while (!pending.empty()) {
    FileSystemEntry const folder = pending.back();
    pending.pop_back();
    for (FileSystemEntry const& child : target.files.getChildren(folder)) {
      if (child.isFolder()) {
        ++report.folders;
        pending.push_back(child);
      } else if (target.files.hasChildren(child)) {
        report.problem(child.isLink() ? "link" : "file", utf8Text(child.getPathName()),
                       "entries lie below it, so it is extracted as a folder that holds them");
        pending.push_back(child);
      }
    }
  }
}

void checkFileContents(CheckTarget& target, CheckReport& report) {
  if (!target.files.isEncrypted()) return;
  std::vector<FileSystemEntry> files;
  try {
    for (FileSystemEntry const& leaf : target.files.getAllLeafs()) {
      if (leaf.isFile()) files.push_back(leaf);
    }
  } catch (opc::Exception const&) {
    // Without a key, or with a manifest that does not load: checkManifest has told why.
    return;
  }
  for (FileSystemEntry const& file : files) {
    std::string const path = utf8Text(file.getPathName());
    try {
      std::unique_ptr<opc::vkservices::IContentSource> const source =
          target.files.getFileContentSource(file, opc::vkservices::TransformMode::ApplyTransforms);
      // The tag is checked before the first byte comes; the end is read all the same, so that
      // content that changes under the reader is found too.
      readToEnd(source->getInputStream(), target.partRead);
    } catch (opc::model::PartNotFound const&) {
      // A file without its part: checkManifest has told it.
    } catch (opc::vkservices::CouldNotTransformContentData const&) {
      report.problem("file", path,
                     "its content does not decrypt: altered since it was encrypted (its GCM "
                     "tag does not match)");
    } catch (opc::Exception const& e) {
      report.problem("file", path, e.what());
    }
  }
}

std::vector<PackageCheck> packageChecks() { return {checkParts, checkManifest, checkFileContents}; }

}  // namespace opcvk
