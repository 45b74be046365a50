// opc::model::RelationshipSource: what the package and each of its parts have in common:
// relationships from it to parts and to external resources.
#ifndef OPC_MODEL_RELATIONSHIP_SOURCE_H_
#define OPC_MODEL_RELATIONSHIP_SOURCE_H_

#include <memory>
#include <string>
#include <vector>

#include <opc/model/enumerator.h>
#include <opc/model/export.h>
#include <opc/model/relationship.h>
#include <opc/model/uri.h>

namespace opc {
namespace model {

class Package;

namespace detail {
class PackageState;
}  // namespace detail

// The source of relationships: the package ("/") or one of its parts.
//
// Relationships are read from the source's relationships part when first asked for, and
// written when the package is saved.  Ids are unique per source; an empty id asks the model
// to choose one.  Results are values that stay valid after the source changes.
//
// Not thread-safe: a package and all handles into it are used by one thread at a time.
class OPC_MODEL_EXPORT RelationshipSource {
 public:
  virtual ~RelationshipSource();

  // False for a handle whose part was deleted, or whose package is closed.
  virtual bool isValid() const = 0;
  // True while the package is open.
  virtual bool isOpen() const = 0;
  // True if the package is open for Read.
  virtual bool isReadOnly() const = 0;
  // True if the package is being created and had no earlier content.
  virtual bool isCreateOnly() const = 0;
  // The package this source belongs to.
  virtual Package& getPackage() const = 0;

  // "/" for the package, else the part's name as a URI.
  URI getSourceURI() const;

  // Every relationship of this source, in the order of its relationships part, then in
  // order of creation.
  Enumerator<std::vector<Relationship>> getRelationships() const;
  // The relationships of one type (compared exactly); empty, not an error, if none.
  Enumerator<std::vector<Relationship>> getRelationshipsByType(std::u16string const& type) const;
  bool hasRelationship(std::u16string const& id) const;
  // Throws InvalidRelationship if there is no relationship with that id.
  Relationship getRelationship(std::u16string const& id) const;

  // Adds a relationship to a part of this package; `target` is relative to this source
  // (or absolute, "/a/b.xml").  An empty `id` makes the model choose a unique one.  Throws
  // InvalidRelationship for a duplicate or invalid id or an invalid target, and
  // PackageNotWritable if the package is open for Read.
  Relationship createInternalRelationship(std::u16string const& type, URI const& target,
                                          std::u16string const& id);
  // Adds a relationship to a resource outside the package (TargetMode="External").
  Relationship createExternalRelationship(std::u16string const& type, URI const& target,
                                          std::u16string const& id);
  // Removes the relationship with that id.  Throws InvalidRelationship if there is none,
  // PackageNotWritable if the package is open for Read.
  void deleteRelationship(std::u16string const& id);

 protected:
  RelationshipSource(std::shared_ptr<detail::PackageState> state, URI sourceURI);
  RelationshipSource(RelationshipSource const& other);
  RelationshipSource& operator=(RelationshipSource const& other);

  // Called before a relationship is added: throws InvalidRelationship if this source may
  // not hold it (a relationships part holds none).
  virtual void doVerifyRelationship(Relationship const& relationship) const = 0;

  detail::PackageState& state() const;
  std::shared_ptr<detail::PackageState> const& sharedState() const;

 private:
  Relationship addRelationship(std::u16string const& type, URI const& target,
                               std::u16string const& id, TargetMode mode);

  std::shared_ptr<detail::PackageState> state_;
  URI sourceURI_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_RELATIONSHIP_SOURCE_H_
