// The error family.  Every member is defined here, out of line, so that each class's virtual
// table and type information are emitted once, in libopcvkservices, rather than as weak
// copies in every module that throws or catches: a catch by exact class then matches across
// the shared-library boundary.
#include <opc/vkservices/errors.h>

// The classes differ only in name and in which constructor they have; these file-local
// macros keep the thirty definitions uniform.  The copy and move constructors forward to
// opc::Exception, which keeps the message and the code.
#define OPCVK_COPY_MOVE_AND_DESTROY(Name)      \
  Name::Name(Name const& other) = default;     \
  Name::Name(Name&& other) noexcept = default; \
  Name::~Name() = default;

// The class reports no failure code of its own: a default code holds no error.
#define OPCVK_MESSAGE_ONLY(Name)                                                              \
  Name::Name(std::string const& message) : Exception(message, boost::system::error_code()) {} \
  OPCVK_COPY_MOVE_AND_DESTROY(Name)

// The class keeps the code that the file system reported.
#define OPCVK_WITH_CODE(Name)                                            \
  Name::Name(std::string const& message, boost::system::error_code code) \
      : Exception(message, code) {}                                      \
  OPCVK_COPY_MOVE_AND_DESTROY(Name)

// The class takes a code but reports none, on purpose: the thrower has already put the
// code's words into the message, and what callers have always seen in code() is no error.
#define OPCVK_DROPPING_CODE(Name)                                            \
  Name::Name(std::string const& message, boost::system::error_code /*code*/) \
      : Exception(message, boost::system::error_code()) {}                   \
  OPCVK_COPY_MOVE_AND_DESTROY(Name)

namespace opc {
namespace vkservices {

OPCVK_MESSAGE_ONLY(CannotEnableDecryption)
OPCVK_MESSAGE_ONLY(CannotEnableEncryption)
OPCVK_MESSAGE_ONLY(CipherEntryNotFound)
OPCVK_MESSAGE_ONLY(CouldNotConvertFileSystemManifest)
OPCVK_WITH_CODE(CouldNotCreateDestinationParent)
OPCVK_WITH_CODE(CouldNotCreateDestinationRoot)
OPCVK_WITH_CODE(CouldNotCreateFile)
OPCVK_WITH_CODE(CouldNotCreateFolder)
OPCVK_WITH_CODE(CouldNotCreateLink)
OPCVK_MESSAGE_ONLY(CouldNotDecryptContent)
OPCVK_WITH_CODE(CouldNotGetLastModifiedTime)
OPCVK_WITH_CODE(CouldNotGetPermissions)
OPCVK_DROPPING_CODE(CouldNotGetSourceFilesAndLinks)
OPCVK_MESSAGE_ONLY(CouldNotMakeRelativeToSourceRoot)
OPCVK_WITH_CODE(CouldNotOpenFile)
OPCVK_WITH_CODE(CouldNotSetLastModifiedTime)
OPCVK_WITH_CODE(CouldNotSetPermissions)
OPCVK_MESSAGE_ONLY(CouldNotTransformContentData)
OPCVK_MESSAGE_ONLY(CouldNotTransformContentType)
OPCVK_MESSAGE_ONLY(FileSystemEntryAlreadyExists)
OPCVK_MESSAGE_ONLY(FileSystemEntryHasNoParent)
OPCVK_MESSAGE_ONLY(FileSystemEntryMustBeFile)
OPCVK_MESSAGE_ONLY(FileSystemEntryMustBeFolder)
OPCVK_MESSAGE_ONLY(FileSystemEntryMustBeLink)
OPCVK_MESSAGE_ONLY(FileSystemEntryNotFound)
OPCVK_MESSAGE_ONLY(InvalidCipherData)
OPCVK_MESSAGE_ONLY(InvalidCoreProperties)
OPCVK_MESSAGE_ONLY(InvalidCorePropertyValue)
OPCVK_MESSAGE_ONLY(InvalidIVBytesSize)
OPCVK_MESSAGE_ONLY(NondeterministicCoreProperties)

}  // namespace vkservices
}  // namespace opc

#undef OPCVK_DROPPING_CODE
#undef OPCVK_WITH_CODE
#undef OPCVK_MESSAGE_ONLY
#undef OPCVK_COPY_MOVE_AND_DESTROY
