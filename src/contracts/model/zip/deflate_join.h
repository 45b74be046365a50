// Joining deflate streams that were compressed independently into one stream, so that large
// content can be compressed in pieces on several threads and still be one ZIP item.
#ifndef OPC_MODEL_ZIP_DEFLATE_JOIN_H_
#define OPC_MODEL_ZIP_DEFLATE_JOIN_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// Where the blocks of a complete raw deflate stream lie, in bits from the first byte.
struct DeflateBlockBounds {
  std::uint64_t lastBlockStart = 0;  // the header of the block that has BFINAL set
  std::uint64_t end = 0;             // just after that block's end-of-block code
};

// Walks the blocks of a raw deflate stream (stored, fixed and dynamic), decoding the Huffman
// symbols only to find where each block ends.  Returns false for a stream that is malformed,
// truncated, or has no final block within `size` bytes; never reads outside `data`.
OPC_MODEL_EXPORT bool findDeflateBlocks(unsigned char const* data, std::size_t size,
                                        DeflateBlockBounds& bounds);

// Turns `stream`, a complete raw deflate stream, into a piece that another stream may
// follow: the BFINAL bit of its last block is cleared and an empty stored block ends it on a
// byte boundary.  Pieces made this way followed by one untouched complete stream form one
// valid stream whose content is theirs in order.  Returns false, leaving `stream` as it was,
// when the stream cannot be parsed.
OPC_MODEL_EXPORT bool makeDeflatePiece(std::vector<unsigned char>& stream);

// Appends `count` bytes as stored deflate blocks, none of them final: a piece like those of
// makeDeflatePiece for content that is kept as it is.
OPC_MODEL_EXPORT void appendStoredPiece(unsigned char const* data, std::size_t count,
                                        std::vector<unsigned char>& out);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_DEFLATE_JOIN_H_
