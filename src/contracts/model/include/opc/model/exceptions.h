// Exceptions raised by the package model: its values (names, URIs, content types,
// relationships, storage options) and its packages.
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
// (content types).  The error code is the default one, which holds no error, unless the
// class says that it carries the system's code.
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

// An archive is not a valid package, or exceeds a limit of PackageLimits: a truncated or
// inconsistent ZIP archive, overlapping or duplicate items, a missing [Content_Types].xml,
// a hostile item name, a ZIP bomb.  The message names the item and the problem.
class OPC_MODEL_EXPORT InvalidPackage : public opc::Exception {
 public:
  explicit InvalidPackage(std::string const& message,
                          boost::system::error_code code = boost::system::error_code());
  InvalidPackage(InvalidPackage const& other);
  InvalidPackage& operator=(InvalidPackage const& other);
  ~InvalidPackage() override;
};

// The package's file could not be read (missing, not readable).  The code is the system's.
class OPC_MODEL_EXPORT CouldNotOpenPackage : public opc::Exception {
 public:
  explicit CouldNotOpenPackage(std::string const& message,
                               boost::system::error_code code = boost::system::error_code());
  CouldNotOpenPackage(CouldNotOpenPackage const& other);
  CouldNotOpenPackage& operator=(CouldNotOpenPackage const& other);
  ~CouldNotOpenPackage() override;
};

// Writing the package failed (disk full, no permission).  The original package is intact.
// (An exception of a data manager's doSave is not wrapped: it reaches the caller of save()
// unchanged, so that callers can tell the manager's failure by its class.)  The code is the
// system's where the system failed.
class OPC_MODEL_EXPORT CouldNotSavePackage : public opc::Exception {
 public:
  explicit CouldNotSavePackage(std::string const& message,
                               boost::system::error_code code = boost::system::error_code());
  CouldNotSavePackage(CouldNotSavePackage const& other);
  CouldNotSavePackage& operator=(CouldNotSavePackage const& other);
  ~CouldNotSavePackage() override;
};

// Another writer holds the package: a second package open for Create over the same file, or
// for Modify, in this process or another, that has not been closed.  Writers of one file take
// turns so that neither loses the other's changes; see Package::open and
// PackageOptions::lockWaitMilliseconds.  The message names the package, for example
//   Could not open package "/data/a.opc" for writing: another writer has it open
// Nothing was read or written.
class OPC_MODEL_EXPORT PackageLocked : public opc::Exception {
 public:
  explicit PackageLocked(std::string const& message);
  PackageLocked(PackageLocked const& other);
  PackageLocked& operator=(PackageLocked const& other);
  ~PackageLocked() override;
};

// A change was asked of a package open for Read.
class OPC_MODEL_EXPORT PackageNotWritable : public opc::Exception {
 public:
  explicit PackageNotWritable(std::string const& message,
                              boost::system::error_code code = boost::system::error_code());
  PackageNotWritable(PackageNotWritable const& other);
  PackageNotWritable& operator=(PackageNotWritable const& other);
  ~PackageNotWritable() override;
};

// No part has the given name.
class OPC_MODEL_EXPORT PartNotFound : public opc::Exception {
 public:
  explicit PartNotFound(std::string const& message,
                        boost::system::error_code code = boost::system::error_code());
  PartNotFound(PartNotFound const& other);
  PartNotFound& operator=(PartNotFound const& other);
  ~PartNotFound() override;
};

// A handle was used after its part was deleted or its package was closed.
class OPC_MODEL_EXPORT InvalidPackageState : public opc::Exception {
 public:
  explicit InvalidPackageState(std::string const& message,
                               boost::system::error_code code = boost::system::error_code());
  InvalidPackageState(InvalidPackageState const& other);
  InvalidPackageState& operator=(InvalidPackageState const& other);
  ~InvalidPackageState() override;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_EXCEPTIONS_H_
