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

namespace opc {
namespace vkservices {

namespace {

using boost::system::error_code;
using detail::DestinationGuard;
using detail::ExtractionRefused;
using detail::Refusal;

constexpr opc::Perms::Perms_tag kClobberPermissions = static_cast<opc::Perms::Perms_tag>(0777);

// Whether `code` means that something is already there.  Both directions of equivalence are
// asked, so that a code of any category that knows the condition is recognised.
bool isFileExists(error_code const& code) {
  boost::system::error_condition const condition =
      boost::system::errc::make_error_condition(boost::system::errc::file_exists);
  return code.category().equivalent(code.value(), condition) ||
         condition.category().equivalent(code, condition.value());
}

// Raises what the confined destination met in the way of the entry at `pathName` as
// `ErrorClass`; nothing for another result.
template <typename ErrorClass>
void throwIfRefused(opc::ConfinedResult const& result, opc::FileSystemOps const& fileSystem,
                    std::u16string const& destination, std::u16string const& pathName) {
  std::optional<Refusal> const refusal =
      DestinationGuard::refusalFor(result, fileSystem, destination, pathName);
  if (refusal) throw ErrorClass(refusal->message, refusal->code);
}

// The making of the parents does not know the kind of the entry: its refusal is raised here,
// as the class of the entry's kind.
template <typename ErrorClass, typename Step>
std::u16string refusedAs(Step&& step) {
  try {
    return step();
  } catch (ExtractionRefused const& refused) {
    throw ErrorClass(refused.refusal().message, refused.refusal().code);
  }
}

// Gives the file being written the time and permissions that `entry` keeps, where known.
void restoreTimeAndPermissions(opc::ConfinedFile& output, FileSystemEntry const& entry,
                               std::u16string const& path) {
  error_code restoreCode;
  boost::posix_time::ptime const time = entry.getLastModifiedTime();
  if (time != FileSystemEntry::getUnknownTime()) {
    output.setLastModifiedTime(time, restoreCode);
    if (restoreCode) {
      throw CouldNotSetLastModifiedTime("Could not set last modified time: " +
                                            opc::toUDEString(path) + ": " + restoreCode.message(),
                                        restoreCode);
    }
  }
  opc::Perms::Perms_tag const permissions = entry.getPermissions();
  if (permissions != FileSystemEntry::getUnknownPermissions()) {
    output.setPermissions(permissions, restoreCode);
    if (restoreCode) {
      throw CouldNotSetPermissions(
          "Could not set permissions: " + opc::toUDEString(path) + ": " + restoreCode.message(),
          restoreCode);
    }
  }
}

}  // namespace

void FileSystemManager::extractAll(std::u16string const& destination, RestoreMode restoreMode,
                                   TransformMode transformMode, ReplaceMode replaceMode) {
  ensureLoaded();
  destFS_ = &fileSystemOpsSelector_.getForPath(destination);
  enterDestination(destination);
  for (FileSystemEntry const& entry : getAllLeafs()) {
    extractEntryInternal(destination, entry, restoreMode, transformMode, replaceMode);
  }
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
  if (transformMode == TransformMode::ApplyTransforms && isEncryptedContent(entry)) {
    extractFileThroughTemporary(destination, entry, restoreMode, replaceMode);
    return;
  }
  std::u16string const pathName = entry.getPathName();
  std::u16string const path = refusedAs<CouldNotCreateFile>(
      [&] { return ensureDestinationParentExists(destination, pathName); });
  std::unique_ptr<opc::ConfinedFile> output =
      openForWriting(destination, pathName, path, replaceMode);
  {
    std::unique_ptr<IContentSource> source = getFileContentSource(entry, transformMode);
    opc::StreamHelper::copyStreamToStream(source->getInputStream(), output->stream());
  }
  if (restoreMode != RestoreMode::RestoreTimeAndPermissions) return;
  // The content is complete before the time is set, or writing it would change the time
  // again; a destination that works by path looks at the name once more here.
  opc::ConfinedResult result;
  output->finishContent(result);
  throwIfRefused<CouldNotCreateFile>(result, getDestFSImpl(), destination, pathName);
  restoreTimeAndPermissions(*output, entry, path);
}

void FileSystemManager::extractFileThroughTemporary(std::u16string const& destination,
                                                    FileSystemEntry const& entry,
                                                    RestoreMode restoreMode,
                                                    ReplaceMode replaceMode) {
  std::u16string const pathName = entry.getPathName();
  std::u16string const path = refusedAs<CouldNotCreateFile>(
      [&] { return ensureDestinationParentExists(destination, pathName); });
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  opc::ConfinedDestination& target = *extraction_->destination;

  opc::ConfinedResult result;
  std::unique_ptr<opc::ConfinedFile> output = target.openTemporaryFile(pathName, result);
  throwIfRefused<CouldNotCreateFile>(result, fileSystem, destination, pathName);
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
    opc::StreamHelper::copyStreamToStream(source->getInputStream(), output->stream());
  }
  output->finishContent(result);
  throwIfRefused<CouldNotCreateFile>(result, fileSystem, destination, pathName);
  if (restoreMode == RestoreMode::RestoreTimeAndPermissions) {
    restoreTimeAndPermissions(*output, entry, path);
  }
  // What stands at the path meets the same refusals and replace modes as on the plain road
  // (a link, a file with other hard links, a read-only file), now that the content is known
  // to be whole: an existing file opened here is emptied only to be replaced at once.
  error_code existsCode;
  if (target.exists(pathName, existsCode)) {
    openForWriting(destination, pathName, path, replaceMode).reset();
  }
  error_code commitCode;
  output->commit(commitCode);
  if (commitCode) {
    throw CouldNotCreateFile("Could not create or overwrite file: " + opc::toUDEString(path) +
                                 ": " + commitCode.message(),
                             commitCode);
  }
}

std::unique_ptr<opc::ConfinedFile> FileSystemManager::openForWriting(
    std::u16string const& destination, std::u16string const& pathName, std::u16string const& path,
    ReplaceMode replaceMode) {
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  opc::ConfinedDestination& target = *extraction_->destination;

  // A link at the path is refused before anything is opened or clobbered through it.
  opc::ConfinedResult result;
  std::unique_ptr<opc::ConfinedFile> output = target.openFile(pathName, result);
  throwIfRefused<CouldNotCreateFile>(result, fileSystem, destination, pathName);
  if (output) return output;
  error_code const code = result.code;
  error_code existsCode;
  bool const existing = target.exists(pathName, existsCode);
  if (replaceMode == ReplaceMode::ReplaceNever ||
      (replaceMode == ReplaceMode::ReplaceExisting && !existing)) {
    // An existing file says why more plainly than the open's code does.
    throw CouldNotCreateFile(
        "Could not create or overwrite file: " + opc::toUDEString(path),
        existing ? boost::system::errc::make_error_code(boost::system::errc::file_exists) : code);
  }
  error_code ignored;
  target.setPermissions(pathName, kClobberPermissions, ignored);
  output = target.openFile(pathName, result);
  throwIfRefused<CouldNotCreateFile>(result, fileSystem, destination, pathName);
  if (!output) {
    throw CouldNotCreateFile(
        "Could not clobber file: " + opc::toUDEString(path) + ": " + result.code.message(),
        result.code);
  }
  return output;
}

void FileSystemManager::extractFolderInternal(std::u16string const& destination,
                                              FileSystemEntry const& entry) {
  std::u16string const pathName = entry.getPathName();
  std::u16string const path = refusedAs<CouldNotCreateFolder>(
      [&] { return ensureDestinationParentExists(destination, pathName); });
  error_code code;
  // Whatever is there counts as the folder; nothing is made through it.
  extraction_->destination->createFolder(pathName, code);
  if (code) {
    throw CouldNotCreateFolder(
        "Could not create folder: " + opc::toUDEString(path) + ": " + code.message(), code);
  }
}

void FileSystemManager::extractLinkInternal(std::u16string const& destination,
                                            FileSystemEntry const& entry) {
  std::u16string const pathName = entry.getPathName();
  std::u16string const path = refusedAs<CouldNotCreateLink>(
      [&] { return ensureDestinationParentExists(destination, pathName); });
  ensureLoaded();
  if (!entry.isLink()) throw FileSystemEntryMustBeLink("File system entry must be a symbolic link");
  opc::FileSystemOps& fileSystem = getDestFSImpl();

  std::u16string target = entry.getContentName();
  std::u16string const root = FileSystemEntry::getRootName();
  if (target.compare(0, root.size(), root) == 0) {
    // An absolute target is a path in the package: the link points into the extracted tree.
    // A target that climbs above the package root cannot be placed there.
    try {
      target = fileSystem.appendPath(destination, target);
    } catch (opc::Exception const& e) {
      if (e.code() != boost::system::errc::invalid_argument) throw;
      Refusal const refusal =
          DestinationGuard::makeRefusal(pathName, "the link target leaves the destination",
                                        boost::system::errc::invalid_argument);
      throw CouldNotCreateLink(refusal.message, refusal.code);
    }
  }
  // A relative target stays as it is, even one that points outside: nothing is ever written
  // through a link, since the destination never passes one.
  error_code code;
  extraction_->destination->createSymlink(target, pathName, code);
  if (code) {
    throw CouldNotCreateLink(
        "Could not create link: " + opc::toUDEString(path) + ": " + code.message(), code);
  }
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
  // The text first, before appendPath could raise a plain error of its own for "..".
  if (std::optional<Refusal> refusal = DestinationGuard::checkPathName(pathName)) {
    throw ExtractionRefused(*refusal);
  }
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  std::u16string fullPath = fileSystem.appendPath(destination, pathName);
  opc::ConfinedResult result;
  extraction_->destination->makeParents(pathName, result);
  if (std::optional<Refusal> refusal =
          DestinationGuard::refusalFor(result, fileSystem, destination, pathName)) {
    throw ExtractionRefused(*refusal);
  }
  if (!result.done()) {
    throw CouldNotCreateDestinationParent(
        "Could not create the destination parent directory: " + result.code.message(), result.code);
  }
  return fullPath;
}

}  // namespace vkservices
}  // namespace opc
