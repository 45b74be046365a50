// RelationshipSelector: names the relationships of one source, by id or by type.
#ifndef OPC_MODEL_RELATIONSHIP_SELECTOR_H_
#define OPC_MODEL_RELATIONSHIP_SELECTOR_H_

#include <cstdint>
#include <string>

#include <opc/model/export.h>
#include <opc/model/uri.h>

namespace opc {
namespace model {

class Relationship;

// How a selector's criteria are read.  Stored and written as these numbers; their text
// forms are "ByID" and "ByType".
enum class RelationshipSelectorType : std::int32_t { ByID = 0, ByType = 1 };

// A value that names relationships of one source: the one with a given id, or all of a
// given type.  It is a key, not a reference: it names nothing in particular and is not
// checked against any package, so any source and criteria text is accepted, and a
// selector that matches nothing is harmless.
//
// A value class: copies are independent; const operations are safe from several threads.
class OPC_MODEL_EXPORT RelationshipSelector {
 public:
  // `sourceURI` is "/" for the package or a part's name.  Throws InvalidRelationship if
  // `selectorType` is not one of the two enumerators (a value cast from a wider number).
  RelationshipSelector(URI const& sourceURI, RelationshipSelectorType selectorType,
                       std::u16string const& selectionCriteria);
  RelationshipSelector(RelationshipSelector const& other);
  RelationshipSelector(RelationshipSelector&& other) noexcept;
  RelationshipSelector& operator=(RelationshipSelector const& other);
  RelationshipSelector& operator=(RelationshipSelector&& other) noexcept;
  ~RelationshipSelector();

  URI getSourceURI() const;
  RelationshipSelectorType getSelectorType() const;
  std::u16string getSelectionCriteria() const;

  // True if `relationship` has this source (URI text compared exactly) and, by the
  // selector type, the id or the type given as criteria (compared exactly).
  bool matches(Relationship const& relationship) const;

  // Equal when source URI text, selector type and criteria are all equal, texts compared
  // exactly; so a hash over the two texts is consistent with it.
  bool operator==(RelationshipSelector const& other) const;
  bool operator!=(RelationshipSelector const& other) const;

 private:
  URI sourceURI_;
  RelationshipSelectorType selectorType_;
  std::u16string selectionCriteria_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_RELATIONSHIP_SELECTOR_H_
