// ManifestBytes: the first bytes of a manifest's stream, held so that the document can be read
// a second time.
#ifndef SRC_FILESYSTEM_MANIFEST_BYTES_H_
#define SRC_FILESYSTEM_MANIFEST_BYTES_H_

#include <cstddef>
#include <memory>

#include <opc/core/input_stream.h>

namespace opc {
namespace vkservices {
namespace detail {

// Opens a stream and reads it ahead into memory, up to a limit, so that a reader that gives up
// on the document can hand it to another reader from its first byte; as a stream it gives the
// held bytes, then whatever the source still has.  Documents larger than the limit are never
// held whole: they stream through with only the limit's worth held at the start, whose memory
// goes as soon as it has been read again.
//
// The source is opened by the constructor and not again: open() does nothing, close() closes
// the source.  The source is not owned and must outlive this object.
class ManifestBytes : public opc::InputStream {
 public:
  // Opens `source` and reads until its end or until more than `limit` bytes came.  An exception
  // of `source` passes through, after the source was closed (a failure to close then is not
  // reported).
  ManifestBytes(opc::InputStream& source, std::size_t limit);
  ~ManifestBytes() override;

  // Whether the source is read to its end, so that data() and size() are the whole document.
  bool whole() const { return whole_; }
  unsigned char const* data() const { return held_.get(); }
  std::size_t size() const { return size_; }

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  opc::InputStream& source_;
  // Allocated, not initialised: only the bytes that the source gives are ever touched.
  std::unique_ptr<unsigned char[]> held_;
  std::size_t size_ = 0;
  std::size_t given_ = 0;
  bool whole_ = false;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_MANIFEST_BYTES_H_
