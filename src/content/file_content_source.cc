#include <cerrno>

#include <boost/system/error_code.hpp>

#include <opc/core/local_file_system_ops.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/errors.h>

namespace opc {
namespace vkservices {
namespace {

// Binary input in FileSystemOps' numbering of open modes.
constexpr int kBinaryInput = opc::FileSystemOps::kModeIn | opc::FileSystemOps::kModeBinary;
static_assert(kBinaryInput == 33, "binary input is mode 33");

// The one process-wide local file system, made on first use; a source never makes another.
opc::FileSystemOps& localFileSystem() { return *opc::LocalFileSystemOps::getShared(); }

opc::model::ContentType typeByExtension(opc::FileSystemOps& fileSystem,
                                        std::u16string const& path) {
  return lookupContentType(fileSystem, path, getORVANEDefaultContentType());
}

}  // namespace

FileContentSource::FileContentSource(std::u16string const& path)
    : FileContentSource(path, typeByExtension(localFileSystem(), path), localFileSystem()) {}

FileContentSource::FileContentSource(std::u16string const& path, opc::FileSystemOps& fileSystem)
    : FileContentSource(path, typeByExtension(fileSystem, path), fileSystem) {}

FileContentSource::FileContentSource(std::u16string const& path,
                                     opc::model::ContentType const& contentType)
    : FileContentSource(path, contentType, localFileSystem()) {}

FileContentSource::FileContentSource(std::u16string const& path,
                                     opc::model::ContentType const& contentType,
                                     opc::FileSystemOps& fileSystem) {
  boost::system::error_code code;
  file_ = fileSystem.createInputStream(path, kBinaryInput, code);
  // A file system that claims success without a stream would leave nothing to read; it is
  // refused here rather than dereferenced.
  // Like every failure of the file system, the code is an errno value in the system category.
  if (!code && !file_) code = boost::system::error_code(EIO, boost::system::system_category());
  if (code) {
    throw CouldNotOpenFile("Could not open file: " + opc::toUDEString(path), code);
  }
  inner_ = std::make_unique<StreamContentSource>(*file_, contentType);
}

FileContentSource::~FileContentSource() = default;

opc::model::ContentType FileContentSource::getContentType() { return inner_->getContentType(); }

opc::InputStream& FileContentSource::getInputStream() { return inner_->getInputStream(); }

}  // namespace vkservices
}  // namespace opc
