// The streams of ZipArchive::openEntry: inflating or copying an entry's data, checking its
// size and CRC-32 at the end.
#ifndef OPC_MODEL_ZIP_ZIP_ENTRY_STREAM_H_
#define OPC_MODEL_ZIP_ZIP_ENTRY_STREAM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zip_archive.h"

namespace opc {
namespace model {
namespace detail {

// Deflated items whose compressed and uncompressed sizes are both at most this many bytes are
// inflated whole in one call; larger ones stream.  A reader of such an item holds at most
// twice this much.
constexpr std::uint64_t kWholeItemLimit = 4u << 20;

// Items whose compressed data is at most this many bytes are read with their local header in
// one call (see ZipArchive::openEntry), when the header's extra field is at most
// kExtraReadWithHeader bytes long.
constexpr std::uint64_t kDataReadWithHeader = 64u << 10;
constexpr std::size_t kExtraReadWithHeader = 64;

std::unique_ptr<ZipEntryStream> makeEntryStream(std::shared_ptr<ZipByteSource> source,
                                                ZipEntry const& entry);
// The same for an item whose whole compressed data, `data`, was read already.
std::unique_ptr<ZipEntryStream> makeEntryStream(std::shared_ptr<ZipByteSource> source,
                                                ZipEntry const& entry,
                                                std::vector<unsigned char> data);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_ENTRY_STREAM_H_
