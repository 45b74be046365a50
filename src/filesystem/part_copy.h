// Copying a part's content into an output file through a buffer kept between parts.
#ifndef SRC_FILESYSTEM_PART_COPY_H_
#define SRC_FILESYSTEM_PART_COPY_H_

#include <cstddef>
#include <ostream>
#include <vector>

#include <opc/model/part_reader.h>

namespace opc {
namespace vkservices {
namespace detail {

// The largest buffer a copy keeps: an item up to this size is inflated straight into it in
// one step, and larger content streams through it.
constexpr std::size_t kPartCopyBufferLimit = 4 * 1024 * 1024;
// The slice in which larger content streams through the buffer.
constexpr std::size_t kPartCopySlice = 256 * 1024;

// Reads `reader` to its end into `output`, through `buffer`, which grows to the content's
// size (at most kPartCopyBufferLimit) and is kept for the next part, so that a run of parts
// allocates once.  Raises what reading raises, and a failed write as StreamHelper's copy
// does.
void copyPartContent(opc::model::PartReader& reader, std::ostream& output,
                     std::vector<unsigned char>& buffer);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_PART_COPY_H_
