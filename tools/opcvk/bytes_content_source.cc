#include "bytes_content_source.h"

#include <utility>

namespace opcvk {

BytesContentSource::BytesContentSource(std::vector<unsigned char> bytes,
                                       std::shared_ptr<opc::model::ContentType const> contentType)
    : bytes_(std::move(bytes)), contentType_(std::move(contentType)), stream_(bytes_) {}

BytesContentSource::~BytesContentSource() = default;

opc::model::ContentType BytesContentSource::getContentType() { return *contentType_; }

opc::InputStream& BytesContentSource::getInputStream() { return stream_; }

}  // namespace opcvk
