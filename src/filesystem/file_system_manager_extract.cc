// Extraction of FileSystemManager: entries of the package file system become files, folders
// and symbolic links below a destination folder.  The root is made through the destination's
// FileSystemOps; everything below it goes through the opc::ConfinedDestination that the
// FileSystemOps gives for the root, after each entry's name has passed the DestinationGuard.
#include <memory>
#include <ostream>
#include <string>

#include <boost/system/error_code.hpp>

#include <opc/core/confined_destination.h>
#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/destination_guard.h"
#include "filesystem/extraction_session.h"
#include "filesystem/file_system_tree.h"
#include "filesystem/leaf_extractor.h"

namespace opc {
namespace vkservices {

namespace {

using boost::system::error_code;
using detail::LeafExtractor;

// Whether `code` means that something is already there.  Both directions of equivalence are
// asked, so that a code of any category that knows the condition is recognised.
bool isFileExists(error_code const& code) {
  boost::system::error_condition const condition =
      boost::system::errc::make_error_condition(boost::system::errc::file_exists);
  return code.category().equivalent(code.value(), condition) ||
         condition.category().equivalent(code, condition.value());
}

}  // namespace

void FileSystemManager::extractAll(std::u16string const& destination, RestoreMode restoreMode,
                                   TransformMode transformMode, ReplaceMode replaceMode) {
  ensureLoaded();
  destFS_ = &fileSystemOpsSelector_.getForPath(destination);
  enterDestination(destination);
  // The tree is walked in path order, one entry made at a time, rather than all its leaves
  // copied first.
  tree_->visitLeaves([&](FileSystemTree::LeafView const& leaf) {
    extractEntryInternal(destination, makeEntry(detail::nodeOfLeaf(leaf)), restoreMode,
                         transformMode, replaceMode);
  });
}

void FileSystemManager::extractEntry(std::u16string const& destination,
                                     FileSystemEntry const& entry, RestoreMode restoreMode,
                                     TransformMode transformMode, ReplaceMode replaceMode) {
  ensureLoaded();
  destFS_ = &fileSystemOpsSelector_.getForPath(destination);
  enterDestination(destination);
  extractEntryInternal(destination, entry, restoreMode, transformMode, replaceMode);
}

void FileSystemManager::extractEntryInternal(std::u16string const& destination,
                                             FileSystemEntry const& entry, RestoreMode restoreMode,
                                             TransformMode transformMode, ReplaceMode replaceMode) {
  if (entry.isFolder()) {
    extractFolderInternal(destination, entry);
  } else if (entry.isFile()) {
    extractFileInternal(destination, entry, restoreMode, transformMode, replaceMode);
  } else {
    extractLinkInternal(destination, entry);
  }
}

void FileSystemManager::extractFileInternal(std::u16string const& destination,
                                            FileSystemEntry const& entry, RestoreMode restoreMode,
                                            TransformMode transformMode, ReplaceMode replaceMode) {
  LeafExtractor(getDestFSImpl(), destination, *extraction_->destination)
      .extractPart(entry, entry.getContentName(), getPackage(), restoreMode, transformMode,
                   replaceMode, extraction_->buffer, [&] {
                     extractFileThroughTemporary(destination, entry, restoreMode, replaceMode);
                   });
}

void FileSystemManager::extractFileThroughTemporary(std::u16string const& destination,
                                                    FileSystemEntry const& entry,
                                                    RestoreMode restoreMode,
                                                    ReplaceMode replaceMode) {
  std::u16string const pathName = entry.getPathName();
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  opc::ConfinedDestination& target = *extraction_->destination;
  LeafExtractor leaves(fileSystem, destination, target);
  std::u16string path;
  try {
    path = leaves.ensureParentExists(pathName);
  } catch (detail::ExtractionRefused const& refused) {
    throw CouldNotCreateFile(refused.refusal().message, refused.refusal().code);
  }

  opc::ConfinedResult result;
  std::unique_ptr<opc::ConfinedFile> output = target.openTemporaryFile(pathName, result);
  leaves.throwIfRefused(result, pathName);
  if (!output) {
    throw CouldNotCreateFile("Could not create or overwrite file: " + opc::toUDEString(path) +
                                 ": " + result.code.message(),
                             result.code);
  }
  // One pass: plaintext goes into the temporary file as it is decrypted, and the read that
  // delivers the last byte checks the tag.  A failure anywhere leaves with the temporary file
  // removed and whatever was at the path untouched.
  {
    std::unique_ptr<IContentSource> source = getFileContentSourceInternal(
        entry, TransformMode::ApplyTransforms, Publication::AfterLastRead);
    try {
      opc::StreamHelper::copyStreamToStream(source->getInputStream(), output->stream());
    } catch (opc::Exception const&) {
      LeafExtractor::throwIfWriteFailed(*output, path);
      throw;
    }
  }
  output->finishContent(result);
  leaves.throwIfRefused(result, pathName);
  if (restoreMode == RestoreMode::RestoreTimeAndPermissions) {
    LeafExtractor::restoreTimeAndPermissions(*output, entry, path);
  }
  // What stands at the path meets the same refusals and replace modes as on the plain road
  // (a link, a file with other hard links, a read-only file), now that the content is known
  // to be whole: an existing file opened here is emptied only to be replaced at once.
  error_code existsCode;
  if (target.exists(pathName, existsCode)) {
    leaves.openForWriting(pathName, path, replaceMode).reset();
  }
  error_code commitCode;
  output->commit(commitCode);
  if (commitCode) {
    throw CouldNotCreateFile("Could not create or overwrite file: " + opc::toUDEString(path) +
                                 ": " + commitCode.message(),
                             commitCode);
  }
}

void FileSystemManager::extractFolderInternal(std::u16string const& destination,
                                              FileSystemEntry const& entry) {
  LeafExtractor(getDestFSImpl(), destination, *extraction_->destination).extractFolder(entry);
}

void FileSystemManager::extractLinkInternal(std::u16string const& destination,
                                            FileSystemEntry const& entry) {
  LeafExtractor(getDestFSImpl(), destination, *extraction_->destination)
      .extractLink(entry, entry.getContentName());
}

void FileSystemManager::ensureDestinationRootExists(std::u16string const& destination) const {
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  error_code code;
  if (fileSystem.exists(destination, code)) return;
  code.clear();
  fileSystem.createFolders(destination, code);
  if (code && !isFileExists(code)) {
    throw CouldNotCreateDestinationRoot(
        "Could not create the destination root directory: " + code.message(), code);
  }
}

opc::ConfinedDestination& FileSystemManager::enterDestination(std::u16string const& destination) {
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  // The folders that the last call opened stay in use while they are still what their names
  // lead to, so that entry-by-entry extraction opens each folder once; the root then exists.
  if (extraction_ && extraction_->fileSystem == &fileSystem && extraction_->root == destination &&
      extraction_->destination->isUnchanged()) {
    return *extraction_->destination;
  }
  extraction_.reset();
  ensureDestinationRootExists(destination);
  auto session = std::make_unique<detail::ExtractionSession>();
  session->fileSystem = &fileSystem;
  session->root = destination;
  session->destination = fileSystem.openConfinedDestination(destination);
  extraction_ = std::move(session);
  return *extraction_->destination;
}

std::u16string FileSystemManager::ensureDestinationParentExists(
    std::u16string const& destination, std::u16string const& pathName) const {
  return LeafExtractor(getDestFSImpl(), destination, *extraction_->destination)
      .ensureParentExists(pathName);
}

}  // namespace vkservices
}  // namespace opc
