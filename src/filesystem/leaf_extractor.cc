// Extraction of one entry below a confined destination: files, folders and symbolic links,
// with the refusals, replace modes and restored times and permissions of the contract.
#include "filesystem/leaf_extractor.h"

#include <exception>
#include <optional>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>

#include "filesystem/destination_guard.h"
#include "filesystem/file_system_entry_access.h"
#include "filesystem/part_copy.h"

namespace opc {
namespace vkservices {
namespace detail {

namespace {

using boost::system::error_code;

constexpr char16_t kEncryptionParameter[] = u"encryption";
constexpr opc::Perms::Perms_tag kClobberPermissions = static_cast<opc::Perms::Perms_tag>(0777);

// The making of the parents does not know the kind of the entry: its refusal is raised here,
// as the class of the entry's kind.
template <typename ErrorClass, typename Step>
auto refusedAs(Step&& step) -> decltype(step()) {
  try {
    return step();
  } catch (ExtractionRefused const& refused) {
    throw ErrorClass(refused.refusal().message, refused.refusal().code);
  }
}

}  // namespace

FileSystemNode nodeOfLeaf(FileSystemTree::LeafView const& leaf) {
  std::u16string path(leaf.getPathName());
  opc::Perms::Perms_tag const permissions =
      leaf.getPermissions().value_or(FileSystemEntry::getUnknownPermissions());
  boost::posix_time::ptime const time =
      leaf.getLastModifiedTime().value_or(FileSystemEntry::getUnknownTime());
  switch (leaf.getType()) {
    case FileSystemNodeType::Folder:
      return FileSystemNode::makeFolderNode(std::move(path), permissions, time);
    case FileSystemNodeType::SymLink:
      return FileSystemNode::makeLinkNode(std::move(path), std::u16string(leaf.getContentName()),
                                          permissions, time);
    case FileSystemNodeType::File:
      break;
  }
  return FileSystemNode::makeFileNode(std::move(path), std::u16string(leaf.getContentName()),
                                      permissions, time);
}

std::u16string const& JoinedPath::get() const {
  if (!joined_) {
    path_ = fileSystem_->appendPath(*destination_, *pathName_);
    joined_ = true;
  }
  return path_;
}

LeafExtractor::PartLookup LeafExtractor::lookUpPart(opc::model::Package const& package,
                                                    std::u16string const& partName) {
  PartLookup lookup;
  try {
    lookup.reader = package.openPartReader(partName);
  } catch (...) {
    lookup.error = std::current_exception();
  }
  return lookup;
}

void LeafExtractor::extractPart(FileSystemEntry const& entry, std::u16string const& partName,
                                opc::model::Package const& package, RestoreMode restoreMode,
                                TransformMode transformMode, ReplaceMode replaceMode,
                                std::vector<unsigned char>& buffer,
                                std::function<void()> const& decrypted) {
  PartLookup lookup = lookUpPart(package, partName);
  extractPart(entry, lookup, restoreMode, transformMode, replaceMode, buffer, decrypted);
}

void LeafExtractor::extractPart(FileSystemEntry const& entry, PartLookup& lookup,
                                RestoreMode restoreMode, TransformMode transformMode,
                                ReplaceMode replaceMode, std::vector<unsigned char>& buffer,
                                std::function<void()> const& decrypted) {
  bool const transforms = transformMode == TransformMode::ApplyTransforms;
  // With transforms the road depends on the part's type, so a missing part is told before
  // anything is made; without, after the file is opened.
  if (transforms && lookup.error) std::rethrow_exception(lookup.error);
  if (transforms && lookup.reader->getContentType().hasParameter(kEncryptionParameter)) {
    lookup.reader.reset();
    decrypted();
    return;
  }
  extractFile(entry, restoreMode, replaceMode, [&](std::ostream& output) {
    if (lookup.error) std::rethrow_exception(lookup.error);
    copyPartContent(*lookup.reader, output, buffer);
  });
}

void LeafExtractor::extractFile(FileSystemEntry const& entry, RestoreMode restoreMode,
                                ReplaceMode replaceMode, ContentWriter const& writeContent) {
  std::u16string const& pathName = FileSystemEntryAccess::pathOf(entry);
  refusedAs<CouldNotCreateFile>([&] { makeParents(pathName); });
  JoinedPath const path(fileSystem_, destination_, pathName);
  std::unique_ptr<opc::ConfinedFile> output = openForWriting(pathName, path, replaceMode);
  try {
    writeContent(output->stream());
  } catch (opc::Exception const&) {
    throwIfWriteFailed(*output, path.get());
    throw;
  }
  if (restoreMode != RestoreMode::RestoreTimeAndPermissions) return;
  // The content is complete before the time is set, or writing it would change the time
  // again; a destination that works by path looks at the name once more here.
  opc::ConfinedResult result;
  output->finishContent(result);
  throwIfRefused(result, pathName);
  restoreTimeAndPermissions(*output, entry, path);
}

void LeafExtractor::throwIfWriteFailed(opc::ConfinedFile& output, std::u16string const& path) {
  // The stream that raised tells only that a write failed; the file keeps the cause.
  if (!output.stream().bad()) return;
  error_code code;
  output.commit(code);
  if (!code) return;
  throw opc::Exception("Could not write file: " + opc::toUDEString(path) + ": " + code.message(),
                       code);
}

void LeafExtractor::extractFolder(FileSystemEntry const& entry) {
  std::u16string const pathName = entry.getPathName();
  std::u16string const path =
      refusedAs<CouldNotCreateFolder>([&] { return ensureParentExists(pathName); });
  error_code code;
  // Whatever is there counts as the folder; nothing is made through it.
  target_.createFolder(pathName, code);
  if (code) {
    throw CouldNotCreateFolder(
        "Could not create folder: " + opc::toUDEString(path) + ": " + code.message(), code);
  }
}

void LeafExtractor::extractLink(FileSystemEntry const& entry, std::u16string target) {
  std::u16string const pathName = entry.getPathName();
  std::u16string const path =
      refusedAs<CouldNotCreateLink>([&] { return ensureParentExists(pathName); });
  if (!entry.isLink()) throw FileSystemEntryMustBeLink("File system entry must be a symbolic link");

  std::u16string const root = FileSystemEntry::getRootName();
  if (target.compare(0, root.size(), root) == 0) {
    // An absolute target is a path in the package: the link points into the extracted tree.
    // A target that climbs above the package root cannot be placed there.
    try {
      target = fileSystem_.appendPath(destination_, target);
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
  target_.createSymlink(target, pathName, code);
  if (code) {
    throw CouldNotCreateLink(
        "Could not create link: " + opc::toUDEString(path) + ": " + code.message(), code);
  }
}

std::u16string LeafExtractor::ensureParentExists(std::u16string const& pathName) {
  // The text first, before appendPath could raise a plain error of its own for "..".
  if (std::optional<Refusal> refusal = DestinationGuard::checkPathName(pathName)) {
    throw ExtractionRefused(*refusal);
  }
  std::u16string fullPath = fileSystem_.appendPath(destination_, pathName);
  makeParents(pathName);
  return fullPath;
}

void LeafExtractor::makeParents(std::u16string const& pathName) {
  if (std::optional<Refusal> refusal = DestinationGuard::checkPathName(pathName)) {
    throw ExtractionRefused(*refusal);
  }
  opc::ConfinedResult result;
  target_.makeParents(pathName, result);
  if (std::optional<Refusal> refusal =
          DestinationGuard::refusalFor(result, fileSystem_, destination_, pathName)) {
    throw ExtractionRefused(*refusal);
  }
  if (!result.done()) {
    throw CouldNotCreateDestinationParent(
        "Could not create the destination parent directory: " + result.code.message(), result.code);
  }
}

std::unique_ptr<opc::ConfinedFile> LeafExtractor::openForWriting(std::u16string const& pathName,
                                                                 JoinedPath const& path,
                                                                 ReplaceMode replaceMode) {
  // A link at the path is refused before anything is opened or clobbered through it.
  opc::ConfinedResult result;
  std::unique_ptr<opc::ConfinedFile> output = target_.openFile(pathName, result);
  throwIfRefused(result, pathName);
  if (output) return output;
  error_code const code = result.code;
  error_code existsCode;
  bool const existing = target_.exists(pathName, existsCode);
  if (replaceMode == ReplaceMode::ReplaceNever ||
      (replaceMode == ReplaceMode::ReplaceExisting && !existing)) {
    // An existing file says why more plainly than the open's code does.
    throw CouldNotCreateFile(
        "Could not create or overwrite file: " + opc::toUDEString(path.get()),
        existing ? boost::system::errc::make_error_code(boost::system::errc::file_exists) : code);
  }
  error_code ignored;
  target_.setPermissions(pathName, kClobberPermissions, ignored);
  output = target_.openFile(pathName, result);
  throwIfRefused(result, pathName);
  if (!output) {
    throw CouldNotCreateFile(
        "Could not clobber file: " + opc::toUDEString(path.get()) + ": " + result.code.message(),
        result.code);
  }
  return output;
}

void LeafExtractor::throwIfRefused(opc::ConfinedResult const& result,
                                   std::u16string const& pathName) const {
  std::optional<Refusal> const refusal =
      DestinationGuard::refusalFor(result, fileSystem_, destination_, pathName);
  if (refusal) throw CouldNotCreateFile(refusal->message, refusal->code);
}

void LeafExtractor::restoreTimeAndPermissions(opc::ConfinedFile& output,
                                              FileSystemEntry const& entry,
                                              JoinedPath const& path) {
  error_code restoreCode;
  boost::posix_time::ptime const time = entry.getLastModifiedTime();
  if (time != FileSystemEntry::getUnknownTime()) {
    output.setLastModifiedTime(time, restoreCode);
    if (restoreCode) {
      throw CouldNotSetLastModifiedTime(
          "Could not set last modified time: " + opc::toUDEString(path.get()) + ": " +
              restoreCode.message(),
          restoreCode);
    }
  }
  opc::Perms::Perms_tag const permissions = entry.getPermissions();
  if (permissions != FileSystemEntry::getUnknownPermissions()) {
    output.setPermissions(permissions, restoreCode);
    if (restoreCode) {
      throw CouldNotSetPermissions("Could not set permissions: " + opc::toUDEString(path.get()) +
                                       ": " + restoreCode.message(),
                                   restoreCode);
    }
  }
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
