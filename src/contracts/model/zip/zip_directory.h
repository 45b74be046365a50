// Reading the records of an archive's directory: the end records and the central headers,
// one at a time, each checked on its own.  What needs several items at once (duplicates,
// overlaps) is the archive's.  Internal to the ZIP layer.
#ifndef OPC_MODEL_ZIP_ZIP_DIRECTORY_H_
#define OPC_MODEL_ZIP_ZIP_DIRECTORY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <opc/model/package_options.h>

#include "zip_archive.h"

namespace opc {
namespace model {
namespace detail {

// Throw InvalidPackage with "Invalid ZIP archive: <problem>" and
// "Invalid ZIP item \"<name>\": <problem>".
[[noreturn]] void failArchive(std::string const& problem);
[[noreturn]] void failItem(std::string_view name, std::string const& problem);

// Where the central directory is, as the end records give it.
struct DirectoryLocation {
  std::uint64_t count = 0;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  // The directory must end at or before this offset: the first end record after it.
  std::uint64_t limit = 0;
};

// Finds and reads the end of central directory record (and the ZIP64 records it points to).
DirectoryLocation readEndRecords(ZipByteSource const& source);

// Reads the central directory front to back through one window of bounded size.
class DirectoryCursor {
 public:
  DirectoryCursor(ZipByteSource const& source, std::uint64_t offset, std::uint64_t size);

  // The next `count` bytes, or nullptr if the directory holds fewer.  The pointer stays
  // valid until the next call.
  unsigned char const* take(std::size_t count);
  std::uint64_t remaining() const { return left_ + (end_ - begin_); }

 private:
  ZipByteSource const& source_;
  std::uint64_t next_;
  std::uint64_t left_;
  std::vector<unsigned char> window_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

// The name of a central header: its bytes in the header, and the name they give in UTF-8.
// Most names are their bytes (UTF-8 by their flag, or ASCII), and then both views are one:
// the header's bytes in the cursor's window, valid until its next take.  Otherwise `name`
// views the string that readCentralHeader decoded it into.
struct CentralName {
  std::string_view raw;
  std::string_view name;
  bool isRaw() const { return name.data() == raw.data(); }
};

// Reads central header `index` (from 0) into `entry`, all but its name, which it returns;
// `decoded` keeps its storage from one header to the next and holds a name that is not its
// bytes.  Refuses a bad or truncated header, a bad name, encryption and unsupported methods.
CentralName readCentralHeader(DirectoryCursor& cursor, std::uint64_t index, ZipEntry& entry,
                              std::string& decoded);

// Refuses an item larger or more compressed than `limits` allow, or stored with two sizes;
// `name` is the item's, for the message.
void checkLimits(ZipEntry const& entry, std::string_view name, PackageLimits const& limits);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_DIRECTORY_H_
