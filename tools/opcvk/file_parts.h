// The parts that hold the files of a package file system: their names and sizes, found
// without reading any content.
#ifndef TOOLS_OPCVK_FILE_PARTS_H_
#define TOOLS_OPCVK_FILE_PARTS_H_

#include <cstdint>
#include <string>
#include <unordered_map>

#include <opc/model/package.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

// The library keeps the part name of a file to itself; what it does promise is how the name
// is made when the file is created: "/fsroot" followed by the path, percent-encoded with "/",
// "+" and "@" kept, moved out of a relationships folder with "_1", and given a further
// numbered suffix only when that name was taken at the time.  So the name that a file would
// have got without a clash is its part, provided that this holds for every file at once:
// each file's name names an existing part, and no two files name the same part.  (If some
// file's part had been given a suffix, the names could not all line up: a suffixed part is
// longer than the name it was derived from, so a chain of files each naming another's part
// cannot close.)  When it does not hold, as in a package whose parts were renamed by another
// program, sizes are counted from the stored bytes and part names are reported as unknown.
//
// The sizes are those of the stored content (before any decoding), as Part::getSize gives
// them.  The object refers to the package and the manager, which must outlive it.
class FileParts {
 public:
  FileParts(opc::model::Package& package, opc::vkservices::FileSystemManager& files);

  // Bytes of the stored content of the file `file`.
  std::uint64_t size(opc::vkservices::FileSystemEntry const& file);
  // The part name of the file `file`, or an empty string when it cannot be told.
  std::u16string partName(opc::vkservices::FileSystemEntry const& file) const;

 private:
  struct PartFacts {
    std::u16string name;
    std::uint64_t size;
  };

  opc::vkservices::FileSystemManager& files_;
  // Keyed by the file's path; empty when the names do not line up.
  std::unordered_map<std::u16string, PartFacts> byPath_;
  bool namesLineUp_ = false;
};

// The part name that the library gives a new file at `path` in a package where no other
// part stands in its way, or an empty string if the path gives no valid part name.
std::u16string unclashedPartName(std::u16string const& path);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_FILE_PARTS_H_
