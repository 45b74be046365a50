// Where the libzip writer's archive goes: a libzip write source over a file or a buffer.
// Part of the ZIP writer library (see zip_writer_library.h).
#ifndef OPC_MODEL_ZIP_ZIP_ARCHIVE_SINK_H_
#define OPC_MODEL_ZIP_ZIP_ARCHIVE_SINK_H_

#include <cstdint>
#include <vector>

#include <zip.h>

namespace opc {
namespace model {
namespace detail {

// The archive's bytes as libzip writes them: sequential writes are gathered in a large buffer
// (libzip writes in small pieces, and goes back only to rewrite a local header, which lands in
// the buffer when it is still there), so that a file sees few, large writes.  With a descriptor the
// bytes go to the file, else to bytes().
class ArchiveSink {
 public:
  explicit ArchiveSink(int fd);
  ArchiveSink(ArchiveSink const&) = delete;
  ArchiveSink& operator=(ArchiveSink const&) = delete;
  ~ArchiveSink();

  // A new libzip source over this sink; libzip owns the source, the sink must outlive it.
  zip_source_t* makeSource();
  // Writes what is still buffered; false with systemError() set on failure.
  bool flush();
  // Writes an archive without items: the end record alone, which libzip does not write.
  bool writeEmptyArchive();
  std::vector<unsigned char>& bytes() { return bytes_; }
  int systemError() const { return systemError_; }

 private:
  static zip_int64_t callback(void* state, void* data, zip_uint64_t length,
                              zip_source_cmd_t command);
  bool writeAt(std::uint64_t position, unsigned char const* data, std::size_t count);
  bool writeOut(std::uint64_t position, unsigned char const* data, std::size_t count);

  int fd_;
  std::vector<unsigned char> bytes_;
  std::vector<unsigned char> pending_;
  std::uint64_t pendingStart_ = 0;
  std::uint64_t position_ = 0;
  std::uint64_t size_ = 0;
  int systemError_ = 0;
  zip_error_t error_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_ARCHIVE_SINK_H_
