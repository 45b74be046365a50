#include "manifests.h"

#include <optional>

#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/vkservices/schema_base.h>

namespace opcvk {
namespace {

using opc::vkservices::SchemaBase;

std::u16string currentRelationshipType() {
  return std::u16string(SchemaBase) + u"/package/2013/relationships/filesystemManifest";
}

std::u16string olderRelationshipType() {
  return std::u16string(SchemaBase) + u"/orvane/compiler/2011/relationships/fileManifest";
}

opc::model::ContentType olderContentType() {
  return opc::model::ContentType(u"application/vnd.veltrance.orvane.compiler.fileManifest+xml");
}

// The part that the first relationship of `type` leads to, if it is a part name.
std::optional<opc::model::PartName> firstTarget(opc::model::Package const& package,
                                                std::u16string const& type) {
  auto const relationships = package.getRelationshipsByType(type);
  if (relationships.begin() == relationships.end()) return std::nullopt;
  try {
    return opc::model::PartName(relationships.begin()->getTargetURI());
  } catch (opc::model::InvalidPartName const&) {
    return std::nullopt;
  }
}

bool hasOlderContentType(opc::model::Package const& package, opc::model::PartName const& name) {
  return package.hasPart(name) && package.getPart(name).getContentType() == olderContentType();
}

}  // namespace

std::vector<std::string> HeldManifests::names() const {
  std::vector<std::string> result;
  if (current) result.emplace_back("current");
  if (v1) result.emplace_back("v1");
  return result;
}

HeldManifests heldManifests(opc::model::Package const& package) {
  HeldManifests held;
  held.current = !package.getRelationshipsByType(currentRelationshipType()).empty();
  held.v1 = !package.getRelationshipsByType(olderRelationshipType()).empty();
  // The library reads the current manifest when there is one, and goes by the content type.
  std::optional<opc::model::PartName> const read =
      firstTarget(package, held.current ? currentRelationshipType() : olderRelationshipType());
  held.readInOlderForm = read && hasOlderContentType(package, *read);
  return held;
}

void removeOlderManifest(opc::model::Package& package) {
  std::optional<opc::model::PartName> const current =
      firstTarget(package, currentRelationshipType());
  for (opc::model::Relationship const& relationship :
       package.getRelationshipsByType(olderRelationshipType())) {
    try {
      opc::model::PartName const name(relationship.getTargetURI());
      if (hasOlderContentType(package, name) && !(current && *current == name)) {
        package.deletePart(name);
      }
    } catch (opc::model::InvalidPartName const&) {
      // A target that is no part name leads to nothing to delete.
    }
    package.deleteRelationship(relationship.getID());
  }
}

}  // namespace opcvk
