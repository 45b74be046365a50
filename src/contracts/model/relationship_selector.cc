#include <string>
#include <utility>

#include <opc/model/exceptions.h>
#include <opc/model/relationship.h>
#include <opc/model/relationship_selector.h>

namespace opc {
namespace model {

RelationshipSelector::RelationshipSelector(URI const& sourceURI,
                                           RelationshipSelectorType selectorType,
                                           std::u16string const& selectionCriteria)
    : sourceURI_(sourceURI), selectorType_(selectorType), selectionCriteria_(selectionCriteria) {
  if (selectorType != RelationshipSelectorType::ByID &&
      selectorType != RelationshipSelectorType::ByType) {
    throw InvalidRelationship("Invalid relationship selector type " +
                              std::to_string(static_cast<std::int32_t>(selectorType)) +
                              ": it must be ByID (0) or ByType (1)");
  }
}

RelationshipSelector::RelationshipSelector(RelationshipSelector const& other) = default;
RelationshipSelector::RelationshipSelector(RelationshipSelector&& other) noexcept = default;
RelationshipSelector& RelationshipSelector::operator=(RelationshipSelector const& other) = default;
RelationshipSelector& RelationshipSelector::operator=(RelationshipSelector&& other) noexcept =
    default;
RelationshipSelector::~RelationshipSelector() = default;

URI RelationshipSelector::getSourceURI() const { return sourceURI_; }

RelationshipSelectorType RelationshipSelector::getSelectorType() const { return selectorType_; }

std::u16string RelationshipSelector::getSelectionCriteria() const { return selectionCriteria_; }

bool RelationshipSelector::matches(Relationship const& relationship) const {
  if (relationship.getSourceURI() != sourceURI_) return false;
  return selectorType_ == RelationshipSelectorType::ByID
             ? relationship.getID() == selectionCriteria_
             : relationship.getType() == selectionCriteria_;
}

bool RelationshipSelector::operator==(RelationshipSelector const& other) const {
  return sourceURI_ == other.sourceURI_ && selectorType_ == other.selectorType_ &&
         selectionCriteria_ == other.selectionCriteria_;
}

bool RelationshipSelector::operator!=(RelationshipSelector const& other) const {
  return !(*this == other);
}

}  // namespace model
}  // namespace opc
