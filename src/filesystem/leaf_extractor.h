// LeafExtractor: one entry of the package file system made below a confined destination.
#ifndef SRC_FILESYSTEM_LEAF_EXTRACTOR_H_
#define SRC_FILESYSTEM_LEAF_EXTRACTOR_H_

#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <opc/core/confined_destination.h>
#include <opc/core/file_system_ops.h>
#include <opc/model/package.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {
namespace detail {

// The node of a leaf that the tree shows without copying it, unknown values as unknown.
FileSystemNode nodeOfLeaf(FileSystemTree::LeafView const& leaf);

// The real path of an entry below the destination, joined on first use: only the messages of
// failures show it, and most entries fail in no way.  Holds references to what it is made
// from, which must outlive it.
class JoinedPath {
 public:
  JoinedPath(opc::FileSystemOps const& fileSystem, std::u16string const& destination,
             std::u16string const& pathName)
      : fileSystem_(&fileSystem), destination_(&destination), pathName_(&pathName) {}
  // A path joined already.
  JoinedPath(std::u16string path)  // NOLINT(runtime/explicit): stands for the path it holds
      : path_(std::move(path)), joined_(true) {}

  // Raises what FileSystemOps::appendPath raises.
  std::u16string const& get() const;

 private:
  opc::FileSystemOps const* fileSystem_ = nullptr;
  std::u16string const* destination_ = nullptr;
  std::u16string const* pathName_ = nullptr;
  mutable std::u16string path_;
  mutable bool joined_ = false;
};

// The steps of extraction that do not depend on where the content comes from: the parents,
// the refusals of the DestinationGuard, the replace modes, the link targets, the restored
// time and permissions, each failure with its class and words.  Works on the confined
// destination it is given, which the caller made for `destination` on `fileSystem` after
// the root was made; holds nothing of its own, so that each thread of a shared extraction
// uses one over its own destination.  Not thread-safe (the destination is not).
class LeafExtractor {
 public:
  // Writes a file's whole content into the stream it is given.
  using ContentWriter = std::function<void(std::ostream&)>;

  // What looking a part up gave: its reader, or the failure to find it, which extractPart
  // tells where the contract wants it told.
  struct PartLookup {
    std::unique_ptr<opc::model::PartReader> reader;
    std::exception_ptr error;
  };
  // Looks `partName` up in `package`, from any thread that may open readers of it.
  static PartLookup lookUpPart(opc::model::Package const& package, std::u16string const& partName);

  LeafExtractor(opc::FileSystemOps const& fileSystem, std::u16string const& destination,
                opc::ConfinedDestination& target)
      : fileSystem_(fileSystem), destination_(destination), target_(target) {}

  // The file `entry` with the content of its part in `package`, read through `buffer` (see
  // copyPartContent).  Content that must be decrypted (an encrypted part, with
  // ApplyTransforms) is left to `decrypted`, called instead.  A part that cannot be found
  // is told before anything is made with ApplyTransforms (the road depends on its type),
  // and after the file is opened otherwise.
  void extractPart(FileSystemEntry const& entry, std::u16string const& partName,
                   opc::model::Package const& package, RestoreMode restoreMode,
                   TransformMode transformMode, ReplaceMode replaceMode,
                   std::vector<unsigned char>& buffer, std::function<void()> const& decrypted);
  // The same with the part already looked up; `lookup` is left to the caller, its reader
  // read to the end and closed.
  void extractPart(FileSystemEntry const& entry, PartLookup& lookup, RestoreMode restoreMode,
                   TransformMode transformMode, ReplaceMode replaceMode,
                   std::vector<unsigned char>& buffer, std::function<void()> const& decrypted);
  // The file `entry` with the content that `writeContent` gives.
  void extractFile(FileSystemEntry const& entry, RestoreMode restoreMode, ReplaceMode replaceMode,
                   ContentWriter const& writeContent);
  void extractFolder(FileSystemEntry const& entry);
  // The link `entry` to `target`, the entry's content name.
  void extractLink(FileSystemEntry const& entry, std::u16string target);

  // Makes the folders above the entry at `pathName` and returns its real path; a refusal
  // comes out as ExtractionRefused, a failure as CouldNotCreateDestinationParent.
  std::u16string ensureParentExists(std::u16string const& pathName);
  // The same without joining the real path.
  void makeParents(std::u16string const& pathName);
  // Opens the file `pathName` (real path `path`) for writing, as `replaceMode` allows for a
  // file that cannot be opened as it is.
  std::unique_ptr<opc::ConfinedFile> openForWriting(std::u16string const& pathName,
                                                    JoinedPath const& path,
                                                    ReplaceMode replaceMode);
  // Raises what the destination met (a link, a shared file) as CouldNotCreateFile.
  void throwIfRefused(opc::ConfinedResult const& result, std::u16string const& pathName) const;
  // Called where writing the content of `output` raised: if it was a write into the file
  // that failed, raises opc::Exception "Could not write file: <path>: <cause>" with the
  // cause's code (a full disk, a size limit), so that a user learns which file and why.
  // Returns for any other failure (of the content's source), for the caller to rethrow.
  // Commits `output` when it raises, so `output` is of no more use then.
  static void throwIfWriteFailed(opc::ConfinedFile& output, std::u16string const& path);

  // Gives the file being written the time and permissions that `entry` keeps, where known.
  static void restoreTimeAndPermissions(opc::ConfinedFile& output, FileSystemEntry const& entry,
                                        JoinedPath const& path);

 private:
  opc::FileSystemOps const& fileSystem_;
  std::u16string const& destination_;
  opc::ConfinedDestination& target_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_LEAF_EXTRACTOR_H_
