// GCMMessageReader: the pieces of one encrypted message read from a stream.
#ifndef SRC_ENCRYPTION_GCM_MESSAGE_READER_H_
#define SRC_ENCRYPTION_GCM_MESSAGE_READER_H_

#include <cstddef>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/vkservices/bytes.h>

namespace opc {
namespace vkservices {
namespace detail {

// Reads a message laid out as [IV] ciphertext tag from `input`, where the tag is the last 16
// bytes: the ciphertext comes out in pieces, and the last 16 bytes are held back until the
// input ends, when they turn out to be the tag.  Memory: one buffer of kPieceSize + 16 bytes.
//
// Failures of the input pass through unchanged; so does opc::Exception for an input that
// gives no byte in 65536 reads in a row before its end.  The input is not owned; it must
// outlive the reader.  One thread at a time.
class GCMMessageReader {
 public:
  static constexpr std::size_t kTagSize = 16;
  static constexpr std::size_t kPieceSize = 256 * 1024;

  // A run of ciphertext in the reader's buffer, which the caller may overwrite (to decrypt in
  // place); valid until the next call.
  struct Piece {
    unsigned char* data;
    std::size_t size;
  };

  explicit GCMMessageReader(opc::InputStream& input);
  GCMMessageReader(GCMMessageReader const&) = delete;
  GCMMessageReader& operator=(GCMMessageReader const&) = delete;

  // Opens the input, once.
  void open();
  // Ends reading the input.
  void close();

  // Reads the first `size` bytes into `iv`; false if the input ends before.
  bool readIV(std::size_t size, bytes& iv);

  // The next ciphertext, at most `size` bytes (and at most kPieceSize).  May be empty before
  // the end when the input gave nothing yet: readers go by atEnd().
  Piece next(std::size_t size);

  // True once the input has ended and only the tag (or what there is of it) is left.
  bool atEnd() const;
  // True at the end if the input ended before a whole tag.
  bool truncated() const;
  // The 16 bytes of the tag; only when atEnd() and not truncated().
  unsigned char const* tag() const;

 private:
  std::size_t buffered() const { return end_ - begin_; }
  // Moves what is left to the front and reads once from the input into the space behind it.
  void refill();

  opc::InputStream& input_;
  std::vector<unsigned char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool opened_ = false;
  bool inputDone_ = false;
  std::size_t emptyReads_ = 0;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_ENCRYPTION_GCM_MESSAGE_READER_H_
