#include <algorithm>
#include <utility>

#include <opc/model/exceptions.h>
#include <opc/model/relationship_id.h>
#include <opc/model/relationship_source.h>

#include "../text_chars.h"
#include "package_state.h"

namespace opc {
namespace model {
namespace {

boost::optional<PartName> sourceName(URI const& sourceURI) {
  std::u16string const text = sourceURI.toString();
  if (text == u"/") return boost::none;
  return PartName(text);
}

std::vector<Relationship>::iterator findById(std::vector<Relationship>& relationships,
                                             std::u16string const& id) {
  return std::find_if(relationships.begin(), relationships.end(),
                      [&](Relationship const& r) { return r.getID() == id; });
}

// The counter of an id of the form "R<hex>", the form that generateRelationshipId gives.
std::uint64_t counterOf(std::u16string const& id) {
  std::uint64_t counter = 0;
  for (std::size_t i = 1; i < id.size(); ++i) counter = counter * 16 + detail::hexValue(id[i]);
  return counter;
}

}  // namespace

RelationshipSource::RelationshipSource(std::shared_ptr<detail::PackageState> state, URI sourceURI)
    : state_(std::move(state)), sourceURI_(std::move(sourceURI)) {}

RelationshipSource::RelationshipSource(RelationshipSource const& other) = default;
RelationshipSource& RelationshipSource::operator=(RelationshipSource const& other) = default;
RelationshipSource::~RelationshipSource() = default;

URI RelationshipSource::getSourceURI() const { return sourceURI_; }

Enumerator<std::vector<Relationship>> RelationshipSource::getRelationships() const {
  return Enumerator<std::vector<Relationship>>(
      state().relationships(sourceName(sourceURI_)).relationships);
}

Enumerator<std::vector<Relationship>> RelationshipSource::getRelationshipsByType(
    std::u16string const& type) const {
  std::vector<Relationship> result;
  for (Relationship const& r : state().relationships(sourceName(sourceURI_)).relationships) {
    if (r.getType() == type) result.push_back(r);
  }
  return Enumerator<std::vector<Relationship>>(std::move(result));
}

bool RelationshipSource::hasRelationship(std::u16string const& id) const {
  auto& relationships = state().relationships(sourceName(sourceURI_)).relationships;
  return findById(relationships, id) != relationships.end();
}

Relationship RelationshipSource::getRelationship(std::u16string const& id) const {
  auto& relationships = state().relationships(sourceName(sourceURI_)).relationships;
  auto const found = findById(relationships, id);
  if (found == relationships.end()) {
    throw InvalidRelationship("No relationship " + detail::quoted(id) + " from " +
                              detail::quoted(sourceURI_.toString()));
  }
  return *found;
}

Relationship RelationshipSource::createInternalRelationship(std::u16string const& type,
                                                            URI const& target,
                                                            std::u16string const& id) {
  return addRelationship(type, target, id, TargetMode::Internal);
}

Relationship RelationshipSource::createExternalRelationship(std::u16string const& type,
                                                            URI const& target,
                                                            std::u16string const& id) {
  return addRelationship(type, target, id, TargetMode::External);
}

Relationship RelationshipSource::addRelationship(std::u16string const& type, URI const& target,
                                                 std::u16string const& id, TargetMode mode) {
  state().ensureWritable("create a relationship from " + detail::quoted(sourceURI_.toString()));
  detail::RelationshipSet& set = state().relationships(sourceName(sourceURI_));
  std::u16string newId = id;
  if (newId.empty()) {
    newId = generateRelationshipId(
        [&](std::u16string const& candidate) {
          return findById(set.relationships, candidate) != set.relationships.end();
        },
        set.nextCounter);
  } else if (findById(set.relationships, newId) != set.relationships.end()) {
    throw InvalidRelationship("Could not create the relationship " + detail::quoted(newId) +
                              " from " + detail::quoted(sourceURI_.toString()) +
                              ": the id is taken");
  }
  Relationship relationship(newId, type, target, mode, sourceURI_);
  doVerifyRelationship(relationship);
  if (id.empty()) set.nextCounter = counterOf(newId) + 1;
  set.relationships.push_back(relationship);
  set.changed = true;
  return relationship;
}

void RelationshipSource::deleteRelationship(std::u16string const& id) {
  state().ensureWritable("delete the relationship " + detail::quoted(id) + " from " +
                         detail::quoted(sourceURI_.toString()));
  detail::RelationshipSet& set = state().relationships(sourceName(sourceURI_));
  auto const found = findById(set.relationships, id);
  if (found == set.relationships.end()) {
    throw InvalidRelationship("Could not delete the relationship " + detail::quoted(id) + " from " +
                              detail::quoted(sourceURI_.toString()) +
                              ": there is no such relationship");
  }
  set.relationships.erase(found);
  set.changed = true;
}

detail::PackageState& RelationshipSource::state() const { return *state_; }

std::shared_ptr<detail::PackageState> const& RelationshipSource::sharedState() const {
  return state_;
}

}  // namespace model
}  // namespace opc
