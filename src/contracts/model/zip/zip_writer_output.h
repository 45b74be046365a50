// The file operations of writing an archive: the ZIP writers', the spool files' and the
// replacement file's.
#ifndef OPC_MODEL_ZIP_ZIP_WRITER_OUTPUT_H_
#define OPC_MODEL_ZIP_ZIP_WRITER_OUTPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// The folder that holds `path` ("." for a bare name).
OPC_MODEL_EXPORT std::string folderOf(std::string const& path);
// Writes all of `data` at `offset` of `fd`; false with errno set on failure.
OPC_MODEL_EXPORT bool writeFully(int fd, std::uint64_t offset, unsigned char const* data,
                                 std::size_t count);
// Reads exactly `count` bytes at `offset`; false with errno set on failure or a short file.
OPC_MODEL_EXPORT bool readFully(int fd, std::uint64_t offset, unsigned char* data,
                                std::size_t count);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_WRITER_OUTPUT_H_
