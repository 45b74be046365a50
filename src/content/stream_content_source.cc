#include <opc/vkservices/content_sources.h>

namespace opc {
namespace vkservices {

StreamContentSource::StreamContentSource(std::istream& stream,
                                         opc::model::ContentType const& contentType)
    : contentType_(contentType), stream_(std::make_unique<opc::StdIStreamAdaptor>(stream)) {}

StreamContentSource::~StreamContentSource() = default;

opc::model::ContentType StreamContentSource::getContentType() { return contentType_; }

opc::InputStream& StreamContentSource::getInputStream() { return *stream_; }

}  // namespace vkservices
}  // namespace opc
