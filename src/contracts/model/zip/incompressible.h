// A quick guess, before deflating a small item, that deflate would not shrink it.  Internal to
// libopcmodel.
#ifndef OPC_MODEL_ZIP_INCOMPRESSIBLE_H_
#define OPC_MODEL_ZIP_INCOMPRESSIBLE_H_

#include <cstddef>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// Whether the `size` bytes at `data` look like content that deflate cannot shrink: bytes
// spread so evenly that even a code made for them (and the table that describes it) would
// take more room than the bytes themselves, with too few repeats for back references to make
// up for it.  Random or already compressed content answers true; text and structured data
// false.  A few percent of the bytes at most separate a content that answers true from what
// deflate would have made of it, so storing it costs nothing worth the deflate: of a small
// item, most of the work of libdeflate lies in making its match finder ready, at any level.
//
// Depends on the bytes alone, so that the same content is always stored or deflated alike.
// Only small items are guessed at, those of at most kSmallContentSize bytes (see
// chunked_deflate.h): larger ones answer false, since they are deflated at levels whose result
// the guess does not follow, or judged on a deflated sample.  Thread-safe.
OPC_MODEL_EXPORT bool looksIncompressible(unsigned char const* data, std::size_t size);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_INCOMPRESSIBLE_H_
