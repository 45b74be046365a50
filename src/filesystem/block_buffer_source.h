// Bytes kept in blocks and read back as a content source.  Internal to the file system.
#ifndef SRC_FILESYSTEM_BLOCK_BUFFER_SOURCE_H_
#define SRC_FILESYSTEM_BLOCK_BUFFER_SOURCE_H_

#include <cstddef>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>

namespace opc {
namespace vkservices {

// A document written once and then read once, such as the manifest of a tree of 100,000
// files (tens of MiB): it is held in blocks of 1 MiB, so that it lives in memory once, without
// the doubling of a growing string or the copies of a string stream.
//
// Write everything through writer() first, then read through getInputStream(); the two are
// owned by the source.  Not thread-safe.  Raises nothing but std::bad_alloc.
class BlockBufferSource : public IContentSource {
 public:
  explicit BlockBufferSource(opc::model::ContentType contentType);
  BlockBufferSource(BlockBufferSource const&) = delete;
  BlockBufferSource& operator=(BlockBufferSource const&) = delete;
  ~BlockBufferSource() override;

  // Appends to the bytes.
  opc::OutputStream& writer();

  opc::model::ContentType getContentType() override;
  // The bytes written, from the first; reading releases each block once it is read.
  opc::InputStream& getInputStream() override;

 private:
  class Writer : public opc::OutputStream {
   public:
    explicit Writer(std::vector<std::vector<unsigned char>>& blocks) : blocks_(blocks) {}
    void write(unsigned char const* buffer, std::size_t count) override;
    void flush() override {}
    void close() override {}

   private:
    std::vector<std::vector<unsigned char>>& blocks_;
  };
  class Reader : public opc::InputStream {
   public:
    explicit Reader(std::vector<std::vector<unsigned char>>& blocks) : blocks_(blocks) {}
    void open() override {}
    std::size_t read(unsigned char* buffer, std::size_t count) override;
    bool isDone() const override;
    void close() override {}

   private:
    std::vector<std::vector<unsigned char>>& blocks_;
    std::size_t block_ = 0;
    std::size_t position_ = 0;
  };

  opc::model::ContentType const contentType_;
  std::vector<std::vector<unsigned char>> blocks_;
  Writer writer_;
  Reader reader_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_BLOCK_BUFFER_SOURCE_H_
