// Part naming of FileSystemManager: the part that holds a new file's bytes.
#include <algorithm>
#include <string>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/uri.h>
#include <opc/vkservices/file_system_manager.h>

#include "encryption/file_system_encryption.h"

namespace opc {
namespace vkservices {

namespace {

// All file parts live under one root, apart from the manager's "/metadata" parts and from the
// package's relationships parts.
constexpr char16_t kPartNameRoot[] = u"/fsroot";
constexpr char16_t kRelationshipsFolder[] = u"/_rels";

std::u16string encodedPath(std::u16string const& path) {
  return opc::model::URI::encodeComponent(path, "/+@");
}

std::u16string suffix(std::int32_t counter) {
  std::string const digits = std::to_string(counter);
  std::u16string result(1, u'_');
  result.append(digits.begin(), digits.end());
  return result;
}

}  // namespace

// The name is judged against the parts of the package, never the tree: a name freed by a
// deleted file can be given again.  Edits accumulate on the candidate so that a series of
// clashes stacks its suffixes ("a_1_2.txt"); nothing searches for the smallest free number,
// because nothing derives anything from the shape of the name.
opc::model::PartName FileSystemManager::makeUniquePartName(std::u16string const& path) const {
  std::u16string encoded = encodedPath(path);
  // With encryption the name is a digest of `encoded` that shows nothing of the path: every
  // file lies directly under the root, and a clash can only be resolved at the end.
  if (isEncryptionEnabled()) encoded = encryption_->hiddenName(encoded);
  std::u16string candidate = kPartNameRoot + encoded;

  auto& package = getPackage();
  std::int32_t counter = 1;
  for (;;) {
    // An invalid candidate raises the model's exception here: that is how such a path fails.
    opc::model::PartName name(candidate);
    std::u16string existing;
    if (package.hasPart(name)) {
      // The last "." of the whole candidate, on purpose not only of its last segment.
      auto const dot = candidate.rfind(opc::model::URI::getDot());
      candidate.insert(dot == std::u16string::npos ? candidate.size() : dot, suffix(counter));
    } else if (package.isPartDerivedFromExistingPartName(name, existing)) {
      // Right behind the run of segments that the two names share: the existing name when
      // it is a leading run of the candidate, the whole candidate when it is the other way
      // round (an existing "/fsroot/a/b" against "/fsroot/a").
      candidate.insert(std::min(existing.size(), candidate.size()), suffix(counter));
    } else if (name.isRelationshipName()) {
      auto const at = candidate.rfind(kRelationshipsFolder);
      candidate.insert(at + std::char_traits<char16_t>::length(kRelationshipsFolder),
                       suffix(counter));
    } else {
      return name;
    }
    ++counter;
  }
}

// A name seldom clashes, so the package's own checks, which creating the part makes anyway,
// decide first: only a name they refuse takes the search for a free one, which would
// otherwise look every name up twice.  A name that no suffix can save is refused again, with
// the same error, by the second creation.
opc::model::Part FileSystemManager::createUniquePart(
    std::u16string const& path, opc::model::ContentType const& contentType,
    opc::interfaces::IPhysicalPartInfo const& info) {
  auto& package = getPackage();
  // An encrypted package names its parts by digests, which the search makes.
  if (!isEncryptionEnabled()) {
    // An invalid name raises the model's exception here, as it would in the search.
    opc::model::PartName const name(kPartNameRoot + encodedPath(path));
    if (!name.isRelationshipName()) {
      try {
        return package.createPart(name, contentType, info);
      } catch (opc::model::InvalidPartName const&) {
        // Taken, or beside a part it cannot exist with: the search below finds a free name.
      }
    }
  }
  return package.createPart(makeUniquePartName(path), contentType, info);
}

}  // namespace vkservices
}  // namespace opc
