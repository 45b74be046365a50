// Pieces of LocalFileSystemOps, private to libopccore: each file keeps one concern (text of
// paths, streams over descriptors, walks of trees) and the class file ties them to the slots.
#ifndef OPC_CORE_LOCAL_FILE_SYSTEM_OPS_INTERNAL_H_
#define OPC_CORE_LOCAL_FILE_SYSTEM_OPS_INTERNAL_H_

#include <cstdint>
#include <ctime>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/system/error_code.hpp>

#include <opc/core/file_system_ops.h>

namespace opc {
namespace detail {

// The code of an errno value, in the system category so that it compares equal to the
// generic conditions.  The one place where errno becomes an error code.
inline boost::system::error_code systemError(int errnum) {
  return boost::system::error_code(errnum, boost::system::system_category());
}

// 64 random bits, for names that must not be guessed.
std::uint64_t randomNumber();

// `time` (not special) as seconds and nanoseconds since the epoch, microseconds kept.
timespec toTimespec(boost::posix_time::ptime time);

// Whether a file system may have stored another time than `wanted` (seconds since the
// epoch), which is then checked: only times outside 1980..2037, which every file system in
// use holds to within its 2 seconds of grain, can be clamped or wrapped.
bool mayNotHoldTime(std::int64_t wanted);
// Whether `stored` (seconds) is not `wanted` within that grain.
bool storedAnotherTime(std::int64_t wanted, std::int64_t stored);

// --- Text of paths (local_file_system_ops_paths.cc) ---
std::u16string localParentPath(std::u16string const& path);
std::u16string localFilename(std::u16string const& path);
std::u16string localExtension(std::u16string const& path);
std::u16string localNormalizePath(std::u16string const& path);
// False, with `text` saying why, when `rest` would leave `base` or a path holds NUL.
bool localAppendPath(std::u16string const& base, std::u16string const& rest, std::u16string& out,
                     std::string& text);

// --- Streams over descriptors (local_file_system_ops_streams.cc) ---
std::shared_ptr<std::istream> openLocalInput(std::string const& path, int mode, std::string& text,
                                             boost::system::error_code& code);
std::shared_ptr<std::ostream> openLocalOutput(std::string const& path, int mode, std::string& text,
                                              boost::system::error_code& code);

// --- Walks of trees (local_file_system_ops_tree.cc) ---
// Names are file-system bytes.
void listLocalFiles(std::string const& folder, bool recursive, std::vector<std::string>& out,
                    boost::system::error_code& code);
void createLocalFolders(std::string const& path, boost::system::error_code& code);
void copyLocalFile(std::string const& from, std::string const& to, ExistsMode mode,
                   std::string& text, boost::system::error_code& code);
void removeLocalAll(std::string const& path, boost::system::error_code& code);

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_LOCAL_FILE_SYSTEM_OPS_INTERNAL_H_
