// opc::UnnamedTemporaryFile: scratch space on disk that nobody else sees and nothing leaves
// behind.
#ifndef OPC_CORE_UNNAMED_TEMPORARY_FILE_H_
#define OPC_CORE_UNNAMED_TEMPORARY_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include <opc/core/export.h>

namespace opc {

// A file without a name in the process's temporary folder ($TMPDIR when set and not empty,
// else /tmp), open for appending and reading back.  Where the file system can (O_TMPFILE) the
// file never has a name; elsewhere it is made under a random name that is removed at once.
// Its space is given back when the object is destroyed, or when the process ends, however it
// ends.
//
// Not copyable.  One object is used by one thread at a time; distinct objects are independent.
class OPC_CORE_EXPORT UnnamedTemporaryFile {
 public:
  // Makes the file.  Raises opc::Exception "Could not create a temporary file in " followed
  // by the folder, carrying the system's error code (a missing folder, no permission, no
  // space).
  UnnamedTemporaryFile();
  // Closes the file, which releases its space.  Never raises.
  ~UnnamedTemporaryFile();
  UnnamedTemporaryFile(UnnamedTemporaryFile const&) = delete;
  UnnamedTemporaryFile& operator=(UnnamedTemporaryFile const&) = delete;

  // Writes the `size` bytes at `data` after those written before.  Raises opc::Exception
  // "Could not write to a temporary file" with the system's error code (ENOSPC for a full
  // disk); after a failure the file's content is unspecified and it should be dropped.
  void append(unsigned char const* data, std::size_t size);

  // Copies up to `size` bytes from `offset` into `buffer` and returns how many it copied: 0
  // at or after the end, fewer than asked only at the end.  Raises opc::Exception "Could not
  // read from a temporary file" with the system's error code.
  std::size_t readAt(std::uint64_t offset, unsigned char* buffer, std::size_t size) const;

  // How many bytes have been appended.
  std::uint64_t size() const { return size_; }

 private:
  int fd_;
  std::uint64_t size_ = 0;
};

}  // namespace opc

#endif  // OPC_CORE_UNNAMED_TEMPORARY_FILE_H_
