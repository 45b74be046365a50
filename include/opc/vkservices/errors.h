// The exceptions that opcvkservices raises on its own account, one class for each kind of
// failure, so that a caller can catch by kind.
//
// Every class derives directly from opc::Exception (and so from std::runtime_error and
// std::exception); none derives from another, so catching opc::Exception catches them all,
// together with the opc::Exception and opc::model exceptions that also leave the library.
//
// A class holds no data of its own and adds no text: what() returns the message exactly as
// the throwing operation composed it.  Three constructor forms exist, and each class has one:
//  - message only: code() holds no error (value 0 in the system category);
//  - message and code: code() is the error code the file system reported, so a caller can
//    test it, for example against boost::system::errc::file_exists;
//  - CouldNotGetSourceFilesAndLinks alone takes a code but does not keep it.
// The code is never folded into the text; where the text names the error, the thrower put
// its words there.
//
// Copies and moves keep text and code.  Type information and virtual tables live in the
// library, so an exception can be caught by its exact class in any module.  Objects may be
// copied, thrown and caught on any thread.
#ifndef OPC_VKSERVICES_ERRORS_H_
#define OPC_VKSERVICES_ERRORS_H_

#include <string>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// Decryption is asked for on a package that is not open for Read.
class OPCVK_EXPORT CannotEnableDecryption : public opc::Exception {
 public:
  explicit CannotEnableDecryption(std::string const& message);
  CannotEnableDecryption(CannotEnableDecryption const& other);
  CannotEnableDecryption(CannotEnableDecryption&& other) noexcept;
  ~CannotEnableDecryption() override;
};

// Encryption is asked for on a package that is not open for Create or Modify,
// an unencrypted file system cannot be turned into an encrypted one, or the key
// given does not match the key that the package was encrypted with.
class OPCVK_EXPORT CannotEnableEncryption : public opc::Exception {
 public:
  explicit CannotEnableEncryption(std::string const& message);
  CannotEnableEncryption(CannotEnableEncryption const& other);
  CannotEnableEncryption(CannotEnableEncryption&& other) noexcept;
  ~CannotEnableEncryption() override;
};

// No cipher entry is kept for the relationship selector asked for.
class OPCVK_EXPORT CipherEntryNotFound : public opc::Exception {
 public:
  explicit CipherEntryNotFound(std::string const& message);
  CipherEntryNotFound(CipherEntryNotFound const& other);
  CipherEntryNotFound(CipherEntryNotFound&& other) noexcept;
  ~CipherEntryNotFound() override;
};

// A manifest of the first format cannot be converted to the current one; the
// text names the cause.
class OPCVK_EXPORT CouldNotConvertFileSystemManifest : public opc::Exception {
 public:
  explicit CouldNotConvertFileSystemManifest(std::string const& message);
  CouldNotConvertFileSystemManifest(CouldNotConvertFileSystemManifest const& other);
  CouldNotConvertFileSystemManifest(CouldNotConvertFileSystemManifest&& other) noexcept;
  ~CouldNotConvertFileSystemManifest() override;
};

// Extraction cannot create, under the destination, the folder that is to hold an
// extracted entry.
class OPCVK_EXPORT CouldNotCreateDestinationParent : public opc::Exception {
 public:
  CouldNotCreateDestinationParent(std::string const& message, boost::system::error_code code);
  CouldNotCreateDestinationParent(CouldNotCreateDestinationParent const& other);
  CouldNotCreateDestinationParent(CouldNotCreateDestinationParent&& other) noexcept;
  ~CouldNotCreateDestinationParent() override;
};

// Extraction cannot create the destination root folder.
class OPCVK_EXPORT CouldNotCreateDestinationRoot : public opc::Exception {
 public:
  CouldNotCreateDestinationRoot(std::string const& message, boost::system::error_code code);
  CouldNotCreateDestinationRoot(CouldNotCreateDestinationRoot const& other);
  CouldNotCreateDestinationRoot(CouldNotCreateDestinationRoot&& other) noexcept;
  ~CouldNotCreateDestinationRoot() override;
};

// Extraction cannot create a file on disk, or the replace mode forbids overwriting
// the file that is there.
class OPCVK_EXPORT CouldNotCreateFile : public opc::Exception {
 public:
  CouldNotCreateFile(std::string const& message, boost::system::error_code code);
  CouldNotCreateFile(CouldNotCreateFile const& other);
  CouldNotCreateFile(CouldNotCreateFile&& other) noexcept;
  ~CouldNotCreateFile() override;
};

// Extraction cannot create a folder on disk.
class OPCVK_EXPORT CouldNotCreateFolder : public opc::Exception {
 public:
  CouldNotCreateFolder(std::string const& message, boost::system::error_code code);
  CouldNotCreateFolder(CouldNotCreateFolder const& other);
  CouldNotCreateFolder(CouldNotCreateFolder&& other) noexcept;
  ~CouldNotCreateFolder() override;
};

