// How pack hands the files of a walked folder to the library: read ahead on threads, added on
// the caller's thread in the order of the walk.
#ifndef TOOLS_OPCVK_FILE_FEEDER_H_
#define TOOLS_OPCVK_FILE_FEEDER_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/file_system_manager.h>

#include "read_ahead.h"
#include "source_tree.h"

namespace opcvk {

// Adds the files of `tree` (walked below `root`) to a FileSystemManager as the library's own
// addFile of a path would: the content type by the extension, a text/plain file recoded to
// UTF-8 with ApplyTransforms, the permissions and the time the walk saw.  Small files are
// read on `threads` worker threads ahead of the caller (a bounded window of them); a large
// file is given to the library as a file source, read as it is copied.  Whatever the number
// of threads, files go into the package in the order they are added, so the same folder
// gives the same package.
//
// A file that cannot be read stops the add at that file, with the error the library's own
// add would raise ("Could not open file: <path>", CouldNotOpenFile); a file gone since the
// walk raises ToolError "Could not add: <path>".  Errors of later files are never told
// before those of earlier items.
//
// `tree` must outlive the feeder.  Not thread-safe; the destructor stops the readers.
class FileFeeder {
 public:
  FileFeeder(std::filesystem::path const& root, SourceTree const& tree,
             opc::vkservices::TransformMode mode, unsigned threads);
  FileFeeder(FileFeeder const&) = delete;
  FileFeeder& operator=(FileFeeder const&) = delete;
  ~FileFeeder();

  // Adds the file `tree.items[index]` at the package path `path`, which is "/" followed by
  // `tree.relative(tree.items[index])`, and gives its size on disk.  Files must be added in
  // the order of the walk, each once.
  std::uint64_t add(opc::vkservices::FileSystemManager& files, std::size_t index,
                    std::u16string const& path);

 private:
  // Whether the item at the path `path` (relative to the root, or a package path) goes the
  // road of this class; a name with a backslash, which the library reads as a separator,
  // keeps the library's road so that it is told the same way.
  bool direct(std::u16string const& path) const;
  // The content of a file the read-ahead gave, or, for a large one, a source that reads it.
  std::unique_ptr<opc::vkservices::IContentSource> contentOf(
      ReadResult read, std::u16string const& path,
      std::shared_ptr<opc::model::ContentType const> const& type);
  // The type the extension table gives for the file at the package path `path`, looked up
  // once per extension.
  std::shared_ptr<opc::model::ContentType const> const& typeOf(std::u16string const& path);

  std::filesystem::path const root_;
  std::u16string const rootText_;
  SourceTree const& tree_;
  opc::vkservices::TransformMode const mode_;
  bool const rootDirect_;
  opc::model::ContentType const textType_;
  // By extension; shared with the sources of the files, which keep no copy of their own.
  std::map<std::u16string, std::shared_ptr<opc::model::ContentType const>, std::less<>> types_;
  std::unique_ptr<ReadAhead> readAhead_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_FILE_FEEDER_H_
