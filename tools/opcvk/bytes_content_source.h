// A content source over bytes that it owns: a file read ahead of the add that takes it.
#ifndef TOOLS_OPCVK_BYTES_CONTENT_SOURCE_H_
#define TOOLS_OPCVK_BYTES_CONTENT_SOURCE_H_

#include <memory>
#include <vector>

#include <opc/core/stream_adaptors.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>

namespace opcvk {

// Delivers `bytes`, from the first, as content of `contentType`.  Raises nothing but
// std::bad_alloc.  One thread at a time, as every source.
//
// The type is shared rather than copied: a tree of many files of a few types makes one
// source per file, and a copy of the type costs allocations on the thread that adds them.
class BytesContentSource : public opc::vkservices::IContentSource {
 public:
  // `contentType` must not be null.
  BytesContentSource(std::vector<unsigned char> bytes,
                     std::shared_ptr<opc::model::ContentType const> contentType);
  BytesContentSource(BytesContentSource const&) = delete;
  BytesContentSource& operator=(BytesContentSource const&) = delete;
  ~BytesContentSource() override;

  opc::model::ContentType getContentType() override;
  // A stream over the bytes, owned by this source.
  opc::InputStream& getInputStream() override;

 private:
  std::vector<unsigned char> const bytes_;
  std::shared_ptr<opc::model::ContentType const> const contentType_;
  opc::ByteArrayInAdaptor stream_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_BYTES_CONTENT_SOURCE_H_