// Extraction cannot create a symbolic link on disk.
class OPCVK_EXPORT CouldNotCreateLink : public opc::Exception {
 public:
  CouldNotCreateLink(std::string const& message, boost::system::error_code code);
  CouldNotCreateLink(CouldNotCreateLink const& other);
  CouldNotCreateLink(CouldNotCreateLink&& other) noexcept;
  ~CouldNotCreateLink() override;
};

// The manifest or a file's content is encrypted and no key has been given
// to decrypt it.
class OPCVK_EXPORT CouldNotDecryptContent : public opc::Exception {
 public:
  explicit CouldNotDecryptContent(std::string const& message);
  CouldNotDecryptContent(CouldNotDecryptContent const& other);
  CouldNotDecryptContent(CouldNotDecryptContent&& other) noexcept;
  ~CouldNotDecryptContent() override;
};

// Adding from disk cannot read the last modified time of a source entry.
class OPCVK_EXPORT CouldNotGetLastModifiedTime : public opc::Exception {
 public:
  CouldNotGetLastModifiedTime(std::string const& message, boost::system::error_code code);
  CouldNotGetLastModifiedTime(CouldNotGetLastModifiedTime const& other);
  CouldNotGetLastModifiedTime(CouldNotGetLastModifiedTime&& other) noexcept;
  ~CouldNotGetLastModifiedTime() override;
};

// Adding from disk cannot read the permissions of a source entry.
class OPCVK_EXPORT CouldNotGetPermissions : public opc::Exception {
 public:
  CouldNotGetPermissions(std::string const& message, boost::system::error_code code);
  CouldNotGetPermissions(CouldNotGetPermissions const& other);
  CouldNotGetPermissions(CouldNotGetPermissions&& other) noexcept;
  ~CouldNotGetPermissions() override;
};

// Adding a folder from disk cannot list the files and links under the source
// root.  The text ends with the file system's own words for the failure, but the
// code is not kept: code() always holds no error, whatever code was given.
class OPCVK_EXPORT CouldNotGetSourceFilesAndLinks : public opc::Exception {
 public:
  CouldNotGetSourceFilesAndLinks(std::string const& message, boost::system::error_code code);
  CouldNotGetSourceFilesAndLinks(CouldNotGetSourceFilesAndLinks const& other);
  CouldNotGetSourceFilesAndLinks(CouldNotGetSourceFilesAndLinks&& other) noexcept;
  ~CouldNotGetSourceFilesAndLinks() override;
};

// A source entry found while adding from disk does not lie under the source
// root.
class OPCVK_EXPORT CouldNotMakeRelativeToSourceRoot : public opc::Exception {
 public:
  explicit CouldNotMakeRelativeToSourceRoot(std::string const& message);
  CouldNotMakeRelativeToSourceRoot(CouldNotMakeRelativeToSourceRoot const& other);
  CouldNotMakeRelativeToSourceRoot(CouldNotMakeRelativeToSourceRoot&& other) noexcept;
  ~CouldNotMakeRelativeToSourceRoot() override;
};

// A file on disk cannot be opened to read its content.
class OPCVK_EXPORT CouldNotOpenFile : public opc::Exception {
 public:
  CouldNotOpenFile(std::string const& message, boost::system::error_code code);
  CouldNotOpenFile(CouldNotOpenFile const& other);
  CouldNotOpenFile(CouldNotOpenFile&& other) noexcept;
  ~CouldNotOpenFile() override;
};

// Extraction cannot restore the last modified time of an entry on disk.
class OPCVK_EXPORT CouldNotSetLastModifiedTime : public opc::Exception {
 public:
  CouldNotSetLastModifiedTime(std::string const& message, boost::system::error_code code);
  CouldNotSetLastModifiedTime(CouldNotSetLastModifiedTime const& other);
  CouldNotSetLastModifiedTime(CouldNotSetLastModifiedTime&& other) noexcept;
  ~CouldNotSetLastModifiedTime() override;
};

// Extraction cannot restore the permissions of an entry on disk.
class OPCVK_EXPORT CouldNotSetPermissions : public opc::Exception {
 public:
  CouldNotSetPermissions(std::string const& message, boost::system::error_code code);
  CouldNotSetPermissions(CouldNotSetPermissions const& other);
  CouldNotSetPermissions(CouldNotSetPermissions&& other) noexcept;
  ~CouldNotSetPermissions() override;
};

// A transform fails on the bytes of the content it wraps.
class OPCVK_EXPORT CouldNotTransformContentData : public opc::Exception {
 public:
  explicit CouldNotTransformContentData(std::string const& message);
  CouldNotTransformContentData(CouldNotTransformContentData const& other);
  CouldNotTransformContentData(CouldNotTransformContentData&& other) noexcept;
  ~CouldNotTransformContentData() override;
};

// A transform cannot derive the content type of what it produces.
class OPCVK_EXPORT CouldNotTransformContentType : public opc::Exception {
 public:
  explicit CouldNotTransformContentType(std::string const& message);
  CouldNotTransformContentType(CouldNotTransformContentType const& other);
  CouldNotTransformContentType(CouldNotTransformContentType&& other) noexcept;
  ~CouldNotTransformContentType() override;
};

