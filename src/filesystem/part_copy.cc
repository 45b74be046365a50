#include "filesystem/part_copy.h"

#include <algorithm>
#include <cstdint>

#include <opc/core/stream_adaptors.h>

namespace opc {
namespace vkservices {
namespace detail {

void copyPartContent(opc::model::PartReader& reader, std::ostream& output,
                     std::vector<unsigned char>& buffer) {
  std::size_t const wanted = static_cast<std::size_t>(
      std::max<std::uint64_t>(1, std::min<std::uint64_t>(reader.getSize(), kPartCopyBufferLimit)));
  if (buffer.size() < wanted) buffer.resize(wanted);
  // Write failures are raised as a stream copy raises them.
  opc::StdOStreamAdaptor out(output);
  reader.open();
  while (!reader.isDone()) out.write(buffer.data(), reader.read(buffer.data(), buffer.size()));
  out.flush();
  reader.close();
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
