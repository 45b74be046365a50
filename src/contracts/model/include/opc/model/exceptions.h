// Exceptions raised by the values of the package model: names, URIs, content types,
// relationships and the storage options of a part.
#ifndef OPC_MODEL_EXCEPTIONS_H_
#define OPC_MODEL_EXCEPTIONS_H_

#include <string>

#include <opc/core/exception.h>
#include <opc/model/export.h>

namespace opc {
namespace model {

// Each class names one kind of failure and adds no text of its own: the thrower composes the
// whole message, which names the offending text and why it was refused, for example
//   Invalid part name "/a/./b": segment "." is not allowed
// Texts in messages are narrowed with opc::toUDEString (names, URIs) or opc::toASCIIString
// (content types).  The error code is always the default one, which holds no error.
// All classes are exported whole so that `catch` works across library boundaries.

// A text is not a valid part name, or a part name cannot be used as asked (for example
// the relationships part of a relationships part).
class OPC_MODEL_EXPORT InvalidPartName : public opc::Exception {
 public:
  explicit InvalidPartName(std::string const& message);
  InvalidPartName(InvalidPartName const& other);
  InvalidPartName& operator=(InvalidPartName const& other);
  ~InvalidPartName() override;
};

// A URI reference is malformed where its syntax matters (resolution), or cannot serve the
// purpose it was given for (a base URI that is neither absolute nor an absolute path).
class OPC_MODEL_EXPORT InvalidURI : public opc::Exception {
 public:
  explicit InvalidURI(std::string const& message);
  InvalidURI(InvalidURI const& other);
  InvalidURI& operator=(InvalidURI const& other);
  ~InvalidURI() override;
};

// A text is not a media type with parameters, or a parameter name or value cannot be
// written into one.
class OPC_MODEL_EXPORT InvalidContentType : public opc::Exception {
 public:
  explicit InvalidContentType(std::string const& message);
  InvalidContentType(InvalidContentType const& other);
  InvalidContentType& operator=(InvalidContentType const& other);
  ~InvalidContentType() override;
};

// A relationship or relationship selector cannot be made from the given values: an id that
// is not an XML NCName, an empty type, a target that its mode does not allow, a source that
// cannot have relationships.
class OPC_MODEL_EXPORT InvalidRelationship : public opc::Exception {
 public:
  explicit InvalidRelationship(std::string const& message);
  InvalidRelationship(InvalidRelationship const& other);
  InvalidRelationship& operator=(InvalidRelationship const& other);
  ~InvalidRelationship() override;
};

// The storage options of a new part are out of range (an unknown compression type).
class OPC_MODEL_EXPORT InvalidPartInfo : public opc::Exception {
 public:
  explicit InvalidPartInfo(std::string const& message);
  InvalidPartInfo(InvalidPartInfo const& other);
  InvalidPartInfo& operator=(InvalidPartInfo const& other);
  ~InvalidPartInfo() override;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_EXCEPTIONS_H_
