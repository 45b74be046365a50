// Identifiers of relationships: checking them and making new ones.
#ifndef OPC_MODEL_RELATIONSHIP_ID_H_
#define OPC_MODEL_RELATIONSHIP_ID_H_

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include <opc/model/export.h>

namespace opc {
namespace model {

// True if `id` can identify a relationship.  Ids are XML "ID" values, so an id must be an
// NCName of XML 1.0 (fifth edition) with namespaces: a name start character (a letter, "_",
// or one of the other characters of that class) followed by name characters (also digits,
// "-", ".", U+00B7 and combining marks), and no ":".  Ids are compared case-sensitively.
OPC_MODEL_EXPORT bool isValidRelationshipId(std::u16string const& id);

// Throws InvalidRelationship naming the id and the first rule it breaks, for example
//   Invalid relationship id "1a": an id must start with a letter or "_"
OPC_MODEL_EXPORT void ensureValidRelationshipId(std::u16string const& id);

// A new id, "R" followed by a counter in upper-case hexadecimal ("R1", "R2", ... "RA"), for
// which `isTaken` gives false.  The counter starts at `firstCounter` (at least 1) and goes
// up until a free id is found.  A source that keeps a high-water mark can pass it, so that
// ids of deleted relationships are not given again: a reference to an old id left in some
// XML part would otherwise silently name the new relationship.
OPC_MODEL_EXPORT std::u16string generateRelationshipId(
    std::function<bool(std::u16string const&)> const& isTaken, std::uint64_t firstCounter);

// The same over a set of the ids in use, starting at the set's size plus one, so that ids
// "R1" to "Rn" give "Rn+1" at once.
OPC_MODEL_EXPORT std::u16string generateRelationshipId(std::set<std::u16string> const& taken);

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_RELATIONSHIP_ID_H_
