// PartName: the validated name of a part of a package.
#ifndef OPC_MODEL_PART_NAME_H_
#define OPC_MODEL_PART_NAME_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include <boost/optional.hpp>

#include <opc/model/export.h>
#include <opc/model/uri.h>

namespace opc {
namespace model {
namespace detail {
class PartNameAccess;
}  // namespace detail

// The name of a part: an absolute path of one or more non-empty segments, "/a/b.xml".
//
// Grammar.  A name starts with "/", does not end with "/", and has no empty segment, no
// query ("?") and no fragment ("#").  A segment holds RFC 3986 "pchar" characters (ASCII
// letters and digits, "-._~", "!$&'()*+,;=", ":", "@"), percent-escapes and the non-ASCII
// characters that RFC 3987 allows in an IRI path ("ucschar").  A "%" must start an escape of
// two hexadecimal digits, and an escape must not encode "/", "\" or an unreserved character
// (letter, digit, "-", ".", "_", "~"), which would have to be written as it is.  A segment
// must not be "." or "..", and must not end with ".".
//
// Equivalence.  Two names are equivalent when they compare equal as ASCII text without
// regard to case, after each non-ASCII character is taken as the percent-escapes of its
// UTF-8 bytes.  So "/A.xml" equals "/a.xml", "/%c3%a9" equals "/%C3%A9" and "/é" (that is
// its IRI form), but "/É" does not equal "/é": case is folded for ASCII letters only.
// operator==, operator< and std::hash follow this equivalence; toString() keeps the text
// exactly as it was given.
//
// A value class: copies are independent; const operations are safe from several threads.
class OPC_MODEL_EXPORT PartName {
 public:
  // Validates `name`.  Throws InvalidPartName naming the text and the broken rule, for
  // example: Invalid part name "/a/./b": segment "." is not allowed
  explicit PartName(std::u16string const& name);

  // The part that a relationship target names.  The URI must have no scheme, authority,
  // query or fragment; its path is resolved against the package root (RFC 3986 section
  // 5.2), so "/a/b.xml" and "a/b.xml" give "/a/b.xml" and "/a/../b.xml" gives "/b.xml".  A
  // target relative to a part must first be resolved against that part's name with
  // URI::resolve.  Throws InvalidPartName naming the URI's text if the result is no valid
  // part name.
  explicit PartName(URI const& uri);

  PartName(PartName const& other);
  PartName(PartName&& other) noexcept;
  PartName& operator=(PartName const& other);
  PartName& operator=(PartName&& other) noexcept;
  ~PartName();

  // True if `name` is a valid part name; never throws.
  static bool isValid(std::u16string const& name);

  // The name exactly as given; PartName(name.toString()) == name always holds.
  std::u16string toString() const;

  // The name as a URI reference (an absolute path), as target of a new relationship.
  URI getURI() const;

  // True if this is the name of a relationships part: its second-to-last segment is
  // "_rels" and its last segment ends with ".rels" (both without regard to ASCII case), as
  // in "/_rels/.rels" or "/a/_rels/b.xml.rels".
  bool isRelationshipName() const;

  // The name of the part that holds the relationships of this part: "/a/b.xml" gives
  // "/a/_rels/b.xml.rels".  Throws InvalidPartName if this is itself a relationships
  // part, since such a part cannot be the source of relationships.
  PartName getRelationshipsPartName() const;

  // "/_rels/.rels", the name of the part that holds the package's own relationships.
  static PartName getPackageRelationshipsPartName();

  // For a relationships part, the name of the part whose relationships it holds:
  // "/a/_rels/b.xml.rels" gives "/a/b.xml".  Gives nothing for "/_rels/.rels" (and any
  // other spelling of it), whose source is the package.  Throws InvalidPartName if this is
  // not a relationships part, or if the source would not be a valid name ("/a/_rels/.rels").
  boost::optional<PartName> getRelationshipsSourceName() const;

  // True if `other`'s segments are a leading run of this name's segments (by equivalence),
  // and this name has more of them: "/a/b" is derived from "/a", not from "/a/b" nor "/ab".
  // A package may not hold a part whose name is derived from another part's name.
  bool isDerivedFrom(PartName const& other) const;

  // Equivalence and a strict weak order consistent with it (see the class comment).
  bool operator==(PartName const& other) const;
  bool operator!=(PartName const& other) const;
  bool operator<(PartName const& other) const;

  // A hash consistent with operator==.
  std::size_t hash() const;

 private:
  friend class detail::PartNameAccess;

  struct Rep;

  PartName(std::u16string const& name, std::string const& key);
  PartName(std::u16string_view name, std::string_view key);

  std::string_view key() const;
  // The text when it is ASCII, as the name keeps it; empty otherwise.
  std::string_view asciiText() const;

  // The name exactly as given and its comparison form (UTF-8, non-ASCII bytes as escapes,
  // ASCII letters in lower case), in one block that copies share: a package of many parts
  // holds a name per part, and more where handles and maps name them again.  Null only in a
  // name moved from, which reads as empty.
  Rep* rep_;
};

}  // namespace model
}  // namespace opc

namespace std {
template <>
struct hash<opc::model::PartName> {
  std::size_t operator()(opc::model::PartName const& name) const { return name.hash(); }
};
}  // namespace std

#endif  // OPC_MODEL_PART_NAME_H_
