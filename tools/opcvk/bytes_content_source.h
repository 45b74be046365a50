// A content source over bytes that it owns: a file read ahead of the add that takes it.
#ifndef TOOLS_OPCVK_BYTES_CONTENT_SOURCE_H_
#define TOOLS_OPCVK_BYTES_CONTENT_SOURCE_H_

#include <vector>

#include <opc/core/stream_adaptors.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>

namespace opcvk {

// Delivers `bytes`, from the first, as content of `contentType`.  Raises nothing but
// std::bad_alloc.  One thread at a time, as every source.
class BytesContentSource : public opc::vkservices::IContentSource {
 public:
  BytesContentSource(std::vector<unsigned char> bytes, opc::model::ContentType contentType);
  BytesContentSource(BytesContentSource const&) = delete;
  BytesContentSource& operator=(BytesContentSource const&) = delete;
  ~BytesContentSource() override;

  opc::model::ContentType getContentType() override;
  // A stream over the bytes, owned by this source.
  opc::InputStream& getInputStream() override;

 private:
  std::vector<unsigned char> const bytes_;
  opc::model::ContentType const contentType_;
  opc::ByteArrayInAdaptor stream_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_BYTES_CONTENT_SOURCE_H_
