// The two ways in which a TransformSource pulls bytes through its transform: all at once, or
// one chunk per read.
#ifndef SRC_CONTENT_TRANSFORMERS_H_
#define SRC_CONTENT_TRANSFORMERS_H_

#include <cstddef>
#include <memory>

#include <opc/core/input_stream.h>
#include <opc/core/stream_adaptors.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/transform_source.h>

namespace opc {
namespace vkservices {
namespace detail {

// The transfer strategy of one TransformSource, made by its first getInputStream().  Holds
// non-owning pointers to that source and to the source it wraps; it lives inside the
// TransformSource and is deleted before the wrapped source.
class Transformer {
 public:
  Transformer(TransformSource& owner, IContentSource& source);
  Transformer(Transformer const&) = delete;
  Transformer& operator=(Transformer const&) = delete;
  virtual ~Transformer();

  // The stream of transformed bytes, owned by this transformer.
  virtual opc::InputStream& getInputStream() = 0;

 protected:
  // Runs the owner's transformData; raises CouldNotTransformContentData naming the wrapped
  // source's type if it reports failure.
  void transform(bytes const& input, bytes& output);

  IContentSource& wrappedSource() { return *source_; }

 private:
  TransformSource* owner_;
  IContentSource* source_;
};

// Reads the whole wrapped stream and transforms it in its constructor, which is where it
// raises; afterwards the result is read from memory.
class EntireStreamTransformer : public Transformer {
 public:
  EntireStreamTransformer(TransformSource& owner, IContentSource& source);
  ~EntireStreamTransformer() override;

  opc::InputStream& getInputStream() override;

 private:
  // `stream_` reads `output_`, so it is declared after it and goes first.
  bytes output_;
  std::unique_ptr<opc::ByteArrayInAdaptor> stream_;
};

// Its own stream: each read with nothing buffered pulls one chunk of the reader's size from
// the wrapped stream and transforms it into `buffer_`, which later reads drain.
class SingleBufferTransformer : public Transformer, public opc::InputStream {
 public:
  SingleBufferTransformer(TransformSource& owner, IContentSource& source);
  ~SingleBufferTransformer() override;

  opc::InputStream& getInputStream() override;

  void open() override;
  std::size_t read(unsigned char* target, std::size_t size) override;
  bool isDone() const override;
  void close() override;

 private:
  bool bufferEmpty() const { return offset_ == buffer_.size(); }

  // The wrapped source's stream, which is the same object on every call.
  opc::InputStream* wrapped_;
  // Transformed bytes not yet read; `offset_` of them have been read already.  Draining by
  // an offset keeps a read from moving the rest of the chunk to the front.
  bytes buffer_;
  std::size_t offset_ = 0;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_CONTENT_TRANSFORMERS_H_
