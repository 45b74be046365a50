// Relationship: one typed link from a package or part to a part or an external resource.
#ifndef OPC_MODEL_RELATIONSHIP_H_
#define OPC_MODEL_RELATIONSHIP_H_

#include <cstdint>
#include <string>

#include <boost/optional.hpp>

#include <opc/model/export.h>
#include <opc/model/part_name.h>
#include <opc/model/uri.h>

namespace opc {
namespace model {

// Whether a relationship's target is a part of the same package or lies outside it.
enum class TargetMode : std::int32_t { Internal = 0, External = 1 };

// One relationship, owned by value.  Its source is the package (source URI "/") or a part
// (the part's name as a URI).  A relationship checked by its constructor is always
// well-formed, so that a package never writes one it could not read back.
//
// A value class: copies are independent; const operations are safe from several threads.
class OPC_MODEL_EXPORT Relationship {
 public:
  // Checks, in this order, and throws InvalidRelationship naming the value and the rule:
  // - `id` is an XML NCName (see isValidRelationshipId);
  // - `type` is a non-empty, valid URI reference;
  // - `sourceURI` is "/" or a valid part name that is not a relationships part (which
  //   cannot have relationships);
  // - an Internal target is a valid relative reference that, resolved against the source
  //   (RFC 3986 section 5.2), is a valid part name: "../b.xml" from source "/a/c.xml"
  //   targets "/b.xml";
  // - an External target is not empty and holds no control character.  It is otherwise
  //   kept as it is: real packages hold external targets that are not strict URIs, such
  //   as Windows paths with blanks, and must stay readable.
  Relationship(std::u16string const& id, std::u16string const& type, URI const& targetURI,
               TargetMode targetMode, URI const& sourceURI);
  Relationship(Relationship const& other);
  Relationship(Relationship&& other) noexcept;
  Relationship& operator=(Relationship const& other);
  Relationship& operator=(Relationship&& other) noexcept;
  ~Relationship();

  std::u16string getID() const;
  std::u16string getType() const;
  // The target as given to the constructor, not resolved.
  URI getTargetURI() const;
  TargetMode getTargetMode() const;
  // "/" for the package, otherwise the source part's name.
  URI getSourceURI() const;

  // The part that an Internal relationship targets, resolved against its source.  Throws
  // InvalidRelationship for an External relationship, which names no part.
  PartName getTargetPartName() const;

  // True if all five values are equal, texts compared exactly.
  bool operator==(Relationship const& other) const;
  bool operator!=(Relationship const& other) const;

 private:
  std::u16string id_;
  std::u16string type_;
  URI targetURI_;
  TargetMode targetMode_;
  URI sourceURI_;
  boost::optional<PartName> targetPartName_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_RELATIONSHIP_H_
