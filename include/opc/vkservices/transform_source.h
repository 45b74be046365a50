// TransformSource: a content source that changes the bytes and the content type of another.
#ifndef OPC_VKSERVICES_TRANSFORM_SOURCE_H_
#define OPC_VKSERVICES_TRANSFORM_SOURCE_H_

#include <memory>

#include <boost/core/noncopyable.hpp>

#include <opc/core/input_stream.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

namespace detail {
class Transformer;
}  // namespace detail

// A source that wraps another and delivers its bytes and its type transformed.  A derived
// class writes the pair of transforms (transformData, transformContentType) and says how the
// bytes are pulled through (mustTransformEntireStream); this base does the pulling and turns
// a reported failure into an exception.
//
// The wrapped source is owned, and is deleted after the machinery that reads it.  Not
// synchronised: a source is used by one thread at a time.
class OPCVK_EXPORT TransformSource : public IContentSource, private boost::noncopyable {
 public:
  // Takes `source` over.  Does nothing else: no byte is read and no virtual operation is
  // called until getContentType() or getInputStream().  A null `source` raises
  // opc::Exception "A transform needs a source to wrap" (code invalid_argument).
  explicit TransformSource(std::unique_ptr<IContentSource> source);
  ~TransformSource() override;

  // The wrapped source's type passed through transformContentType.  Nothing is cached and
  // no byte is touched: each call asks the wrapped source again and transforms again, before
  // or after getInputStream() alike.  If transformContentType returns false, raises
  // CouldNotTransformContentType with "Failure when attempting to transform content type:"
  // directly followed (no blank) by the wrapped source's type, as ContentType::toString()
  // in ASCII.  Exceptions of the wrapped source or of the transform pass through.
  opc::model::ContentType getContentType() override;

  // The transformed bytes.  The first call asks mustTransformEntireStream() once and sets up
  // the transfer; every later call returns the same stream, owned by this source, without
  // transforming again.
  //
  // Entire stream: the first call opens the wrapped stream, reads all of it, closes it and
  // calls transformData once with the whole content (empty content included); the result
  // is then read from memory.  Peak memory is about twice the content.  If transformData
  // returns false, raises CouldNotTransformContentData with "Failure when attempting to
  // transform data for content type:" directly followed by the wrapped source's type; the
  // source then has no transfer set up, and a later call tries again on a wrapped stream
  // that has already been read.
  //
  // Buffer by buffer: the stream returned passes open() and close() to the wrapped stream.
  // Each read(target, size) with nothing left over from the last chunk pulls one chunk of up
  // to `size` bytes from the wrapped stream and transforms it; the result is delivered over
  // as many reads as the reader's sizes need, pulling nothing new until it is used up.  The
  // wrapped stream is not pulled once it is done, so an empty one never reaches
  // transformData; a read of size 0 returns 0 and pulls nothing.  A chunk that transforms to
  // nothing makes read() return 0 although isDone() is false: readers go by isDone(), not by
  // a zero count.  A false transformData raises CouldNotTransformContentData as above from
  // that read(); what it wrote is dropped, and the chunk it was given is not read again.
  //
  // Exceptions of the wrapped source (a failed read) and of transformData pass through
  // unchanged.
  opc::InputStream& getInputStream() override;

  // True to transform the whole content in one call of transformData, false to transform it
  // chunk by chunk as the reader asks.  Asked once, by the first getInputStream().
  virtual bool mustTransformEntireStream() = 0;

  // Sets `output`, which comes in as a copy of `input`, to the type of the transformed
  // content.  Returns false if `input` cannot be transformed.
  virtual bool transformContentType(opc::model::ContentType const& input,
                                    opc::model::ContentType& output) = 0;

  // Appends the transform of `input` to `output`, which comes in empty.  `input` is the whole
  // content or one chunk, as mustTransformEntireStream() chose.  Returns false on failure.
  virtual bool transformData(bytes const& input, bytes& output) = 0;

 private:
  // In this order, so that the transformer, which reads the wrapped source, goes first.
  std::unique_ptr<IContentSource> source_;
  std::unique_ptr<detail::Transformer> transformer_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_TRANSFORM_SOURCE_H_
