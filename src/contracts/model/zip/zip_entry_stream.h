// The streams of ZipArchive::openEntry: inflating or copying an entry's data, checking its
// size and CRC-32 at the end.
#ifndef OPC_MODEL_ZIP_ZIP_ENTRY_STREAM_H_
#define OPC_MODEL_ZIP_ZIP_ENTRY_STREAM_H_

#include <memory>

#include "zip_archive.h"

namespace opc {
namespace model {
namespace detail {

std::unique_ptr<ZipEntryStream> makeEntryStream(std::shared_ptr<ZipByteSource> source,
                                                ZipEntry const& entry);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_ENTRY_STREAM_H_
