// The parts that hold the files of a package file system: their names and sizes, found
// without reading content wherever that can be done safely.
#ifndef TOOLS_OPCVK_FILE_PARTS_H_
#define TOOLS_OPCVK_FILE_PARTS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <opc/model/package.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "text_pool.h"

namespace opcvk {

// The library keeps the part name of a file to itself.  What it does promise is how the name
// is made when the file is created: "/fsroot" followed by the path, percent-encoded with "/",
// "+" and "@" kept (the file's base name), and changed only by inserting "_<n>" runs when
// that name was taken at the time.  Inserted runs make a name longer, so:
//
//  - A file is displaced when its base name is not a part, or another file's base name is
//    the same but for case, or it holds a "_rels" segment (whose part is moved out of the
//    relationships folder).  A displaced file's part is one of the parts that its base name
//    gives by insertions: those parts are contested.
//  - A file whose base name is a contested part is displaced too, since that part may be
//    another's; and so on, until nothing changes.
//  - Every other file lies in the part of its base name.  (If it did not, that part would
//    belong to a file whose own base name is shorter and belongs to a third, and so on; the
//    chain ends at a displaced file, and the whole chain would have been displaced.)
//
// A displaced file has its stored bytes counted, and its part is the one part among those
// its base name gives with just that size, if there is exactly one.  Most packages have no
// displaced file at all, so that sizes come from the archive's directory.
//
// Sizes are those of the stored content (before any decoding), as Part::getSize gives them.
// A package whose parts were renamed by another program may defeat the part names, but not
// this: sizes then come from the stored bytes.  The object refers to the manager, which must
// outlive it.
class FileParts {
 public:
  FileParts(opc::model::Package& package, opc::vkservices::FileSystemManager& files);
  // The same for the files at `filePaths`, which must be the paths of every file of the
  // package in ascending order, each once (isAscending), as a walk by path of the whole tree
  // gives them: a caller that walks the tree anyway spares a second walk.
  FileParts(opc::model::Package& package, opc::vkservices::FileSystemManager& files,
            PathPool filePaths);

  // Bytes of the stored content of the file `file`.
  std::uint64_t size(opc::vkservices::FileSystemEntry const& file);
  // The part name of the file `file`, or an empty string when it cannot be told.
  std::u16string partName(opc::vkservices::FileSystemEntry const& file) const;

  // As size(file) and partName(file), for the file whose path the caller holds already.
  // Files asked for in ascending order of their paths, as a walk by path visits them, are
  // found in constant time; any other order costs a search.  The view of the part name stays
  // valid until the next call of partName.
  std::uint64_t size(opc::vkservices::FileSystemEntry const& file, std::u16string_view path);
  // As size(file, path), for a file that may be known by its path alone: raises the library's
  // FileSystemEntryNotFound if there is no entry at `path`.
  std::uint64_t size(std::u16string_view path);

  // The path of the file numbered `file` (from 0, in ascending order of the paths), in `out`.
  void assignPath(std::size_t file, std::u16string& out) const { paths_.assign(file, out); }
  std::u16string_view partName(std::u16string_view path) const;

 private:
  static constexpr std::uint32_t kNoPart = static_cast<std::uint32_t>(-1);
  static constexpr std::size_t kNoFile = static_cast<std::size_t>(-1);

  struct Facts {
    // The number of the part in the order of Package::visitParts, or kNoPart.
    std::uint32_t part;
    // Whether the part's name is kept in partNames_ (a displaced file's); otherwise it is the
    // file's base name.
    bool named;
    std::uint64_t size;
  };

  // The index of `path` in paths_, or kNoFile.  Looks first where the last lookup ended.
  std::size_t fileAt(std::u16string_view path) const;
  // Whether `partName` is the base name of the file numbered `file`; `scratch` is room to
  // make the name in.
  bool isBaseNameOf(std::size_t file, std::u16string_view partName, std::u16string& scratch) const;
  // The base name of the file numbered `file`, in `out`.
  void assignBaseNameOf(std::size_t file, std::u16string& out) const;

  opc::vkservices::FileSystemManager& files_;
  // Every part's name, each kept once however many files are told by it; read only when some
  // file is displaced.
  TextPool partNames_;
  // The files' paths in ascending order, and what is known of each file, by the same index.
  PathPool paths_;
  std::vector<Facts> facts_;
  // Whether each file's path is made of characters that stand for themselves in part names.
  std::vector<bool> plain_;
  // Just past the file that the last lookup found: where a walk by path asks next.
  mutable std::size_t cursor_ = 0;
  // The text of the last part name given out by name.
  mutable std::u16string partName_;
};

// Whether `paths` are in ascending order, each once, as a walk by path of a tree made by the
// library gives them.
bool isAscending(PathPool const& paths);

// The part name that the library gives a new file at `path` when nothing stands in its way
// and the path has no "_rels" segment.  For a path that gives no valid part name, the text is
// not a valid part name either, and so never the name of an existing part.
std::u16string basePartName(std::u16string const& path);

// `partName` in ASCII lower case without its "_<digits>" runs: the same for a part name and
// every name the library makes from it by its numbered insertions.
std::u16string partKey(std::u16string_view partName);

// Whether `name` can be made from `base` by inserting "_<digits>" runs (ASCII case ignored).
bool isNumberedFrom(std::u16string_view name, std::u16string_view base);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_FILE_PARTS_H_