// An entry is created or added at a path that is already taken.
class OPCVK_EXPORT FileSystemEntryAlreadyExists : public opc::Exception {
 public:
  explicit FileSystemEntryAlreadyExists(std::string const& message);
  FileSystemEntryAlreadyExists(FileSystemEntryAlreadyExists const& other);
  FileSystemEntryAlreadyExists(FileSystemEntryAlreadyExists&& other) noexcept;
  ~FileSystemEntryAlreadyExists() override;
};

// The parent of the root folder is asked for.
class OPCVK_EXPORT FileSystemEntryHasNoParent : public opc::Exception {
 public:
  explicit FileSystemEntryHasNoParent(std::string const& message);
  FileSystemEntryHasNoParent(FileSystemEntryHasNoParent const& other);
  FileSystemEntryHasNoParent(FileSystemEntryHasNoParent&& other) noexcept;
  ~FileSystemEntryHasNoParent() override;
};

// An operation on files is given a folder or a link.
class OPCVK_EXPORT FileSystemEntryMustBeFile : public opc::Exception {
 public:
  explicit FileSystemEntryMustBeFile(std::string const& message);
  FileSystemEntryMustBeFile(FileSystemEntryMustBeFile const& other);
  FileSystemEntryMustBeFile(FileSystemEntryMustBeFile&& other) noexcept;
  ~FileSystemEntryMustBeFile() override;
};

// An operation on folders is given a file or a link.
class OPCVK_EXPORT FileSystemEntryMustBeFolder : public opc::Exception {
 public:
  explicit FileSystemEntryMustBeFolder(std::string const& message);
  FileSystemEntryMustBeFolder(FileSystemEntryMustBeFolder const& other);
  FileSystemEntryMustBeFolder(FileSystemEntryMustBeFolder&& other) noexcept;
  ~FileSystemEntryMustBeFolder() override;
};

// An operation on symbolic links is given a file or a folder.
class OPCVK_EXPORT FileSystemEntryMustBeLink : public opc::Exception {
 public:
  explicit FileSystemEntryMustBeLink(std::string const& message);
  FileSystemEntryMustBeLink(FileSystemEntryMustBeLink const& other);
  FileSystemEntryMustBeLink(FileSystemEntryMustBeLink&& other) noexcept;
  ~FileSystemEntryMustBeLink() override;
};

// No entry exists at the path given.
class OPCVK_EXPORT FileSystemEntryNotFound : public opc::Exception {
 public:
  explicit FileSystemEntryNotFound(std::string const& message);
  FileSystemEntryNotFound(FileSystemEntryNotFound const& other);
  FileSystemEntryNotFound(FileSystemEntryNotFound&& other) noexcept;
  ~FileSystemEntryNotFound() override;
};

// A cipher entry cannot be added because its relationship selector is taken,
// the stored cipher data holds duplicate entries, or the cipher data cannot be
// read or written; then the text is that of the failure underneath.
class OPCVK_EXPORT InvalidCipherData : public opc::Exception {
 public:
  explicit InvalidCipherData(std::string const& message);
  InvalidCipherData(InvalidCipherData const& other);
  InvalidCipherData(InvalidCipherData&& other) noexcept;
  ~InvalidCipherData() override;
};

// Required core properties are missing when they are written, or the core
// properties cannot be read; then the text is that of the failure underneath.
class OPCVK_EXPORT InvalidCoreProperties : public opc::Exception {
 public:
  explicit InvalidCoreProperties(std::string const& message);
  InvalidCoreProperties(InvalidCoreProperties const& other);
  InvalidCoreProperties(InvalidCoreProperties&& other) noexcept;
  ~InvalidCoreProperties() override;
};

// A core property is given a value of the wrong form, or the identifier is set
// a second time.
class OPCVK_EXPORT InvalidCorePropertyValue : public opc::Exception {
 public:
  explicit InvalidCorePropertyValue(std::string const& message);
  InvalidCorePropertyValue(InvalidCorePropertyValue const& other);
  InvalidCorePropertyValue(InvalidCorePropertyValue&& other) noexcept;
  ~InvalidCorePropertyValue() override;
};

// The fixed portion or the seed given for generating IVs is too short.
class OPCVK_EXPORT InvalidIVBytesSize : public opc::Exception {
 public:
  explicit InvalidIVBytesSize(std::string const& message);
  InvalidIVBytesSize(InvalidIVBytesSize const& other);
  InvalidIVBytesSize(InvalidIVBytesSize&& other) noexcept;
  ~InvalidIVBytesSize() override;
};

// A property that would differ from run to run (a time, the identifier) is set
// while the core properties are in deterministic mode.
class OPCVK_EXPORT NondeterministicCoreProperties : public opc::Exception {
 public:
  explicit NondeterministicCoreProperties(std::string const& message);
  NondeterministicCoreProperties(NondeterministicCoreProperties const& other);
  NondeterministicCoreProperties(NondeterministicCoreProperties&& other) noexcept;
  ~NondeterministicCoreProperties() override;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_ERRORS_H_
