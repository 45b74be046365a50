#include <cerrno>
#include <string>
#include <typeinfo>
#include <utility>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/transform_source.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "content/text_recoding_transformer.h"
#include "content/transformers.h"

namespace opc {
namespace vkservices {

TransformSource::TransformSource(std::unique_ptr<IContentSource> source)
    : source_(std::move(source)) {
  // Every operation reads the wrapped source; without one there would be nothing to read
  // but a null pointer.
  if (!source_) {
    throw opc::Exception("A transform needs a source to wrap",
                         boost::system::error_code(EINVAL, boost::system::system_category()));
  }
}

// The transformer goes first: it holds pointers into the wrapped source.
TransformSource::~TransformSource() = default;

opc::model::ContentType TransformSource::getContentType() {
  opc::model::ContentType const type = source_->getContentType();
  opc::model::ContentType result(type);
  if (transformContentType(type, result)) return result;
  throw CouldNotTransformContentType("Failure when attempting to transform content type:" +
                                     opc::toASCIIString(source_->getContentType().toString()));
}

opc::InputStream& TransformSource::getInputStream() {
  if (!transformer_) {
    // Stored only once made: a transformer that fails while it is made leaves none, and the
    // next call tries again.
    if (mustTransformEntireStream()) {
      // The library's own recoding passes text that is already UTF-8 on without holding it.
      // Only that class, not one derived from it, whose transformData may differ.
      if (typeid(*this) == typeid(UDEToUTF8Transform)) {
        transformer_ = detail::makeRecodingTransformer(*this, *source_);
      } else {
        transformer_ = std::make_unique<detail::EntireStreamTransformer>(*this, *source_);
      }
    } else {
      transformer_ = std::make_unique<detail::SingleBufferTransformer>(*this, *source_);
    }
  }
  return transformer_->getInputStream();
}

}  // namespace vkservices
}  // namespace opc
