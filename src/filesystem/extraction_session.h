// ExtractionSession: what a FileSystemManager keeps of its last extraction between calls.
#ifndef SRC_FILESYSTEM_EXTRACTION_SESSION_H_
#define SRC_FILESYSTEM_EXTRACTION_SESSION_H_

#include <memory>
#include <string>
#include <vector>

#include <opc/core/confined_destination.h>
#include <opc/core/file_system_ops.h>

namespace opc {
namespace vkservices {
namespace detail {

// The confined destination of the last extraction, with the file system and the destination
// text it was opened for.  Kept so that extraction entry by entry (as the tool does, to show
// progress) still opens each folder once: the next call to the same destination goes on with
// it while it is unchanged.
struct ExtractionSession {
  opc::FileSystemOps const* fileSystem = nullptr;
  std::u16string root;
  std::unique_ptr<opc::ConfinedDestination> destination;
  // The buffer that parts are copied through, kept from one file to the next.
  std::vector<unsigned char> buffer;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_EXTRACTION_SESSION_H_
