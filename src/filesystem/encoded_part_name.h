// The part name a file of the tree is given from its path when nothing else names it.
#ifndef SRC_FILESYSTEM_ENCODED_PART_NAME_H_
#define SRC_FILESYSTEM_ENCODED_PART_NAME_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace opc {
namespace vkservices {
namespace detail {

// The part-name root of files: a file added from a path keeps its part name as this and the
// path, which the record then need not hold a second time.
inline constexpr std::u16string_view kPartRoot = u"/fsroot";

// Appends "/fsroot" and `path` as a file's part name spells it: letters, digits, "-._~" and
// "/+@" as they are, everything else as the escapes ("%XX", upper-case digits) of its UTF-8
// bytes.  A surrogate pair is one character of four bytes; an unpaired surrogate is escaped as
// the three bytes its value would take.  The tree keeps a file's part name as "made from the
// path" only when this gives it back exactly, so that whatever the part naming does with
// text this does not foresee is kept as it was given.
void appendEncodedPartName(std::u16string_view path, std::u16string& out);

// Whether `name` is exactly what appendEncodedPartName makes of `path`; told without making it.
bool isEncodedPartNameOf(std::u16string_view path, std::u16string_view name);

// isEncodedPartNameOf for the files of a tree as they come, folder by folder: it keeps the
// folder of the last path whose name was its encoding, and of a path in the same folder
// compares only what follows the folder.  The answer is always isEncodedPartNameOf's.  Not
// thread-safe.
class EncodedPartNameCheck {
 public:
  bool operator()(std::u16string_view path, std::u16string_view name);

 private:
  // A folder's path and its encoding, both empty at first (which is a folder's encoding too).
  std::u16string folder_;
  std::u16string encodedFolder_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_ENCODED_PART_NAME_H_
