// Extraction of FileSystemManager: entries of the package file system become files, folders
// and symbolic links below a destination folder.  Every step goes through the destination's
// FileSystemOps, and every entry passes the DestinationGuard before anything changes.
#include <memory>
#include <ostream>
#include <string>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/destination_guard.h"

namespace opc {
namespace vkservices {

namespace {

using boost::system::error_code;
using detail::DestinationGuard;
using detail::ExtractionRefused;
using detail::Refusal;

// Write and binary.
constexpr int kOutputMode = opc::FileSystemOps::kModeOut | opc::FileSystemOps::kModeBinary;
constexpr opc::Perms::Perms_tag kClobberPermissions = static_cast<opc::Perms::Perms_tag>(0777);

// Whether `code` means that something is already there.  Both directions of equivalence are
// asked, so that a code of any category that knows the condition is recognised.
bool isFileExists(error_code const& code) {
  boost::system::error_condition const condition =
      boost::system::errc::make_error_condition(boost::system::errc::file_exists);
  return code.category().equivalent(code.value(), condition) ||
         condition.category().equivalent(code, condition.value());
}

template <typename ErrorClass>
void throwIfRefused(std::optional<Refusal> const& refusal) {
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

}  // namespace

void FileSystemManager::extractAll(std::u16string const& destination, RestoreMode restoreMode,
                                   TransformMode transformMode, ReplaceMode replaceMode) {
  ensureLoaded();
  destFS_ = &fileSystemOpsSelector_.getForPath(destination);
  ensureDestinationRootExists(destination);
  for (FileSystemEntry const& entry : getAllLeafs()) {
    extractEntryInternal(destination, entry, restoreMode, transformMode, replaceMode);
  }
}

void FileSystemManager::extractEntry(std::u16string const& destination,
                                     FileSystemEntry const& entry, RestoreMode restoreMode,
                                     TransformMode transformMode, ReplaceMode replaceMode) {
  ensureLoaded();
  destFS_ = &fileSystemOpsSelector_.getForPath(destination);
  ensureDestinationRootExists(destination);
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
  std::u16string const pathName = entry.getPathName();
  std::u16string const path = refusedAs<CouldNotCreateFile>(
      [&] { return ensureDestinationParentExists(destination, pathName); });
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  DestinationGuard const guard(fileSystem, destination);
  // Opening a link would write through it, and clobbering would change its target's
  // permissions: the final path is checked before either.
  throwIfRefused<CouldNotCreateFile>(guard.checkFile(pathName, path));

  error_code code;
  std::shared_ptr<std::ostream> output = fileSystem.createOutputStream(path, kOutputMode, code);
  if (code || !output) {
    error_code existsCode;
    bool const existing = fileSystem.exists(path, existsCode);
    if (replaceMode == ReplaceMode::ReplaceNever ||
        (replaceMode == ReplaceMode::ReplaceExisting && !existing)) {
      // An existing file says why more plainly than the open's code does.
      throw CouldNotCreateFile(
          "Could not create or overwrite file: " + opc::toUDEString(path),
          existing ? boost::system::errc::make_error_code(boost::system::errc::file_exists) : code);
    }
    error_code ignored;
    fileSystem.setPermissions(path, kClobberPermissions, ignored);
    code.clear();
    output = fileSystem.createOutputStream(path, kOutputMode, code);
    if (code || !output) {
      throw CouldNotCreateFile(
          "Could not clobber file: " + opc::toUDEString(path) + ": " + code.message(), code);
    }
  }

  {
    std::unique_ptr<IContentSource> source = getFileContentSource(entry, transformMode);
    opc::StreamHelper::copyStreamToStream(source->getInputStream(), *output);
  }
  // The file is closed before its time and permissions are set, or closing would change the
  // time again.
  output.reset();

  if (restoreMode != RestoreMode::RestoreTimeAndPermissions) return;
  // Checked once more: setting a time or permissions on a link that took the file's place
  // in the meantime would reach its target.
  throwIfRefused<CouldNotCreateFile>(guard.checkFile(pathName, path));
  error_code restoreCode;
  boost::posix_time::ptime const time = entry.getLastModifiedTime();
  if (time != FileSystemEntry::getUnknownTime()) {
    fileSystem.setLastModifiedTime(path, time, restoreCode);
    if (restoreCode) {
      throw CouldNotSetLastModifiedTime("Could not set last modified time: " +
                                            opc::toUDEString(path) + ": " + restoreCode.message(),
                                        restoreCode);
    }
  }
  opc::Perms::Perms_tag const permissions = entry.getPermissions();
  if (permissions != FileSystemEntry::getUnknownPermissions()) {
    fileSystem.setPermissions(path, permissions, restoreCode);
    if (restoreCode) {
      throw CouldNotSetPermissions(
          "Could not set permissions: " + opc::toUDEString(path) + ": " + restoreCode.message(),
          restoreCode);
    }
  }
}

void FileSystemManager::extractFolderInternal(std::u16string const& destination,
                                              FileSystemEntry const& entry) {
  std::u16string const path = refusedAs<CouldNotCreateFolder>(
      [&] { return ensureDestinationParentExists(destination, entry.getPathName()); });
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  error_code code;
  // Whatever is there counts as the folder; nothing is made through it.
  if (fileSystem.exists(path, code)) return;
  code.clear();
  fileSystem.createFolder(path, code);
  if (code && !isFileExists(code)) {
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
  // through a link, since the guard refuses every path that passes one.
  error_code code;
  fileSystem.createSymlink(target, path, code);
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

std::u16string FileSystemManager::ensureDestinationParentExists(
    std::u16string const& destination, std::u16string const& pathName) const {
  // The text first, before appendPath could raise a plain error of its own for "..".
  if (std::optional<Refusal> refusal = DestinationGuard::checkPathName(pathName)) {
    throw ExtractionRefused(*refusal);
  }
  opc::FileSystemOps& fileSystem = getDestFSImpl();
  std::u16string const fullPath = fileSystem.appendPath(destination, pathName);
  std::u16string const parent = fileSystem.getParentPath(fullPath);
  DestinationGuard const guard(fileSystem, destination);
  // Making the parents follows links on the way: they are checked before.
  if (std::optional<Refusal> refusal = guard.checkParents(pathName)) {
    throw ExtractionRefused(*refusal);
  }
  error_code code;
  if (!fileSystem.exists(parent, code)) {
    code.clear();
    fileSystem.createFolders(parent, code);
    if (code && !isFileExists(code)) {
      throw CouldNotCreateDestinationParent(
          "Could not create the destination parent directory: " + code.message(), code);
    }
  }
  if (std::optional<Refusal> refusal = guard.checkParentsResolve(pathName)) {
    throw ExtractionRefused(*refusal);
  }
  return fullPath;
}

}  // namespace vkservices
}  // namespace opc
