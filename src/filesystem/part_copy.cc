#include "filesystem/part_copy.h"

#include <algorithm>
#include <cstdint>

#include <opc/core/stream_adaptors.h>

namespace opc {
namespace vkservices {
namespace detail {

void copyPartContent(opc::model::PartReader& reader, std::ostream& output,
                     std::vector<unsigned char>& buffer) {
  std::uint64_t const size = reader.getSize();
  // Content that fits the buffer comes in one step; larger content streams through slices
  // small enough to stay in the processor's cache from the read, through the check of its
  // CRC-32, to the write.
  std::size_t const slice = size > kPartCopyBufferLimit
                                ? kPartCopySlice
                                : static_cast<std::size_t>(std::max<std::uint64_t>(1, size));
  if (buffer.size() < slice) buffer.resize(slice);
  // Write failures are raised as a stream copy raises them.
  opc::StdOStreamAdaptor out(output);
  reader.open();
  while (!reader.isDone()) out.write(buffer.data(), reader.read(buffer.data(), slice));
  out.flush();
  reader.close();
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
