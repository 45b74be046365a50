// opc::model::PartReader: the content of one part, in a stream that its caller owns.
#ifndef OPC_MODEL_PART_READER_H_
#define OPC_MODEL_PART_READER_H_

#include <cstddef>
#include <cstdint>
#include <memory>

#include <opc/core/input_stream.h>
#include <opc/model/content_type.h>
#include <opc/model/export.h>

namespace opc {
namespace model {

namespace detail {
class ContentReader;
class PartContent;
}  // namespace detail

// The content of a part as it was when the reader was made (see Package::openPartReader),
// read front to back.  Unlike the stream of Part::getInputStream, which the package owns
// until it closes, a PartReader belongs to whoever asked for it and takes its memory with it
// when it is destroyed; it keeps the bytes it reads alive by itself, but the package must stay
// open while it is read.
//
// open() finds the content (for an archive item, reads and checks its local header, raising
// InvalidPackage naming the item); the first read() does so if open() was not called.
// read() gives up to `count` bytes and 0 only at the end; close() releases what reading holds,
// after which isDone() is true and read() gives nothing.  Content read from an archive is
// checked as Part::getInputStream's is: a size or CRC-32 that the data does not match raises
// InvalidPartContent naming the item.
//
// Thread safety: a reader is used by one thread at a time.  Readers of one package may be
// read on different threads at once (see Package::openPartReader).
class OPC_MODEL_EXPORT PartReader final : public opc::InputStream {
 public:
  ~PartReader() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

  // The part's content type when the reader was made.
  ContentType const& getContentType() const { return contentType_; }
  // The number of bytes that the content holds.
  std::uint64_t getSize() const { return size_; }

 private:
  friend class Package;
  PartReader(ContentType contentType, std::shared_ptr<detail::PartContent const> const& content);

  ContentType contentType_;
  std::uint64_t size_;
  // Released by close().
  std::shared_ptr<detail::PartContent const> content_;
  std::unique_ptr<detail::ContentReader> reader_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PART_READER_H_
