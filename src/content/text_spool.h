// Where text waits while it is read, until it is known whether it is already UTF-8.
#ifndef SRC_CONTENT_TEXT_SPOOL_H_
#define SRC_CONTENT_TEXT_SPOOL_H_

#include <cstddef>
#include <memory>

#include <fl/i18n/charset.h>
#include <opc/core/output_stream.h>
#include <opc/core/unnamed_temporary_file.h>
#include <opc/vkservices/bytes.h>

namespace opc {
namespace vkservices {
namespace detail {

// An OutputStream that keeps the text written to it and checks on the way whether it is
// settled as UTF-8.  While it may be, the first `memoryBound` bytes are kept in memory and the
// rest in an unnamed temporary file, so that a large text costs little memory.  Once it can
// no longer be, everything goes to memory, where the whole text must be for detection anyway.
//
// Raises what UnnamedTemporaryFile raises when the file cannot be made, written or read back.
class TextSpool : public opc::OutputStream {
 public:
  explicit TextSpool(std::size_t memoryBound);
  ~TextSpool() override;

  void write(unsigned char const* buffer, std::size_t count) override;
  void flush() override;
  void close() override;

  fl::i18n::Utf8TextCheck const& check() const { return check_; }

  // What was kept: the bytes in memory, which come first, and the file holding the rest, if
  // there is one.  The spool is left empty.
  bytes takeHead() { return std::move(head_); }
  std::unique_ptr<opc::UnnamedTemporaryFile> takeRest() { return std::move(rest_); }
  // The whole text in memory; a file is read back and dropped.  The spool is left empty.
  bytes takeWhole();

 private:
  // Reads the file back behind the bytes in memory and drops it.
  void moveRestToMemory();

  std::size_t memoryBound_;
  fl::i18n::Utf8TextCheck check_;
  bytes head_;
  std::unique_ptr<opc::UnnamedTemporaryFile> rest_;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_CONTENT_TEXT_SPOOL_H_
