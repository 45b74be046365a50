#include "content/transformers.h"

#include <algorithm>
#include <string>
#include <utility>

#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>

namespace opc {
namespace vkservices {
namespace detail {

Transformer::Transformer(TransformSource& owner, IContentSource& source)
    : owner_(&owner), source_(&source) {}

Transformer::~Transformer() = default;

void Transformer::transform(bytes const& input, bytes& output) {
  if (owner_->transformData(input, output)) return;
  // The type is asked for again here rather than remembered: the message names what the
  // wrapped source says now, as getContentType() would.
  throw CouldNotTransformContentData("Failure when attempting to transform data for content type:" +
                                     opc::toASCIIString(source_->getContentType().toString()));
}

EntireStreamTransformer::EntireStreamTransformer(TransformSource& owner, IContentSource& source)
    : Transformer(owner, source) {
  {
    bytes input;
    opc::ByteArrayOutAdaptor adaptor(input);
    // The copy raises on every failure, so its result says nothing more.
    opc::StreamHelper::copyStreamToStream(wrappedSource().getInputStream(), adaptor);
    transform(input, output_);
    // `input` goes here, before anyone reads, so that input and output are held together
    // only while the transform runs.
  }
  stream_ = std::make_unique<opc::ByteArrayInAdaptor>(output_);
}

EntireStreamTransformer::~EntireStreamTransformer() = default;

opc::InputStream& EntireStreamTransformer::getInputStream() { return *stream_; }

SingleBufferTransformer::SingleBufferTransformer(TransformSource& owner, IContentSource& source)
    : Transformer(owner, source), wrapped_(&source.getInputStream()) {}

SingleBufferTransformer::~SingleBufferTransformer() = default;

opc::InputStream& SingleBufferTransformer::getInputStream() { return *this; }

// What is buffered stays: it was transformed from bytes that the wrapped stream will not give
// again.
void SingleBufferTransformer::open() { wrapped_->open(); }

std::size_t SingleBufferTransformer::read(unsigned char* target, std::size_t size) {
  // A read of nothing must not pull a chunk: an empty chunk would reach the transform as if
  // the wrapped stream had given no bytes.
  if (size == 0) return 0;
  if (bufferEmpty()) {
    if (wrapped_->isDone()) return 0;
    // The reader's size is the chunk size: a transform sees chunks as large as the reads.
    bytes input(size);
    input.resize(wrapped_->read(input.data(), input.size()));
    // Transformed aside and kept only on success, so that what a failing transform wrote
    // before it gave up is never read as content.
    bytes output;
    transform(input, output);
    buffer_ = std::move(output);
    offset_ = 0;
  }
  std::size_t const count = std::min(size, buffer_.size() - offset_);
  std::copy_n(buffer_.data() + offset_, count, target);
  offset_ += count;
  if (bufferEmpty()) {
    // Release what a large chunk took, rather than keep it until the next pull.
    bytes().swap(buffer_);
    offset_ = 0;
  }
  return count;
}

bool SingleBufferTransformer::isDone() const { return bufferEmpty() && wrapped_->isDone(); }

void SingleBufferTransformer::close() { wrapped_->close(); }

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
