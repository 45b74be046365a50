// The transformer of UDEToUTF8Transform: text that is already UTF-8 is passed on without
// being held in memory.
#ifndef SRC_CONTENT_TEXT_RECODING_TRANSFORMER_H_
#define SRC_CONTENT_TEXT_RECODING_TRANSFORMER_H_

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

#include <opc/core/input_stream.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/transform_source.h>

#include "content/spooled_input_stream.h"
#include "content/transformers.h"

namespace opc {
namespace vkservices {
namespace detail {

// How much of a text that may be UTF-8 is kept in memory while it is read; the rest waits in
// an unnamed temporary file.
constexpr std::size_t kRecodingMemoryBound = std::size_t{4} << 20;

// An entire-stream transformer that delivers what EntireStreamTransformer would for the
// owner's transformData, when that is UDEToUTF8Transform's: its constructor reads the whole
// wrapped stream (and raises what that raises), checking on the way whether the text is
// settled as UTF-8 without the detector.  If it is, the remark that detection would write
// goes to `remarks` and the text itself is the output, read from where it was kept (memory
// up to kRecodingMemoryBound, then a temporary file).  Otherwise the whole text goes through
// the owner's transformData in memory, as with EntireStreamTransformer.
class TextRecodingTransformer : public Transformer {
 public:
  TextRecodingTransformer(TransformSource& owner, IContentSource& source, std::ostream& remarks,
                          std::string const& dataName);
  ~TextRecodingTransformer() override;

  opc::InputStream& getInputStream() override;

 private:
  // Owns what it reads: the text as kept, or what transformData made of it.
  std::unique_ptr<SpooledInputStream> stream_;
};

// The transformer of a UDEToUTF8Transform, with its remarks where that transform writes them.
std::unique_ptr<Transformer> makeRecodingTransformer(TransformSource& owner,
                                                     IContentSource& source);

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_CONTENT_TEXT_RECODING_TRANSFORMER_H_
